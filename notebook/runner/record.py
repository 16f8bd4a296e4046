"""Writes what the log said into a scenario's log sections, for a person to read and judge."""

import itertools

from .blocks import named_lines
from .sections import OPTIONAL, matches


def with_recorded_log(text, recording):
    """The scenario's text with its log sections replaced by what was recorded, by line number."""
    lines = text.splitlines()
    written = []
    at = 0
    while at < len(lines):
        first = at
        at += 1
        if lines[first].split(" ")[0].strip() != "log":
            written.append(lines[first])
            continue
        while at < len(lines) and (not lines[at].strip() or lines[at][0] == " " or
                                   lines[at].split(" ")[0] == "log"):
            at += 1
        found = recording.get(first + 1)
        written += lines[first:at] if found is None else [*fold_sections(found), ""]
    return "\n".join(written).rstrip("\n") + "\n"


def fold_sections(found):
    """Sections as a scenario writes them, with names for what has one."""
    blocks = named_lines()
    rest = dict(found)
    written = []
    whole = {block.name: blocks.sections(block.path, block.number, block.name)
             for block in blocks if block.has_sections}
    for name, wanted in sorted(whole.items(), key=lambda item: -sum(map(len, item[1].values()))):
        lengths = {root: _matching_length(lines, rest.get(root, [])) for root, lines in wanted.items()}
        if all(lengths.values()):
            written.append(f"log @{name}")
            rest = {root: lines[lengths.get(root, 0):] for root, lines in rest.items()}
    for root, lines in rest.items():
        if lines:
            written += [f"log {root}", *("    " + line for line in fold(lines))]
    return written or ["log"]


def fold(lines):
    """Lines with the longest runs that have a name replaced by it, and what comes again and again counted."""
    blocks = named_lines()
    runs = sorted(((block.name, blocks.lines(block.path, block.lines)) for block in blocks
                   if not block.has_sections), key=_longest_and_strictest)
    folded = []
    at = 0
    while at < len(lines):
        name, length = next(((name, length) for name, run in runs
                             if (length := _matching_length(run, lines[at:])) >= min(2, len(run))),
                            (None, 1))
        folded.append(lines[at] if name is None else "@" + name)
        at += length
    counts = ((line, len(list(same))) for line, same in itertools.groupby(folded))
    return [line if count == 1 else f"{count} x {line}" for line, count in counts]


def _longest_and_strictest(run):
    _, lines = run
    required = sum(not line.startswith(OPTIONAL) for line in lines)
    return -required, sum(line.count("{") for line in lines)


def _matching_length(run, lines):
    """How many of the first lines the run matches; 0 when it does not."""
    shortest = sum(not line.startswith(OPTIONAL) for line in run)
    lengths = range(min(len(run), len(lines)), shortest - 1, -1)
    return next((length for length in lengths if matches(run, lines[:length])), 0)
