"""Log sections of scenarios: their named lines, what they match, how they differ."""

import difflib
import re

from .scenario import SCENARIOS, ScenarioError

ANY_LINES = "..."
OPTIONAL = "? "


def named_lines():
    """The lines that have a name, from blocks that empty lines divide: {name: [line, ...]}."""
    names = {}
    for path in sorted((SCENARIOS / "lines").glob("*.txt")):
        block = None
        # Only the line ends go: blanks before them belong to the log's texts.
        for line in path.read_text(encoding="utf-8").split("\n"):
            if not line:
                block = None
            elif line.startswith("#"):
                continue
            elif block is None:
                block = names.setdefault(line.removeprefix("@"), [])
            else:
                block.append(line)
    return names


def expand(lines, names=None):
    """Lines with the named ones put in, names within names too."""
    names = named_lines() if names is None else names
    expanded = []
    for line in lines:
        if line.startswith("@"):
            if line[1:] not in names:
                raise ScenarioError(f"no lines named {line}")
            expanded += expand(names[line[1:]], names)
        else:
            expanded.append(line)
    return expanded


def line_pattern(line):
    """What a line of a log section matches."""
    pattern = ""
    for part in re.split(r"(\{[^{}]*[|*][^{}]*\})", line):
        if part == "{*}":
            pattern += ".*"
        elif re.fullmatch(r"\{[^{}]*\|[^{}]*\}", part):
            pattern += "(?:" + "|".join(re.escape(choice) for choice in part[1:-1].split("|")) + ")"
        else:
            pattern += re.escape(part)
    return re.compile(pattern, re.S)


def compare(expected, found):
    """How the lines found differ from those expected, both by operation; empty when they do not."""
    names = named_lines()
    difference = []
    for root in [*expected, *(root for root in found if root not in expected)]:
        wanted = expand(expected.get(root, []), names)
        lines = found.get(root, [])
        if not _matches(wanted, lines):
            difference.append(f"  under {root}:")
            difference += _difference(wanted, lines)
    return difference


def fold(lines):
    """Lines with the longest runs that have a name replaced by it."""
    runs = sorted(((name, expand(["@" + name])) for name in named_lines()), key=_longest_and_strictest)
    folded = []
    at = 0
    while at < len(lines):
        name, length = next(((name, length) for name, run in runs
                             if (length := _matching_length(run, lines[at:])) >= min(2, len(run))),
                            (None, 1))
        folded.append(lines[at] if name is None else "@" + name)
        at += length
    return folded


def _longest_and_strictest(run):
    _, lines = run
    required = sum(not line.startswith(OPTIONAL) for line in lines)
    return -required, sum(line.count("{") for line in lines)


def _matching_length(run, lines):
    """How many of the first lines the run matches; 0 when it does not."""
    shortest = sum(not line.startswith(OPTIONAL) for line in run)
    lengths = range(min(len(run), len(lines)), shortest - 1, -1)
    return next((length for length in lengths if _matches(run, lines[:length])), 0)


def _matches(wanted, lines):
    """Follows all readings at once, because `...` may end anywhere and optional lines may lack."""
    patterns = [None if line == ANY_LINES else line_pattern(line.removeprefix(OPTIONAL)) for line in wanted]
    skippable = [line == ANY_LINES or line.startswith(OPTIONAL) for line in wanted]

    def with_skipped(positions):
        reached = set()
        for position in positions:
            reached.add(position)
            while position < len(wanted) and skippable[position]:
                position += 1
                reached.add(position)
        return reached

    positions = with_skipped({0})
    for line in lines:
        following = set()
        for position in positions:
            if position < len(wanted):
                if patterns[position] is None:
                    following.add(position)
                elif patterns[position].fullmatch(line):
                    following.add(position + 1)
        positions = with_skipped(following)
    return len(wanted) in positions


def _difference(wanted, lines):
    # A line that matches counts as the same, however it is written in the scenario.
    patterns = {line: line_pattern(line.removeprefix(OPTIONAL)) for line in wanted if line != ANY_LINES}
    same = {}
    for line in lines:
        same[line] = next((text for text, pattern in patterns.items() if pattern.fullmatch(line)), line)
    shown = difflib.unified_diff(wanted, [same[line] for line in lines], lineterm="", n=2)
    return ["    " + line for line in shown if not line.startswith(("---", "+++"))]
