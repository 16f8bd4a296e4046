"""Every command of docs/deployment.md, in the order of the page."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time
import unittest

from packages import RELEASE, ROOT, SUCCESS, Installer, Prefix, newer_version

PAGE = (ROOT / "docs/deployment.md").read_text()
BLOCKS = re.findall(r"(?ms)^```(\w+)\n(.*?)^```$", PAGE)
# Wine runs services under the account of whoever starts it, Windows as the system.
SYSTEM_LOGS = r"C:\Windows\System32\config\systemprofile\AppData\Roaming\orvkLog"
WAIT_SECONDS = 60


def commands(kind):
    return [line for found, block in BLOCKS if found == kind for line in block.splitlines()]


class Page(unittest.TestCase):
    def test_every_block_is_for_one_of_the_two_systems(self):
        self.assertEqual({kind for kind, _ in BLOCKS}, {"sh", "bat"})
        self.assertEqual(len(BLOCKS), PAGE.count("```") // 2)

    def test_commands_for_debian_work(self):
        home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        release = home / "release"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                        "-subj", "/CN=Company", "-addext", "extendedKeyUsage=codeSigning", "-keyout", home / "key.pem",
                        "-out", home / "company.pem"], check=True, capture_output=True)
        subprocess.run(["openssl", "pkcs12", "-export", "-passout", "pass:the file's password",
                        "-inkey", home / "key.pem", "-in", home / "company.pem", "-out", home / "company.p12"],
                       check=True)
        script = "\n".join(["set -e", *commands("sh")]).replace("cd build/release", f"cd {release}")
        script = script.replace("build/release/", f"{release}/")
        done = subprocess.run(["bash", "-c", script], cwd=ROOT, check=False, capture_output=True, text=True,
                              stdin=subprocess.DEVNULL,
                              env={**os.environ, "HOME": str(home), "LINKVANE_RELEASE": str(release)})
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("ProductCode", done.stdout)

    def test_commands_for_windows_work(self):
        prefix = self.enterContext(Prefix())
        installer = Installer(prefix)
        folder = prefix.path(r"C:\Deploy")
        shutil.copytree(RELEASE, folder, dirs_exist_ok=True)
        (folder / "newer").mkdir()
        newer_version(pathlib.Path(os.environ["LINKVANE_E2E_PREFIX"] + ".packages"),
                      folder / "newer/LinkvaneService.msi")
        for line in commands("bat"):
            with self.subTest(line=line):
                code, output = prefix.run_lines(line, folder=r"C:\Deploy")
                self.assertEqual(code, SUCCESS, output)
                if line.startswith("net start"):
                    self.await_firmware_settings(prefix)
                    shutil.copytree(prefix.log_folder(), prefix.path(SYSTEM_LOGS))

    def await_firmware_settings(self, prefix):
        given_up = time.monotonic() + WAIT_SECONDS
        while not any("BIOS(LAN" in message for _, _, message in prefix.log_lines()):
            self.assertLess(time.monotonic(), given_up)
            time.sleep(0.2)


if __name__ == "__main__":
    unittest.main()
