"""One simulated notebook: a Wine prefix with the shipped service, stand-in devices and a controller
that is spoken to through pipes."""

import contextlib
import json
import pathlib
import shlex
import shutil
import subprocess
import time

from .log import WORKER_ENDS
from .prefix import ROOT, WinePrefix

FOLDER = "C:\\Program Files\\Orva\\Linkvane"
SERVICE = "LinkvaneService.exe"
# It runs here, not in the notebook: what it reads are files.
DOCTOR = ROOT / "build/native/bin/LinkvaneDoctor"
# The same in the notebook, for what it asks of the machine.
DOCTOR_IN_NOTEBOOK = "LinkvaneDoctor.exe"
# No answer takes long but the waits, which name their own time; a loaded machine may stretch it.
TIMEOUT_SECONDS = 180
SETTLE = "settle"
# The service hears of airplane mode through the registry: no device can tell that it has not begun.
SETTLE_AFTER_AIRPLANE = "settle quiet 600"


def add_programs(parser):
    parser.add_argument("--programs", default=ROOT / "build/cross/bin", help="where the programs are")


def add_prefixes(parser):
    add_programs(parser)
    parser.add_argument("--prefixes", default=ROOT / "build/wine", help="where Wine prefixes are made")


class CommandFailed(Exception):
    """The controller refused a command, or what it waited for did not come."""


def parse_pairs(text):
    """The `key=value` pairs of a status line."""
    return dict(word.split("=", 1) for word in shlex.split(text, posix=True) if "=" in word)


def why(folder):
    """What the doctor says about the logs of a folder: the one machine of its report."""
    answer = subprocess.run([DOCTOR, "why", "--json", folder], check=True, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, timeout=60)
    [machine] = json.loads(answer.stdout)["machines"]
    return machine


class Machine:
    """A context manager: boots the notebook, installs the service (unless told not to), and ends it all. `prefix` is
    the Wine prefix to make; where that is in use another one is made."""

    def __init__(self, prefix, programs, installs=True):
        self._prefix = WinePrefix(prefix)
        self.programs = pathlib.Path(programs)
        self._installs = installs
        self._controller = None
        self._undone = None
        self._awaited_ends = 0
        self._settle = SETTLE

    def __enter__(self):
        with contextlib.ExitStack() as undone:
            undone.enter_context(self._prefix)
            self._copy_programs()
            # In a session of its own: the keyboard's Ctrl-C is for whoever gives the commands.
            self._controller = subprocess.Popen(
                **self._prefix.command(FOLDER + "\\notebook.exe"), start_new_session=True,
                stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, encoding="utf-8", bufsize=1)
            undone.callback(self._end_controller)
            self.do("setup")
            if self._installs:
                self.do("install")
            self._show_log_where_windows_has_it()
            self._undone = undone.pop_all()
        return self

    def __exit__(self, *details):
        return self._undone.__exit__(*details)

    @property
    def prefix(self):
        return self._prefix.folder

    def _end_controller(self):
        self._controller.stdin.close()
        try:
            self._controller.wait(timeout=5)
        except subprocess.TimeoutExpired:
            self._prefix.end()
            self._controller.wait()
        self._controller.stdout.close()

    def abort(self):
        """Ends everything; the command that somebody waits for fails."""
        self._prefix.end()

    def do(self, command):
        """Carries out one command; the text of its answer. Lines before it go to `self.lines`."""
        if command.split(" ")[0] in ("start", "stop", "kill", "preshutdown"):
            # What the worker has said so far belongs to earlier runs.
            self._awaited_ends = self._worker_ends() + 1 if command.startswith("start") else 0
        if command.startswith("airplane "):
            self._settle = SETTLE_AFTER_AIRPLANE
        self.lines = []
        with contextlib.suppress(BrokenPipeError):
            self._controller.stdin.write(command + "\n")
            self._controller.stdin.flush()
        while True:
            line = self._controller.stdout.readline()
            if not line:
                raise CommandFailed(f"{command}: the controller has ended")
            line = line.rstrip("\r\n")
            if line.startswith("| "):
                self.lines.append(line[2:])
            elif line.startswith("OK"):
                return line[3:]
            elif line.startswith("ERROR"):
                raise CommandFailed(f"{command}: {line[6:]}")
            # Whatever else a program of the prefix prints does not belong to the answer.

    def settle(self, within=TIMEOUT_SECONDS):
        """Waits until nothing more happens, the start of the service included; so many seconds at most."""
        given_up = time.monotonic() + within
        while self._worker_ends() < self._awaited_ends and time.monotonic() < given_up:
            self.look()
            time.sleep(0.05)
        command, self._settle = self._settle, SETTLE
        self.await_quiet(f"{command} within {within * 1000}")

    def look(self):
        """For those who want to see what happens while the machine settles."""

    def await_quiet(self, settle):
        """Has the controller wait; `settle` is the command."""
        self.do(settle)

    def _worker_ends(self):
        if not self.log_file().exists():
            return 0
        return len(WORKER_ENDS.findall(self.log_file().read_text(encoding="utf-8-sig", errors="replace")))

    def status(self):
        return parse_pairs(self.do("status"))

    def values(self, *keys):
        """Some of the pairs of the status."""
        return parse_pairs(self.do("get " + " ".join(keys)))

    def start_long(self, options, max_log_kilobytes=65536):
        """A fresh notebook with the service running and settled, which may log much; None: as it does by default."""
        self.begin(options)
        if max_log_kilobytes:
            self.do(f"policy MaxLogSize {max_log_kilobytes}")
        self.do("start")
        self.settle()

    def begin(self, options=""):
        """A fresh notebook with nothing left of what was played before."""
        if self.values("service")["service"] != "stopped":
            self.do("stop")
        self._awaited_ends = 0
        self.do("reset " + options)
        for log in self.log_folder().glob("*.log"):
            log.unlink()

    def log_folder(self):
        [roaming] = (folder for folder in self.prefix.glob("drive_c/users/*/AppData/Roaming")
                     if folder.parents[1].name != "Public")
        return roaming / "orvkLog"

    def log_file(self):
        return self.log_folder() / "LinkvaneService.log"

    def why(self):
        """What the doctor says about the log so far."""
        return why(self.log_folder())

    def copy_logs(self, folder):
        """Copies all files of the log, the newest and the numbered ones, into a new folder."""
        shutil.rmtree(folder, ignore_errors=True)
        shutil.copytree(self.log_folder(), folder)

    def _show_log_where_windows_has_it(self):
        """Wine runs the service under the one user that there is, not under local system."""
        roaming = self.prefix / "drive_c/windows/system32/config/systemprofile/AppData/Roaming"
        roaming.mkdir(parents=True)
        (roaming / "orvkLog").symlink_to(self.log_folder())

    def _copy_programs(self):
        folder = self.prefix / "drive_c" / FOLDER.removeprefix("C:\\").replace("\\", "/")
        folder.mkdir(parents=True)
        if self._installs:
            shutil.copy(self.programs / SERVICE, folder)
            if (self.programs / DOCTOR_IN_NOTEBOOK).exists():
                shutil.copy(self.programs / DOCTOR_IN_NOTEBOOK, folder)
        for program in (self.programs / "notebook").iterdir():
            if program.suffix in (".exe", ".dll"):
                shutil.copy(program, folder)
