"""Wine prefixes of one's own, and programs that leave nothing behind in them."""

import fcntl
import os
import pathlib
import signal
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
MOST_SIDE_BY_SIDE = 64


class WinePrefix:
    """A context manager: makes a prefix anew and ends everything that runs in it. Whoever asks for one that is in
    use gets the next free one, NAME-2, NAME-3 and so on; `folder` says which."""

    def __init__(self, folder):
        self._wanted = pathlib.Path(folder).absolute()
        self.folder = self._wanted
        self._mark = None

    def __enter__(self):
        self._take()
        try:
            self._script("fresh")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.end()
        self._mark.close()

    def end(self):
        """Ends everything that runs; the next program boots it anew."""
        self._script("end")

    def command(self, program, *arguments):
        """How to run a Windows program there: the arguments for `subprocess`."""
        return {"args": [ROOT / "scripts/run-wine", program, *arguments],
                "env": {**os.environ, "LINKVANE_WINEPREFIX": str(self.folder)}}

    def _take(self):
        self._wanted.parent.mkdir(parents=True, exist_ok=True)
        for number in range(1, MOST_SIDE_BY_SIDE + 1):
            self.folder = self._wanted.with_name(f"{self._wanted.name}-{number}") if number > 1 else self._wanted
            # scripts/wine-stop looks at it, too. It is given up with the program, however that ends.
            self._mark = open(f"{self.folder}.use", "w", encoding="utf-8")
            try:
                fcntl.flock(self._mark, fcntl.LOCK_EX | fcntl.LOCK_NB)
                return
            except BlockingIOError:
                self._mark.close()
        raise RuntimeError(f"{self._wanted} and {MOST_SIDE_BY_SIDE - 1} more are in use")

    def _script(self, verb):
        # A signal in the middle would leave half a prefix: it runs to its end, out of reach of the keyboard.
        with subprocess.Popen([ROOT / "scripts/wine-prefix", verb, self.folder], stdin=subprocess.DEVNULL,
                              start_new_session=True) as script:
            if script.wait() != 0:
                raise RuntimeError(f"scripts/wine-prefix {verb} {self.folder} failed")


def leave_by_signals():
    """Lets Ctrl-C, a closed window and SIGTERM end the program as an exit does, so that it takes down what it has
    put up; nothing interrupts that."""
    def leave(number, _):
        for each in signals:
            signal.signal(each, signal.SIG_IGN)
        raise SystemExit(128 + number)

    signals = [each for each in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
               if signal.getsignal(each) != signal.SIG_IGN]
    for each in signals:
        signal.signal(each, leave)
