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
    """The notebook with one of its radios, and everything that is still to be done on it."""
    half: str
    """wlan or wwan: whose radio is followed"""
    radio: tuple
    """whether each PHY is on; the modem counts as one"""
    before: tuple
    """what airplane mode gives back"""
    stored: bool | None = None
    is_enabled: bool = True
    """by the BIOS"""
    cables: frozenset = frozenset()
    airplane: bool = False

    cable_event: bool = False
    """a cable event is being handled"""
    own_switch: bool = False
    """the service is changing the modem"""
    lock: str = ""
    """the thread that may change the modem alone"""
    watching: bool = True
    """the watcher waits, rather than works"""
    threads: tuple = ()
    """(name, steps) of each that has something to do, steps being (function, arguments)"""

    @property
    def cable(self):
        return bool(self.cables)

    @property
    def is_on(self):
        return all(self.radio)

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


def fresh(half, **changes):
    """A world with the radio on, no cable in, and nothing remembered."""
    on = (True,) * (2 if half == "wlan" else 1)
    return World(half, on, on, **changes)


def outcomes(worlds, actions):
    """Every world that settled ones can come to when the actions happen one right after another. Each has one
    radio: neither looks at the other."""
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
    return [_set(world, (on, on)) if world.half == "wlan" else world]


def wifi_available(world, _):
    return [world.then("notification", (available,)) if world.half == "wlan" else world]


def wwan(world, _, on):
    # The end of a request is told also where it has changed nothing.
    return [world.but(radio=(on,)).then("completion", (completed,)) if world.half == "wwan" else world]


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
        return [_set(world.but(before=world.radio), (False,) * len(world.radio))]
    return [_set(world, tuple(now or before for now, before in zip(world.radio, world.before)))]


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
    return [world.but(cable_event=False).then("worker", (first_decision,))]


def _set(world, radio):
    changes = sum(now != then for now, then in zip(world.radio, radio))
    told = ("notification", radio_change) if world.half == "wlan" else ("completion", completed)
    return world.but(radio=radio).then(told[0], *((told[1],),) * changes)


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
        return [world.first(thread, (stop,), (cable_event_ends,))]
    if dict(world.threads).get("user"):
        return [None]  # the wait is longer than what the user still does
    return [world.first(thread, (cable_event_ends,))]


def disconnected(world, thread):
    if world.cable:
        return [world.first(thread, (cable_event_ends,))]
    return [world.first(thread, (start,), (cable_event_ends,))]


def stop(world, thread):
    if not world.is_enabled or not world.is_on:
        return [world]
    return [world.first(thread, (switch, False), (store, True))]


def start(world, thread):
    if not world.is_enabled or not remembered(world.stored):
        return [world]
    return [world.first(thread, (try_to_switch, True))]


# Switching. A switch looks first, and turns nothing on in airplane mode.

def switch(world, thread, on):
    if world.half == "wwan" and world.lock:
        return [None]
    if world.is_on == on or (on and world.airplane):
        return [world]
    if world.half == "wlan":
        return [world.first(thread, (set_phy, 0, on), (set_phy, 1, on))]
    return [world.but(lock=thread, own_switch=True).first(thread, (set_modem, on, 1))]


def set_phy(world, _, phy, on):
    return [_set(world, tuple(on if index == phy else state for index, state in enumerate(world.radio)))]


def set_modem(world, thread, on, round_):
    return [_set(world, (on,)).first(thread, (judge_modem, on, round_))]


def judge_modem(world, thread, on, round_):
    if world.is_on == on or round_ >= WWAN_ROUNDS:
        return [world.but(lock="", own_switch=False)]
    return [world.first(thread, (set_modem, on, round_ + 1))]


def try_to_switch(world, thread, on):
    if on and world.airplane:
        return [world]
    return [world.first(thread, (switch, on), (judge_switch, on, 0))]


def judge_switch(world, thread, on, attempt):
    if world.is_on == on or attempt >= RETRIES:
        return [world]
    return [world.first(thread, (switch, on), (judge_switch, on, attempt + 1))]


def store(world, _, on):
    return [world.but(stored=on)]


# WLAN notifications.

def radio_change(world, thread):
    return [world.first(thread, (judge_radio_change, world.cable))]


def judge_radio_change(world, thread, cable):
    return [world.first(thread, (react_to_radio_change, cable, world.airplane, world.is_on))]


def react_to_radio_change(world, thread, cable, in_airplane, on):
    if cable:
        return [world.first(thread, (switch, False))] if on and world.is_enabled else [world]
    if in_airplane or world.cable_event:
        return [world]
    return [world.first(thread, (store, on))]


def available(world, thread):
    if world.cable:
        return [world.first(thread, (switch, False))] if world.is_enabled else [world]
    return [world.first(thread, (store, True))] if world.is_on else [world]


# Completions of the modem.

def completed(world, thread):
    return [world.first(thread, (judge_completion, world.cable))]


def judge_completion(world, thread, cable):
    if world.own_switch or world.airplane:
        return [world]
    return [world.first(thread, (react_to_completion, cable))]


def react_to_completion(world, thread, cable):
    if not world.is_enabled or not cable:
        return [world.first(thread, (store, world.is_on))]
    return [world.first(thread, (try_to_switch, False))] if world.is_on else [world]


# The watcher of airplane mode.

def watch(world, thread):
    steps = [(watch_cable,)]
    if world.half == "wlan" and world.is_enabled and world.airplane:
        steps.insert(0, (switch, False))
    return [world.first(thread, *steps)]


def watch_cable(world, thread):
    return [world.first(thread, *(((watch_waits,),) if world.cable else ((watch_end_of_airplane,),
                                                                         (watch_waits,))))]


def watch_end_of_airplane(world, thread):
    if world.airplane or not world.is_enabled:
        return [world]
    return [world.first(thread, (restore,))]


def watch_waits(world, thread):
    return [world if dict(world.threads).get(thread) else world.but(watching=True)]


def restore(world, thread):
    return [world.first(thread, (switch, remembered(world.stored)))]


# Resume and start.

def resumed(world, thread):
    if not world.cable:
        return [world.first(thread, (start,))]
    return [world.first(thread, (try_to_switch, False)) if world.half == "wwan" and world.is_enabled else world]


def first_decision(world, thread):
    return [world.first(thread, (switch, False) if world.is_enabled and world.cable else (restore,))]
