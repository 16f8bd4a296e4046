"""The demonstration: an evening on the simulated notebook as a live table, and as the doctor's picture and
page of the log that the service wrote meanwhile."""

import argparse
import os
import pathlib
import subprocess
import sys
import time

from .log import Log, decisions
from .machine import add_programs, DOCTOR, Machine, ROOT
from .player import condition
from .prefix import leave_by_signals
from .story import EVENING

STEP_SECONDS = 120
STEP_GAP = 4.0
"""Seconds that a step gets at least, so that its words have room."""
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
    """Plays the story, step by step."""

    def __init__(self, machine, screen):
        self._machine = machine
        self._screen = screen
        self._log = Log(machine.log_file())
        self._begun = time.monotonic()
        self._said = []

    def play(self, steps):
        self._screen.heading()
        for step in steps:
            self._step(step)

    def _step(self, step):
        begun = self._now()
        self._said = []
        for command in step.commands:
            self._machine.do(command)
        state, said = self._await(step, begun)
        self._screen.row(begun, step.happened, state, said)
        while self._now() < begun + STEP_GAP:
            self._screen.progress(self._now(), "...")
            time.sleep(0.1)

    def _await(self, step, begun):
        """Waits for the outcome and for the service's word; what is so then, and the line that it said."""
        conditions = [condition(word) for word in step.outcome.split()]
        while True:
            state = self._machine.status()
            said = self._heard(step.said)
            if said is not None and all((state[key] == value) == equal for key, value, equal in conditions):
                # What comes and goes on the way does not count.
                self._machine.settle()
                state = self._machine.status()
                if all((state[key] == value) == equal for key, value, equal in conditions):
                    return state, said
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

    def _now(self):
        return time.monotonic() - self._begun


def in_airplane_mode(machine):
    """A time of the day in the middle of airplane mode, as the doctor takes it: the most that can be asked."""
    [lane] = (lane for lane in machine.why()["lanes"] if lane["id"] == "airplane")
    [on] = (interval for interval in lane["intervals"] if interval["state"] == "on")
    return time.strftime("%H:%M:%S", time.gmtime((on["from"] + on["until"]) / 2000))


def have_drawn(machine, picture, page):
    """The doctor's picture and page of the log so far."""
    for path, arguments in ((picture, ["--picture"]), (page, [in_airplane_mode(machine), "--html"])):
        path.parent.mkdir(parents=True, exist_ok=True)
        # By its name alone: the page shows what it was given, and where it lay is nobody's business.
        subprocess.run([DOCTOR, "why", *arguments, path.resolve(), "LinkvaneService.log"], check=True, timeout=60,
                       cwd=machine.log_folder())


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/demo", description="Shows an evening on the simulated notebook.")
    add_programs(parser)
    parser.add_argument("--prefix", default=ROOT / "build/wine/demo", help="the Wine prefix to make")
    parser.add_argument("--picture", default=ROOT / "build/evening.svg", type=pathlib.Path, help="where the picture goes")
    parser.add_argument("--page", default=ROOT / "build/evening.html", type=pathlib.Path, help="where the page goes")
    parser.add_argument("--check", action="store_true", help=argparse.SUPPRESS)
    return parser.parse_args()


def main():
    options = arguments()
    if options.check:
        return 0
    leave_by_signals()
    screen = Screen()
    screen.note("Booting the notebook and installing the service (some seconds) ...")
    with Machine(options.prefix, options.programs) as machine:
        machine.begin("modems 1")
        Demonstration(machine, screen).play(EVENING)
        log_lines = machine.log_file().read_bytes().count(b"\n")
        have_drawn(machine, options.picture, options.page)
        machine.do("remove")
    screen.note(f"\nThe service wrote {log_lines} log lines. What the doctor makes of them:")
    screen.note(f"  {os.path.relpath(options.picture)}  the evening as a picture")
    screen.note(f"  {os.path.relpath(options.page)}  as a page: why was Wi-Fi off in airplane mode?")
    return 0


if __name__ == "__main__":
    sys.exit(main())
