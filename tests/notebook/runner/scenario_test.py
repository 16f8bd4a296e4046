"""How scenario files are read, and what is refused in them."""

import pathlib
import re
import tempfile
import unittest

from notebook.runner.blocks import SCENARIOS, Blocks, ScenarioError, named_lines, read_blocks
from notebook.runner.play import plays, scenario_files
from notebook.runner.record import fold, fold_sections, with_recorded_log
from notebook.runner.scenario import read_scenario

ROOT = SCENARIOS.parents[1]


def in_a_file(text, then):
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "some_scenario.txt"
        path.write_text(text, encoding="utf-8")
        return then(path)


def read(text, also=""):
    return in_a_file(text, lambda path: read_scenario(path, also))


def texts(steps):
    return [(step.kind, step.text) for step in steps]


class Reading(unittest.TestCase):
    def test_comment_at_the_top_is_the_title(self):
        self.assertEqual("Wi-Fi goes off. More.", read("# Wi-Fi goes off.\n# More.\n\n# Not this.\nstart\n").title)
        self.assertEqual("some_scenario", read("start\n").title)

    def test_machine_comes_before_the_steps(self):
        scenario = read("machine cables 2 modems 1\nstart\n")
        self.assertEqual(("cables 2 modems 1", 1), (scenario.machine.text, scenario.machine.number))
        self.assertEqual(["start"], [step.text for step in scenario.steps])

    def test_is_also_played_on_other_machines(self):
        text = "machine modems 1\nalso devices remote\nalso phys 1\nstart\n"
        scenario = read(text)
        self.assertEqual(["devices remote", "phys 1"], scenario.also)
        self.assertEqual(["start"], [step.text for step in scenario.steps])
        machine = read(text, "devices remote").machine
        self.assertEqual(("modems 1 devices remote", 2), (machine.text, machine.number))

    def test_steps_have_their_kinds_texts_and_lines(self):
        scenario = read("# Title.\nstart\nplug dhcp 3000\n\nexpect wifi=off wwan!=on\n"
                        "within 3000 expect wifi=off\nsilent 1000\nstop\n")
        self.assertEqual([("do", "start", 2, 0), ("do", "plug dhcp 3000", 3, 0),
                          ("expect", "wifi=off wwan!=on", 5, 0), ("within", "wifi=off", 6, 3000),
                          ("silent", "silent 1000", 7, 1000), ("stop", "stop", 8, 0)],
                         [(step.kind, step.text, step.number, step.within) for step in scenario.steps])
        self.assertEqual({"some_scenario.txt"}, {step.path.name for step in scenario.steps})

    def test_stop_may_have_to_wait(self):
        scenario = read("start\nstop\nstop during resume\npreshutdown during callback\n")
        self.assertEqual([("stop", ""), ("stop", "resume"), ("preshutdown", "callback")],
                         [(step.text, step.during) for step in scenario.steps[1:]])

    def test_repeat_holds_its_indented_steps(self):
        scenario = read("start\nrepeat 3\n    plug\n    repeat 2\n        wifi on\n    log A\n        a\n    unplug\nstop\n")
        _, outer, last = scenario.steps
        self.assertEqual(("repeat", "3"), (outer.kind, outer.text))
        self.assertEqual(["plug", "2", "log", "unplug"], [step.text for step in outer.steps])
        self.assertEqual(["wifi on"], [step.text for step in outer.steps[1].steps])
        self.assertEqual({"A": ["a"]}, outer.steps[2].sections)
        self.assertEqual("stop", last.text)

    def test_log_sections_that_follow_one_another_are_one_step(self):
        _, first, _, second = read("start\nlog A\n    a\n\nlog B\n    b\n    # no line\n    ? c\nlog A\n    d\n"
                                   "plug\nlog\n").steps
        self.assertEqual({"A": ["a", "d"], "B": ["b", "? c"]}, first.sections)
        self.assertEqual({}, second.sections)

    def test_blanks_at_the_end_of_a_log_line_belong_to_it(self):
        _, step = read("start\nlog A\n    I A| Interface State :  \n").steps
        self.assertEqual(["I A| Interface State :  "], step.sections["A"])


