"""Scenario files: what is done, what is expected of the machine, what the log has to say.

    # The first comment is the scenario's title.
    machine cables 2 modems 1          what kind of notebook (see the controller's `reset`)
    also devices remote                plays all of it once more on a machine with this added
    start                              any command of the controller
    expect wifi=off stored_wlan=True   once everything has settled; of a stored choice also its bytes
    within 3000 expect wifi=off        as soon as it is so, at the latest after so many ms
    stop                               must be answered within a second, as `preshutdown` must
    stop during resume                 ... but for the resume that is being handled, or `during callback`
                                       for a callback of the WLAN interface that still runs: leaving the
                                       notifications waits for it. A service that still runs at the end
                                       is stopped in the same way.
    silent 1000                        once everything has settled, the log says nothing for so long,
                                       at no level
    repeat 100                         does the indented lines so often
        plug
        unplug
    cause cable-in                     what `why` says now about the log so far (docs/doctor.md has the
                                       causes); every scenario names at least one
    log NLMEventHandler::NetworkConnectionConnectivityChanged
        I NLMEventHandler::NetworkConnectionConnectivityChanged| Ethernet is connected
        @wifi-switched-off             lines that have a name (scenarios/lines/)

Sections of `log` that follow one another tell all Information, Warning and Error lines since the
last such place, in order, under the operation that Windows called; no others may have come. In a
line `{*}` stands for anything and `{a|b}` for either; a line behind `? ` may be missing; `...`
stands for any number of lines.
"""

import dataclasses
import pathlib
import re

STOPS = ("stop", "preshutdown")
STOPPED_DURING = ("resume", "callback")
SCENARIOS = pathlib.Path(__file__).resolve().parents[1] / "scenarios"


class ScenarioError(Exception):
    """The file cannot be read as a scenario."""


@dataclasses.dataclass
class Step:
    kind: str
    """do, stop, expect, within, silent, repeat, log, cause"""
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


@dataclasses.dataclass
class Scenario:
    path: pathlib.Path
    title: str
    machine: str
    steps: list
    also: list = dataclasses.field(default_factory=list)
    """what to add to the machine for each further play"""


def read_scenario(path):
    lines = path.read_text(encoding="utf-8").splitlines()
    title = next((line.lstrip("# ") for line in lines if line.startswith("#")), path.stem)
    parser = _Parser(lines)
    steps = parser.steps(0)
    return Scenario(path, title, parser.machine, steps, parser.also)


class _Parser:
    def __init__(self, lines):
        self._lines = lines
        self._at = 0
        self.machine = ""
        self.also = []

    def steps(self, indent):
        steps = []
        while self._at < len(self._lines):
            raw = self._lines[self._at]
            text = raw.strip()
            if not text or text.startswith("#"):
                self._at += 1
                continue
            depth = len(raw) - len(raw.lstrip())
            if depth < indent:
                break
            if depth > indent:
                raise ScenarioError(f"line {self._at + 1}: indented too far: {text}")
            self._at += 1
            self._take(text, steps, indent)
        return steps

    def _take(self, text, steps, indent):
        number = self._at
        word, _, rest = text.partition(" ")
        if word == "machine":
            self.machine = rest
        elif word == "also":
            if not rest:
                raise ScenarioError(f"line {number}: nothing to add to the machine")
            self.also.append(rest)
        elif word == "repeat":
            self._count(rest, number)
            repeated = self.steps(self._next_indent(indent))
            if not repeated:
                raise ScenarioError(f"line {number}: nothing to repeat")
            steps.append(Step("repeat", rest, number, steps=repeated))
        elif word == "expect":
            steps.append(Step("expect", self._conditions(rest, number), number))
        elif word == "within":
            within, _, conditions = rest.partition(" expect ")
            steps.append(Step("within", self._conditions(conditions, number), number,
                              within=self._count(within, number)))
        elif word == "silent":
            steps.append(Step("silent", text, number, within=self._count(rest, number)))
        elif word == "cause":
            if not re.fullmatch(r"[a-z-]+", rest):
                raise ScenarioError(f"line {number}: a cause is one word: {text}")
            steps.append(Step("cause", rest, number))
        elif word in STOPS:
            steps.append(Step("stop", word, number, during=self._during(rest, number)))
        elif word == "log":
            if not steps or steps[-1].kind != "log":
                steps.append(Step("log", "", number))
            lines = self._indented(indent)
            if rest:
                steps[-1].sections.setdefault(rest, []).extend(lines)
        else:
            steps.append(Step("do", text, number))

    @staticmethod
    def _count(text, number):
        if not text.isdecimal():
            raise ScenarioError(f"line {number}: not a number: {text}")
        return int(text)

    @staticmethod
    def _conditions(text, number):
        # Without a condition a step would hold whatever happens.
        if not text or any("=" not in word for word in text.split()):
            raise ScenarioError(f"line {number}: conditions are KEY=VALUE or KEY!=VALUE: {text}")
        return text

    @staticmethod
    def _during(rest, number):
        during = rest.removeprefix("during ")
        if rest and (during == rest or during not in STOPPED_DURING):
            raise ScenarioError(f"line {number}: a stop can wait for {' or '.join(STOPPED_DURING)}: {rest}")
        return during

    def _next_indent(self, indent):
        for raw in self._lines[self._at:]:
            if raw.strip():
                depth = len(raw) - len(raw.lstrip())
                return depth if depth > indent else indent + 1
        return indent + 1

    def _indented(self, indent):
        lines = []
        while self._at < len(self._lines):
            raw = self._lines[self._at]
            if raw.strip() and len(raw) - len(raw.lstrip()) <= indent:
                break
            # The blanks at a line's end belong to the log's texts.
            if raw.strip():
                lines.append(raw.lstrip())
            self._at += 1
        return lines
