"""Plays a scenario step by step and tells what came of it."""

import re
import time

from .log import DRAIN_SECONDS, Log, decisions
from .blocks import near
from .machine import CommandFailed
from .scenario import as_ever
from .sections import compare

SHOWN = ("cable", "phys", "wwan", "airplane", "stored_wlan", "stored_wwan", "service")
# A stop is answered within this time, unless the scenario says what it has to wait for.
STOP_MS = 1000
# A start has seconds of pauses in which nothing else happens: so many times as soon they are over.
START_QUICKER = 20
# What is remembered is text that ends in a null.
STORED_BYTES = {"True": "54007200750065000000", "False": "460061006c00730065000000"}
# A word that is none of the language is given to the controller, which does not know it either.
WORDS = ("machine", "also", "expect", "within", "silent", "repeat", "cause", "log", "preshutdown")
UNKNOWN = re.compile(r"no such (command|key): (\S+)")
TOOK = re.compile(r"took=(\d+)")
EXIT = re.compile(r"exit=(\d+)")


class Failed(Exception):
    """The scenario did not come out as it says."""


class Player:
    """Plays one scenario on a machine and tells every step with the state it led to. With a
    `recording` (a dictionary) a log that differs is kept there, by the step's line."""

    def __init__(self, machine, scenario, tell, recording=None):
        self._machine = machine
        self._scenario = scenario
        self._tell = tell
        self._recording = recording
        self._log = None
        self._begun = 0.0
        self._has_ended = False
        self._has_own_pace = False
        self._hurries = False

    def play(self):
        self._begun = time.monotonic()
        self._play_steps([self._scenario.machine, *self._scenario.steps])
        if self._machine.values("service")["service"] != "stopped":
            self._play_steps(as_ever("stop"))

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
                hints = self._near(failure) + self._in_background()
                raise Failed(f"{step.path.name}, line {step.number}: {failure}{hints}") from failure

    def _near(self, failure):
        """Words like the one that the controller does not know."""
        unknown = UNKNOWN.search(str(failure))
        if not unknown:
            return ""
        if unknown[1] == "key":
            return near(unknown[2], self._machine.status())
        self._machine.do("help")
        commands = [line.split(" ")[0] for line in self._machine.lines if line[:1].isalpha()]
        return near(unknown[2], [*commands, *WORDS])

    def _in_background(self):
        """What became of commands in the background: it may explain a failure."""
        self._machine.do("answers")
        return "".join(f"\n  in the background: {line}" for line in self._machine.lines)

    def _play_machine(self, step):
        self._machine.begin(step.text)
        self._log = Log(self._machine.log_file())
        self._tell(f"{'time':>7}  {'step':42} " + "  ".join(SHOWN))

    def _play_do(self, step):
        self._has_ended = False
        self._has_own_pace |= step.text.startswith("sleeps ")
        if step.text == "start" and not self._has_own_pace:
            self._machine.do(f"sleeps {START_QUICKER}")
            self._hurries = True
        self._machine.do(step.text)
        self._row(step.text)

    def _play_stop(self, step):
        answer = self._machine.do(step.text)
        milliseconds = int(TOOK.search(answer).group(1))
        during = f" during a {step.during}" if step.during else ""
        self._row(f"{step.text}{during}: {milliseconds} ms")
        if not step.during and milliseconds > STOP_MS:
            raise Failed(f"{step.text} took {milliseconds} ms")
        self._has_ended = True
        # What the service reported is one thing, how its process ended another.
        ended = EXIT.search(answer)
        if ended and ended.group(1) != "0":
            raise Failed(f"the service's process ended with 0x{int(ended.group(1)):08x}")

    def _settle(self):
        self._machine.settle()
        if self._hurries:
            self._machine.do("sleeps 1")
            self._hurries = False

    def _play_expect(self, step):
        self._settle()
        conditions = [condition(word) for word in whole(step.text.split())]
        found = self._machine.values(*(key for key, _, _ in conditions))
        self._row("expect " + step.text)
        wrong = [f"{key}={found[key]}" for key, value, equal in conditions if (found[key] == value) != equal]
        if wrong:
            raise Failed(f"expected {step.text}, but " + " ".join(wrong))

    def _play_within(self, step):
        self._machine.do(f"wait {step.text} within {step.within}")
        self._row(f"within {step.within} ms: {step.text}")

    def _play_log(self, step):
        self._settle()
        found = {}
        # Nobody writes any more when the process is gone.
        entries = self._log.read() if self._has_ended else self._log.read_settled()
        for entry in decisions(entries):
            found.setdefault(entry.root, []).append(str(entry))
        difference = compare(step.sections, found)
        if difference and self._recording is not None and step.path == self._scenario.path:
            self._recording[step.number] = found
        elif difference:
            raise Failed("the log differs (- expected, + found)\n" + "\n".join(difference))

    def _play_cause(self, step):
        time.sleep(DRAIN_SECONDS)
        verdict = self._machine.why()["findings"][0]
        self._row("why: " + verdict["cause"])
        if verdict["cause"] != step.text:
            raise Failed(f"the cause is {step.text}, but why says {verdict['cause']}: {verdict['sentence']}")

    def _play_silent(self, step):
        self._settle()
        time.sleep(DRAIN_SECONDS)
        before = self._machine.log_file().stat().st_size
        time.sleep(step.within / 1000)
        written = self._machine.log_file().stat().st_size - before
        self._row(f"silent for {step.within} ms")
        if written:
            raise Failed(f"the log grew by {written} bytes within {step.within} ms")

    def _row(self, text):
        values = self._machine.values(*SHOWN)
        shown = "  ".join(values[key].ljust(len(key)) for key in SHOWN)
        self._tell(f"{time.monotonic() - self._begun:7.2f}  {text[:42]:42} {shown}")


def whole(words):
    """The words with what a remembered choice means besides its text: its type and its bytes."""
    for word in words:
        yield word
        stored = re.fullmatch(r"(stored_w[lw]an)=(True|False)", word)
        if stored:
            yield f"{stored.group(1)}_type=REG_SZ"
            yield f"{stored.group(1)}_bytes={STORED_BYTES[stored.group(2)]}"


def condition(word):
    """`key=value` or `key!=value` as (key, value, whether they are to be equal)."""
    key, _, value = word.partition("=")
    return key.rstrip("!"), value, not key.endswith("!")
