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

STEP_GAP = 4.0
"""Seconds that a step gets at least, so that its words have room."""
COLUMNS = (("cable", "cable", 7), ("wifi", "Wi-Fi", 6), ("stored_wlan", "stored", 8), ("wwan", "WWAN", 5),
           ("stored_wwan", "stored", 8), ("airplane", "airplane", 9))
LIVELY, QUIET, BOLD, PLAIN = "\033[32m", "\033[2m", "\033[1m", "\033[0m"


def painted(text, colour):
    """In colour on a terminal, plain elsewhere."""
    return colour + text + PLAIN if sys.stdout.isatty() else text


def note(text):
    print(text, flush=True)


def play(machine, steps):
    """Plays the story; each step is a row of the table once all has settled."""
    note(painted(f"{'time':>7}  {'what happened':30}{''.join(name.ljust(width) for _, name, width in COLUMNS)}"
                 " what the service said", BOLD))
    log = Log(machine.log_file())
    begun = time.monotonic()
    for step in steps:
        at = time.monotonic()
        for command in step.commands:
            machine.do(command)
        machine.settle()
        state = machine.status()
        cells = "".join(painted(state[key].ljust(width), LIVELY if state[key] in ("in", "on", "True") else QUIET)
                        for key, _, width in COLUMNS)
        note(f"{at - begun:6.1f}s  {step.happened:30}{cells} {heard(log, step, state)}")
        time.sleep(max(0, at + STEP_GAP - time.monotonic()))


def heard(log, step, state):
    """The line that the service said, where all has come as the step has it."""
    said = [entry.message.strip() for entry in decisions(log.read_settled()) if step.said in entry.message]
    wanted = [condition(word) for word in step.outcome.split()]
    if not said and step.said or any((state[key] == value) != equal for key, value, equal in wanted):
        raise SystemExit(f'{step.happened}: expected {step.outcome} and the words "{step.said}", but it is {state}')
    return said[0] if step.said else ""


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
    note("Booting the notebook and installing the service (some seconds) ...")
    with Machine(options.prefix, options.programs) as machine:
        machine.begin("modems 1")
        play(machine, EVENING)
        log_lines = machine.log_file().read_bytes().count(b"\n")
        have_drawn(machine, options.picture, options.page)
        machine.do("remove")
    note(f"\nThe service wrote {log_lines} log lines. What the doctor makes of them:")
    note(f"  {os.path.relpath(options.picture)}  the evening as a picture")
    note(f"  {os.path.relpath(options.page)}  as a page: why was Wi-Fi off in airplane mode?")
    return 0


if __name__ == "__main__":
    sys.exit(main())
