"""The notebook by hand: what it answers, and that it leaves nothing behind however it is left."""

import os
import pathlib
import signal
import subprocess
import sys
import time
import unittest

from rig import EXECUTABLE, ROOT, TIMEOUT_SECONDS

PREFIX = pathlib.Path(os.environ["LINKVANE_E2E_PREFIX"])
RUNS = "The service runs"


def processes(prefix):
    """The command lines of what runs in a prefix, or was started for it."""
    found = []
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if f"WINEPREFIX={prefix}\0".encode() in (folder / "environ").read_bytes():
                found.append((folder / "cmdline").read_bytes())
        except OSError:
            pass  # it has ended, or is another user's
    return [command for command in found if command]


class ByHand(unittest.TestCase):
    def start(self, *shape, until=RUNS):
        notebook = subprocess.Popen(
            [sys.executable, "-m", "notebook.runner.by_hand", "--programs", EXECUTABLE.parent, "--prefix", PREFIX,
             *shape], cwd=ROOT, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, start_new_session=True)
        self.addCleanup(notebook.communicate)
        self.addCleanup(notebook.terminate)
        for line in notebook.stdout:
            if until in line:
                if until == RUNS:
                    self.assertIn("service=running", notebook.stdout.readline())
                return notebook
        self.fail("it ended before its time")

    def say(self, notebook, *commands):
        """Gives the commands and leaves; what was answered."""
        answer, _ = notebook.communicate("\n".join([*commands, "quit"]), timeout=TIMEOUT_SECONDS)
        self.assertEqual(0, notebook.returncode)
        return answer

    def expect_nothing_left(self, prefix=PREFIX):
        given_up = time.monotonic() + TIMEOUT_SECONDS
        while processes(prefix) and time.monotonic() < given_up:
            time.sleep(0.1)
        self.assertEqual([], processes(prefix))

    def test_answers_show_what_has_come_of_a_command(self):
        answer = self.say(self.start("cables", "1"), "trace on", "plug", "plug cable 2", "trace show", "calls",
                          "event-log", "adapters", "help", "help nothing_such", "# nothing", "suspend", "resume", "log")
        self.assertIn("cable=in  phys=off,off  wwan=none  airplane=off  stored_wlan=True", answer)
        self.assertIn("  service=paused", answer)
        self.assertIn("plug cable 2: no port for cable 2", answer)
        self.assertIn("help nothing_such: no such command", answer)
        self.assertRegex(answer, r"tid=[0-9A-F]{8} result=0x0 WlanSetInterface ")
        self.assertRegex(answer, r"WlanSetInterface calls=2 failed=0")
        self.assertRegex(answer, r"cable1 type=6 address=192\.168\.1\.20 ")
        for command in ("plug ", "wifi ", "call ", "background ", "log ", "quit "):
            self.assertIn(f"\n  {command}", answer)
        self.assertIn("Connecting to Ethernet. Stop WLAN service...", answer)
        self.expect_nothing_left()

    def test_left_early_it_leaves_nothing_behind(self):
        for number in (signal.SIGINT, signal.SIGHUP):
            with self.subTest(number=number):
                notebook = self.start(until="Booting")
                time.sleep(0.5)
                notebook.send_signal(number)
                self.assertEqual(128 + number, notebook.wait(TIMEOUT_SECONDS))
                self.expect_nothing_left()

    def test_two_side_by_side_leave_each_other_alone(self):
        first, second = self.start(), self.start()
        self.assertNotEqual([], processes(PREFIX))
        self.assertNotEqual([], processes(f"{PREFIX}-2"))
        second.send_signal(signal.SIGTERM)
        self.assertEqual(128 + signal.SIGTERM, second.wait(TIMEOUT_SECONDS))
        self.expect_nothing_left(f"{PREFIX}-2")
        # Its owner still runs.
        subprocess.run([ROOT / "scripts/wine-stop"], check=True, stdin=subprocess.DEVNULL)
        first.stdin.write("plug\n")
        first.stdin.flush()
        self.assertIn("cable=in", first.stdout.readline())
        first.kill()
        first.wait()
        subprocess.run([ROOT / "scripts/wine-stop"], check=True, stdin=subprocess.DEVNULL)
        self.expect_nothing_left()


if __name__ == "__main__":
    unittest.main()
