"""How lanes are laid beside what the devices did."""

import contextlib
import io
import unittest

from notebook.runner.agreement import Tally

VALUES = {"cable": "in", "cables": "1:in,2:out", "wifi": "off", "wwan": "on", "airplane": "off", "asleep": "no",
          "stored_wlan": "missing", "stored_wwan": "False", "service": "running"}


def lane(*intervals):
    return [{"from": begin, "until": end, "state": state, "why": ""} for begin, end, state in intervals]


def looks_until(end, values=None):
    return [(begin, begin, values or VALUES) for begin in range(0, end + 1, 500)]


class Comparing(unittest.TestCase):
    def shares(self, looks, **lanes):
        tally = Tally()
        tally.compare(looks, {"runs": lane((0, 100000, "running")), **lanes}, "a day")
        return {name: dict(counts) for name, counts in tally.watched.items()}, tally

    def test_time_is_right_unknown_or_wrong(self):
        looks = looks_until(10000)
        shares, tally = self.shares(looks, wifi=lane((0, 4000, "off"), (4000, 5000, "unknown"), (5000, 10000, "on")))
        self.assertEqual({"right": 4000, "unknown": 1000, "wrong": 5000}, shares["wifi"])
        self.assertEqual(10, len(tally.mistakes))
        with contextlib.redirect_stdout(io.StringIO()):
            self.assertFalse(tally.show())

    def test_nothing_remembered_means_on(self):
        shares, _ = self.shares(looks_until(1000),
                                **{"remembered-wlan": lane((0, 1000, "on")), "remembered-wwan": lane((0, 1000, "off"))})
        self.assertEqual({"right": 1000}, shares["remembered-wlan"])
        self.assertEqual({"right": 1000}, shares["remembered-wwan"])

    def test_looks_that_differ_say_nothing_of_the_time_between(self):
        looks = [(0, 0, VALUES), (100, 100, {**VALUES, "wifi": "on"})]
        self.assertNotIn("wifi", self.shares(looks, wifi=lane((0, 1000, "off")))[0])

    def test_looks_far_apart_say_nothing_of_the_time_between(self):
        self.assertNotIn("wifi", self.shares([(0, 0, VALUES), (1000, 1000, VALUES)], wifi=lane((0, 1000, "on")))[0])

    def test_nobody_looks_while_a_command_moves_something(self):
        looks = [(0, 0, VALUES), None, (100, 100, VALUES)]
        self.assertNotIn("wifi", self.shares(looks, wifi=lane((0, 1000, "on")))[0])

    def test_time_before_the_service_has_started_does_not_count(self):
        shares, _ = self.shares(looks_until(1000), runs=lane((0, 1000, "starting")), wifi=lane((0, 1000, "unknown")))
        self.assertNotIn("wifi", shares)


if __name__ == "__main__":
    unittest.main()
