"""What LinkvaneDoctor says of a notebook in each of its states, from another process than the service."""

import contextlib
import json
import os
import pathlib
import subprocess
import unittest
import zipfile

from rig import EXECUTABLE, ROOT, TIMEOUT_SECONDS

from notebook.runner.machine import DOCTOR_IN_NOTEBOOK, FOLDER, Machine

ALL_WELL, WARNINGS, CANNOT_WORK, CANNOT_BE_TOLD = range(4)
WLAN_SETTING = '"LAN / WLAN Auto Switching"'
ACCESS_DENIED = 5


class Doctor(unittest.TestCase):
    """One notebook and one long story: booting one takes longer than all questions."""

    @classmethod
    def setUpClass(cls):
        cls.notebook = cls.enterClassContext(Machine(os.environ["LINKVANE_E2E_PREFIX"], EXECUTABLE.parent))

    def run_doctor(self, *arguments, before=()):
        return self.run_program(*before, FOLDER + "\\" + DOCTOR_IN_NOTEBOOK, *arguments)

    def run_program(self, *words):
        done = subprocess.run(
            [ROOT / "scripts/run-wine", *words],
            env={**os.environ, "LINKVANE_WINEPREFIX": str(self.notebook.prefix)},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=TIMEOUT_SECONDS, check=False)
        return done.returncode, done.stdout.decode()

    def status(self):
        code, output = self.run_doctor("status", "--json")
        self.assertEqual(code, 0, output)
        return json.loads(output)

    def expect_check(self, exit_code, *causes):
        """Exactly these causes, in this order, besides that there is no modem; a plain user is told the same."""
        as_plain_user = self.run_check(exit_code, causes, before=[os.environ["LINKVANE_PLAIN_USER"]])
        findings = self.run_check(exit_code, causes)
        self.assertEqual([finding["cause"] for finding in as_plain_user],
                         [finding["cause"] for finding in findings])
        return findings

    def run_check(self, exit_code, causes, before=()):
        code, output = self.run_doctor("check", "--json", before=before)
        report = json.loads(output)
        found = [finding["cause"] for finding in report["findings"]]
        self.assertEqual([cause for cause in found if cause != "wwan-no-modem"], list(causes))
        self.assertEqual((code, report["exit_code"]), (exit_code, exit_code))
        self.assertEqual([finding["number"] for finding in report["findings"]], list(range(1, len(found) + 1)))
        return report["findings"]

    def begin(self, shape=""):
        """A fresh notebook on which the service runs."""
        self.notebook.begin(shape)
        self.notebook.do("start")
        self.notebook.settle()

    @contextlib.contextmanager
    def situation(self, *commands, undo=(), settle=True):
        """What the commands made of the notebook, until it is undone. Without settling, for what the service
        does not look at before its next event."""
        with self.subTest(commands):
            for command in commands:
                self.notebook.do(command)
            if settle:
                self.notebook.settle()
            try:
                yield
            finally:
                for command in undo:
                    self.notebook.do(command)
                if undo and settle:
                    self.notebook.settle()  # before the next situation takes away what the service asks

    def at_rest(self, *commands, undo=()):
        return self.situation(*commands, undo=undo, settle=False)

    def test_story(self):
        self.stopped()
        self.running_without_and_with_cable()
        self.other_adapters()
        self.radios()
        self.firmware()
        self.registry()
        self.policies()
        self.what_cannot_be_looked_at()
        self.collected()
        self.absent()

    def stopped(self):
        with self.subTest("stopped"):
            before = sorted(self.notebook.log_folder().iterdir())
            self.expect_check(CANNOT_WORK, "service-not-running")
            service = self.status()["service"]
            self.assertEqual((service["state"], service["start"], service["account"], service["dependencies"]),
                             ("stopped", "automatic", "LocalSystem", ["WlanSvc", "WwanSvc"]))
            self.assertEqual(service["executable"], FOLDER + "\\LinkvaneService.exe")
            self.assertRegex(service["version"], r"^1\.0\.0\.\d+$")
            # It writes no log, and makes none of the service's keys.
            self.assertEqual(sorted(self.notebook.log_folder().iterdir()), before)
            registry = (self.notebook.prefix / "system.reg").read_text(encoding="utf-8", errors="replace")
            self.assertNotIn("Orva Brimlet Support", registry)

    def running_without_and_with_cable(self):
        self.begin("modems 1")
        with self.situation():
            self.expect_check(ALL_WELL, "well")
            status = self.status()
            self.assertEqual(status["service"]["state"], "running")
            self.assertEqual((status["wifi"]["on"], status["network"]["cable"]), (True, False))
            self.assertEqual(status["firmware"]["wlan"],
                             {"setting": "LAN / WLAN Auto Switching", "result": 0, "value": "Enabled", "enabled": True})
            self.assertEqual([modem["software"] for modem in status["wwan"]["modems"]], ["on"])
        with self.situation("plug"):
            self.expect_check(ALL_WELL, "well", "cable-in")
            status = self.status()
            self.assertEqual((status["wifi"]["on"], status["network"]["cable"]), (False, True))
            self.assertEqual([phy["software"] for phy in status["wifi"]["interfaces"][0]["phys"]], ["off", "off"])
            self.assertEqual(status["remembered"]["wlan"]["value"],
                             {"name": "PowerOnOff", "type": "REG_SZ", "text": "True"})
            self.assertIsNotNone(status["last_decision"])
            code, text = self.run_doctor("status")
            self.assertEqual(code, 0)
            self.assertRegex(text, r"(?m)^Cable +in: Brook Gigabit Ethernet Controller 1\r?$")

    def other_adapters(self):
        self.begin()
        with self.at_rest('adapter add vpn address 10.8.0.2 description "Brook VPN Adapter" up'):
            self.expect_check(ALL_WELL, "well")
            verdicts = {adapter["verdict"] for adapter in self.status()["network"]["adapters"]}
            self.assertEqual(verdicts, {"no-address", "virtual", "not-ethernet"})
        self.begin()
        with self.situation('adapter add tap type 6 address 10.8.0.2 description "TAP-Windows Adapter V9" up'):
            findings = self.expect_check(WARNINGS, "odd-cable", "cable-in")
            self.assertIn("TAP-Windows Adapter V9", findings[0]["sentence"])
        self.begin("wlan 2 modems 2")
        with self.situation():
            self.expect_check(WARNINGS, "wifi-only-first", "wwan-only-last")
            self.assertEqual([each["switched"] for each in self.status()["wifi"]["interfaces"]], [True, False])
        self.begin("wlan 0")
        with self.situation():
            self.expect_check(WARNINGS, "wifi-no-adapter")

    def radios(self):
        self.begin()
        with self.situation("airplane on", undo=["airplane off"]):
            self.expect_check(ALL_WELL, "well", "airplane-mode")
        with self.situation("wifi hardware off", undo=["wifi hardware on"]):
            self.expect_check(ALL_WELL, "well", "wifi-hardware-off")
        with self.at_rest("service WlanSvc stop", undo=["service WlanSvc run"]):
            self.expect_check(CANNOT_WORK, "wlansvc-not-running")

    def firmware(self):
        both_on = ["feature wlan on", "feature wwan on"]
        with self.at_rest("feature wwan off"):
            self.expect_check(ALL_WELL, "well", "wwan-half-disabled")
        with self.at_rest("feature wlan off", undo=both_on):
            self.expect_check(CANNOT_WORK, "both-halves-disabled", "wifi-half-disabled", "wwan-half-disabled")
        with self.at_rest("bios provider off", undo=["bios provider on"]):
            self.expect_check(CANNOT_WORK, "provider-missing")
        with self.at_rest(f"bios {WLAN_SETTING} timeouts 2"):
            self.expect_check(CANNOT_BE_TOLD, "wifi-half-unreadable")

    def registry(self):
        with self.at_rest("stored wlan False"):
            # Remembered by another hand: the radio is still on.
            self.expect_check(ALL_WELL, "well", "remembered-off")
        with self.at_rest("stored wlan maybe"):
            findings = self.expect_check(WARNINGS, "remembered-odd")
            self.assertIn('"maybe"', findings[0]["sentence"])
        for value in ("dword 1", "multi False"):
            with self.at_rest(f"stored wlan type {value}", undo=["stored wlan missing"]):
                self.expect_check(WARNINGS, "remembered-type")
                self.assertEqual(self.status()["remembered"]["wlan"]["read_as"], "on")
        with self.at_rest("airplane value sz on"):
            self.expect_check(WARNINGS, "airplane-type")
        with self.at_rest("airplane key missing", undo=["airplane key present"]):
            self.expect_check(ALL_WELL, "well", "airplane-missing")

    def policies(self):
        with self.at_rest("policy executable MinLogLevel Warnings", undo=["policy clear"]):
            findings = self.expect_check(WARNINGS, "policy-unknown-word", "log-silenced")
            self.assertIn('"Warnings"', findings[0]["sentence"])
        with self.at_rest("policy MinLogLevel Warning", "policy executable MaxLogSize type sz 5",
                          "policy LogingType File", "policy QueuedWrites 0", undo=["policy clear"]):
            findings = self.expect_check(WARNINGS, "policy-wrong-type", "policy-unknown-name")
            self.assertIn('"LoggingType" is', findings[1]["sentence"])
            in_force = self.status()["policies"]["in_force"]
            self.assertEqual((in_force["min_level"], in_force["max_size_kilobytes"], in_force["queued"]),
                             (4, 53, False))

    def what_cannot_be_looked_at(self):
        for call, cause in (("WlanQueryInterface", "wifi-unreadable"), ("GetAdaptersInfo", "cable-unreadable")):
            with self.at_rest(f"call {call} fail always with {ACCESS_DENIED}", undo=[f"call {call} ok"]):
                self.expect_check(CANNOT_BE_TOLD, cause)
        with self.subTest("no WLAN interface, as on a server"):
            library = pathlib.Path(self.notebook.prefix, "drive_c", FOLDER[3:].replace("\\", "/"), "wlanapi.dll")
            library.rename(library.with_suffix(".away"))
            code, output = self.run_doctor("check", "--json")
            library.with_suffix(".away").rename(library)
            self.assertIn("wlanapi-missing", [finding["cause"] for finding in json.loads(output)["findings"]])
            self.assertEqual(code, CANNOT_WORK)

    def collected(self):
        services = r"HKLM\SYSTEM\CurrentControlSet\Services"
        self.assertEqual(self.run_program("reg", "add", services + r"\WlanSvc\Of a network", "/f")[0], 0)
        with self.situation("plug"):
            code, output = self.run_doctor("collect", "C:\\out.zip", "--json")
            self.assertEqual((code, json.loads(output)),
                             (0, {"file": "C:\\out.zip", "written": True, "missing": []}))
            with zipfile.ZipFile(self.notebook.prefix / "drive_c/out.zip") as archive:
                self.assertIsNone(archive.testzip())
                content = {name: archive.read(name).decode("utf-8-sig") for name in archive.namelist()}
            self.assertEqual(set(content), {
                "README.txt", "check.json", "check.txt", "events.txt", "registry.txt", "status.json", "status.txt",
                "logs/service/LinkvaneService.log", "logs/user/LinkvaneService.log"})
            self.assertIn("Personal data", content["README.txt"])
            self.assertIn('"PowerOnOff" REG_SZ: True', content["registry.txt"])
            self.assertIn(r"\Services\WlanSvc]", content["registry.txt"])
            self.assertNotIn("Of a network", content["registry.txt"])
            self.assertIn("|Application|LinkvaneService|0|Information|LinkvaneService|Linkvane Service in OnStart",
                          content["events.txt"])
            self.assertEqual(content["logs/service/LinkvaneService.log"],
                             self.notebook.log_file().read_bytes().decode("utf-8-sig"))
            self.assertEqual(json.loads(content["status.json"])["wifi"]["on"], False)
        with self.subTest("nowhere to write"):
            self.assertEqual(self.run_doctor("collect", "C:\\no such folder\\out.zip")[0], 1)

    def absent(self):
        with self.subTest("absent"):
            self.notebook.do("stop")
            self.notebook.do("remove")
            self.expect_check(CANNOT_WORK, "service-not-installed", "cable-in")
            self.assertEqual(self.status()["service"],
                             {"name": "LinkvaneService", "state": "absent", "error": 1060})


if __name__ == "__main__":
    unittest.main()
