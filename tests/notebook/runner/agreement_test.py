"""How lanes are laid beside what the devices did."""

import contextlib
import io
import pathlib
import tempfile
import unittest

from notebook.runner.agreement import Tally
from notebook.runner.real_time import MINUTE_MS, Pauses, rewrite_logs

VALUES = {"cable": "in", "cables": "1:in,2:out", "wifi": "off", "wwan": "on", "airplane": "off", "asleep": "no",
          "stored_wlan": "missing", "stored_wwan": "False", "service": "running"}


def lane(*intervals):
    return [{"from": begin, "until": end, "state": state, "why": ""} for begin, end, state in intervals]


def looks_until(end, values=None):
    return [(begin, begin, values or VALUES) for begin in range(0, end + 1, 500)]


class Comparing(unittest.TestCase):
    def shares(self, looks, **lanes):
        tally = Tally(most_wrong=0.001)
        tally.compare(looks, {"runs": lane((0, 100000, "running")), **lanes}, "a day")
        return {name: dict(counts) for name, counts in tally.milliseconds.items()}, tally

    def test_time_is_right_unknown_or_wrong(self):
        looks = looks_until(10000)
        shares, tally = self.shares(looks, wifi=lane((0, 4000, "off"), (4000, 5000, "unknown"), (5000, 10000, "on")))
        self.assertEqual({"right": 4000, "unknown": 1000, "wrong": 5000}, shares["wifi"])
        self.assertEqual(10, len(tally.mistakes))
        self.assertFalse(self.is_good(tally))

    def is_good(self, tally):
        with contextlib.redirect_stdout(io.StringIO()):
            return tally.show()

    def test_what_is_not_known_may_be_too_much(self):
        tally = Tally(most_wrong=0, least_right=0.99)
        tally.compare(looks_until(10000), {"wifi": lane((0, 9900, "off"), (9900, 10000, "unknown"))}, "a day")
        self.assertTrue(self.is_good(tally))
        tally.compare(looks_until(1000), {"wifi": lane((0, 1000, "unknown"))}, "a day")
        self.assertFalse(self.is_good(tally))

    def test_without_any_time_nothing_is_good(self):
        self.assertFalse(self.is_good(Tally(most_wrong=1)))

    def test_what_counts(self):
        changed, stopped = {**VALUES, "wifi": "on"}, {**VALUES, "service": "stopped"}
        asleep = {**VALUES, "asleep": "yes"}
        on, off = lane((0, 100000, "on")), lane((0, 100000, "off"))
        claim = lane((0, 500, "unknown"), (500, 1000, "on"))
        for what, looks, name, intervals, expected in (
                ("nothing remembered means on", looks_until(1000), "remembered-wlan", on, {"right": 1000}),
                ("", looks_until(1000), "remembered-wwan", off, {"right": 1000}),
                ("not the time between looks that differ", [(0, 0, VALUES), (100, 100, changed)], "wifi", off, None),
                ("nor that lie far apart", [(0, 0, VALUES), (1000, 1000, VALUES)], "wifi", on, None),
                ("nor while a command moves something", [(0, 0, VALUES), None, (100, 100, VALUES)], "wifi", on, None),
                ("a pause however long", [(0, 0, VALUES, "pause"), (90000, 90000, VALUES)], "wifi", off,
                 {"right": 90000}),
                ("without the service only a claim", looks_until(1000, stopped), "wifi", claim, {"wrong": 500}),
                ("asleep only a claim", looks_until(1000, asleep), "wifi", claim, {"wrong": 500}),
                ("a sleep where there was one", [*looks_until(1000), (1500, 1500, asleep)], "sleep",
                 lane((0, 2000, "slept")), {"right": 1000}),
                ("a sleep where there was none", looks_until(1000), "sleep", lane((0, 1000, "slept")),
                 {"wrong": 1000})):
            with self.subTest(what):
                self.assertEqual(expected, self.shares(looks, **{name: intervals})[0].get(name))


class PuttingInPauses(unittest.TestCase):
    LOOKS = [(1000, 1010, VALUES), "plug", "settle", (2000, 2010, VALUES), "suspend"]

    def test_times_behind_a_pause_are_later_by_it(self):
        pauses = Pauses(1, self.LOOKS)
        first = pauses.later(1500) - 1500
        self.assertEqual(0, pauses.later(900) - 900)
        self.assertTrue(10 * MINUTE_MS <= first <= 120 * MINUTE_MS)
        self.assertTrue(0 <= pauses.later(2500) - 2500 - first <= 15 * MINUTE_MS)

    def test_nothing_changes_in_a_pause(self):
        pauses = Pauses(1, self.LOOKS)
        looks = pauses.looks(self.LOOKS)
        self.assertEqual((950, 950, VALUES, "pause"), looks[0])
        self.assertEqual((pauses.later(1000), pauses.later(1010), VALUES), looks[1])
        self.assertIsNone(looks[2])

    def test_a_sleep_is_put_behind_the_suspend(self):
        asleep = {**VALUES, "asleep": "yes"}
        looks = [(1000, 1002, VALUES), "suspend", "unplug", (1020, 1021, asleep), "resume"]
        pauses = Pauses(1, looks)
        first = pauses.later(1003) - 1003
        self.assertTrue(0 <= first <= 15 * MINUTE_MS)
        self.assertEqual(first, pauses.later(1019) - 1019)
        self.assertTrue(30 * MINUTE_MS <= pauses.later(1020) - 1020 - first <= 600 * MINUTE_MS)
        self.assertEqual((pauses.later(1019), pauses.later(1019), asleep, "pause"), pauses.looks(looks)[-3])

    def test_a_radio_that_is_switched_to_what_it_is_ends_no_pause(self):
        looks = [(1000, 1010, VALUES), "wifi off", (2000, 2010, VALUES), "suspend"]
        pauses = Pauses(1, looks)
        self.assertEqual(1500, pauses.later(1500))
        self.assertTrue(0 <= pauses.later(2500) - 2500 <= 15 * MINUTE_MS)
        for commands in (["wifi on"], ["wifi off", "plug"], ["wifi available"]):
            self.assertLess(1500, Pauses(1, [(1000, 1010, VALUES), *commands]).later(1500))

    def test_the_log_has_the_later_times(self):
        pauses = Pauses(1, [(1000, 1010, VALUES), "plug"])
        with tempfile.TemporaryDirectory() as folder:
            log = pathlib.Path(folder) / "a.log"
            text = "1970/01/01 00:00:00.100|1|Information|A|b\r\nnext\r\n1970/01/01 00:00:01.000|1|Information|A|c\r\n"
            log.write_bytes(b"\xef\xbb\xbf" + text.encode())
            rewrite_logs(pauses, folder, pathlib.Path(folder) / "new")
            lines = (pathlib.Path(folder) / "new" / "a.log").read_bytes().decode("utf-8-sig").split("\r\n")
        minutes = (pauses.later(1000) - 1000) // MINUTE_MS
        self.assertEqual("1970/01/01 00:00:00.100|1|Information|A|b", lines[0])
        self.assertEqual("next", lines[1])
        self.assertEqual(f"1970/01/01 {minutes // 60:02}:{minutes % 60:02}:01.000|1|Information|A|c", lines[2])


if __name__ == "__main__":
    unittest.main()
