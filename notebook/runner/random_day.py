"""A day of random events, held to the rules: `python3 -m notebook.runner.random_day [--seed N]`

Every event is settled before the next: then there is one state that the rules allow. Or pairs of them overlap: then
the service must come to rest, with Wi-Fi off beside a cable; which orders the rules allow beyond that is for
tests/hunt/. The seed that is printed replays a day.
"""

import argparse
import pathlib
import random
import sys
import time

from .machine import add_prefixes, Machine
from .prefix import leave_by_signals
from .rules import World


# Where each event is settled before the next, the service's pauses decide nothing: so many times as soon they
# are over.
QUICKER = 10


class NotAllowed(SystemExit):
    """What has come of a day's events is not what the rules allow."""


class Day:
    """The events of one day, on one machine, beside the world that the rules make of them."""

    def __init__(self, machine, seed):
        self._machine = machine
        self._random = random.Random(seed)
        self._world = World()

    def play(self, events, overlapping):
        for number in range(1, events + 1, 2 if overlapping else 1):
            happening = [self._event(overlapping) for _ in range(2 if overlapping else 1)]
            began = time.monotonic()
            for commands in happening:
                for command in commands:
                    self._machine.do(command)
            self._machine.settle()
            what = " + ".join(" ; ".join(commands) for commands in happening)
            values = self._machine.values("phys", "wwan", "stored_wlan", "stored_wwan", "service")
            print(f"{number:4} {time.monotonic() - began:5.1f} s  {what:44} phys={values['phys']} "
                  f"wlan={values['stored_wlan']} wwan={values['wwan']}/{values['stored_wwan']}", flush=True)
            judge(self._world, values, overlapping)

    def _event(self, overlapping):
        """The commands of an event, which has happened in the world."""
        kinds = [self._cable] * 8 + [self._wifi] * 4 + [self._wwan] * 2 + [self._airplane] * 3
        if not overlapping:
            kinds += [self._night] * 2 + [self._available, self._restart]
        return self._random.choice(kinds)()

    def _move(self):
        cable = self._random.choice((1, 2))
        return "unplug" if cable in self._world.cables else "plug", cable

    def _cable(self):
        move, cable = self._move()
        getattr(self._world, move)(cable)
        return [f"{move} cable {cable}"]

    def _wifi(self):
        on = self._random.random() < 0.5
        self._world.wifi(on)
        return [f"wifi {'on' if on else 'off'}"]

    def _wwan(self):
        # Turned on with the cable in it takes seven seconds to go off again: not too often.
        on = self._random.random() < (0.2 if self._world.cables else 0.5)
        self._world.turn_wwan(on)
        return [f"wwan {'on' if on else 'off'}"]

    def _airplane(self):
        on = not self._world.in_airplane
        self._world.airplane(on)
        return [f"airplane {'on' if on else 'off'}"]

    def _available(self):
        self._world.wifi_available()
        return ["wifi available"]

    def _restart(self):
        self._world.restart()
        return ["stop", "start"]

    def _night(self):
        if self._random.random() < 0.3:
            self._world.sleep_and_wake()
            return ["suspend", "resume"]
        move, cable = self._move()
        self._world.sleep_and_wake(move, cable)
        return ["suspend", f"{move} cable {cable}", "resume"]


def judge(world, values, overlapping):
    """Holds what is seen to the world; what the rules leave open becomes there what is seen."""
    if values["service"] != "running":
        raise NotAllowed(f"the service is {values['service']}")
    phys = set(values["phys"].split(","))
    if overlapping and world.cables and not world.in_airplane and phys == {"on"}:
        raise NotAllowed("Wi-Fi is on beside a cable")
    for name, states in (("wlan", phys), ("wwan", {values["wwan"]})):
        radio = getattr(world, name)
        seen = {"is_on": states == {"on"}, "remembered": values[f"stored_{name}"] != "False"}
        for what, state in seen.items():
            if not overlapping and (len(states) > 1 or getattr(radio, what) not in (state, None)):
                raise NotAllowed(f"{name}: {seen}, but the rules allow {radio}")
            setattr(radio, what, state)


def arguments():
    parser = argparse.ArgumentParser(description="Holds a day of random events to the rules.")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1_000_000))
    parser.add_argument("--events", type=int, default=200)
    parser.add_argument("--overlapping", action="store_true", help="two events at a time")
    add_prefixes(parser)
    return parser.parse_args()


def main():
    options = arguments()
    leave_by_signals()
    print(f"seed {options.seed}{' overlapping' if options.overlapping else ''}", flush=True)
    name = "notebook-overlapping" if options.overlapping else "notebook-day"
    with Machine(pathlib.Path(options.prefixes) / name, options.programs) as machine:
        machine.start_long("cables 2 modems 1")
        if not options.overlapping:
            machine.do(f"sleeps {QUICKER}")
        Day(machine, options.seed).play(options.events, options.overlapping)
    print(f"{options.events} events, nothing that the rules do not allow")
    return 0


if __name__ == "__main__":
    sys.exit(main())
