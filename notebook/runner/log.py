"""The service's log as data: its entries, each with the operation that it was written under."""

import dataclasses
import re
import time

HEADER = re.compile(r"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3})\|([0-9A-F]{8})\|(\w+) *\|([^|]*)\|(.*)", re.S)
LETTERS = {"Information": "I", "Warning": "W", "Error": "E"}
# What the start-up worker says last, on each of its ways out.
WORKER_ENDS = re.compile(r"CMainService::ServiceWorkerThread\|(ServiceWorkerThread - Exit|"
                         r"WWAN Device enumeration failed|CoCreateInstance|CoInitialize failed)")
# Within this time the writer has written what was logged.
DRAIN_SECONDS = 0.15


@dataclasses.dataclass(frozen=True)
class Entry:
    time: str
    thread: str
    level: str
    function: str
    message: str
    root: str
    """The operation that a thread of Windows called, under which this was written."""

    def __str__(self):
        return f"{LETTERS.get(self.level, self.level)} {self.function}| {self.message}"


class Log:
    """Reads the log of one run of the service from where it last stopped."""

    def __init__(self, path):
        self._path = path
        self._offset = 0
        self._partial = b""
        self._stacks = {}

    def read(self):
        """The entries that have come since."""
        entries = []
        for line in self._new_lines():
            match = HEADER.fullmatch(line)
            if match:
                entries.append(self._entry(*match.groups()))
        return entries

    def read_settled(self):
        """The same, when nothing more comes."""
        entries = self.read()
        while True:
            time.sleep(DRAIN_SECONDS)
            more = self.read()
            if not more:
                return entries
            entries += more

    def _new_lines(self):
        try:
            size = self._path.stat().st_size
        except FileNotFoundError:
            return []
        with self._path.open("rb") as file:
            if size < self._offset:
                raise ValueError(f"{self._path} was rotated while it was read")
            file.seek(self._offset)
            data = self._partial + file.read()
            self._offset = file.tell()
        *lines, self._partial = data.split(b"\r\n")
        return [line.decode("utf-8-sig") for line in lines]

    def _entry(self, when, thread, level, function, message):
        # A thread's operations nest as their entry and exit lines say. (The worker may leave without an
        # exit line; its thread is Windows' and may bring an event next.)
        stack = self._stacks.setdefault(thread, [])
        if level == "TraceIn":
            stack.append(function)
        root = stack[0] if stack else function
        if level == "TraceOut" and function in stack:
            while stack.pop() != function:
                pass
        if WORKER_ENDS.match(f"{function}|{message}"):
            stack.clear()
        return Entry(when, thread, level, function, message, root)


def decisions(entries):
    """What a reader looks at first: Information, Warning and Error."""
    return [entry for entry in entries if entry.level in LETTERS]
