"""The executable at a console, without the service being installed."""

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

    def test_no_argument_prints_usage_and_the_refused_run(self):
        self.expect([], NOT_A_SERVICE)

    def test_first_argument_without_switch_character_counts_as_none(self):
        for argument in ("install", "remove", "", " -install"):
            with self.subTest(argument=argument):
                self.expect([argument], NOT_A_SERVICE)

    def test_only_the_first_argument_counts(self):
        self.expect(["-foo", "-install"], b"")
        self.expect(["foo", "-install"], NOT_A_SERVICE)

    def test_endless_switch_prints_nothing(self):
        self.expect(["-" + "x" * 8000], b"")

    def test_removal_of_what_was_never_installed_names_the_missing_service(self):
        for switch in ("-remove", "/Remove", "-REMOVE"):
            with self.subTest(switch=switch):
                self.expect([switch], b"OpenService failed w/err 0x00000424\r\n")


if __name__ == "__main__":
    unittest.main()
