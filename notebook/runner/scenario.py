"""Scenario files: what is done, what is expected of the machine, what the log has to say.

    # The comment at the top is the scenario's title.
    machine cables 2 modems 1          what kind of notebook (see the controller's `reset`)
    also devices remote                plays all of it once more on a machine with this added
    start as ever                      scenarios/as_ever: starts, and expects state and log of an ordinary start.
                                       A scenario without any `start` begins with it.
    plug as ever                       the same of the first cable that goes in, and `unplug as ever` of it
                                       when it comes out
    start                              any command of the controller; the service's pauses in a start are
                                       played quicker, but for a scenario that gives `sleeps` itself
    expect wifi=off stored_wlan=True   once everything has settled; of a stored choice also its bytes
    within 3000 expect wifi=off        as soon as it is so, at the latest after so many ms
    stop                               must be answered within a second, as `preshutdown` must
    stop during resume                 ... but for the resume that is being handled, or `during callback`
                                       for a callback of the WLAN interface that still runs: leaving the
                                       notifications waits for it
    stop as ever                       stops, and expects state, ledger and log of an ordinary stop. A service
                                       that still runs at the end is stopped in this way.
    silent 1000                        once everything has settled, the log says nothing for so long,
                                       at no level
    repeat 100                         does the indented lines so often
        plug
        unplug
    cause cable-in                     what `why` says now about the log so far (docs/doctor.md has the
                                       causes); every scenario names at least one
    log @cable-goes-in                 sections that have a name (scenarios/lines/)
        @stored-wifi-on is nothing     ... and what differs from them
    log NLMEventHandler::NetworkConnectionConnectivityChanged
        I NLMEventHandler::NetworkConnectionConnectivityChanged| Ethernet is connected
        @wifi-is-switched-off          lines that have a name
        2 x @user-turned-wifi-off      twice; blocks.py tells of counts, and of what differs

Steps are carried out in their order, each when the one before has been answered. A command is answered as soon
as the devices have changed, while the service may still be at work on it: commands that follow one another come
to it as they would within some milliseconds. `expect`, `silent` and `log` wait until everything has settled.

Sections of `log` that follow one another tell all Information, Warning and Error lines since the
last such place, in order, under the operation that Windows called; no others may have come. In a
line `{*}` stands for anything and `{a|b}` for either; a line behind `? ` may be missing; `...`
stands for any number of lines.
"""

import dataclasses
import pathlib
import re

from .blocks import SCENARIOS, ScenarioError, named_lines

STOPS = ("stop", "preshutdown")
STOPPED_DURING = ("resume", "callback")
AS_EVER = " as ever"
STEPS_AS_EVER = ("start", "plug", "unplug", "stop")


@dataclasses.dataclass
class Step:
    kind: str
    """machine, do, stop, expect, within, silent, repeat, log, cause"""
    text: str
    number: int
    steps: list = dataclasses.field(default_factory=list)
    """what a repeat repeats"""
    sections: dict = dataclasses.field(default_factory=dict)
    """what a log step expects: lines by operation"""
    within: int = 0
    """milliseconds of a within or silent step"""
    during: str = ""
    """what a stop has to wait for"""
    path: pathlib.Path | None = None
    """the file it stands in"""


@dataclasses.dataclass
class Scenario:
    path: pathlib.Path
    title: str
    machine: Step
    """the first step, a fresh notebook, also without a line that says which"""
    steps: list
    also: list = dataclasses.field(default_factory=list)
    """what to add to the machine for each further play"""


def read_scenario(path, also=""):
    """Reads a scenario as it is played on its machine with `also` added."""
    parser = _Parser(path, also)
    steps = parser.steps(0)
    if not steps:
        raise ScenarioError(path, None, "nothing is done in it")
    if not any(_starts(step) for step in steps):
        steps = parser.as_ever("start") + steps
    return Scenario(path, parser.title, parser.machine, steps, parser.also)


def as_ever(name):
    """The steps of a file of scenarios/as_ever."""
    return _Parser(SCENARIOS / "as_ever" / f"{name}.txt", "").steps(0)


def _starts(step):
    return any(map(_starts, step.steps)) or step.kind == "do" and "start" in step.text.split()[:2]


