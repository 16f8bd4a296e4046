"""A day of random events, held to the rules: `python3 -m notebook.runner.random_day [--seed N]`

Every event is settled before the next, unless they are to overlap; then pairs of them happen at once.
After each the machine must be in a state that the rules allow. The seed that is printed replays a day.
"""

import argparse
import pathlib
import random
import sys
import time

from . import rules
from .machine import add_prefixes, Machine
from .prefix import leave_by_signals

STORED = {"missing": None, "True": True, "False": False}


class NotAllowed(SystemExit):
    """What has come of a day's events is not what the rules allow."""


class Day:
    """The events of one day, on one machine, beside the worlds that the rules allow."""

    def __init__(self, machine, seed):
        self._machine = machine
        self._random = random.Random(seed)
        self._cables = set()
        self._airplane = False
        self._worlds = {half: {rules.fresh(half)} for half in ("wlan", "wwan")}

    def play(self, events, overlapping):
        for number in range(1, events + 1, 2 if overlapping else 1):
            happening = [self._event(overlapping) for _ in range(2 if overlapping else 1)]
            began = time.monotonic()
            for _, commands in happening:
                for command in commands:
                    self._machine.do(command)
            self._machine.settle()
            what = " + ".join(" ; ".join(commands) for _, commands in happening)
            self._judge(number, what, [action for action, _ in happening], time.monotonic() - began)

    def _judge(self, number, what, actions, seconds):
        values = self._machine.values("phys", "wwan", "stored_wlan", "stored_wwan", "service")
        seen = {"wlan": (tuple(state == "on" for state in values["phys"].split(",")),
                         STORED[values["stored_wlan"]]),
                "wwan": ((values["wwan"] == "on",), STORED[values["stored_wwan"]])}
        print(f"{number:4} {seconds:5.1f} s  {what:44} phys={values['phys']} wlan={values['stored_wlan']} "
              f"wwan={values['wwan']}/{values['stored_wwan']}", flush=True)
        if values["service"] != "running":
            raise NotAllowed(f"the service is {values['service']}")
        for half, worlds in self._worlds.items():
            allowed = rules.outcomes(worlds, actions)
            self._worlds[half] = {world for world in allowed if visible(world) == seen[half]}
            if not self._worlds[half]:
                choices = "\n    ".join(sorted({str(visible(world)) for world in allowed}))
                raise NotAllowed(f"{half}: {seen[half]}, but the rules allow\n    {choices}")

    def _event(self, overlapping):
        """An action of the rules and the commands that make it happen."""
        kinds = [self._cable] * 8 + [self._wifi] * 4 + [self._wwan] * 2 + [self._airplane_mode] * 3
        if not overlapping:
            kinds += [self._night] * 2 + [self._available, self._restart]
        return self._random.choice(kinds)()

    def _move(self):
        cable = self._random.choice((1, 2))
        if cable in self._cables:
            self._cables.discard(cable)
            return rules.unplug, cable, f"unplug cable {cable}"
        self._cables.add(cable)
        return rules.plug, cable, f"plug cable {cable}"

    def _cable(self):
        action, cable, command = self._move()
        return (action, cable), [command]

    def _wifi(self):
        on = self._random.random() < 0.5
        return (rules.wifi, on), [f"wifi {'on' if on else 'off'}"]

    def _wwan(self):
        # Turned on with the cable in it takes seven seconds to go off again: not too often.
        on = self._random.random() < (0.2 if self._cables else 0.5)
        return (rules.wwan, on), [f"wwan {'on' if on else 'off'}"]

    def _airplane_mode(self):
        self._airplane = not self._airplane
        return (rules.airplane, self._airplane), [f"airplane {'on' if self._airplane else 'off'}"]

    def _available(self):
        return (rules.wifi_available,), ["wifi available"]

    def _restart(self):
        return (rules.restart,), ["stop", "start"]

    def _night(self):
        if self._random.random() < 0.3:
            return (rules.sleep_and_wake,), ["suspend", "resume"]
        action, cable, command = self._move()
        return (rules.sleep_and_wake, (action, cable)), ["suspend", command, "resume"]


def visible(world):
    """What a user sees of the radio that a world follows."""
    return world.radio, world.stored


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
        Day(machine, options.seed).play(options.events, options.overlapping)
    print(f"{options.events} events, every outcome as the rules allow")
    return 0


if __name__ == "__main__":
    sys.exit(main())