class AsEver(unittest.TestCase):
    START = [("do", "start"), ("expect", "service=running phys=on,on stored_wlan=missing stored_wwan=missing"),
             ("log", "log")]

    def test_scenario_without_a_start_begins_with_an_ordinary_one(self):
        steps = read("plug\n").steps
        self.assertEqual([*self.START, ("do", "plug")], texts(steps))
        self.assertEqual("start.txt", steps[0].path.name)
        self.assertEqual(["InitializeSecurity", "CMainService::OnStart", "CMainService::ServiceWorkerThread"],
                         list(steps[2].sections))

    def test_with_a_modem_it_is_expected_too(self):
        for machine, also in (("modems 1", ""), ("cables 2 modems 2", ""), ("phys 1", "modems 1")):
            with self.subTest(machine=machine, also=also):
                start, expected, log, _ = read(f"machine {machine}\nplug\n", also).steps
                self.assertIn("wwan=on", expected.text)
                self.assertIn("I ServiceUtils::CheckWwanStatus| Current WWAN status : ON",
                              log.sections["CMainService::ServiceWorkerThread"])
        self.assertNotIn("wwan=on", read("machine modems 0\nplug\n").steps[1].text)

    def test_own_start_is_the_only_one(self):
        for text in ("plug\nstart\n", "background start\n", "repeat 2\n    start nowait\n"):
            with self.subTest(text=text):
                self.assertNotEqual(self.START, texts(read(text).steps)[:3])

    def test_cable_goes_in_and_comes_out_as_ever_with_a_modem_or_without(self):
        for machine, expected in (("cables 2", "phys=off,off stored_wlan=True"),
                                  ("modems 1", "phys=off,off wwan=off stored_wlan=True stored_wwan=True")):
            with self.subTest(machine=machine):
                steps = read(f"machine {machine}\nstart\nplug as ever\nunplug as ever\n").steps
                self.assertEqual(["start", "plug", expected, "log", "unplug"],
                                 [step.text for step in steps[:5]])

    def test_start_and_stop_may_be_as_ever_anywhere(self):
        steps = read("plug\nstart as ever\nstop as ever\nplug\n").steps
        self.assertEqual([("do", "plug"), *self.START, ("stop", "stop")], texts(steps)[:5])
        self.assertEqual(("do", "plug"), texts(steps)[-1])
        self.assertIn("com_references=0", steps[5].text)


class Refusing(unittest.TestCase):
    def test_what_is_wrong_is_told_with_its_file_and_line(self):
        for text, message in (
                ("", ": nothing is done"),
                ("# Only a title.\nmachine modems 1\n", ": nothing is done"),
                ("start\nstop during lunch\n", ", line 2: .*lunch"),
                ("stop resume\n", ", line 1: .*resume"),
                ("stop during\n", ", line 1: "),
                ("start\n    plug\n", ", line 2: indented too far: plug"),
                ("suspend as ever\n", ", line 1: only start, plug, unplug, stop are as ever"),
                # Steps that would expect nothing.
                ("expect\n", ", line 1: "),
                ("expect wifi\n", ", line 1: .*wifi"),
                ("within 3000 wifi=off\n", ", line 1: "),
                ("within 3000 expect\n", ", line 1: "),
                ("within soon expect wifi=off\n", ", line 1: not a number: soon"),
                ("start\nsilent long\n", ", line 2: not a number: long"),
                ("repeat often\n    plug\n", ", line 1: not a number: often"),
                ("repeat 3\nplug\n", ", line 1: nothing to repeat"),
                ("start\nalso\n", ", line 2: nothing to add"),
                ("cause\n", ", line 1: a cause is one word"),
                ("cause the cable\n", ", line 1: a cause is one word: cause the cable"),
                ("start\nlog\n    I A| a\n", ", line 2: the operation is missing"),
                ("start\nlog A\n    @nobody\n", ", line 3: no lines named @nobody$"),
                ("start\nlog A\n    @wifi-reads-of\n", ", line 3: .*; did you mean @wifi-reads-off"),
                ("start\nlog @cable-goes-im\n", ", line 2: .*; did you mean @cable-goes-in"),
                ("start\nlog A\n    @cable-goes-in\n", ", line 3: @cable-goes-in holds whole sections"),
                ("start\nlog @plug\n", ", line 2: @plug holds lines of one section"),
                ("start\nlog @cable-goes-in\n    @plug\n", ", line 3: below @cable-goes-in stands what differs"),
                ("start\nlog @cable-goes-in\n    @over-wifi is nothing\n",
                 ", line 3: there is no @over-wifi in @cable-goes-in"),
                ("start\nlog A\n    @plug\n        @over-ethernet is\n", ", line 4: nothing stands in its place"),
                ("start\nlog A\n    @plug\n        @over-ethernet is @over-wif\n", ", line 4: no lines named @over-wif"),
                ("start\nlog A\n    3 x\n    a\n", ", line 3: nothing to repeat"),
                ("start\nlog A\n    a\n        b\n", ", line 4: indented too far: b")):
            with self.subTest(text=text), self.assertRaisesRegex(ScenarioError, "^some_scenario.txt" + message):
                read(text)

    def test_scenario_that_is_none_is_refused_with_those_like_it(self):
        with self.assertRaisesRegex(SystemExit, "no scenario named plug_and_unplg.* did you mean plug_and_unplug"):
            scenario_files(["plug_and_unplg"])


