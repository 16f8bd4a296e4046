"""The release that is tested, and packages that differ from it."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT), str(ROOT / "tests/end_to_end"), str(ROOT / "packaging")]

import make_msi  # noqa: E402
from rig import FIXED_FILE_INFO, SERVICE, Prefix  # noqa: E402

RELEASE = pathlib.Path(os.environ["LINKVANE_RELEASE"])
PACKAGE = RELEASE / "LinkvaneService.msi"
WORK_FOLDER = pathlib.Path(os.environ["LINKVANE_E2E_PREFIX"] + ".packages")
SERVICE_KEY = rf"HKLM\SYSTEM\CurrentControlSet\Services\{SERVICE}"
PRODUCT_KEY = rf"HKLM\{make_msi.PRODUCT_KEY}"

# Windows Installer's exit codes.
SUCCESS = 0
INSTALL_FAILURE = 1603
FUNCTION_FAILED = 1627  # Wine's for a failed action (Windows: 1603) and a damaged package (1620)


def alone(seconds):
    """What takes so long on a machine that does nothing else may take on this one as it is."""
    return seconds * max(1, os.getloadavg()[0] / os.cpu_count())


def table(name, package=PACKAGE):
    """The rows of a table, each a dictionary; a missing table has none."""
    done = subprocess.run(["msiinfo", "export", package, name], capture_output=True, text=True, check=False)
    lines = done.stdout.splitlines()
    return [dict(zip(lines[0].split("\t"), line.split("\t"))) for line in lines[3:]]


def row(name, key, package=PACKAGE):
    """The row whose first column is `key`."""
    [found] = [each for each in table(name, package) if next(iter(each.values())) == key]
    return found


def stream(name, package=PACKAGE):
    """What the package carries under a name."""
    return subprocess.run(["msiinfo", "extract", package, name], check=True, stdout=subprocess.PIPE).stdout


def product_code(package):
    return row("Property", "ProductCode", package)["Value"]


def newer_program(executable):
    """An executable's bytes, with version 1.0.1.0 in its version resource."""
    content = executable.read_bytes()
    old = ".".join(map(str, make_msi.file_version(executable)))
    numbers = re.compile(re.escape(FIXED_FILE_INFO) + b".{16}", re.DOTALL)
    new_numbers = FIXED_FILE_INFO + 2 * b"\x00\x00\x01\x00\x00\x00\x01\x00"
    content = content.replace(old.encode("utf-16-le"), "1.0.1.0".encode("utf-16-le"))
    content, replaced = numbers.subn(lambda _: new_numbers, content)
    assert replaced == 1, replaced
    return content


def newer_package():
    """A package of version 1.0.1: the same programs with other numbers in their version resources."""
    files = WORK_FOLDER / "newer"
    shutil.rmtree(files, ignore_errors=True)
    files.mkdir(parents=True)
    shutil.copy(RELEASE / "licences.txt", files)
    for program in RELEASE.glob("*.exe"):
        (files / program.name).write_bytes(newer_program(program))
    (files / "installer_actions.dll").write_bytes(stream("Binary.InstallerActions"))
    os.environ["SOURCE_DATE_EPOCH"] = "1700000000"
    make_msi.make(files, WORK_FOLDER / "Newer.msi")
    return WORK_FOLDER / "Newer.msi"


def failing_package():
    """The release's package with an action that fails when all is done but the end."""
    WORK_FOLDER.mkdir(parents=True, exist_ok=True)
    result = WORK_FOLDER / "Failing.msi"
    shutil.copy(PACKAGE, result)
    # A program by its path, in the transaction; its exit code counts.
    subprocess.run(["msibuild", result, "-q",
                    *make_msi.action("Fail", 34 + 1024 + 2048, "System64Folder",
                                     '"[System64Folder]cmd.exe" /c exit 1', "NOT REMOVE", 6550)], check=True)
    return result


def make_certificate(folder, name, usage):
    """A certificate that is thrown away afterwards, NAME.pem, and its key, NAME_key.pem."""
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", f"/CN={name}",
                    "-addext", f"extendedKeyUsage={usage}", "-keyout", folder / f"{name}_key.pem",
                    "-out", folder / f"{name}.pem"], check=True, capture_output=True)


def make_signer(folder, name, password):
    """Such a certificate for code; gives the PKCS#12 file with it and its key, NAME.p12."""
    make_certificate(folder, name, "codeSigning")
    result = folder / f"{name}.p12"
    subprocess.run(["openssl", "pkcs12", "-export", "-passout", f"pass:{password}", "-out", result,
                    "-inkey", folder / f"{name}_key.pem", "-in", folder / f"{name}.pem"], check=True)
    return result


class Installer:
    """Windows Installer in a prefix; packages lie in C:\\Deploy."""

    def __init__(self, prefix):
        self.prefix = prefix
        self.seconds = 0.0
        prefix.path(r"C:\Deploy").mkdir(exist_ok=True)

    def bring(self, *packages):
        for package in packages:
            shutil.copy(package, self.prefix.path(r"C:\Deploy"))

    def run(self, *arguments):
        """msiexec's exit code."""
        started = time.monotonic()
        code, _ = self.prefix.run_lines("msiexec " + " ".join(arguments), folder=r"C:\Deploy")
        self.seconds = time.monotonic() - started
        return code


def registry(prefix, *keys):
    """The lines of registry keys and all below them, each with its key in front."""
    lines = set()
    for key in keys:
        code, _ = prefix.run_lines(rf"reg export {key} C:\export.reg /y >nul")
        assert code == 0, key
        file = prefix.path(r"C:\export.reg")
        text = re.sub(r"\\\r\n\s*", "", file.read_bytes().decode("utf-16"))
        file.unlink()
        section = ""
        for line in text.splitlines():
            section = line if line.startswith("[") else section
            if line:
                lines.add(section if line == section else f"{section} {line}")
    return lines


def files(prefix):
    """Every file and folder of drive C, with the size of a file."""
    return {f"{path.relative_to(prefix.folder / 'drive_c')} {'' if path.is_dir() else path.stat().st_size}"
            for path in (prefix.folder / "drive_c").rglob("*") if not path.is_symlink()}


def expect_nothing_installed(test, prefix):
    test.assertEqual(prefix.notebook("get", "service"), (0, "OK service=absent"))
    test.assertFalse(prefix.path(r"C:\Program Files\Orva").exists())
    test.assertFalse(prefix.registry_key_exists(PRODUCT_KEY))
    test.assertFalse(prefix.registry_key_exists(
        rf"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\{SERVICE}"))
