"""What may come of a user's actions, by the rules alone: a small model that follows every order in
which the threads of Windows and of the service can take their turns.

It knows cables, radios, airplane mode, what is remembered, and the flags and locks that the
documentation describes (docs/architecture.md); it knows nothing of the service's code. A thread is a
queue of steps. Each step looks at the world once and changes it once; `outcomes` tries them in every
order and gives every world in which all have finished.
"""

import dataclasses

RETRIES = 5
WWAN_ROUNDS = 10


@dataclasses.dataclass(frozen=True)
class World:
    """The notebook and everything that is still to be done on it."""
    cables: frozenset = frozenset()
    airplane: bool = False
    phys: tuple = (True, True)
    wwan: bool = True
    stored_wlan: bool | None = None
    stored_wwan: bool | None = None
    phys_before: tuple = (True, True)
    """what airplane mode gives back"""
    wwan_before: bool = True
    lan_wlan: bool = True
    """which halves the BIOS enables"""
    lan_wwan: bool = True

    cable_event: bool = False
    """a cable event is being handled"""
    own_wwan: bool = False
    """the service is changing the modem"""
    wwan_lock: str = ""
    """the thread that holds it"""
    watching: bool = True
    """the watcher waits, rather than works"""
    half: str = ""
    """wlan or wwan while only that radio is followed"""
    threads: tuple = ()
    """(name, steps) of each that has something to do, steps being (function, arguments)"""

    @property
    def cable(self):
        return bool(self.cables)

    @property
    def wifi(self):
        return all(self.phys)

    def but(self, **changes):
        return dataclasses.replace(self, **changes)

    def then(self, thread, *steps):
        """Steps for a thread, behind what it has to do already."""
        return self._queued(thread, lambda queue: queue + steps)

    def first(self, thread, *steps):
        """Steps that a thread takes before everything else it has to do."""
        return self._queued(thread, lambda queue: steps + queue)

    def _queued(self, thread, change):
        queues = dict(self.threads)
        queues[thread] = change(queues.get(thread, ()))
        return self.but(threads=tuple(sorted(((name, queue) for name, queue in queues.items() if queue),
                                             key=lambda item: item[0])))


def outcomes(worlds, actions):
    """Every world that settled ones can come to when the actions happen one right after another.
    Each follows one radio (`half`): neither looks at the other."""
    found, seen, waiting = set(), set(), []
    for world in worlds:
        for action, *arguments in actions:
            world = world.then("user", (action, *arguments))
        waiting.append(world)
    while waiting:
        world = waiting.pop()
        if not world.threads:
            found.add(world)
            continue
        for following in _turns(world):
            if following not in seen:
                seen.add(following)
                waiting.append(following)
    return found


def _turns(world):
    """The worlds after the next step of each thread that can take one."""
    for thread, (step, *_) in world.threads:
        taken = world._queued(thread, lambda queue: queue[1:])
        function, *arguments = step
        for following in function(taken, thread, *arguments):
            if following is not None:
                yield following


def remembered(stored):
    """What is remembered; nothing counts as on."""
    return stored is not False


# What the user and Windows do.

def plug(world, _, cable):
    if cable in world.cables:
        return [world]
    return [world.but(cables=world.cables | {cable}).then("network", (cable_event_begins,), (connected, cable))]


def unplug(world, _, cable):
    if cable not in world.cables:
        return [world]
    return [world.but(cables=world.cables - {cable}).then("network", (cable_event_begins,), (disconnected,))]


def wifi(world, _, on):
    return [_set_all_phys(world, (on, on))]


def wifi_available(world, _):
    return [world.then("notification", (available,))]


def wwan(world, _, on):
    # The end of a request is told also where it has changed nothing.
    return [world.but(wwan=on).then("completion", (completed,))] if world.half == "wwan" else [world]


def airplane(world, thread, on):
    if world.airplane == on:
        return [world]
    world = world.but(airplane=on).first(thread, (radios_follow, on))
    if world.watching:
        return [world.but(watching=False).then("watcher", (watch,))]
    # A change while the watcher works is seen with its next look, or missed.
    return [world, world.then("watcher", (watch,))]


