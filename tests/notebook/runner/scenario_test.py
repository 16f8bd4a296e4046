"""How scenario files are read, and what is refused in them."""

import pathlib
import tempfile
import unittest

from notebook.runner import sections
from notebook.runner.play import plays
from notebook.runner.scenario import SCENARIOS, ScenarioError, read_scenario


def read(text):
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "some_scenario.txt"
        path.write_text(text, encoding="utf-8")
        return read_scenario(path)


class Reading(unittest.TestCase):
    def test_first_comment_is_the_title(self):
        self.assertEqual("Wi-Fi goes off.", read("# Wi-Fi goes off.\n# More.\nstart\n").title)

    def test_without_a_comment_the_files_name_is_the_title(self):
        self.assertEqual("some_scenario", read("start\n").title)

    def test_machine_is_no_step(self):
        scenario = read("machine cables 2 modems 1\nstart\n")
        self.assertEqual("cables 2 modems 1", scenario.machine)
        self.assertEqual(["start"], [step.text for step in scenario.steps])

    def test_is_also_played_on_other_machines(self):
        scenario = read("machine modems 1\nalso devices remote\nalso phys 1\nstart\n")
        self.assertEqual(["devices remote", "phys 1"], scenario.also)
        self.assertEqual(["start"], [step.text for step in scenario.steps])

    def test_steps_have_their_kinds_texts_and_lines(self):
        scenario = read("# Title.\nplug dhcp 3000\n\nexpect wifi=off wwan!=on\n"
                        "within 3000 expect wifi=off\nsilent 1000\nstop\n")
        self.assertEqual([("do", "plug dhcp 3000", 2, 0), ("expect", "wifi=off wwan!=on", 4, 0),
                          ("within", "wifi=off", 5, 3000), ("silent", "silent 1000", 6, 1000),
                          ("stop", "stop", 7, 0)],
                         [(step.kind, step.text, step.number, step.within) for step in scenario.steps])

    def test_stop_may_have_to_wait(self):
        scenario = read("stop\nstop during resume\npreshutdown during callback\n")
        self.assertEqual([("stop", ""), ("stop", "resume"), ("preshutdown", "callback")],
                         [(step.text, step.during) for step in scenario.steps])

    def test_repeat_holds_its_indented_steps(self):
        scenario = read("repeat 3\n    plug\n    repeat 2\n        wifi on\n    unplug\nstop\n")
        outer, last = scenario.steps
        self.assertEqual(("repeat", "3"), (outer.kind, outer.text))
        self.assertEqual(["plug", "2", "unplug"], [step.text for step in outer.steps])
        self.assertEqual(["wifi on"], [step.text for step in outer.steps[1].steps])
        self.assertEqual("stop", last.text)

    def test_log_sections_that_follow_one_another_are_one_step(self):
        first, _, second = read("log A\n    a\n\nlog B\n    b\n    ? c\nlog A\n    d\nplug\nlog\n").steps
        self.assertEqual({"A": ["a", "d"], "B": ["b", "? c"]}, first.sections)
        self.assertEqual({}, second.sections)

    def test_blanks_at_the_end_of_a_log_line_belong_to_it(self):
        [step] = read("log A\n    I A| Interface State :  \n").steps
        self.assertEqual(["I A| Interface State :  "], step.sections["A"])


class Refusing(unittest.TestCase):
    def check(self, text, message):
        with self.subTest(text=text), self.assertRaisesRegex(ScenarioError, message):
            read(text)

    def test_stop_waits_only_for_what_it_may_wait_for(self):
        self.check("start\nstop during lunch\n", "line 2: .*lunch")
        self.check("stop resume\n", "line 1: .*resume")
        self.check("stop during\n", "line 1")

    def test_line_indented_without_a_reason(self):
        self.check("start\n    plug\n", "line 2: indented too far: plug")

    def test_step_that_would_expect_nothing(self):
        self.check("expect\n", "line 1")
        self.check("expect wifi\n", "line 1: .*wifi")
        self.check("within 3000 wifi=off\n", "line 1")
        self.check("within 3000 expect\n", "line 1")

    def test_number_that_is_none(self):
        self.check("within soon expect wifi=off\n", "line 1: not a number: soon")
        self.check("start\nsilent long\n", "line 2: not a number: long")
        self.check("repeat often\n    plug\n", "line 1: not a number: often")

    def test_played_once_more_on_the_same_machine(self):
        self.check("start\nalso\n", "line 2: nothing to add")

    def test_cause_that_is_none(self):
        self.check("cause\n", "line 1: a cause is one word")
        self.check("cause the cable\n", "line 1: a cause is one word: cause the cable")

    def test_repeat_of_nothing(self):
        self.check("repeat 3\nplug\n", "line 1: nothing to repeat")


class Plays(unittest.TestCase):
    def test_scenario_is_played_for_every_machine_it_names(self):
        with tempfile.TemporaryDirectory() as folder:
            once, twice = pathlib.Path(folder) / "once.txt", pathlib.Path(folder) / "twice.txt"
            once.write_text("start\n", encoding="utf-8")
            twice.write_text("also devices remote\nstart\n", encoding="utf-8")
            self.assertEqual([(once, ""), (twice, ""), (twice, "devices remote")], plays([once, twice]))


class TheScenarios(unittest.TestCase):
    def test_each_can_be_read_and_all_its_names_are_known(self):
        paths = sorted(SCENARIOS.glob("*.txt"))
        self.assertNotEqual([], paths)
        names = sections.named_lines()
        for path in paths:
            with self.subTest(scenario=path.stem):
                self._expand(read_scenario(path).steps, names)

    def test_each_names_a_cause(self):
        for path in sorted(SCENARIOS.glob("*.txt")):
            with self.subTest(scenario=path.stem):
                self.assertIn("cause", [step.kind for step in read_scenario(path).steps])

    def _expand(self, steps, names):
        for step in steps:
            self._expand(step.steps, names)
            for lines in step.sections.values():
                sections.expand(lines, names)


if __name__ == "__main__":
    unittest.main()
