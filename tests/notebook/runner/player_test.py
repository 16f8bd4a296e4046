"""How the player judges, on a machine that only answers."""

import pathlib
import tempfile
import unittest

from notebook.runner.machine import CommandFailed
from notebook.runner.player import Failed, Player, SHOWN, condition, whole
from notebook.runner.scenario import Scenario, Step


class Machine:
    """Answers commands as told; `values` are the state."""

    def __init__(self, folder, answers=(), **values):
        self._folder = pathlib.Path(folder)
        self._answers = dict(answers)
        self._values = {**dict.fromkeys(SHOWN, "?"), "service": "stopped", **values}
        self.lines = []
        self.done = []

    def begin(self, options):
        self.do("reset " + options)

    def do(self, command):
        self.done.append(command)
        answer = self._answers.get(command, "")
        if isinstance(answer, Exception):
            raise answer
        self.lines = answer if isinstance(answer, list) else []
        return "" if self.lines else answer

    def settle(self):
        pass

    def status(self):
        return self._values

    def values(self, *keys):
        return {key: self._values[key] for key in keys}

    def log_file(self):
        return self._folder / "LinkvaneService.log"

    def why(self):
        return {"findings": [{"cause": "cable-in", "sentence": "A cable is in"}]}


class Playing(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self._folder = folder.name

    LEFT = ("wlan_handles", "wlan_memory", "wlan_registrations", "com_references", "event_sources", "exit")

    def play(self, *steps, answers=(), recording=None, **values):
        machine = Machine(self._folder, answers, **values)
        path = pathlib.Path("some_scenario.txt")
        for step in steps:
            step.path = path
        scenario = Scenario(path, "", Step("machine", "cables 2", 5, path=path), list(steps))
        Player(machine, scenario, lambda _: None, recording).play()
        return machine

    def failure(self, *steps, **arguments):
        with self.assertRaises(Failed) as caught:
            self.play(*steps, **arguments)
        return str(caught.exception)

    def test_what_is_as_expected_passes(self):
        self.play(Step("cause", "cable-in", 1))
        self.play(Step("expect", "phys=on,on wwan!=on", 1), phys="on,on", wwan="off")

    def test_what_is_not_as_expected_fails_with_what_is(self):
        for kind, text, message in (
                ("cause", "user-off", "line 7: the cause is user-off, but why says cable-in: A cable is in"),
                ("expect", "phys=on,on", "line 7: expected phys=on,on, but phys=off,on"),
                ("expect", "wwan!=on", "but wwan=on")):
            with self.subTest(text):
                self.assertIn(message, self.failure(Step(kind, text, 7), phys="off,on", wwan="on"))

    def test_failure_tells_what_commands_in_the_background_have_answered(self):
        wait = "wait reported=stopped within 5"
        message = self.failure(Step("within", "reported=stopped", 3, within=5), answers={
            wait: CommandFailed("not within 5 ms"),
            "answers": ["resume: ERROR the service is gone", "stop: no answer yet"]})
        self.assertEqual("some_scenario.txt, line 3: not within 5 ms\n"
                         "  in the background: resume: ERROR the service is gone\n"
                         "  in the background: stop: no answer yet", message)

    def test_failure_without_commands_in_the_background_tells_of_none(self):
        self.assertNotIn("background", self.failure(Step("expect", "phys=on", 1), phys="off"))

    def test_repeat_plays_its_steps_so_often(self):
        machine = self.play(Step("repeat", "3", 1, steps=[Step("do", "plug", 2)]))
        self.assertEqual(["plug"] * 3, machine.done[1:])

    def test_slow_stop_fails_unless_it_has_to_wait(self):
        answers = {"stop": "took=1001 gone=1002 exit=0"}
        self.assertIn("stop took 1001 ms", self.failure(Step("stop", "stop", 1), answers=answers))
        self.play(Step("stop", "stop", 1, during="resume"), answers=answers)
        self.play(Step("stop", "stop", 1), answers={"stop": "took=1000 gone=1002 exit=0"})

    def test_process_that_ends_with_an_error_fails_a_stop(self):
        self.assertIn("0xc0000005", self.failure(Step("stop", "stop", 1),
                                                 answers={"stop": "took=5 gone=6 exit=3221225477"}))

    def test_service_that_still_runs_at_the_end_is_stopped_as_ever(self):
        answers = {"stop": "took=5 exit=0"}
        self.assertIn("stop.txt, line 2: stop took 2000 ms",
                      self.failure(service="running", answers={"stop": "took=2000 exit=0"}))
        self.assertIn("stop.txt, line 3: expected service=stopped",
                      self.failure(service="running", answers=answers, **dict.fromkeys(self.LEFT, "1")))

    def test_word_that_is_none_is_told_with_those_like_it(self):
        unknown = CommandFailed("expct wifi=on: no such command: expct (try help)")
        key = CommandFailed("wait wfi=off within 5: no such key: wfi")
        commands = ["plug [cable N]", "      A cable goes in.", "unplug"]
        self.assertRegex(self.failure(Step("do", "expct wifi=on", 2), answers={"expct wifi=on": unknown, "help": commands}),
                         r"line 2: .*did you mean expect\?")
        self.assertRegex(self.failure(Step("within", "wfi=off", 3, within=5), answers={"wait wfi=off within 5": key}, wifi="on"),
                         r"line 3: .*no such key: wfi.*did you mean wifi\?")

    def test_machine_that_is_none_is_told_with_its_line(self):
        answers = {"reset cables 2": CommandFailed("reset cables 2: not understood")}
        self.assertIn("some_scenario.txt, line 5: reset cables 2: not understood", self.failure(answers=answers))

    def test_log_that_differs_fails_unless_it_is_recorded(self):
        step = Step("log", "log", 4, sections={"A": ["I A| a"]})
        self.assertIn("line 4: the log differs", self.failure(step))
        recording = {}
        self.play(step, recording=recording)
        self.assertEqual({4: {}}, recording)


class Words(unittest.TestCase):
    def test_condition_is_equal_or_not(self):
        self.assertEqual(("wifi", "off", True), condition("wifi=off"))
        self.assertEqual(("wifi", "off", False), condition("wifi!=off"))
        self.assertEqual(("phys", "", True), condition("phys="))

    def test_remembered_choice_stands_for_its_type_and_bytes_too(self):
        self.assertEqual(["stored_wlan=True", "stored_wlan_type=REG_SZ",
                          "stored_wlan_bytes=54007200750065000000"], list(whole(["stored_wlan=True"])))
        self.assertEqual(["stored_wwan=missing", "wifi=off"], list(whole(["stored_wwan=missing", "wifi=off"])))


if __name__ == "__main__":
    unittest.main()
