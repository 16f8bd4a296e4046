"""How the service's log is read: its entries, and the operation that each was written under."""

import pathlib
import tempfile
import unittest

from notebook.runner.log import Log, decisions

WORKER = "CMainService::ServiceWorkerThread"


def line(level, function, message="", thread="0000002C"):
    return f"2026/01/31 10:20:30.405|{thread}|{level:<11}|{function}|{message}\r\n".encode()


def says(function, message, thread="0000002C"):
    return line("Information", function, message, thread)


class ReadingTheLog(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self._path = pathlib.Path(folder.name) / "LinkvaneService.log"
        self.log = Log(self._path)

    def write(self, *lines):
        with self._path.open("ab") as file:
            file.write(b"".join(lines))

    def messages(self):
        return [entry.message for entry in self.log.read()]

    def test_entry_has_the_parts_of_its_line(self):
        self.assertEqual([], self.messages())
        self.write(b"\xef\xbb\xbf", line("Warning", "A::B", "Retrying | to 0 "))
        [entry] = self.log.read()
        self.assertEqual(("2026/01/31 10:20:30.405", "0000002C", "Warning", "A::B", "Retrying | to 0 "),
                         (entry.time, entry.thread, entry.level, entry.function, entry.message))
        self.assertEqual("W A::B| Retrying | to 0 ", str(entry))

    def test_each_entry_is_read_once_and_whole(self):
        self.write(b"something else\r\n", says("A", "one\ntwo"))
        self.assertEqual(["one\ntwo"], self.messages())
        self.assertEqual([], self.messages())
        three = says("A", "three")
        self.write(three[:50])
        self.assertEqual([], self.messages())
        self.write(three[50:])
        self.assertEqual(["three"], self.messages())

    def test_file_that_became_shorter_is_an_error(self):
        self.write(says("A", "one"))
        self.log.read()
        self._path.write_bytes(b"")
        with self.assertRaises(ValueError):
            self.log.read()

    def test_entry_belongs_to_the_outermost_operation_of_its_thread(self):
        for lines, roots in (
                ([line("TraceIn", "Outer"), line("TraceIn", "Inner"), says("Inner", "1"), line("TraceOut", "Inner"),
                  says("Outer", "2"), line("TraceOut", "Outer"), says("Lone", "3")], ["Outer", "Outer", "Lone"]),
                # Threads have operations of their own.
                ([line("TraceIn", "A", "", "1" * 8), says("B", "1", "2" * 8), says("B", "2", "1" * 8)], ["B", "A"]),
                # An operation without an exit line ends with the one around it, the worker with its last word.
                ([line("TraceIn", "Outer"), line("TraceIn", "Inner"), line("TraceOut", "Outer"), says("Next", "1")],
                 ["Next"]),
                ([line("TraceIn", WORKER), line("Error", WORKER, "WWAN Device enumeration failed / No"),
                  line("TraceIn", "Event"), says("Event", "1")], ["Event"]),
                # The exit of one that never began ends nothing.
                ([line("TraceIn", "Outer"), line("TraceOut", "Other"), says("A", "1")], ["Outer"])):
            with self.subTest(roots=roots):
                self.log = Log(self._path)
                self._path.write_bytes(b"".join(lines))
                self.assertEqual(roots, [entry.root for entry in self.log.read() if entry.level == "Information"])

    def test_decisions_are_information_warning_and_error(self):
        self.write(*(line(level, "A", level) for level in
                     ("TraceIn", "Verbose", "Information", "Warning", "Error", "Debug", "TraceOut")))
        self.assertEqual(["I A| Information", "W A| Warning", "E A| Error"],
                         [str(entry) for entry in decisions(self.log.read())])


if __name__ == "__main__":
    unittest.main()
