"""Installed, started, stopped and removed through the service control manager."""

import shutil
import unittest

from rig import EXECUTABLE, SERVICE, Prefix, file_version

STATUS_KEYS = [rf"HKLM\SOFTWARE\Orva\Orva Brimlet Support\{radio}PowerStatus" for radio in ("Wlan", "Wwan")]
SERVICE_KEY = rf"HKLM\SYSTEM\CurrentControlSet\Services\{SERVICE}"
POLICY_KEY = r"HKLM\Software\Policies\Orva\Orva Brimlet Support"
# A folder with blanks, as on a user's machine.
INSTALLED_EXECUTABLE = r"C:\Program Files\Linkvane Service\LinkvaneService.exe"
REGISTRATION = {
    "DisplayName": "Linkvane Service",
    "ImagePath": f'"{INSTALLED_EXECUTABLE}"',
    "Type": "0x10",
    "Start": "0x2",
    "ErrorControl": "0x1",
    "ObjectName": "LocalSystem",
    "Description": "Linkvane Service",
    "DependOnService": ["WlanSvc", "WwanSvc"],
}


class Lifecycle(unittest.TestCase):
    def setUp(self):
        self.prefix = self.enterContext(Prefix())
        self.executable = self.prefix.copy_in(EXECUTABLE, INSTALLED_EXECUTABLE)

    def expect_printed(self, switch, output):
        """Every run exits with 0, whatever came of it."""
        self.assertEqual(self.prefix.run(self.executable, switch), (0, output))

    def expect_state(self, state):
        self.assertEqual(self.prefix.notebook("get", "service"), (0, f"OK service={state}"))

    def start(self):
        """A service runs within a second of its start."""
        self.assertEqual(self.prefix.notebook("start", "nowait")[0], 0)
        code, text = self.prefix.notebook("wait", "service=running", "within", "1000")
        self.assertEqual(code, 0, text)

    def stop(self):
        """Stops it; nothing may have disturbed the end of service and process."""
        code, text = self.prefix.notebook("stop")
        self.assertRegex(text, r" exit=0$")
        self.assertEqual((code, self.prefix.notebook("get", "service", "pid", "exit")),
                         (0, (0, "OK service=stopped pid=0 exit=0")))

    def install_and_start(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        self.start()

    def start_and_end(self):
        self.start()
        self.stop()

    def install_without_a_log(self):
        """Installs and takes away what the installation logged; gives the log's folder, gone now."""
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        folder = self.prefix.log_folder()
        shutil.rmtree(folder)
        return folder

    def test_installation_registers_the_service_as_described(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        values = self.prefix.registry_values(SERVICE_KEY)
        self.assertEqual({name: values[name] for name in REGISTRATION}, REGISTRATION)
        self.expect_state("stopped")

    def test_second_installation_is_refused(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        # The description is set before anything looks whether there is a service.
        self.expect_printed("/INSTALL",
                            b"ChangeServiceConfig2 (SERVICE_CONFIG_DESCRIPTION) failed w/err 0x00000006\r\n"
                            b"CreateService failed w/err 0x00000431\r\n")
        self.expect_state("stopped")

    def test_start_runs_within_a_second_and_stop_ends_it_again_and_again(self):
        self.expect_printed("-install", b"LinkvaneService is installed.\r\n")
        for _ in range(4):
            self.start_and_end()

    def test_removal_stops_a_running_service_first(self):
        self.install_and_start()
        code, output = self.prefix.run(self.executable, "-remove")
        if output == b"LinkvaneService is removed.\r\n":
            # Wine lost the answer of a process that ended over its stop: nothing to wait for.
            self.install_and_start()
            code, output = self.prefix.run(self.executable, "-remove")
        self.assertEqual(code, 0)
        # A dot for every second in which the stop is still pending.
        self.assertRegex(output, rb"\AStopping LinkvaneService\.\.*\r\n"
                                 rb"LinkvaneService is stopped\.\r\n"
                                 rb"LinkvaneService is removed\.\r\n\Z")
        self.expect_state("absent")

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

    def test_run_is_logged_from_its_first_line_to_its_last(self):
        self.install_without_a_log()
        self.start_and_end()
        lines = self.prefix.log_lines()
        version = ".".join(str(part) for part in file_version())
        marks = [
            ("Information", "InitializeSecurity", "InitializeSecurity : HRESULT: 0x00000000"),
            ("TraceIn", "CMainService::CMainService", ""),
            ("TraceOut", "CMainService::CMainService", ""),
            ("TraceIn", "CMainService::OnStart", ""),
            ("Information", "CMainService::OnStart", f"Linkvane Service ({version}) in OnStart"),
            ("TraceOut", "CMainService::OnStart", ""),
            ("TraceIn", "CMainService::OnStop", ""),
            ("Information", "CMainService::OnStop", "Linkvane Service in OnStop"),
            ("TraceOut", "CMainService::OnStop", ""),
            ("TraceIn", "CMainService::~CMainService", ""),
            ("TraceOut", "CMainService::~CMainService", ""),
        ]
        self.assertEqual([line for line in lines if line in marks], marks)
        self.assertEqual(lines[0], marks[0])

    def test_service_runs_with_a_file_in_place_of_its_log_folder(self):
        folder = self.install_without_a_log()
        folder.write_text("not a folder")
        self.start_and_end()
        self.assertEqual(folder.read_text(), "not a folder")

    def test_service_runs_with_a_folder_in_place_of_its_log_file(self):
        folder = self.install_without_a_log()
        log = folder / "LinkvaneService.log"
        log.mkdir(parents=True)
        self.start_and_end()
        self.assertTrue(log.is_dir())
        self.assertEqual(list(log.iterdir()), [])

    def test_service_runs_whichever_output_its_log_has(self):
        folder = self.install_without_a_log()
        for outputs, queued, has_file in (("EVENT", None, False), ("DEBUG", None, False), ("CONSOLE", None, False),
                                          ("FILE", None, True), ("FILE", 1, True)):
            with self.subTest(outputs=outputs, queued=queued):
                self.prefix.set_registry_text(POLICY_KEY, "LoggingType", outputs)
                if queued is not None:
                    self.prefix.set_registry_number(POLICY_KEY, "QueuedWrites", queued)
                shutil.rmtree(folder, ignore_errors=True)
                self.start_and_end()
                self.assertEqual(folder.exists(), has_file)
                if has_file:
                    self.assertIn(("TraceOut", "CMainService::~CMainService", ""), self.prefix.log_lines())


if __name__ == "__main__":
    unittest.main()
