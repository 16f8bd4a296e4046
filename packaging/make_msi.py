#!/usr/bin/python3
"""Makes the installer package:

    make_msi.py FOLDER PACKAGE

FOLDER holds the files that the package installs, and installer_actions.dll, which it runs; the version is that
of the service. Times come from SOURCE_DATE_EPOCH and the product code from the content, so that the same
files give the same bytes.
"""

import hashlib
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import uuid

import pefile

DEFINITION = pathlib.Path(__file__).with_name("linkvane_service.wxs")
PRODUCT_KEY = r"SOFTWARE\Orva\Orva Brimlet Support"
EVENT_SOURCE_KEY = r"SYSTEM\CurrentControlSet\Services\EventLog\Application\LinkvaneService"
# Of every version, for ever: by it they find each other.
UPGRADE_CODE = "{8F0C8F0A-5D0B-4B68-9B7E-52C1C3A0D9E4}"

# Full access for the system and administrators, read and execute for users; nothing is inherited
# from where the folder stands.
FOLDER_SECURITY = "O:BAG:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)"

# Custom actions, from Windows Installer's documents ("Custom Action Return Processing Options",
# "Custom Action In-Script Execution Options").
SET_PROPERTY = 51
# A function of a DLL in the package, at once; where it cannot run, all goes on without it.
CALL_AND_IGNORE = 1 + 64
# The same as the system, when its turn has come.
CALL_AS_SYSTEM = CALL_AND_IGNORE + 1024 + 2048
# The same when all has succeeded.
CALL_AT_END = CALL_AS_SYSTEM + 512
# A program by its path, then; its exit code does not count. Only at a removal, which takes an administrator:
# it has a console window, and runs as the system.
RUN_AT_END = 34 + 64 + 512 + 1024 + 2048
# A sentence with which the installation ends.
REFUSE = 19

# The longest path that Windows' functions take, those by which the service finds itself among them.
PATH_CHARACTERS = 259
CLUSTER_KILOBYTES = 4