class _Parser:
    def __init__(self, path, also):
        self._path = path
        # The blanks at a line's end belong to the log's texts.
        self._lines = list(enumerate(path.read_text(encoding="utf-8").splitlines(), 1))
        self._at = 0
        self._adds = also
        self.machine = Step("machine", also, 1, path=path)
        self.also = []
        comment = []
        for _, line in self._lines:
            if not line.startswith("#"):
                break
            comment.append(line.lstrip("# "))
        self.title = " ".join(comment) or path.stem
        self._lines = [(number, line) for number, line in self._lines
                       if line.strip() and not line.lstrip().startswith("#")]

    def as_ever(self, what):
        has_modem = what != "stop" and re.search(r"\bmodems [1-9]", self.machine.text)
        return as_ever(f"{what}_with_modem" if has_modem else what)

    def steps(self, depth):
        """The steps that are indented so deeply; a deeper one is refused, a lesser one left."""
        steps = []
        while self._at < len(self._lines):
            number, raw = self._lines[self._at]
            indent = len(raw) - len(raw.lstrip())
            if indent < depth:
                break
            if indent > depth:
                self._refuse(number, f"indented too far: {raw.strip()}")
            steps += self._take(number, raw.strip(), depth)
        return steps

    def _take(self, number, text, depth):
        """The steps that a line stands for."""
        word, _, rest = text.partition(" ")
        if word == "log":
            return [self._log(number, depth)]
        self._at += 1
        if word == "machine":
            self.machine.text, self.machine.number = f"{rest} {self._adds}".strip(), number
        elif word == "also":
            if not rest:
                self._refuse(number, "nothing to add to the machine")
            self.also.append(rest)
            if rest == self._adds:
                self.machine.number = number
        elif text.endswith(AS_EVER):
            what = text.removesuffix(AS_EVER)
            if what not in STEPS_AS_EVER:
                self._refuse(number, f"only {', '.join(STEPS_AS_EVER)} are as ever: {text}")
            return self.as_ever(what)
        else:
            return [self._step(number, word, rest, text, depth)]
        return []

    def _step(self, number, word, rest, text, depth):
        step = Step("do", text, number, path=self._path)
        if word == "repeat":
            step.kind, step.text = word, rest
            self._count(rest, number)
            step.steps = self.steps(self._next_indent(depth))
            if not step.steps:
                self._refuse(number, "nothing to repeat")
        elif word == "expect":
            step.kind, step.text = word, self._conditions(rest, number)
        elif word == "within":
            within, _, conditions = rest.partition(" expect ")
            step.kind, step.text = word, self._conditions(conditions, number)
            step.within = self._count(within, number)
        elif word == "silent":
            step.kind, step.within = word, self._count(rest, number)
        elif word == "cause":
            if not re.fullmatch(r"[a-z-]+", rest):
                self._refuse(number, f"a cause is one word: {text}")
            step.kind, step.text = word, rest
        elif word in STOPS:
            step.kind, step.text, step.during = "stop", word, self._during(rest, number)
        return step

    def _log(self, number, depth):
        """All log sections that follow one another, with the lines that are indented below them."""
        lines = []
        while self._at < len(self._lines):
            line_number, raw = self._lines[self._at]
            if raw[:depth].strip() or not re.match(r" |log\b", raw[depth:]):
                break
            lines.append((line_number, raw[depth:]))
            self._at += 1
        return Step("log", "log", number, sections=named_lines().read_sections(self._path, lines), path=self._path)

    def _refuse(self, number, message):
        raise ScenarioError(self._path, number, message)

    def _count(self, text, number):
        if not text.isdecimal():
            self._refuse(number, f"not a number: {text}")
        return int(text)

    def _conditions(self, text, number):
        # Without a condition a step would hold whatever happens.
        if not text or any("=" not in word for word in text.split()):
            self._refuse(number, f"conditions are KEY=VALUE or KEY!=VALUE: {text}")
        return text

    def _during(self, rest, number):
        during = rest.removeprefix("during ")
        if rest and (during == rest or during not in STOPPED_DURING):
            self._refuse(number, f"a stop can wait for {' or '.join(STOPPED_DURING)}: {rest}")
        return during

    def _next_indent(self, depth):
        if self._at < len(self._lines):
            raw = self._lines[self._at][1]
            return max(len(raw) - len(raw.lstrip()), depth + 1)
        return depth + 1
