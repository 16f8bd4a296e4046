"""Hours for a day that was played in seconds.

A random day is played without a pause: its next event comes as soon as the machine is quiet. On a notebook
hours lie between two events, and nothing happens in them: a machine that is quiet (see `settle`) has nothing
in progress and nothing due. So the pauses can be put in afterwards, into what the service wrote and into what
was seen of the devices, as if the notebook's clock had been set forward while it was quiet.
"""

import bisect
import datetime
import itertools
import pathlib
import random

MINUTE_MS = 60_000
# From one event to the next.
PAUSE_MINUTES = (10, 120)
# From the last event to the sleep: these days assume that a notebook sleeps soon after the last thing that
# happened to it.
BEFORE_SLEEP_MINUTES = (0, 15)
SLEEP_MINUTES = (30, 600)
TIME_OF_A_LINE = "%Y/%m/%d %H:%M:%S.%f"
# A pause begins so long before the look that it begins with: the machine has been quiet for longer, and the
# clocks of the log and of the looks differ by less.
BEFORE_LOOK_MS = 50
# Asleep it has been for a few milliseconds only. The service has answered the suspend before the look.
BEFORE_LOOK_ASLEEP_MS = 1
LENGTH_OF_A_TIME = len("2026/11/20 20:37:40.123")


class Pauses:
    """Which pauses a day gets: after which moments, and how long each."""

    def __init__(self, seed, looks):
        chance = random.Random(f"pauses of {seed}")
        self._moments, self._lengths, self._sums = [], [], [0]
        for number, look in enumerate(looks):
            commands = list(itertools.takewhile(lambda entry: isinstance(entry, str), looks[number + 1:]))
            # The machine is quiet when somebody gives it a command.
            if not isinstance(look, str) and commands and not changes_nothing(look[2], commands):
                self._moments.append(begin_of_pause(look))
                self._lengths.append(chance.randint(*minutes_of_pause(look, commands)) * MINUTE_MS)
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
            if begin_of_pause(look) in self._moments:
                paused = self.later(begin_of_pause(look))
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


def changes_nothing(values, commands):
    """Whether all of them switch a radio to what it is: no event, and no pause is put before it."""
    return all(command in (f"wifi {values['wifi']}", f"wwan {values['wwan']}") for command in commands)


def begin_of_pause(look):
    """When (ms of the played day) a pause begins that is put in before what follows a look."""
    begin, _, values = look
    return begin - (BEFORE_LOOK_ASLEEP_MS if values["asleep"] == "yes" else BEFORE_LOOK_MS)


def minutes_of_pause(look, commands):
    """The shortest and the longest pause between a look and the commands that follow it."""
    if look[2]["asleep"] == "yes":
        return SLEEP_MINUTES
    return BEFORE_SLEEP_MINUTES if commands[0].startswith("suspend") else PAUSE_MINUTES


def milliseconds(local):
    """A local time as the doctor counts it."""
    return int(local.replace(tzinfo=datetime.timezone.utc).timestamp() * 1000)


def rewrite_logs(pauses, folder, copies):
    """Rewrites all of a folder's logs into another, new one."""
    pathlib.Path(copies).mkdir(parents=True)
    for log in pathlib.Path(folder).glob("*.log"):
        pauses.rewrite(log, pathlib.Path(copies) / log.name)
