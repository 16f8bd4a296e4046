"""Every command of docs/deployment.md, in the order of the page."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

from packages import RELEASE, ROOT, SUCCESS, Prefix, make_signer, newer_package
from notebook.runner.machine import Machine

PAGE = (ROOT / "docs/deployment.md").read_text()
# The doctor's. Wine's service manager does not see the quotes around the path before it starts anew.
WARNINGS = 1
# After these the service runs.
STARTS = ("msiexec /i", "net start")
BLOCKS = re.findall(r"(?ms)^```(\w+)\n(.*?)^```$", PAGE)


def commands(kind):
    return [line for found, block in BLOCKS if found == kind for line in block.splitlines()]


class Page(unittest.TestCase):
    def test_every_block_is_for_one_of_the_two_systems(self):
        self.assertEqual({kind for kind, _ in BLOCKS}, {"sh", "bat"})
        self.assertEqual(len(BLOCKS), PAGE.count("```") // 2)

    def test_commands_for_debian_work(self):
        home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        release = home / "release"
        make_signer(home, "company", "the file's password")
        script = "\n".join(["set -e", *commands("sh")]).replace("cd build/release", f"cd {release}")
        script = script.replace("build/release/", f"{release}/")
        done = subprocess.run(["bash", "-c", script], cwd=ROOT, check=False, capture_output=True, text=True,
                              stdin=subprocess.DEVNULL,
                              env={**os.environ, "HOME": str(home), "LINKVANE_RELEASE": str(release)})
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("ProductCode", done.stdout)

    def test_commands_for_windows_work(self):
        prefix = Prefix()
        machine = self.enterContext(Machine(prefix.folder, os.environ["LINKVANE_PROGRAMS"], installs=False))
        machine.do("reset")
        folder = prefix.path(r"C:\Deploy")
        shutil.copytree(RELEASE, folder)
        (folder / "newer").mkdir()
        shutil.copy(newer_package(), folder / "newer/LinkvaneService.msi")
        for line in commands("bat"):
            with self.subTest(line=line):
                code, output = prefix.run_lines(line, folder=r"C:\Deploy")
                self.assertEqual(code, WARNINGS if line.endswith(" check") else SUCCESS, output)
                if line.startswith(STARTS):
                    machine.do("wait service=running com_sinks=3 wlan_registrations=1 within 60000")
                    machine.settle()
                self.assertEqual(output.count("works"), line.count("works"))
        # Nothing is installed any more.
        [rule] = [line for line in commands("bat") if "works" in line]
        self.assertEqual(prefix.run_lines(rule), (1, ""))


if __name__ == "__main__":
    unittest.main()
