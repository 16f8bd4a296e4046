"""What Windows' installer reads in the package and Wine's passes over."""

import re
import unittest

from packages import RELEASE, make_msi, row, stream, table


def sequence(action, of="InstallExecuteSequence"):
    return int(row(of, action)["Sequence"])


def condition(action):
    return row("InstallExecuteSequence", action)["Condition"]


class Tables(unittest.TestCase):
    def test_summary_names_64_bit_windows_and_a_package_for_administrators(self):
        summary = {each["PropertyId"]: each["Value"] for each in table("_SummaryInformation")}
        self.assertEqual(summary["7"], "x64;1033")
        self.assertEqual(summary["14"], "500")
        # Long file names, compressed, elevated.
        self.assertEqual(summary["15"], "2")
        self.assertEqual(row("Property", "ALLUSERS")["Value"], "1")

    def test_refuses_without_rights_on_old_windows_and_over_a_newer_version(self):
        self.assertEqual({each["Condition"]: each["Description"] for each in table("LaunchCondition")}, {
            "NOT WIX_DOWNGRADE_DETECTED":
                "A newer version of Linkvane Service is installed. Remove it first to go back to this one.",
            "Privileged": "Linkvane Service can be installed by an administrator only.",
            "VersionNT >= 602": "Linkvane Service needs Windows 8 or later.",
        })

    def test_files_have_their_real_size_and_version(self):
        # The installer looks for room on the disk by the sizes, and replaces files by the versions.
        version = ".".join(map(str, make_msi.file_version(RELEASE / "LinkvaneService.exe")))
        self.assertEqual({each["File"] for each in table("File")},
                         {"LinkvaneService.exe", "LinkvaneDoctor.exe", "licences.txt"})
        for each in table("File"):
            with self.subTest(file=each["File"]):
                self.assertEqual(int(each["FileSize"]), (RELEASE / each["File"]).stat().st_size)
                self.assertEqual(each["Version"], version if each["File"].endswith(".exe") else "")
                # Names have 8.3 characters, or such a name before them.
                self.assertRegex(each["FileName"], r"^[\w~]{1,8}\.\w{1,3}(\|.*)?$")

    def test_room_is_counted_and_looked_for_before_anything_is_changed(self):
        # Windows' own order of costing; InstallValidate ends an installation that has no room.
        costing = ["CostInitialize", "FileCost", "CostFinalize", "InstallValidate", "MeasureFolder", "RefusePath",
                   "RefuseFullDisk", "InstallInitialize"]
        self.assertEqual(sorted(costing, key=sequence), costing)
        self.assertEqual(condition("InstallValidate"), "")

    def test_refusals_hold_for_what_is_installed(self):
        # Called from the package, at once; where it cannot run the installation goes on.
        self.assertEqual(int(row("CustomAction", "MeasureFolder")["Type"]), 1 | 64)
        image = make_msi.pefile.PE(data=stream("Binary.InstallerActions"))
        called = {each["Target"] for each in table("CustomAction") if int(each["Type"]) & 0x3F == 1}
        self.assertEqual({each.name.decode() for each in image.DIRECTORY_ENTRY_EXPORT.symbols}, called)
        installed = [RELEASE / each["File"] for each in table("File")]
        kilobytes = int(re.fullmatch(r"NOT Installed AND FolderRoom < (\d+)", condition("RefuseFullDisk"))[1])
        total = sum(file.stat().st_size for file in installed)
        # Each file takes up to a cluster, of 4 KB, more.
        self.assertTrue(total <= kilobytes * 1024 < total + len(installed) * 4096)
        longest = max(len(str(file.name)) for file in installed)
        self.assertEqual(condition("RefusePath"), f"NOT Installed AND FolderLength > {259 - longest}")
        for action in ("RefusePath", "RefuseFullDisk"):
            self.assertEqual(int(row("CustomAction", action)["Type"]), 19)

    def test_installation_fails_when_the_service_cannot_be_registered(self):
        [service] = table("ServiceInstall")
        self.assertEqual(int(service["ErrorControl"]), 0x8000 | 1)

    def test_upgrade_removes_older_and_equal_versions_within_its_transaction(self):
        upgrades = {each["ActionProperty"]: each for each in table("Upgrade")}
        version = row("Property", "ProductVersion")["Value"]
        # VersionMaxInclusive and MigrateFeatures.
        self.assertEqual((upgrades["WIX_UPGRADE_DETECTED"]["VersionMax"],
                          upgrades["WIX_UPGRADE_DETECTED"]["Attributes"]), (version, "513"))
        # OnlyDetect.
        self.assertEqual((upgrades["WIX_DOWNGRADE_DETECTED"]["VersionMin"],
                          upgrades["WIX_DOWNGRADE_DETECTED"]["Attributes"]), (version, "2"))
        self.assertLess(sequence("InstallInitialize"), sequence("RemoveExistingProducts"))
        self.assertLess(sequence("RemoveExistingProducts"), sequence("ProcessComponents"))

    def test_upgrade_keeps_registration_choices_and_logs(self):
        for action in ("DeleteServices", "RemoveRegistryValues", "RemoveLogs"):
            self.assertIn("NOT UPGRADINGPRODUCTCODE", condition(action), action)

    def test_service_is_stopped_and_over_before_its_files_are_touched(self):
        [control] = table("ServiceControl")
        # Stop at installation and at removal, delete at removal; wait for it.
        self.assertEqual((int(control["Event"]), control["Wait"]), (2 + 32 + 128, "1"))
        self.assertLess(sequence("StopServices"), sequence("WaitForEnd"))
        self.assertLess(sequence("WaitForEnd"), sequence("RemoveFiles"))
        self.assertEqual(condition("WaitForEnd"), "Installed")

    def test_path_is_written_in_quotes_after_the_service_is_registered(self):
        self.assertEqual(row("Registry", "ImagePath")["Value"], '#%"[#LinkvaneService.exe]"')
        self.assertLess(sequence("InstallFiles"), sequence("InstallServices"))
        self.assertLess(sequence("InstallServices"), sequence("WriteRegistryValues"))

    def test_start_and_end_of_logs_wait_for_success_and_undo_nothing(self):
        for action, kind in (("StartService", 1), ("RemoveLogs", 34)):
            # Commit, in the script, as the system, whatever the result.
            self.assertEqual(int(row("CustomAction", action)["Type"]), kind | 64 | 512 | 1024 | 2048, action)
            self.assertLess(sequence("WriteRegistryValues"), sequence(action))
            self.assertLess(sequence(action), sequence("InstallFinalize"))

    def test_only_a_removal_runs_a_program_whose_window_a_user_could_reach(self):
        # An EXE by its path, by a file that is installed, or in the package.
        programs = [each["Action"] for each in table("CustomAction") if int(each["Type"]) & 0x37 in (2, 18, 34, 50)]
        self.assertEqual(programs, ["RemoveLogs"])
        self.assertIn('REMOVE = "ALL"', condition("RemoveLogs"))

    def test_folder_is_for_administrators_to_write(self):
        [lock] = table("MsiLockPermissionsEx")
        self.assertEqual((lock["LockObject"], lock["Table"]), ("INSTALLFOLDER", "CreateFolder"))
        self.assertIn("INSTALLFOLDER", [each["Directory_"] for each in table("CreateFolder")])
        owner, entries = re.fullmatch(r"O:(\w+)G:BAD:P((?:\([^)]*\))+)", lock["SDDLText"]).groups()
        self.assertEqual(owner, "BA")
        rights = {entry.split(";")[5]: entry.split(";")[2] for entry in re.findall(r"\(([^)]*)\)", entries)}
        # Read and execute for users: FILE_GENERIC_READ and FILE_GENERIC_EXECUTE.
        self.assertEqual(rights, {"SY": "FA", "BA": "FA", "BU": hex(0x120089 | 0x1200A0)})

    def test_public_properties_reach_the_installer_s_own_process(self):
        secure = set(row("Property", "SecureCustomProperties")["Value"].split(";"))
        self.assertLessEqual({"INSTALLFOLDER", "STARTSERVICE", "KEEPSTATES", "REMOVELOGS"}, secure)

    def test_chosen_folder_is_looked_up_before_folders_are_settled(self):
        for of in ("InstallExecuteSequence", "InstallUISequence"):
            self.assertLess(sequence("AppSearch", of), sequence("UseInstalledFolder", of))
            self.assertLess(sequence("UseInstalledFolder", of), sequence("CostInitialize", of))

    def test_every_action_in_the_sequence_is_known(self):
        standard = {"FindRelatedProducts", "AppSearch", "LaunchConditions", "ValidateProductID", "CostInitialize",
                    "FileCost", "CostFinalize", "MigrateFeatureStates", "InstallValidate", "RemoveExistingProducts",
                    "InstallInitialize", "ProcessComponents", "UnpublishFeatures", "StopServices", "DeleteServices",
                    "RemoveRegistryValues", "RemoveFiles", "RemoveFolders", "CreateFolders", "InstallFiles",
                    "WriteRegistryValues", "InstallServices", "StartServices", "RegisterUser", "RegisterProduct",
                    "PublishFeatures", "PublishProduct", "InstallFinalize"}
        actions = {each["Action"] for each in table("InstallExecuteSequence")}
        self.assertEqual(actions - standard, {each["Action"] for each in table("CustomAction")})

    def test_message_table_is_in_the_executable_that_the_event_source_names(self):
        self.assertEqual(row("Registry", "MessageFile")["Value"], "#%[#LinkvaneService.exe]")
        image = make_msi.pefile.PE(RELEASE / "LinkvaneService.exe")
        self.assertIn(make_msi.pefile.RESOURCE_TYPE["RT_MESSAGETABLE"],
                      [entry.id for entry in image.DIRECTORY_ENTRY_RESOURCE.entries])


class Sizes(unittest.TestCase):
    def test_package_and_programs_are_small(self):
        for name, most in (("LinkvaneService.msi", 2_000_000), ("LinkvaneService.exe", 1_500_000),
                           ("LinkvaneDoctor.exe", 4_000_000)):
            self.assertLessEqual((RELEASE / name).stat().st_size, most, name)


if __name__ == "__main__":
    unittest.main()
