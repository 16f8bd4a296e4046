"""One notebook from its first installation to the last removal. The chapters play in the order of
their names, each where the one before has left it."""

import json
import os
import re
import shutil
import unittest

from packages import (FUNCTION_FAILED, INSTALL_FAILURE, PACKAGE, PRODUCT_KEY, RELEASE, SERVICE, SERVICE_KEY, SUCCESS,
                      Installer, Prefix, alone, failing_package, files, newer_package, product_code, registry)
from notebook.runner.machine import FOLDER, Machine

POLICY_KEY = rf"HKLM\Software\Policies\Orva\Orva Brimlet Support\{SERVICE}"
EVENT_LOG_KEY = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application"
SECONDS = 10
# Wine renews these by itself.
WINES_OWN = re.compile(r"\\(Hardware|Software\\Wine|System\\CurrentControlSet\\(Control|Hardware Profiles))\\",
                       re.IGNORECASE)
# Windows has these keys, which hold what the installer knows of its packages, before the first one.
INSTALLERS_OWN = re.compile(r"\\Installer(\\(UserData(\\S-1-5-18(\\(Components|Products))?)?|UpgradeCodes|Products"
                            r"|Features))?\]$")
POLICIES = re.compile(r"\\Policies\\Orva(\\|\])")
# What removal leaves: logs and policies. (Windows has the installer's folder before the first
# installation.)
LEFT_FILES = {"users/{user}/AppData/Roaming/orvkLog", "users/{user}/AppData/Roaming/orvkLog/LinkvaneService.log",
              "windows/Installer"}


