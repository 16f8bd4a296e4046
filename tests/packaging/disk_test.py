"""What becomes of installation, upgrade and removal where the disk has no room. Runs in a mount namespace
of its own, which may have a small disk."""

import os
import subprocess
import unittest

from packages import (INSTALL_FAILURE, PACKAGE, PRODUCT_KEY, SUCCESS, Installer, Prefix, expect_nothing_installed,
                      files, newer_package)

MEGABYTE = 1 << 20
FOLDER = r"C:\Small\Linkvane"


class SmallDisk(unittest.TestCase):
    """The installation folder is on a disk of its own."""

    @classmethod
    def setUpClass(cls):
        cls.prefix = cls.enterClassContext(Prefix())
        cls.installer = Installer(cls.prefix)
        cls.installer.bring(PACKAGE, newer_package())
        cls.disk = cls.prefix.path(r"C:\Small")
        cls.disk.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16m", "small", cls.disk], check=True)
        cls.addClassCleanup(subprocess.run, ["umount", "--lazy", cls.disk], check=True)

    def leave_room(self, bytes_left):
        """Fills the disk, but for so much."""
        filler = self.disk / "filler"
        filler.unlink(missing_ok=True)
        room = os.statvfs(self.disk)
        filler.write_bytes(bytes(room.f_bavail * room.f_bsize - bytes_left))

    def install(self, arguments):
        return self.installer.run(arguments, f'INSTALLFOLDER="{FOLDER}"', "/qn")

    def files(self):
        """Those that nobody but the installer writes. (Windows has a folder for packages from the start.)"""
        return {line for line in files(self.prefix) if "/orvkLog/" not in line} - {"windows/Installer "}

    def test_installation_is_refused_and_changes_nothing(self):
        for megabytes in (0, 1, 3):
            with self.subTest(megabytes=megabytes):
                self.leave_room(megabytes * MEGABYTE)
                before = self.files()
                self.assertEqual(self.install("/i LinkvaneService.msi"), INSTALL_FAILURE)
                self.assertEqual(self.files(), before)
                expect_nothing_installed(self, self.prefix)

    def test_upgrade_is_refused_and_the_older_version_runs_on(self):
        self.leave_room(8 * MEGABYTE)
        self.assertEqual(self.install("/i LinkvaneService.msi"), SUCCESS)
        self.leave_room(MEGABYTE)
        before = self.files()
        self.assertEqual(self.install("/i Newer.msi"), INSTALL_FAILURE)
        self.assertEqual(self.files(), before)
        self.assertEqual(self.prefix.registry_values(PRODUCT_KEY)["InstalledVersion"], "1.0.0.1")
        self.assertEqual(self.prefix.notebook("get", "service"), (0, "OK service=running"))
        self.leave_room(0)
        self.assertEqual(self.install("/x LinkvaneService.msi REMOVELOGS=1"), SUCCESS)
        expect_nothing_installed(self, self.prefix)
        self.assertEqual([each.name for each in self.disk.iterdir()], ["filler"])


if __name__ == "__main__":
    unittest.main()
