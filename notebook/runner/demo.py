"""The demonstration: an evening on the simulated notebook as a live table, and as a picture."""

import argparse
import os
import pathlib
import sys
import time

from .log import Log, decisions
from .machine import Machine, ROOT
from .player import condition
from .story import EVENING
from .timeline import LANES, Mark, Moment, STEP_GAP, draw

STEP_SECONDS = 120
COLUMNS = (("cable", "cable", 7), ("wifi", "Wi-Fi", 6), ("stored_wlan", "stored", 8), ("wwan", "WWAN", 5),
           ("stored_wwan", "stored", 8), ("airplane", "airplane", 9))
LIVELY, QUIET, BOLD, PLAIN = "\033[32m", "\033[2m", "\033[1m", "\033[0m"


class Screen:
    """The live table: in colour and with a line of progress on a terminal, plain elsewhere."""

    def __init__(self):
        self._is_terminal = sys.stdout.isatty()

    def heading(self):
        names = "".join(name.ljust(width) for _, name, width in COLUMNS)
        self._print(self._painted(f"{'time':>7}  {'what happened':30}{names} what the service said", BOLD))

    def row(self, seconds, happened, state, said):
        cells = ""
        for key, _, width in COLUMNS:
            value = state[key]
            lively = value in ("in", "on", "True")
            cells += self._painted(value.ljust(width), LIVELY if lively else QUIET)
        self._print(f"{seconds:6.1f}s  {happened:30}{cells} {said}")

    def progress(self, seconds, text):
        if self._is_terminal:
            print(f"\r\033[K{seconds:6.1f}s  {text}", end="", flush=True)

    def note(self, text):
        self._print(text)

    def _print(self, text):
        print(("\r\033[K" if self._is_terminal else "") + text, flush=True)

    def _painted(self, text, colour):
        return colour + text + PLAIN if self._is_terminal else text


class Demonstration:
    """Plays the story, step by step, and keeps what a picture of it needs."""

    def __init__(self, machine, screen):
        self._machine = machine
        self._screen = screen
        self._log = Log(machine.log_file())
        self._begun = time.monotonic()
        self._said = []
        self.moments = []
        self.marks = []

    def play(self, steps):
        self._look()
        self._screen.heading()
        for step in steps:
            self._step(step)
        return self._now()

    def _step(self, step):
        begun = self._now()
        self.marks.append(Mark(begun, step.happened))
        self._said = []
        for command in step.commands:
            self._machine.do(command)
            self._look()
        said = self._await(step, begun)
        self._screen.row(begun, step.happened, self.moments[-1].state, said)
        while self._now() < begun + STEP_GAP:
            self._look()
            self._screen.progress(self._now(), "...")
            time.sleep(0.1)

    def _await(self, step, begun):
        """Waits for the outcome and for the service's word; the line that it said."""
        conditions = [condition(word) for word in step.outcome.split()]
        while True:
            state = self._look()
            said = self._heard(step.said)
            if said is not None and all((state[key] == value) == equal for key, value, equal in conditions):
                # What comes and goes on the way does not count.
                self._machine.settle()
                state = self._look()
                if all((state[key] == value) == equal for key, value, equal in conditions):
                    return said
            if self._now() > begun + STEP_SECONDS:
                raise SystemExit(f"\n{step.happened}: expected {step.outcome} and the words "
                                 f"\"{step.said}\", but it is {state}")
            self._screen.progress(self._now(), f"{step.happened} ...")
            time.sleep(0.05)

    def _heard(self, fragment):
        self._said += decisions(self._log.read())
        if not fragment:
            return ""
        return next((entry.message.strip() for entry in self._said if fragment in entry.message), None)

    def _look(self):
        state = self._machine.status()
        if not self.moments or any(state[key] != self.moments[-1].state[key] for key, _ in LANES):
            self.moments.append(Moment(self._now(), state))
        return state

    def _now(self):
        return time.monotonic() - self._begun


def arguments():
    parser = argparse.ArgumentParser(description="Shows an evening on the simulated notebook.")
    parser.add_argument("--programs", default=ROOT / "build/cross/bin", help="where the programs are")
    parser.add_argument("--prefix", default=ROOT / "build/wine/demo", help="the Wine prefix to make")
    parser.add_argument("--picture", default=ROOT / "build/evening.svg", help="where the picture goes")
    return parser.parse_args()


def main():
    options = arguments()
    screen = Screen()
    screen.note("Booting the notebook and installing the service (some seconds) ...")
    with Machine(options.prefix, options.programs) as machine:
        machine.begin("modems 1")
        demonstration = Demonstration(machine, screen)
        end = demonstration.play(EVENING)
        log_lines = machine.log_file().read_bytes().count(b"\n")
        machine.do("remove")
    picture = pathlib.Path(options.picture)
    picture.parent.mkdir(parents=True, exist_ok=True)
    picture.write_text(draw(demonstration.moments, demonstration.marks, end), encoding="utf-8")
    screen.note(f"\nThe service wrote {log_lines} log lines. The same evening as a picture: "
                f"{os.path.relpath(picture)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
