"""Installed, started, stopped and removed through the service control manager."""

import unittest

from rig import EXECUTABLE, SERVICE, Prefix

STATUS_KEYS = [rf"HKLM\SOFTWARE\Orva\Orva Brimlet Support\{radio}PowerStatus" for radio in ("Wlan", "Wwan")]
SERVICE_KEY = rf"HKLM\SYSTEM\CurrentControlSet\Services\{SERVICE}"
# A folder with blanks, as on a user's machine.
INSTALLED_EXECUTABLE = r"C:\Program Files\Linkvane Service\LinkvaneService.exe"


class Lifecycle(unittest.TestCase):
    def setUp(self):
        self.prefix = self.enterContext(Prefix())
        self.executable = self.prefix.copy_in(EXECUTABLE, INSTALLED_EXECUTABLE)

    def expect_printed(self, switch, output):
        """Every run exits with 0, whatever came of it."""
        self.assertEqual(self.prefix.run(self.executable, switch), (0, output))

    def expect_state(self, state, milliseconds):
        code, text = self.prefix.scm("wait", SERVICE, state, str(milliseconds))
        self.assertEqual(code, 0, text)

    def install_and_start(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        self.assertEqual(self.prefix.scm("start", SERVICE), (0, ""))
        self.expect_state("RUNNING", 1000)

    def test_installation_registers_the_service_as_described(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        code, config = self.prefix.scm("config", SERVICE)
        self.assertEqual(code, 0)
        self.assertEqual(config.splitlines(), [
            "display name: Linkvane Service",
            f'binary path: "{INSTALLED_EXECUTABLE}"',
            "type: 0x10",
            "start: 2",
            "error control: 1",
            "account: LocalSystem",
            "description: Linkvane Service",
        ])
        # Wine stores them but does not give them out with the rest.
        self.assertEqual(self.prefix.registry_strings(SERVICE_KEY, "DependOnService"), ["WlanSvc", "WwanSvc"])
        self.assertEqual(self.prefix.scm("state", SERVICE), (0, "STOPPED"))

    def test_second_installation_is_refused(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        # The description is set on nothing first; that order is kept.
        self.expect_printed("/INSTALL",
                            b"ChangeServiceConfig2 (SERVICE_CONFIG_DESCRIPTION) failed w/err 0x00000006\r\n"
                            b"CreateService failed w/err 0x00000431\r\n")
        self.assertEqual(self.prefix.scm("state", SERVICE), (0, "STOPPED"))

    def test_start_runs_within_a_second_and_stop_ends_it(self):
        self.install_and_start()
        self.assertEqual(self.prefix.scm("stop", SERVICE), (0, ""))
        self.expect_state("STOPPED", 10000)

    def test_running_service_can_be_started_again_after_stop(self):
        self.install_and_start()
        for _ in range(3):
            self.assertEqual(self.prefix.scm("stop", SERVICE), (0, ""))
            self.expect_state("STOPPED", 10000)
            self.assertEqual(self.prefix.scm("start", SERVICE), (0, ""))
            self.expect_state("RUNNING", 1000)

    def test_removal_stops_a_running_service_first(self):
        self.install_and_start()
        code, output = self.prefix.run(self.executable, "-remove")
        self.assertEqual(code, 0)
        # A dot for every second in which the stop is still pending.
        self.assertRegex(output, rb"\AStopping LinkvaneService\.\.*\r\n"
                                 rb"LinkvaneService is stopped\.\r\n"
                                 rb"LinkvaneService is removed\.\r\n\Z")
        self.assertEqual(self.prefix.scm("state", SERVICE), (1, "OpenService: error 1060"))

    def test_removal_of_a_stopped_service_says_so_alone(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        self.expect_printed("-remove", b"LinkvaneService is removed.\r\n")

    def test_second_removal_finds_no_service(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        self.expect_printed("-remove", b"LinkvaneService is removed.\r\n")
        self.expect_printed("-remove", b"OpenService failed w/err 0x00000424\r\n")

    def test_removal_deletes_the_remembered_states_but_not_their_parent(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        for key in STATUS_KEYS:
            self.assertEqual(self.prefix.run("reg", "add", key, "/v", "PowerOnOff", "/d", "True", "/f")[0], 0)
        self.expect_printed("-remove", b"LinkvaneService is removed.\r\n")
        for key in STATUS_KEYS:
            self.assertFalse(self.prefix.registry_key_exists(key), key)
        self.assertTrue(self.prefix.registry_key_exists(r"HKLM\SOFTWARE\Orva\Orva Brimlet Support"))

    def test_installation_and_removal_are_logged(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        self.expect_printed("-remove", b"LinkvaneService is removed.\r\n")
        decisions = [entry[1:] for entry in self.prefix.log_lines() if entry[0] == "Information"]
        self.assertEqual(decisions, [
            ("InstallService", "LinkvaneService is installed."),
            ("wmain", "  Install Service."),
            ("wmain", "Uninstall Service."),
        ])


if __name__ == "__main__":
    unittest.main()