def radios_follow(world, _, on):
    if on:
        world = world.but(phys_before=world.phys, wwan_before=world.wwan)
        return [_set_wwan(_set_all_phys(world, (False, False)), False)]
    back = tuple(now or before for now, before in zip(world.phys, world.phys_before))
    return [_set_wwan(_set_all_phys(world, back), world.wwan or world.wwan_before)]


def sleep_and_wake(world, _, *moves):
    """The cable moves while the notebook sleeps; Windows tells of it after the resume."""
    events = []
    for move, cable in moves:
        if move is plug and cable not in world.cables:
            world = world.but(cables=world.cables | {cable})
            events += [(cable_event_begins,), (connected, cable)]
        elif move is unplug and cable in world.cables:
            world = world.but(cables=world.cables - {cable})
            events += [(cable_event_begins,), (disconnected,)]
    return [world.then("control", (resumed,), (announce, tuple(events)))]


def announce(world, _, events):
    return [world.then("network", *events)]


def restart(world, _):
    """The service stops and starts again."""
    return [world.but(cable_event=False).then("worker", (first_wlan_decision,), (first_wwan_decision,))]


def _set_all_phys(world, phys):
    if world.half != "wlan":
        return world
    changes = sum(now != then for now, then in zip(world.phys, phys))
    return world.but(phys=phys).then("notification", *((radio_change,),) * changes)


def _set_wwan(world, on):
    if world.wwan == on or world.half != "wwan":
        return world
    return world.but(wwan=on).then("completion", (completed,))


# Network events, one at a time.

def cable_event_begins(world, _):
    return [world.but(cable_event=True)]


def cable_event_ends(world, _):
    return [world.but(cable_event=False)]


def connected(world, thread, cable):
    if cable not in world.cables:
        # Gone before it could be looked at: its kind cannot be told, or its address does not come.
        return [world.first(thread, (cable_event_ends,)), world.first(thread, (await_address,))]
    return [world.first(thread, (await_address,))]


def await_address(world, thread):
    if world.cable:
        return [world.first(thread, (stop_wlan,), (stop_wwan,), (cable_event_ends,))]
    if dict(world.threads).get("user"):
        return [None]  # the wait is longer than what the user still does
    return [world.first(thread, (cable_event_ends,))]


def disconnected(world, thread):
    if world.cable:
        return [world.first(thread, (cable_event_ends,))]
    return [world.first(thread, (start_wlan,), (start_wwan,), (cable_event_ends,))]


def _follows(world, half):
    """Whether this half is enabled, and followed at the moment."""
    return world.half == half and (world.lan_wlan if half == "wlan" else world.lan_wwan)


def stop_wlan(world, thread):
    if not _follows(world, "wlan") or not world.wifi:
        return [world]
    return [world.first(thread, (set_phy, 0, False), (set_phy, 1, False), (store_wlan, True))]


def start_wlan(world, thread):
    if not _follows(world, "wlan") or not remembered(world.stored_wlan):
        return [world]
    return [world.first(thread, (try_wlan, True, 0))]


def stop_wwan(world, thread):
    if not _follows(world, "wwan") or not world.wwan:
        return [world]
    return [world.first(thread, (switch_wwan, False), (store_wwan, True))]


def start_wwan(world, thread):
    if not _follows(world, "wwan") or not remembered(world.stored_wwan):
        return [world]
    return [world.first(thread, (try_wwan, True, 0))]


# Switching. A switch looks first, and turns nothing on in airplane mode.

def switch_wlan(world, thread, on):
    if world.wifi == on or (on and world.airplane):
        return [world]
    return [world.first(thread, (set_phy, 0, on), (set_phy, 1, on))]


def set_phy(world, _, phy, on):
    phys = tuple(on if index == phy else state for index, state in enumerate(world.phys))
    return [_set_all_phys(world, phys)]


def try_wlan(world, thread, on, attempt):
    if on and world.airplane:
        return [world]
    return [world.first(thread, (switch_wlan, on), (judge_wlan, on, attempt))]


def judge_wlan(world, thread, on, attempt):
    if world.wifi == on or attempt >= RETRIES:
        return [world]
    return [world.first(thread, (try_wlan_again, on, attempt + 1))]


def try_wlan_again(world, thread, on, attempt):
    return [world.first(thread, (switch_wlan, on), (judge_wlan, on, attempt))]