class Names(unittest.TestCase):
    """Names and counts in log sections."""

    TEXT = ("# Of all.\n\n# Of the first\n# alone.\n@both\na\n@rest\n\n@rest\n# Of a line.\nb\n? c\n\n@loose\na\n{*}\n\n"
            "@whole\nlog A\n    @both\nlog B\n    b\n\n@round-both\n@both\n    @rest is @rest\n\n@itself\n@round\n\n@round\n@itself\n")

    def setUp(self):
        self.path = pathlib.Path("a.txt")
        self.blocks = Blocks(in_a_file(self.TEXT, lambda path: list(read_blocks(path))))

    def expand(self, *lines):
        return self.blocks.lines(self.path, list(enumerate(lines, 1)))

    def test_names_are_put_in_names_within_names_too(self):
        self.assertEqual(["x", "a", "b", "? c", "y"], self.expand("x", "@both", "y"))
        self.assertEqual({"A": ["a", "b", "? c"], "B": ["b"]}, self.blocks.sections(self.path, 1, "@whole"))

    def test_blocks_tell_of_themselves_for_the_index(self):
        self.assertEqual([("both", "Of the first alone.", 5), ("rest", "", 9)],
                         [(block.name, block.comment, block.number) for block in self.blocks][:2])

    def test_counts_are_carried_out(self):
        for lines, expanded in (
                (["3 x a"], ["a", "a", "a"]),
                (["2 x I A|  "], ["I A|  ", "I A|  "]),
                (["2 x try {n} of {n}, request {99+n}"], ["try 0 of 0, request 99", "try 1 of 1, request 100"]),
                (["2 x @rest", "z"], ["b", "? c", "b", "? c", "z"]),
                (["2 x", "    a {n}", "    2 x b", "z"], ["a 0", "b", "b", "a 1", "b", "b", "z"]),
                (["2 x", "    2 x", "        a {n}"], ["a 0", "a 1", "a 0", "a 1"]),
                (["0 x a"], ["0 x a"])):
            with self.subTest(lines=lines):
                self.assertEqual(expanded, self.expand(*lines))

    def test_others_stand_in_place_of_names(self):
        for lines, expanded in (
                (["@both", "    @rest is x", "y"], ["a", "x", "y"]),
                (["@both", "    @rest is @loose"], ["a", "a", "{*}"]),
                (["@both", "    @rest is nothing"], ["a"]),
                (["@both", "    @rest is", "        x", "        @rest"], ["a", "x", "b", "? c"]),
                (["2 x", "    @both", "        @rest is 2 x z"], ["a", "z", "z", "a", "z", "z"]),
                (["@round-both", "    @rest is x"], ["a", "x"]),
                (["@round-both", "    @both is y"], ["y"])):
            with self.subTest(lines=lines):
                self.assertEqual(expanded, self.expand(*lines))
        inner = [(1, "@rest is x")]
        self.assertEqual({"A": ["a", "x"], "B": ["b"]}, self.blocks.sections(self.path, 1, "@whole", inner))

    def test_name_that_stands_for_itself_is_refused(self):
        with self.assertRaisesRegex(ScenarioError, "some_scenario.txt, line 32: @itself stands for itself"):
            self.expand("@itself")

    def test_name_is_given_once(self):
        with self.assertRaisesRegex(ScenarioError, "line 4: a second @a"):
            Blocks(in_a_file("@a\nx\n\n@a\ny\n", lambda path: list(read_blocks(path))))


