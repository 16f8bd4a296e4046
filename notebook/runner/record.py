"""Writes what the log said into a scenario's log sections, for a person to read and judge."""

from .sections import fold


def with_recorded_log(text, recording):
    """The scenario's text with its log sections replaced by what was recorded, by line number."""
    lines = text.splitlines()
    written = []
    at = 0
    while at < len(lines):
        line = lines[at]
        at += 1
        if line.split(" ")[0].strip() != "log":
            written.append(line)
            continue
        found = recording.get(at)
        first = at
        while at < len(lines) and (not lines[at].strip() or lines[at][0] == " " or
                                   lines[at].split(" ")[0] == "log"):
            at += 1
        if found is None:
            written += lines[first - 1:at]
            continue
        for root, entries in found.items():
            written.append(f"log {root}")
            written += ["    " + entry for entry in fold(entries)]
        if not found:
            written.append("log")
        written.append("")
    return "\n".join(written).rstrip("\n") + "\n"