class Notebook(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.machine = cls.enterClassContext(
            Machine(os.environ["LINKVANE_E2E_PREFIX"], os.environ["LINKVANE_PROGRAMS"], installs=False))
        cls.prefix = Prefix(cls.machine.prefix)
        cls.machine.do("reset")
        cls.registered_by_itself = cls.register_by_itself()
        cls.installer = Installer(cls.prefix)
        newer = newer_package()
        cls.installer.bring(PACKAGE, newer, failing_package())
        cls.newer = product_code(newer)
        # Other sources are always there on Windows.
        cls.prefix.set_registry_number(EVENT_LOG_KEY + r"\Other", "TypesSupported", 7)
        cls.before = registry(cls.prefix, "HKLM", "HKCU"), files(cls.prefix)

    @classmethod
    def register_by_itself(cls):
        """What -install registers, with the executable where the package puts it."""
        executable = cls.prefix.copy_in(RELEASE / "LinkvaneService.exe", FOLDER + r"\LinkvaneService.exe")
        cls.prefix.run(executable, "-install")
        registered = registry(cls.prefix, SERVICE_KEY)
        cls.prefix.run(executable, "-remove")
        cls.prefix.path(executable).unlink()
        shutil.rmtree(cls.prefix.log_folder())
        return registered

    def install(self, *arguments):
        self.assertEqual(self.installer.run(*arguments, "/qn"), SUCCESS)
        self.assertLess(self.installer.seconds, alone(SECONDS))

    def expect_running(self, version):
        self.machine.do("wait service=running com_sinks=3 wlan_registrations=1 within 60000")
        self.machine.settle()
        self.assertIn(("Information", "CMainService::OnStart", f"Linkvane Service ({version}) in OnStart"),
                      self.prefix.log_lines())

    def play(self, command):
        self.machine.do(command)
        self.machine.settle()

    def expect(self, **wanted):
        self.assertEqual(self.machine.values(*wanted), wanted)

    def test_1_installation_that_fails_at_its_end_leaves_nothing(self):
        written = registry(self.prefix, r"HKLM\SYSTEM\CurrentControlSet\Services")
        self.assertEqual(self.installer.run("/i Failing.msi /qn"), FUNCTION_FAILED)
        self.assertEqual(registry(self.prefix, r"HKLM\SYSTEM\CurrentControlSet\Services"), written)
        self.expect(service="absent")
        self.assertFalse(self.prefix.registry_key_exists(PRODUCT_KEY))
        self.assertFalse(self.prefix.path(FOLDER + r"\LinkvaneService.exe").exists())

    def test_2_wifi_follows_the_cable_after_a_silent_installation(self):
        self.install("/i LinkvaneService.msi")
        self.expect_running("1.0.0.1")
        self.play("plug")
        self.expect(wifi="off", stored_wlan="True")
        self.play("unplug")
        self.expect(wifi="on")
        code, text = self.prefix.run(FOLDER + r"\LinkvaneDoctor.exe", "check", "--json")
        # Wine's service manager does not see the quotes around the path before it starts anew.
        self.assertEqual((code, {finding["cause"] for finding in json.loads(text)["findings"]}),
                         (1, {"service-path-unquoted", "wwan-no-modem"}))

    def test_3_service_is_registered_as_by_itself(self):
        # Wine gives REG_SZ to a path that is registered, Windows REG_EXPAND_SZ.
        [path] = [line for line in self.registered_by_itself if '"ImagePath"' in line]
        name, text = path.split("=", 1)
        text = text[1:-1].replace('\\"', '"').replace("\\\\", "\\")
        expanded = ",".join(f"{byte:02x}" for byte in (text + "\0").encode("utf-16-le"))
        wanted = self.registered_by_itself - {path} | {f"{name}=hex(2):{expanded}"}
        self.assertEqual(registry(self.prefix, SERVICE_KEY), wanted)

    def test_4_upgrade_while_running_keeps_choice_and_policy(self):
        self.play("wifi off")
        self.expect(stored_wlan="False")
        self.prefix.set_registry_text(POLICY_KEY, "MaxLogLevel", "Diag")
        # Wine does not tell the removal of the old version that it is part of an upgrade.
        self.install("/x LinkvaneService.msi", f"UPGRADINGPRODUCTCODE={self.newer}")
        self.expect(stored_wlan="False")
        self.install("/i Newer.msi")
        self.expect_running("1.0.1.0")
        self.expect(stored_wlan="False")
        self.assertEqual(self.prefix.run("reg", "query", POLICY_KEY, "/v", "MaxLogLevel")[0], 0)
        self.play("plug")
        self.play("unplug")
        self.expect(wifi="off")

    def test_5_repair_brings_back_what_is_missing_and_forgets_nothing(self):
        self.prefix.path(FOLDER + r"\licences.txt").unlink()
        self.assertEqual(self.prefix.run("reg", "delete", PRODUCT_KEY, "/v", "InstallFolder", "/f")[0], 0)
        self.install("/i Newer.msi REINSTALL=ALL REINSTALLMODE=vomus")
        self.expect_running("1.0.1.0")
        self.assertTrue(self.prefix.path(FOLDER + r"\licences.txt").exists())
        self.assertEqual(self.prefix.run("reg", "query", PRODUCT_KEY, "/v", "InstallFolder")[0], 0)
        self.expect(stored_wlan="False")

    def test_6_older_version_is_refused_and_the_newer_runs_on(self):
        self.assertEqual(self.installer.run("/i LinkvaneService.msi /qn"), INSTALL_FAILURE)
        self.expect(service="running")

    def test_7_removal_leaves_policies_and_logs_alone(self):
        self.install("/x Newer.msi")
        registry_before, files_before = self.before
        changed_lines = registry(self.prefix, "HKLM", "HKCU") ^ registry_before
        self.assertEqual([line for line in sorted(changed_lines) if not any(
            known.search(line) for known in (WINES_OWN, INSTALLERS_OWN, POLICIES))], [])
        self.assertTrue(any("MaxLogLevel" in line for line in changed_lines))
        user = os.environ.get("USER", "root")
        changed = {line.rsplit(" ", 1)[0].replace(f"users/{user}/", "users/{user}/")
                   for line in files(self.prefix) ^ files_before}
        self.assertEqual(changed, LEFT_FILES)


if __name__ == "__main__":
    unittest.main(failfast=True)
