"""Plays a scenario step by step and tells what came of it."""

import time

from .log import Log, decisions
from .machine import CommandFailed
from .sections import compare

SHOWN = ("cable", "phys", "wwan", "airplane", "stored_wlan", "stored_wwan", "service")


class Failed(Exception):
    """The scenario did not come out as it says."""


class Player:
    """Plays one scenario on a machine and tells every step with the state it led to. With a
    `recording` (a dictionary) the log is kept there, by the step's line, instead of checked."""

    def __init__(self, machine, scenario, tell, recording=None):
        self._machine = machine
        self._scenario = scenario
        self._tell = tell
        self._recording = recording
        self._log = None
        self._begun = 0.0

    def play(self):
        self._machine.begin(self._scenario.machine)
        self._log = Log(self._machine.log_file())
        self._begun = time.monotonic()
        self._tell(f"{'time':>7}  {'step':42} " + "  ".join(SHOWN))
        self._play_steps(self._scenario.steps)

    def _play_steps(self, steps):
        for step in steps:
            if step.kind == "repeat":
                for _ in range(int(step.text)):
                    self._play_steps(step.steps)
                continue
            try:
                getattr(self, "_play_" + step.kind)(step)
            except (CommandFailed, Failed) as failure:
                self._row(step.text)
                raise Failed(f"{self._scenario.path.name}, line {step.number}: {failure}") from failure

    def _play_do(self, step):
        self._machine.do(step.text)
        self._row(step.text)

    def _play_expect(self, step):
        self._machine.settle()
        conditions = [condition(word) for word in step.text.split()]
        found = self._machine.values(*(key for key, _, _ in conditions))
        self._row("expect " + step.text)
        wrong = [f"{key}={found[key]}" for key, value, equal in conditions if (found[key] == value) != equal]
        if wrong:
            raise Failed(f"expected {step.text}, but " + " ".join(wrong))

    def _play_within(self, step):
        self._machine.do(f"wait {step.text} within {step.within}")
        self._row(f"within {step.within} ms: {step.text}")

    def _play_log(self, step):
        self._machine.settle()
        found = {}
        for entry in decisions(self._log.read_settled()):
            found.setdefault(entry.root, []).append(str(entry))
        if self._recording is not None:
            self._recording[step.number] = found
            return
        difference = compare(step.sections, found)
        if difference:
            raise Failed("the log differs (- expected, + found)\n" + "\n".join(difference))

    def _row(self, text):
        values = self._machine.values(*SHOWN)
        shown = "  ".join(values[key].ljust(len(key)) for key in SHOWN)
        self._tell(f"{time.monotonic() - self._begun:7.2f}  {text[:42]:42} {shown}")


def condition(word):
    """`key=value` or `key!=value` as (key, value, whether they are to be equal)."""
    key, _, value = word.partition("=")
    return key.rstrip("!"), value, not key.endswith("!")
