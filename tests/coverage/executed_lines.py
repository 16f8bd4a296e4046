"""Holds what the unit tests execute of the service to bounds, and to the list of the lines that they do not execute.

    executed_lines.py REPORT    (gcovr's, as JSON)

unexecuted.txt has each such line as FILE: TEXT and, below it and indented, why no unit test executes it.
"""

import collections
import dataclasses
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIST = pathlib.Path(__file__).with_name("unexecuted.txt")
# In percent.
LEAST_LINES = 99.8
LEAST_BRANCHES = 96.0


class SourceTexts:
    """The lines of the files below a folder, by their numbers from 1 on, without their indentation."""

    def __init__(self, root=ROOT):
        self._root, self._files = root, {}

    def of(self, file):
        if file not in self._files:
            path = self._root / file
            self._files[file] = [line.strip() for line in path.read_text().splitlines()] if path.is_file() else []
        return self._files[file]


@dataclasses.dataclass
class Report:
    lines: int = 0
    executed_lines: int = 0
    branches: int = 0
    taken_branches: int = 0
    unexecuted: list = dataclasses.field(default_factory=list)  # (file, text)


def read_report(text, sources):
    report = Report()
    for file in json.loads(text)["files"]:
        for line in file["lines"]:
            if line["gcovr/noncode"]:
                continue
            report.lines += 1
            report.branches += len(line["branches"])
            report.taken_branches += sum(branch["count"] > 0 for branch in line["branches"])
            if line["count"] > 0:
                report.executed_lines += 1
            else:
                report.unexecuted.append((file["file"], sources.of(file["file"])[line["line_number"] - 1]))
    return report


def read_list(text):
    """The listed lines: file, text, reason."""
    return re.findall(r"^(\S+): (.*)\n((?:[ \t]+\S.*\n)*)", text, re.MULTILINE)


def list_problems(text, sources):
    """What is wrong with the list by itself: a line without a reason, or one that the sources do not have so often."""
    listed = read_list(text)
    problems = [f"listed without a reason: {file}: {source}" for file, source, reason in listed if not reason]
    for (file, source), times in collections.Counter(each[:2] for each in listed).items():
        if sources.of(file).count(source) < times:
            problems.append(f"listed, but gone: {file}: {source}")
    return problems


def report_problems(report, text):
    """What is wrong with the figures, and where the report and the list differ."""
    problems = []
    for what, some, all_, least in (("lines", report.executed_lines, report.lines, LEAST_LINES),
                                    ("branches", report.taken_branches, report.branches, LEAST_BRANCHES)):
        if some * 100 < least * all_ or all_ == 0:
            problems.append(f"only {some} of {all_} {what} were executed, which is less than {least} %")
    listed = collections.Counter(each[:2] for each in read_list(text))
    unexecuted = collections.Counter(report.unexecuted)
    problems += [f"not executed, and not listed: {file}: {source}" for file, source in (unexecuted - listed).elements()]
    problems += [f"listed, but executed: {file}: {source}" for file, source in (listed - unexecuted).elements()]
    return problems


def main():
    sources, text = SourceTexts(), LIST.read_text()
    report = read_report(pathlib.Path(sys.argv[1]).read_text(), sources)
    problems = list_problems(text, sources) + report_problems(report, text)
    if problems:
        print(*problems, sep="\n")
        return 1
    print(f"The lines that were not executed, {len(report.unexecuted)}, are those in {LIST.relative_to(ROOT)}.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
