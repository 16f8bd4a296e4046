"""Hours for a day that was played in seconds.

A random day is played without a pause: its next event comes as soon as the machine is quiet. On a notebook
hours lie between two events, and nothing happens in them: a machine that is quiet (see `settle`) has nothing
in progress and nothing due. So the pauses can be put in afterwards, into what the service wrote and into what
was seen of the devices, as if the notebook's clock had been set forward while it was quiet.
"""

import bisect
import datetime
import pathlib
import random

MINUTE_MS = 60_000
# From one event to the next.
PAUSE_MINUTES = (10, 120)
# A notebook is put to sleep by its lid, or sleeps by itself when nobody uses it: Windows 11 waits for at most
# five minutes unless it is told otherwise.
BEFORE_SLEEP_MINUTES = (0, 5)
SLEEP_MINUTES = (30, 600)
TIME_OF_A_LINE = "%Y/%m/%d %H:%M:%S.%f"
# A pause begins so long before the look that it begins with: the machine has been quiet for longer, and the
# clocks of the log and of the looks differ by less.
BEFORE_LOOK_MS = 50
LENGTH_OF_A_TIME = len("2026/11/20 20:37:40.123")


class Pauses:
    """Which pauses a day gets: after which moments, and how long each."""

    def __init__(self, seed, looks):
        chance = random.Random(f"pauses of {seed}")
        self._moments, self._lengths, self._sums = [], [], [0]
        for look, following in zip(looks, looks[1:]):
            # The machine is quiet when somebody gives it a command.
            if not isinstance(look, str) and isinstance(following, str):
                asleep = look[2]["asleep"] == "yes"
                minutes = (SLEEP_MINUTES if asleep else BEFORE_SLEEP_MINUTES if following.startswith("suspend")
                           else PAUSE_MINUTES)
                self._moments.append(look[0] - BEFORE_LOOK_MS)
                self._lengths.append(chance.randint(*minutes) * MINUTE_MS)
                self._sums.append(self._sums[-1] + self._lengths[-1])

    def later(self, moment):
        """When a moment (ms) of the played day is, once the pauses before it have been put in."""
        return moment + self._sums[bisect.bisect_left(self._moments, moment)]

    def looks(self, looks):
        """The same looks, later, and one more, with a word, at the beginning of each pause: nothing changes in it."""
        longer = []
        for look in looks:
            if isinstance(look, str):
                longer.append(None)
                continue
            begin, end, values = look
            if begin - BEFORE_LOOK_MS in self._moments:
                paused = self.later(begin - BEFORE_LOOK_MS)
                longer.append((paused, paused, values, "pause"))
            longer.append((self.later(begin), self.later(end), values))
        return longer

    def rewrite(self, log, copy):
        """Writes a copy of a log whose lines have the later times."""
        with open(log, encoding="utf-8-sig", newline="") as lines, \
                open(copy, "w", encoding="utf-8-sig", newline="") as rewritten:
            for line in lines:
                rewritten.write(self._rewritten(line))

    def _rewritten(self, line):
        try:
            written = datetime.datetime.strptime(line[:LENGTH_OF_A_TIME], TIME_OF_A_LINE)
        except ValueError:
            return line
        moment = milliseconds(written)
        later = written + datetime.timedelta(milliseconds=self.later(moment) - moment)
        return later.strftime(TIME_OF_A_LINE)[:LENGTH_OF_A_TIME] + line[LENGTH_OF_A_TIME:]


def milliseconds(local):
    """A local time as the doctor counts it."""
    return int(local.replace(tzinfo=datetime.timezone.utc).timestamp() * 1000)


def rewrite_logs(pauses, folder, copies):
    """Rewrites all of a folder's logs into another, new one."""
    pathlib.Path(copies).mkdir(parents=True)
    for log in pathlib.Path(folder).glob("*.log"):
        pauses.rewrite(log, pathlib.Path(copies) / log.name)
