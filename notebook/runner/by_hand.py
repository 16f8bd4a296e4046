"""The notebook by hand: starts it with the service on it and takes the controller's commands."""

import argparse
import pathlib
import sys

from .machine import CommandFailed, Machine, ROOT
from .player import SHOWN
from .prefix import leave_by_signals

PROMPT = "notebook> "
# What is held, or due later, is for the next command to bring on.
SETTLED_SECONDS = 15
COUNTED = ("wlan", "phys", "cables", "modems")
USAGE = f"scripts/notebook {' '.join(f'[{word} N]' for word in COUNTED)} [devices here|remote]"
# In place of the controller's own way to leave, which its help has last.
OWN_COMMANDS = ("log ", "      The service's log so far.", "quit ", "      Ends the notebook; exit does, too.")


def show(lines):
    for line in lines:
        print(f"  {line}")


def show_state(machine):
    values = machine.values(*SHOWN)
    show(["  ".join(f"{key}={values[key]}" for key in SHOWN)])


def show_outcome(machine):
    """The state that a command has led to."""
    try:
        machine.settle(SETTLED_SECONDS)
    except CommandFailed as failure:
        show([f"still at work: {failure}"])
    show_state(machine)


def carry_out(machine, command):
    answer = machine.do(command)
    lines = machine.lines
    if command == "help":
        lines = [*lines[:-2], *OWN_COMMANDS]
    show([*lines, *([answer] if answer else [])])
    if (not answer or answer.startswith("took=")) and not lines and command.split()[0] not in ("background", "call"):
        show_outcome(machine)


def obey(machine, line):
    """Carries out what was typed; False when that was the wish to leave."""
    command = line.strip()
    if command in ("quit", "exit"):
        return False
    if command == "log":
        sys.stdout.write(machine.log_file().read_bytes().decode("utf-8-sig").replace("\r\n", "\n"))
    elif command and not command.startswith("#"):
        try:
            carry_out(machine, command)
        except CommandFailed as failure:
            show([failure])
    return True


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/notebook", usage=USAGE, description="A notebook with the service running on it.")
    parser.add_argument("shape", nargs="*", help="what kind of notebook")
    parser.add_argument("--check", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--programs", default=ROOT / "build/cross/bin", type=pathlib.Path, help=argparse.SUPPRESS)
    parser.add_argument("--prefix", default=ROOT / "build/wine/by-hand", type=pathlib.Path, help=argparse.SUPPRESS)
    options = parser.parse_args()
    pairs = list(zip(options.shape[::2], options.shape[1::2]))
    if len(options.shape) % 2 or any(word not in COUNTED or not number.isdecimal() for word, number in pairs
                                     if (word, number) not in (("devices", "here"), ("devices", "remote"))):
        parser.error(f"not understood: {' '.join(options.shape)}")
    return options


def main():
    options = arguments()
    if options.check:
        return 0
    leave_by_signals()
    print("Booting the notebook and installing the service (some seconds) ...", flush=True)
    with Machine(options.prefix, options.programs) as machine:
        machine.begin(" ".join(options.shape) or "modems 1")
        machine.do("start")
        print("The service runs. Try: plug, unplug, wifi off, airplane on, status, log, help, quit.")
        show_outcome(machine)
        while True:
            try:
                line = input(PROMPT if sys.stdin.isatty() else "")
            except EOFError:
                break
            if not obey(machine, line):
                break
            sys.stdout.flush()
    return 0


if __name__ == "__main__":
    sys.exit(main())
