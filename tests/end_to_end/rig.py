"""What the end-to-end tests share: the executable, a Wine prefix of a test's own, the tools."""

import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))
from notebook.runner.prefix import ROOT, WinePrefix  # noqa: E402

EXECUTABLE = pathlib.Path(os.environ["LINKVANE_EXE"])
NOTEBOOK = pathlib.Path(os.environ["LINKVANE_NOTEBOOK"])
SERVICE = "LinkvaneService"

# No call here takes long; a loaded machine may stretch it.
TIMEOUT_SECONDS = 120

# A version resource's fixed part begins with this signature and the structure's version 1.0.
FIXED_FILE_INFO = b"\xbd\x04\xef\xfe\x00\x00\x01\x00"


def file_version():
    """The executable's version, as four numbers, from the fixed part of its version resource."""
    content = EXECUTABLE.read_bytes()
    position = content.index(FIXED_FILE_INFO) + len(FIXED_FILE_INFO)
    high, low = struct.unpack_from("<II", content, position)
    return high >> 16, high & 0xFFFF, low >> 16, low & 0xFFFF


class Prefix(WinePrefix):
    """The Wine prefix of one test program."""

    def __init__(self, folder=None):
        super().__init__(folder or os.environ["LINKVANE_E2E_PREFIX"])

    def path(self, windows_path):
        """Where a path below C: lies on the host."""
        return self.folder / "drive_c" / windows_path.removeprefix("C:\\").replace("\\", "/")

    def copy_in(self, source, windows_path):
        target = self.path(windows_path)
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(source, target)
        return windows_path

    def run(self, program, *arguments):
        """Runs a Windows program; gives its exit code and what it printed, as bytes."""
        done = subprocess.run(
            **self.command(program, *arguments),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=TIMEOUT_SECONDS, check=False)
        return done.returncode, done.stdout

    def run_lines(self, *lines, folder="C:\\"):
        """Runs lines of a batch file in a folder; gives the last one's whole exit code. (A program's own
        arrives here cut to a byte.)"""
        batch = self.path(r"C:\lines.bat")
        batch.write_text("\r\n".join(["@echo off", f"cd /d {folder}", *lines, r">C:\code.txt echo %errorlevel%", ""]))
        _, output = self.run("cmd.exe", "/c", r"C:\lines.bat")
        code = int(self.path(r"C:\code.txt").read_text())
        batch.unlink()
        self.path(r"C:\code.txt").unlink()
        return code, output.decode(errors="replace")

    def notebook(self, *words):
        """Gives the simulated notebook's controller a command, which may be about the service alone, with no
        notebook there; the exit code and the printed text."""
        code, output = self.run(NOTEBOOK, *words)
        return code, output.decode().replace("\r\n", "\n").strip()

    def registry_values(self, key):
        """The values of a key as they are printed; the strings of a REG_MULTI_SZ value as a list."""
        code, output = self.run("reg", "query", key)
        assert code == 0, output
        values = re.findall(r"^ +(\w+) +(REG_\w+) +(.*?)\r?$", output.decode(), re.MULTILINE)
        return {name: text.split("\\0") if kind == "REG_MULTI_SZ" else text for name, kind, text in values}

    def registry_key_exists(self, key):
        return self.run("reg", "query", key)[0] == 0

    def set_registry_text(self, key, value, text):
        code, output = self.run("reg", "add", key, "/v", value, "/d", text, "/f")
        assert code == 0, output

    def set_registry_number(self, key, value, number):
        code, output = self.run("reg", "add", key, "/v", value, "/t", "REG_DWORD", "/d", str(number), "/f")
        assert code == 0, output

    def log_folder(self):
        """Where the log lies, once a program has written one."""
        [folder] = self.folder.glob("drive_c/users/*/AppData/Roaming/orvkLog")
        return folder

    def log_lines(self):
        """The messages of the service's log: (level, function, message), in order."""
        lines = (self.log_folder() / "LinkvaneService.log").read_bytes().decode("utf-8-sig").splitlines()
        entries = [line.split("|", 4) for line in lines if line.count("|") >= 4]
        return [(level.strip(), function, message) for _, _, level, function, message in entries]