def file_version(executable):
    """The four numbers of an executable's version resource."""
    image = pefile.PE(executable, fast_load=True)
    image.parse_data_directories([pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_RESOURCE"]])
    fixed = image.VS_FIXEDFILEINFO[0]
    return (fixed.FileVersionMS >> 16, fixed.FileVersionMS & 0xFFFF,
            fixed.FileVersionLS >> 16, fixed.FileVersionLS & 0xFFFF)


def content_code(purpose, folder):
    """A code that is another one for other content."""
    digest = hashlib.sha256(purpose.encode())
    for file in [DEFINITION, pathlib.Path(__file__), *sorted(folder.iterdir())]:
        digest.update(file.name.encode() + hashlib.sha256(file.read_bytes()).digest())
    return "{" + str(uuid.uuid5(uuid.UUID(UPGRADE_CODE), digest.hexdigest())).upper() + "}"


def run_wixl(folder, package, variables):
    arguments = [argument for name, value in variables.items() for argument in ("-D", f"{name}={value}")]
    # It finds files below its working folder only.
    done = subprocess.run(["wixl", "-a", "x64", "-o", package.absolute(), *arguments, DEFINITION], cwd=folder,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    # It leaves out what it does not know, says so, and goes on.
    if done.returncode != 0 or any(word in done.stdout for word in ("WARNING", "CRITICAL", "ERROR")):
        sys.exit(f"wixl: {done.stdout}")


def insert(table, **fields):
    names = ",".join(f"`{name}`" for name in fields)
    values = ",".join(str(value) if isinstance(value, int) else f"'{value}'" for value in fields.values())
    return f"INSERT INTO `{table}` ({names}) VALUES ({values})"


def action(name, kind, source, target, condition, sequence):
    return [insert("CustomAction", Action=name, Type=kind, Source=source, Target=target),
            insert("InstallExecuteSequence", Action=name, Condition=condition, Sequence=sequence)]


def move(name, sequence):
    return f"UPDATE `InstallExecuteSequence` SET `Sequence`={sequence} WHERE `Action`='{name}'"


def condition(name, text):
    return f"UPDATE `InstallExecuteSequence` SET `Condition`='{text}' WHERE `Action`='{name}'"


def forgotten(radio):
    """A key that goes with the component, with all below it."""
    return insert("Registry", Registry=f"Forgotten{radio}", Root=2, Key=rf"[ForgottenKey]\{radio}PowerStatus",
                  Name="-", Component_="Service")


def program_file(number, program):
    """A program's entry in the File table: a short name before the long one, and its version, by which it
    is replaced."""
    version = ".".join(map(str, file_version(program)))
    return [f"UPDATE `File` SET `FileName`='{program.stem[:6].upper()}~{number}.EXE|{program.name}', "
            f"`Version`='{version}', `Language`='1033' WHERE `File`='{program.name}'",
            f"DELETE FROM `MsiFileHash` WHERE `File_`='{program.name}'"]


def refusals(installed):
    """Before anything is changed, when all is known: what would end half done, or with a service that does
    not find itself. Windows looks for room in InstallValidate, which comes before."""
    longest_folder = PATH_CHARACTERS - max(len(file.name) for file in installed)
    kilobytes = sum(-(-file.stat().st_size // (1024 * CLUSTER_KILOBYTES)) for file in installed) * CLUSTER_KILOBYTES
    return [
        *action("MeasureFolder", CALL_AND_IGNORE, "InstallerActions", "MeasureFolder", "NOT Installed", 1410),
        *action("RefusePath", REFUSE, "", "The path of the installation folder is too long. "
                f"Choose one of {longest_folder - 1} characters at the most.",
                f"NOT Installed AND FolderLength > {longest_folder}", 1411),
        *action("RefuseFullDisk", REFUSE, "", f"There is no room for the files of Linkvane Service ({kilobytes} KB) "
                "on the disk of the installation folder.", f"NOT Installed AND FolderRoom < {kilobytes}", 1412),
    ]


def corrections(version, installed):
    """What wixl cannot say, or says wrongly."""
    programs = [file for file in installed if file.suffix == ".exe"]
    return [
        *(statement for number, program in enumerate(programs, 1) for statement in program_file(number, program)),
        # REG_EXPAND_SZ.
        """UPDATE `Registry` SET `Value`='#%"[#LinkvaneService.exe]"' WHERE `Registry`='ImagePath'""",
        "UPDATE `Registry` SET `Value`='#%[#LinkvaneService.exe]' WHERE `Registry`='MessageFile'",
        # Vital: without the service there is no installation.
        "UPDATE `ServiceInstall` SET `ErrorControl`=32769",
        # Another build of the same version replaces this one, too.
        "DELETE FROM `Upgrade` WHERE `ActionProperty`='WIX_UPGRADE_DETECTED'",
        insert("Upgrade", UpgradeCode=UPGRADE_CODE, VersionMax=version, Attributes=513,
               ActionProperty="WIX_UPGRADE_DETECTED"),
        # Within the transaction: what fails afterwards brings the old version back.
        move("RemoveExistingProducts", 1501),
        # Before the registry is written: an existing service, which the installer may leave as it is,
        # gets its path anew, and every one gets it in quotes.
        move("InstallServices", 4900),
        # An upgrade leaves the service registered, and what is remembered: an open services console
        # would keep a deleted service from being installed again.
        condition("DeleteServices", "NOT UPGRADINGPRODUCTCODE"),
        condition("RemoveRegistryValues", "NOT UPGRADINGPRODUCTCODE"),
        # A stopped service may write its log for 1.2 s more. An executable in use costs a restart.
        *action("WaitForEnd", CALL_AS_SYSTEM, "InstallerActions", "WaitForEnd", "Installed", 1910),
        "UPDATE `Property` SET `Value`='INSTALLFOLDER;STARTSERVICE;KEEPSTATES;REMOVELOGS;INSTALLEDFOLDER;"
        "WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED' WHERE `Property`='SecureCustomProperties'",
        "CREATE TABLE `MsiLockPermissionsEx` (`MsiLockPermissionsEx` CHAR(72) NOT NULL, "
        "`LockObject` CHAR(72) NOT NULL, `Table` CHAR(32) NOT NULL, `SDDLText` CHAR(0) NOT NULL, "
        "`Condition` CHAR(255) PRIMARY KEY `MsiLockPermissionsEx`)",
        # With the folder of the vendor goes nothing of others.
        insert("CreateFolder", Directory_="OrvaFolder", Component_="Service"),
        insert("MsiLockPermissionsEx", MsiLockPermissionsEx="Folder", LockObject="INSTALLFOLDER",
               Table="CreateFolder", SDDLText=FOLDER_SECURITY),
        *refusals(installed),
        *action("UseInstalledFolder", SET_PROPERTY, "INSTALLFOLDER", "[INSTALLEDFOLDER]",
                "INSTALLEDFOLDER AND NOT INSTALLFOLDER", 60),
        # An installation with a window settles the folders here, and hands them on.
        insert("InstallUISequence", Action="UseInstalledFolder",
               Condition="INSTALLEDFOLDER AND NOT INSTALLFOLDER", Sequence=60),
        *action("ForgetNothing", SET_PROPERTY, "ForgottenKey", r"SOFTWARE\Orva\Nothing",
                'KEEPSTATES = "1"', 1510),
        forgotten("Wlan"),
        forgotten("Wwan"),
        # A start that Windows refuses, for want of WwanSvc say, undoes nothing.
        *action("StartService", CALL_AT_END, "InstallerActions", "StartInstalledService",
                'STARTSERVICE = "1" AND NOT REMOVE', 5950),
        # The log is where the account of this action and of the service has its application data.
        *action("RemoveLogs", RUN_AT_END, "System64Folder",
                r'"[System64Folder]cmd.exe" /d /c del /q "%APPDATA%\orvkLog\LinkvaneService*.log" & '
                r'rmdir "%APPDATA%\orvkLog"',
                'REMOVE = "ALL" AND NOT UPGRADINGPRODUCTCODE AND REMOVELOGS = "1"', 5960),
    ]


def set_summary(package, code, stamp):
    """Package code and times; wixl takes any code and the clock."""
    table = subprocess.run(["msiinfo", "export", package, "_SummaryInformation"], check=True,
                           stdout=subprocess.PIPE).stdout.decode("cp1252")
    for number, text in ((9, code), (12, stamp), (13, stamp)):
        table = re.sub(rf"(?m)^{number}\t[^\r\n]*", f"{number}\t{text}", table)
    with tempfile.TemporaryDirectory() as folder:
        file = pathlib.Path(folder, "_SummaryInformation.idt")
        file.write_bytes(table.encode("cp1252"))
        subprocess.run(["msibuild", package, "-i", file], check=True)


def make(folder, package):
    numbers = file_version(folder / "LinkvaneService.exe")
    # Windows Installer compares three numbers.
    version = ".".join(map(str, numbers[:3]))
    seconds = int(os.environ["SOURCE_DATE_EPOCH"])
    for file in folder.iterdir():
        os.utime(file, (seconds, seconds))
    run_wixl(folder, package, {
        "Version": version, "FileVersion": ".".join(map(str, numbers)),
        "UpgradeCode": UPGRADE_CODE, "ProductCode": content_code("product", folder),
        "ProductKey": PRODUCT_KEY, "EventSourceKey": EVENT_SOURCE_KEY})
    installed = [file for file in sorted(folder.iterdir()) if file.name != "installer_actions.dll"]
    subprocess.run(["msibuild", package, "-q", *corrections(version, installed)], check=True)
    set_summary(package, content_code("package", folder), time.strftime("%Y/%m/%d %H:%M:%S", time.gmtime(seconds)))


if __name__ == "__main__":
    # The tools take times for local ones.
    os.environ["TZ"] = "UTC"
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    make(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
