"""Lines of the log that have a name (scenarios/lines/), and what stands for many lines.

    # What is said of the block, for its index.
    @wifi-reads-on
    @wifi-interface
    2 x I ServiceUtils::CheckWlanStatus| ...     the line twice
    6 x                                          what is indented six times, {n} being 0 to 5, {100+n} 100 to 105
        W ServiceUtils::SwitchWlanStatusWithRetry| SwitchWlanStatus not Succeeded. Retrying to {n}
    @plug                                        lines but for some: in place of those named on the left stand
        @over-ethernet is @over-wifi             others that have a name, or one line,
        @cable-finds-no-modem is nothing         none,
        @ethernet-is-up is                       or what is indented, where the name means what it ever does
            @ethernet-is-up
            I NLMEventHandler::CheckEthernetConnectionStatus| Unknown type 24

A block ends with an empty line. One that begins with `log` holds whole sections, as a scenario does.
"""

import dataclasses
import difflib
import functools
import pathlib
import re

SCENARIOS = pathlib.Path(__file__).resolve().parents[1] / "scenarios"
COUNTED = re.compile(r"([1-9]\d*) x(?: (.*))?", re.S)
NUMBER = re.compile(r"\{(?:(\d+)\+)?n\}")
INSTEAD = re.compile(r"(@[\w-]+) is(?: (.*))?", re.S)


class ScenarioError(Exception):
    """A file cannot be read as a scenario; says which, and where."""

    def __init__(self, path, number, message):
        super().__init__(f"{path.name}, line {number}: {message}" if number else f"{path.name}: {message}")


def near(word, known):
    """A question for whoever mistyped one of the known words; empty when none is like it."""
    close = difflib.get_close_matches(word, known, cutoff=0.7)
    return f"; did you mean {' or '.join(close)}?" if close else ""


@dataclasses.dataclass(frozen=True)
class Block:
    name: str
    comment: str
    path: pathlib.Path
    number: int
    lines: tuple
    """(number, text) of each as it is written"""

    @property
    def has_sections(self):
        return bool(self.lines) and self.lines[0][1].startswith("log ")


@dataclasses.dataclass
class Instead:
    """What stands in place of a name."""
    path: pathlib.Path
    number: int
    lines: list
    outer: dict
    """what stands in place of names around it"""
    is_used: bool = False


class Blocks:
    """All that has a name."""

    def __init__(self, blocks):
        self._blocks = {}
        for block in blocks:
            if block.name in self._blocks:
                raise ScenarioError(block.path, block.number, f"a second @{block.name}")
            self._blocks[block.name] = block

    def __iter__(self):
        return iter(self._blocks.values())

    def lines(self, path, lines, within=(), instead=None):
        """The texts that written lines stand for, names and counts carried out."""
        texts = []
        at = 0
        while at < len(lines):
            number, text = lines[at]
            at += 1
            counted = COUNTED.fullmatch(text)
            if text.startswith(" "):
                raise ScenarioError(path, number, f"indented too far: {text.strip()}")
            if counted:
                repeated, at = _inner(path, lines, at, counted[2], "nothing to repeat")
                each = self.lines(path, repeated, within, instead)
                texts += [NUMBER.sub(lambda number, n=n: str(int(number[1] or 0) + n), line)
                          for n in range(int(counted[1])) for line in each]
            elif text.startswith("@"):
                inner, at = indented(lines, at)
                texts += self._named(path, number, text, inner, within, instead or {})
            else:
                texts.append(text)
        return texts

    def _named(self, path, number, text, inner, within, instead):
        if other := instead.get(text):
            other.is_used = True
            return self.lines(other.path, other.lines, within, other.outer)
        block = self._find(path, number, text, within)
        if block.has_sections:
            raise ScenarioError(path, number, f"{text} holds whole sections: log {text}")
        return self._but_for(path, text, inner, instead, lambda but: self.lines(
            block.path, block.lines, (*within, block.name), but))

    def _but_for(self, path, name, inner, outer, then):
        """What `then` makes of a block with what is written below its name in place of some names."""
        but = dict(outer)
        at = 0
        while at < len(inner):
            number, text = inner[at]
            match = INSTEAD.fullmatch(text)
            if not match:
                raise ScenarioError(path, number, f"below {name} stands what differs, as @NAME is ...: {text}")
            lines, at = _inner(path, inner, at + 1, match[2], "nothing stands in its place")
            but[match[1]] = Instead(path, number, [] if match[2] == "nothing" else lines, outer)
        found = then(but)
        for text, other in but.items():
            if other is not outer.get(text) and not other.is_used:
                raise ScenarioError(path, other.number, f"there is no {text} in {name}")
        return found

    def sections(self, path, number, name, inner=(), instead=None):
        """The sections that a name stands for: texts by operation."""
        block = self._find(path, number, name, ())
        if not block.has_sections:
            raise ScenarioError(path, number, f"{name} holds lines of one section, not whole sections")
        return self._but_for(path, name, inner, instead or {}, lambda but: self.read_sections(
            block.path, block.lines, but))

    def read_sections(self, path, lines, instead=None):
        """The sections of written lines: texts by operation."""
        sections = {}
        at = 0
        while at < len(lines):
            number, text = lines[at]
            operation = text.removeprefix("log").strip()
            inner, at = indented(lines, at + 1)
            if operation.startswith("@"):
                found = self.sections(path, number, operation, inner, instead)
            elif inner and not operation:
                raise ScenarioError(path, number, "the operation is missing")
            else:
                found = {operation: self.lines(path, inner, (), instead)} if operation else {}
            for root, texts in found.items():
                sections.setdefault(root, []).extend(texts)
        return sections

    def _find(self, path, number, name, within):
        found = self._blocks.get(name.removeprefix("@"))
        if found is None:
            raise ScenarioError(path, number, f"no lines named {name}{near(name, ['@' + each for each in self._blocks])}")
        if found.name in within:
            raise ScenarioError(path, number, f"{name} stands for itself")
        return found


def indented(lines, at):
    """The lines from `at` on that are indented, less the first one's indentation; and where they end."""
    first = at
    while at < len(lines) and lines[at][1].startswith(" "):
        at += 1
    depth = len(lines[first][1]) - len(lines[first][1].lstrip()) if at > first else 0
    return [(number, text[min(depth, len(text) - len(text.lstrip())):]) for number, text in lines[first:at]], at


def _inner(path, lines, at, text, lacking):
    """What a line holds: the text behind its word, or what is indented below; and where that ends."""
    if text is not None:
        return [(lines[at - 1][0], text)], at
    inner, end = indented(lines, at)
    if not inner:
        raise ScenarioError(path, lines[at - 1][0], lacking)
    return inner, end


def read_blocks(path):
    """The blocks of one file."""
    name, comment, begun, block = None, [], 0, []
    # Only the line ends go: blanks before them belong to the log's texts.
    for number, line in enumerate([*path.read_text(encoding="utf-8").split("\n"), ""], 1):
        if line.startswith("#"):
            if name is None:
                comment.append(line.lstrip("# "))
        elif not line:
            if name is not None:
                yield Block(name, " ".join(comment), path, begun, tuple(block))
            name, comment, block = None, [], []
        elif name is None:
            name, begun = line.removeprefix("@"), number
        else:
            block.append((number, line))


@functools.cache
def named_lines():
    return Blocks(block for path in sorted((SCENARIOS / "lines").glob("*.txt")) for block in read_blocks(path))
