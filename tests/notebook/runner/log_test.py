"""How the service's log is read: its entries, and the operation that each was written under."""

import pathlib
import tempfile
import unittest

from notebook.runner.log import Log, decisions

BOM = b"\xef\xbb\xbf"


def line(level, function, message, thread="0000002C"):
    return f"2026/01/31 10:20:30.405|{thread}|{level:<11}|{function}|{message}\r\n".encode()


class ReadingTheLog(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self._path = pathlib.Path(folder.name) / "LinkvaneService.log"
        self.log = Log(self._path)

    def write(self, *lines):
        with self._path.open("ab") as file:
            file.write(b"".join(lines))

    def roots(self):
        return [(entry.message, entry.root) for entry in self.log.read() if entry.level == "Information"]

    def test_no_file_is_no_entries(self):
        self.assertEqual([], self.log.read())

    def test_entry_has_the_parts_of_its_line(self):
        self.write(BOM, line("Warning", "A::B", "Retrying | to 0 "))
        [entry] = self.log.read()
        self.assertEqual(("2026/01/31 10:20:30.405", "0000002C", "Warning", "A::B", "Retrying | to 0 "),
                         (entry.time, entry.thread, entry.level, entry.function, entry.message))
        self.assertEqual("W A::B| Retrying | to 0 ", str(entry))

    def test_message_may_have_several_lines(self):
        self.write(line("Information", "A", "one\ntwo"))
        self.assertEqual([("one\ntwo", "A")], self.roots())

    def test_each_entry_is_read_once(self):
        self.write(line("Information", "A", "one"))
        self.assertEqual([("one", "A")], self.roots())
        self.assertEqual([], self.roots())
        self.write(line("Information", "A", "two"))
        self.assertEqual([("two", "A")], self.roots())

    def test_half_a_line_waits_for_its_rest(self):
        whole = line("Information", "A", "one")
        self.write(whole[:50])
        self.assertEqual([], self.roots())
        self.write(whole[50:])
        self.assertEqual([("one", "A")], self.roots())

    def test_line_that_is_no_entry_is_left_out(self):
        self.write(b"something else\r\n", line("Information", "A", "one"))
        self.assertEqual([("one", "A")], self.roots())

    def test_file_that_became_shorter_is_an_error(self):
        self.write(line("Information", "A", "one"))
        self.log.read()
        self._path.write_bytes(b"")
        with self.assertRaises(ValueError):
            self.log.read()

    def test_entry_belongs_to_the_outermost_operation_of_its_thread(self):
        self.write(line("TraceIn", "Outer", ""), line("TraceIn", "Inner", ""), line("Information", "Inner", "one"),
                   line("TraceOut", "Inner", ""), line("Information", "Outer", "two"),
                   line("TraceOut", "Outer", ""), line("Information", "Lone", "three"))
        self.assertEqual([("one", "Outer"), ("two", "Outer"), ("three", "Lone")], self.roots())

    def test_threads_have_operations_of_their_own(self):
        self.write(line("TraceIn", "A", "", "00000001"), line("Information", "B", "one", "00000002"),
                   line("Information", "B", "two", "00000001"))
        self.assertEqual([("one", "B"), ("two", "A")], self.roots())

    def test_operation_without_an_exit_line_ends_with_the_one_around_it(self):
        self.write(line("TraceIn", "Outer", ""), line("TraceIn", "Inner", ""), line("TraceOut", "Outer", ""),
                   line("Information", "Next", "one"))
        self.assertEqual([("one", "Next")], self.roots())

    def test_thread_that_the_worker_gave_up_on_may_bring_an_event(self):
        worker = "CMainService::ServiceWorkerThread"
        self.write(line("TraceIn", worker, "ServiceWorkerThread - Entry"),
                   line("Error", worker, "WWAN Device enumeration failed / No supporting WWAN device found "),
                   line("TraceIn", "Event", ""), line("Information", "Event", "one"))
        self.assertEqual([("one", "Event")], self.roots())

    def test_exit_of_an_operation_that_never_began_ends_nothing(self):
        self.write(line("TraceIn", "Outer", ""), line("TraceOut", "Other", ""), line("Information", "A", "one"))
        self.assertEqual([("one", "Outer")], self.roots())

    def test_decisions_are_information_warning_and_error(self):
        self.write(*(line(level, "A", level) for level in
                     ("TraceIn", "Verbose", "Information", "Warning", "Error", "Debug", "TraceOut")))
        self.assertEqual(["I A| Information", "W A| Warning", "E A| Error"],
                         [str(entry) for entry in decisions(self.log.read())])


if __name__ == "__main__":
    unittest.main()