class Recording(unittest.TestCase):
    def sections(self, name):
        return {root: [line.removeprefix("? ") for line in lines]
                for root, lines in named_lines().sections(SCENARIOS, 1, name).items()}

    def test_lines_are_named_and_counted(self):
        reads_on = [line.replace("{Not ready|Not connected|Connected}", "Connected")
                    for line in named_lines().lines(SCENARIOS, [(1, "@wifi-reads-on")])]
        self.assertEqual(["x", "3 x @wifi-reads-on", "2 x y"], fold(["x", *reads_on * 3, "y", "y"]))

    def test_whole_events_are_named(self):
        self.assertEqual(["log @stops-as-ever"], fold_sections(self.sections("@stops-as-ever")))

    def test_sections_replace_those_of_the_step_that_differed(self):
        text = "# T\nplug\nlog A\n    a\n\nlog B\n    b\nunplug\nlog\n"
        self.assertEqual("# T\nplug\nlog C\n    2 x c\n\nunplug\nlog\n", with_recorded_log(text, {3: {"C": ["c", "c"]}}))
        self.assertEqual("# T\nplug\nlog A\n    a\n\nlog B\n    b\nunplug\nlog D\n    d\n",
                         with_recorded_log(text, {9: {"D": ["d"]}}))
        self.assertEqual("log\n", with_recorded_log("log A\n    a\n", {1: {}}))


class Plays(unittest.TestCase):
    def test_scenario_is_played_for_every_machine_it_names(self):
        with tempfile.TemporaryDirectory() as folder:
            once, twice = pathlib.Path(folder) / "once.txt", pathlib.Path(folder) / "twice.txt"
            once.write_text("start\n", encoding="utf-8")
            twice.write_text("also devices remote\nstart\n", encoding="utf-8")
            self.assertEqual([(once, ""), (twice, ""), (twice, "devices remote")], plays([once, twice]))


class TheScenarios(unittest.TestCase):
    def test_each_can_be_read_and_names_a_cause(self):
        paths = sorted(SCENARIOS.glob("*.txt"))
        self.assertNotEqual([], paths)
        for path in paths:
            with self.subTest(scenario=path.stem):
                self.assertIn("cause", [step.kind for step in read_scenario(path).steps])

    def test_every_name_can_be_read_and_is_used(self):
        written = "\n".join(path.read_text(encoding="utf-8") for path in SCENARIOS.rglob("*.txt"))
        for block in named_lines():
            with self.subTest(name=block.name):
                if block.has_sections:
                    named_lines().sections(block.path, block.number, "@" + block.name)
                else:
                    named_lines().lines(block.path, block.lines)
                self.assertGreater(len(re.findall(rf"@{block.name}(?![\w-])", written)), 1)

    def test_example_of_the_documentation_is_a_scenario(self):
        example = (SCENARIOS / "plug_and_unplug.txt").read_text(encoding="utf-8")
        indented = "".join("    " + line if line.strip() else line for line in example.splitlines(keepends=True))
        self.assertIn("\n" + indented, (ROOT / "docs/notebook.md").read_text(encoding="utf-8"))


if __name__ == "__main__":
    unittest.main()
