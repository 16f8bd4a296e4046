"""What the installer makes of machines and packages that are not as they should be."""

import os
import shutil
import subprocess
import unittest

from packages import (FUNCTION_FAILED, INSTALL_FAILURE, PACKAGE, PRODUCT_KEY, RELEASE, ROOT, SERVICE_KEY,
                      SUCCESS, Installer, Prefix, expect_nothing_installed, newer_package)
from rig import NOTEBOOK

STATES_KEY = PRODUCT_KEY + r"\WlanPowerStatus"
LONG = r"C:\Long"


def folder_of(characters):
    """A folder with a path of so many characters."""
    path = LONG
    while len(path) < characters:
        path += "\\" + "x" * min(99, characters - len(path) - 1)
    return path


class Machines(unittest.TestCase):
    """Each test begins and ends with a machine on which nothing is installed."""

    @classmethod
    def setUpClass(cls):
        cls.prefix = cls.enterClassContext(Prefix())
        cls.installer = Installer(cls.prefix)
        cls.installer.bring(PACKAGE)

    def install(self, arguments, expected=SUCCESS):
        self.assertEqual(self.installer.run(arguments, "/qn"), expected)

    def remove(self, arguments=""):
        self.install("/x LinkvaneService.msi " + arguments)

    def expect_state(self, state):
        self.assertEqual(self.prefix.notebook("get", "service"), (0, f"OK service={state}"))

    def expect_running(self):
        code, text = self.prefix.notebook("wait", "service=running", "within", "60000")
        self.assertEqual(code, 0, text)

    def expect_nothing_installed(self):
        expect_nothing_installed(self, self.prefix)

    def test_service_installed_elsewhere_runs_from_the_new_folder_after_a_restart(self):
        elsewhere = self.prefix.copy_in(RELEASE / "LinkvaneService.exe", r"C:\By hand\LinkvaneService.exe")
        self.prefix.run(elsewhere, "-install")
        self.assertEqual(self.prefix.notebook("start", "nowait")[0], 0)
        self.installer.bring(newer_package())
        self.install("/i Newer.msi")
        # Windows reads the path at each start of a service, Wine at each of its own.
        self.prefix.end()
        self.expect_running()
        starts = [message for _, _, message in self.prefix.log_lines() if message.endswith(" in OnStart")]
        self.assertEqual(starts[-1], "Linkvane Service (1.0.1.0) in OnStart")
        self.install("/x Newer.msi REMOVELOGS=1")
        self.expect_nothing_installed()

    def test_start_can_be_left_to_the_next_restart(self):
        self.install("/i LinkvaneService.msi STARTSERVICE=0")
        self.expect_state("stopped")
        self.remove()
        self.expect_nothing_installed()

    def test_start_that_fails_undoes_nothing(self):
        # A program that cannot be loaded with the library that lies beside it.
        library = self.prefix.path(r"C:\Program Files\Orva\Linkvane\wlanapi.dll")
        library.parent.mkdir(parents=True)
        library.write_text("no library")
        self.install("/i LinkvaneService.msi")
        self.expect_state("stopped")
        library.unlink()
        self.assertEqual(self.prefix.notebook("start", "nowait")[0], 0)
        self.expect_running()
        self.remove()
        self.expect_nothing_installed()

    def test_chosen_folder_is_found_again_by_an_upgrade(self):
        self.install(r'/i LinkvaneService.msi INSTALLFOLDER="C:\Tools\Cable and Wi-Fi" STARTSERVICE=0')
        self.remove("UPGRADINGPRODUCTCODE={5B8E6B0F-52B5-4D43-8C55-BD6C0B7A0F6E}")
        self.install("/i LinkvaneService.msi STARTSERVICE=0")
        self.assertTrue(self.prefix.path(r"C:\Tools\Cable and Wi-Fi\LinkvaneService.exe").exists())
        self.assertIn(r"C:\Tools\Cable and Wi-Fi\LinkvaneService.exe",
                      self.prefix.registry_values(SERVICE_KEY)["ImagePath"])
        self.remove()
        self.expect_nothing_installed()
        self.assertFalse(self.prefix.path(r"C:\Tools\Cable and Wi-Fi").exists())

    def test_removal_forgets_choices_unless_told_to_keep_them(self):
        for arguments, kept in (("KEEPSTATES=1", True), ("", False)):
            with self.subTest(arguments=arguments):
                self.install("/i LinkvaneService.msi STARTSERVICE=0")
                self.prefix.set_registry_text(STATES_KEY, "PowerOnOff", "False")
                self.remove(arguments)
                self.assertEqual(self.prefix.registry_key_exists(STATES_KEY), kept)
        self.expect_nothing_installed()

    def test_removal_takes_the_logs_of_the_service_alone_when_told_to(self):
        self.install("/i LinkvaneService.msi")
        self.expect_running()
        others = self.prefix.log_folder() / "Another.log"
        others.write_text("another program's")
        self.remove("REMOVELOGS=1")
        self.assertEqual(list(others.parent.iterdir()), [others])
        shutil.rmtree(others.parent)

    def test_service_marked_for_deletion_fails_the_installation(self):
        executable = self.prefix.copy_in(RELEASE / "LinkvaneService.exe", r"C:\By hand\LinkvaneService.exe")
        self.prefix.run(executable, "-install")
        with subprocess.Popen([ROOT / "scripts/run-wine", NOTEBOOK],
                              env={**os.environ, "LINKVANE_WINEPREFIX": str(self.prefix.folder)},
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE) as controller:
            controller.stdin.write(b"doom\n")
            controller.stdin.flush()
            self.assertEqual(controller.stdout.readline().strip(), b"OK")
            self.install("/i LinkvaneService.msi", INSTALL_FAILURE)
        self.expect_nothing_installed()

    def test_path_by_which_no_service_starts_is_refused(self):
        # 239 characters are the most: with a backslash and LinkvaneService.exe they are 259.
        for characters in (240, 300):
            with self.subTest(characters=characters):
                self.install(f'/i LinkvaneService.msi INSTALLFOLDER="{folder_of(characters)}"', INSTALL_FAILURE)
                self.expect_nothing_installed()
                self.assertFalse(self.prefix.path(LONG).exists())

    def test_longest_path_works(self):
        self.install(f'/i LinkvaneService.msi INSTALLFOLDER="{folder_of(239)}"')
        self.expect_running()
        self.remove()
        self.expect_nothing_installed()
        # The folders above the one that was chosen stay.
        self.assertFalse(self.prefix.path(folder_of(239)).exists())
        shutil.rmtree(self.prefix.path(LONG))

    def test_damaged_package_is_refused(self):
        whole = PACKAGE.read_bytes()
        self.prefix.path(r"C:\Deploy\Cut.msi").write_bytes(whole[:len(whole) // 2])
        self.prefix.path(r"C:\Deploy\Text.msi").write_bytes(b"no package")
        for name in ("Cut.msi", "Text.msi"):
            with self.subTest(name=name):
                self.install(f"/i {name}", FUNCTION_FAILED)
                self.expect_nothing_installed()


if __name__ == "__main__":
    unittest.main()
