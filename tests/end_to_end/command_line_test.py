"""The executable at a console, without the service being installed."""

import concurrent.futures
import unittest

from rig import EXECUTABLE, Prefix

USAGE = b"Parameters:\r\n -install  to install the service.\r\n -remove   to remove the service.\r\n"
# 0x427: no service control manager waits for this process.
NOT_A_SERVICE = USAGE + b"Service failed to run w/err 0x00000427\r\n"


class CommandLine(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.prefix = cls.enterClassContext(Prefix())

    def expect(self, arguments, output):
        self.assertEqual(self.prefix.run(EXECUTABLE, *arguments), (0, output))

    def test_unknown_switches_print_nothing(self):
        for switch in ("-foo", "-", "/", "/help", "-installx", "--install", "- install"):
            with self.subTest(switch=switch):
                self.expect([switch], b"")

    def test_without_a_switch_usage_is_printed_and_the_run_refused(self):
        # Wine looks for a service control manager for ten seconds each time: all at once, then.
        arguments = [[], ["install"], ["remove"], [""], [" -install"], ["foo", "-install"]]
        with concurrent.futures.ThreadPoolExecutor(len(arguments)) as threads:
            runs = threads.map(lambda each: self.prefix.run(EXECUTABLE, *each), arguments)
            for each, outcome in zip(arguments, runs):
                with self.subTest(arguments=each):
                    self.assertEqual(outcome, (0, NOT_A_SERVICE))
        # Each ends as a service does, its object too.
        refused = ("Error", "wmain", "Service failed to run w/err 0x00000427")
        destroyed = ("TraceOut", "CMainService::~CMainService", "")
        lines = self.prefix.log_lines()
        self.assertEqual([lines.count(refused), lines.count(destroyed)], [len(arguments)] * 2)

    def test_removal_of_what_was_never_installed_names_the_missing_service(self):
        for switch in ("-remove", "/Remove", "-REMOVE"):
            with self.subTest(switch=switch):
                self.expect([switch], b"OpenService failed w/err 0x00000424\r\n")


if __name__ == "__main__":
    unittest.main()
