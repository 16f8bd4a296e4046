"""Log sections of scenarios: what their lines match, how they differ."""

import difflib
import re

ANY_LINES = "..."
OPTIONAL = "? "


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
    difference = []
    for root in [*expected, *(root for root in found if root not in expected)]:
        wanted = expected.get(root, [])
        lines = found.get(root, [])
        if not matches(wanted, lines):
            difference.append(f"  under {root}:")
            difference += _difference(wanted, lines)
    return difference


def matches(wanted, lines):
    """Whether lines are what a section wants."""
    # All readings are followed at once, because `...` may end anywhere and optional lines may lack.
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
