"""The notebook by hand: starts it with the service on it and takes the controller's commands."""

import sys

from .machine import CommandFailed, Machine, ROOT
from .player import SHOWN

PROMPT = "notebook> "
INTERRUPTED = 130


def show(machine, answer):
    for line in machine.lines:
        print("  " + line)
    if answer:
        print("  " + answer)


def show_state(machine):
    values = machine.values(*SHOWN)
    print("  " + "  ".join(f"{key}={values[key]}" for key in SHOWN))


def obey(machine, line):
    """Carries out what was typed; False when that was the wish to leave."""
    command = line.strip()
    if command in ("quit", "exit"):
        return False
    if command == "log":
        sys.stdout.write(machine.log_file().read_bytes().decode("utf-8-sig").replace("\r\n", "\n"))
        return True
    try:
        if command:
            answer = machine.do(command)
            show(machine, answer)
            if not answer and not machine.lines:
                show_state(machine)
    except CommandFailed as failure:
        print(f"  {failure}")
    return True


def main():
    print("Booting the notebook and installing the service (some seconds) ...", flush=True)
    with Machine(ROOT / "build/wine/by-hand", ROOT / "build/cross/bin") as machine:
        machine.begin(" ".join(sys.argv[1:]) or "modems 1")
        machine.do("start")
        print("The service runs. Try: plug, unplug, wifi off, airplane on, status, log, help, quit.")
        show_state(machine)
        while True:
            try:
                line = input(PROMPT if sys.stdin.isatty() else "")
            except EOFError:
                break
            if not obey(machine, line):
                break
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        print()
        sys.exit(INTERRUPTED)