def switch_wwan(world, thread, on):
    if world.wwan_lock:
        return [None]
    if world.wwan == on or (on and world.airplane):
        return [world]
    return [world.but(wwan_lock=thread, own_wwan=True).first(thread, (set_wwan, on, 1))]


def set_wwan(world, thread, on, round_):
    return [_set_wwan(world, on).first(thread, (judge_set_wwan, on, round_))]


def judge_set_wwan(world, thread, on, round_):
    if world.wwan == on or round_ >= WWAN_ROUNDS:
        return [world.but(wwan_lock="", own_wwan=False)]
    return [world.first(thread, (set_wwan, on, round_ + 1))]


def try_wwan(world, thread, on, attempt):
    if on and world.airplane:
        return [world]
    return [world.first(thread, (switch_wwan, on), (judge_wwan, on, attempt))]


def judge_wwan(world, thread, on, attempt):
    if world.wwan == on or attempt >= RETRIES:
        return [world]
    return [world.first(thread, (switch_wwan, on), (judge_wwan, on, attempt + 1))]


def store_wlan(world, _, on):
    return [world.but(stored_wlan=on)]


def store_wwan(world, _, on):
    return [world.but(stored_wwan=on)]


# WLAN notifications.

def radio_change(world, thread):
    return [world.first(thread, (judge_radio_change, world.cable))]


def judge_radio_change(world, thread, cable):
    return [world.first(thread, (react_to_radio_change, cable, world.airplane, world.wifi))]


def react_to_radio_change(world, thread, cable, in_airplane, on):
    if cable:
        return [world.first(thread, (switch_wlan, False))] if on and world.lan_wlan else [world]
    if in_airplane or world.cable_event:
        return [world]
    return [world.first(thread, (store_wlan, on))]


def available(world, thread):
    if world.cable:
        return [world.first(thread, (switch_wlan, False))] if world.lan_wlan else [world]
    return [world.first(thread, (store_wlan, True))] if world.wifi else [world]


# Completions of the modem.

def completed(world, thread):
    return [world.first(thread, (judge_completion, world.cable))]


def judge_completion(world, thread, cable):
    if world.own_wwan or world.airplane:
        return [world]
    return [world.first(thread, (react_to_completion, cable))]


def react_to_completion(world, thread, cable):
    if not world.lan_wwan or not cable:
        return [world.first(thread, (store_wwan, world.wwan))]
    return [world.first(thread, (try_wwan, False, 0))] if world.wwan else [world]


# The watcher of airplane mode.

def watch(world, thread):
    steps = [(watch_cable,)]
    if _follows(world, "wlan") and world.airplane:
        steps.insert(0, (switch_wlan, False))
    return [world.first(thread, *steps)]


def watch_cable(world, thread):
    return [world.first(thread, *(((watch_waits,),) if world.cable else ((watch_end_of_airplane,),
                                                                         (watch_waits,))))]


def watch_end_of_airplane(world, thread):
    if world.airplane:
        return [world]
    steps = []
    if _follows(world, "wlan"):
        steps.append((restore_wlan,))
    if _follows(world, "wwan"):
        steps.append((restore_wwan,))
    return [world.first(thread, *steps)]


def watch_waits(world, thread):
    return [world if dict(world.threads).get(thread) else world.but(watching=True)]


def restore_wlan(world, thread):
    return [world.first(thread, (switch_wlan, remembered(world.stored_wlan)))]


def restore_wwan(world, thread):
    return [world.first(thread, (switch_wwan, remembered(world.stored_wwan)))]


# Resume and start.

def resumed(world, thread):
    if not world.cable:
        return [world.first(thread, (start_wlan,), (start_wwan,))]
    return [world.first(thread, (try_wwan, False, 0)) if _follows(world, "wwan") else world]


def first_wlan_decision(world, thread):
    if world.half != "wlan":
        return [world]
    if world.lan_wlan and world.cable:
        return [world.first(thread, (switch_wlan, False))]
    return [world.first(thread, (restore_wlan,))]


def first_wwan_decision(world, thread):
    if world.half != "wwan":
        return [world]
    if world.lan_wwan and world.cable:
        return [world.first(thread, (switch_wwan, False))]
    return [world.first(thread, (restore_wwan,))]
