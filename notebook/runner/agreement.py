"""What `why` says of each lane, held against what the devices did:
`python3 -m notebook.runner.agreement [--days N] [--events N] [--overlapping] [--seed N]`

Plays days of random events and looks at the devices all the time, also while the service is at work. Then the
lanes of the doctor's report are laid beside that: for how much of the time they say the same, say that they do
not know, or say something wrong. Two readings are printed:

"as played": events follow one another within seconds, so that most of the time something is on its way. What a
lane claims may be wrong for a thousandth of that.

"with pauses": the same day with the hours between the events (real_time.py). Of that each lane must be right
for 99 % of the time, and wrong next to never.

What lies between two looks that differ, or that lie far apart, is not counted. While the notebook sleeps or the
service does not run nobody can know what the other lanes show: there "not known" is not counted, a wrong
claim is.
"""

import argparse
import collections
import datetime
import pathlib
import random
import sys
import tempfile
import time

from .machine import add_prefixes, CommandFailed, Machine, why
from .prefix import leave_by_signals
from .random_day import Day, NotAllowed
from .real_time import Pauses, milliseconds, rewrite_logs

KEYS = ("cable", "cables", "wifi", "wwan", "airplane", "asleep", "stored_wlan", "stored_wwan", "service")
RADIO = {"on": "on", "off": "off"}
STORED = {"True": "on", "missing": "on", "False": "off"}
MOST_WRONG = 0.001
# Of events that happen at once the later is told of late, and may have been over before.
MOST_WRONG_OVERLAPPING = 0.02
MOST_WRONG_WITH_PAUSES = 0.0001
LEAST_RIGHT = 0.99
# The log's clock and this one tell the same time, but a line is written a little after what it tells of.
SLACK_MS = 250
# Between two looks that lie further apart much may have happened and been taken back.
MOST_APART_MS = 500


class Watched(Machine):
    """A machine that is looked at all the time."""

    def __init__(self, prefix, programs):
        super().__init__(prefix, programs)
        self.looks = []

    def do(self, command):
        # While a command moves something nobody looks.
        if self.looks and command.split(" ")[0] not in ("get", "background", "answers", "join"):
            if command == "resume":
                self.look()
            self.looks.append(command)
        return super().do(command)

    def settle(self):
        super().settle()
        # What a pause is put behind must be quiet for certain.
        super().settle()

    def look(self):
        before = now_ms()
        values = self.values(*KEYS)
        self.looks.append((before, now_ms(), values))

    def await_quiet(self, settle):
        self.do("background " + settle)
        self.lines = []
        while not self.lines:
            self.look()
            self.do("answers")
            time.sleep(0.02)
        self.do("join")
        if any("ERROR" in line for line in self.lines):
            raise CommandFailed(" ".join(self.lines))
        self.look()


def now_ms():
    """Milliseconds of local time, as the doctor counts them."""
    return milliseconds(datetime.datetime.now())


def truth(values):
    """What each lane should say."""
    cables = dict(part.split(":") for part in values["cables"].split(","))
    told = {"cable": "in" if "in" in cables.values() else "out",
            "wifi": RADIO.get(values["wifi"]), "wwan": RADIO.get(values["wwan"]),
            "airplane": values["airplane"],
            "remembered-wlan": STORED.get(values["stored_wlan"]),
            "remembered-wwan": STORED.get(values["stored_wwan"]),
            "sleep": "asleep" if values["asleep"] == "yes" else "awake",
            # Asleep it is paused.
            "runs": "running" if values["service"] in ("running", "paused") else "stopped"}
    for number, state in cables.items():
        told["cable " + number] = state
    return told


def said(machine):
    """The lanes of a report by the names that `truth` gives them."""
    lanes = {}
    for lane in machine["lanes"]:
        name = lane["id"]
        if name.startswith("cable:"):
            name = "cable " + lane["title"].rsplit(" ", 1)[1]
        lanes[name] = lane["intervals"]
    return lanes


class Tally:
    """How much of the time a lane was right, unknown, wrong."""

    def __init__(self, most_wrong, least_right=0.0):
        self._most_wrong = most_wrong
        self._least_right = least_right
        self.milliseconds = collections.defaultdict(collections.Counter)
        self.mistakes = []
        self.reasons = collections.Counter()

    def compare(self, looks, lanes, day):
        sleeps = [(look[0], look[1]) for look in looks if look is not None and look[2]["asleep"] == "yes"]
        for look, next_look in zip(looks, looks[1:]):
            if look is None or next_look is None:
                continue
            (_, begin, values, *paused), (end, _, following, *_) = look, next_look
            if end - begin > MOST_APART_MS and not paused:
                continue
            now, then = truth(values), truth(following)
            for lane, state in now.items():
                # What changed in between changed at a time that nobody has seen.
                if lane in lanes and state is not None and then.get(lane) == state and end > begin:
                    self._lay_beside(lane, begin, end, now, lanes, sleeps, day)

    def _lay_beside(self, lane, begin, end, now, lanes, sleeps, day):
        state, intervals = now[lane], lanes[lane]
        is_watched = lane in ("runs", "sleep") or (now["runs"] == "running" and now["sleep"] == "awake")
        for interval in intervals:
            length = min(end, interval["until"]) - max(begin, interval["from"])
            if length <= 0:
                continue
            verdict = self._judge(lane, state, interval, sleeps)
            if verdict == "wrong" and self._is_late(begin, end, state, interval, intervals):
                verdict = "right"
            if verdict == "unknown":
                if not is_watched:
                    continue
                self.reasons[lane, interval["why"]] += length
            self.milliseconds[lane][verdict] += length
            if verdict == "wrong" and length > SLACK_MS:
                self.mistakes.append(f"{day}: {lane} at {clock(begin)} is {state} for {length} ms, "
                                     f"but why says {interval['state']} ({interval['why']})")

    @staticmethod
    def _judge(lane, state, interval, sleeps):
        told = interval["state"]
        if told == "unknown":
            return "unknown"
        if told == "slept":
            # At some time of a stretch: a claim about all of it.
            return "right" if any(interval["from"] < end and begin < interval["until"] for begin, end in sleeps) else "wrong"
        if lane == "runs" and told == "starting":
            told = "running"
        return "right" if told == state else "wrong"

    @staticmethod
    def _is_late(begin, end, state, interval, intervals):
        """Whether what the devices say is said by a neighbour within the slack."""
        return any(other["state"] == state and other["from"] - SLACK_MS < end
                   and other["until"] + SLACK_MS > begin for other in intervals if other is not interval) and (
                       min(end, interval["until"]) - max(begin, interval["from"]) <= SLACK_MS)

    def show(self):
        """Prints the shares; whether they are good enough."""
        print(f"  {'lane':18} {'right':>9} {'not known':>9} {'wrong':>9}   seconds")
        good = bool(self.milliseconds)
        for lane, counts in sorted(self.milliseconds.items()):
            total = sum(counts.values())
            share = {verdict: counts[verdict] / total for verdict in ("right", "unknown", "wrong")}
            is_good = share["wrong"] <= self._most_wrong and share["right"] >= self._least_right
            print(f"  {lane:18} {share['right']:9.3%} {share['unknown']:9.3%} {share['wrong']:9.4%}"
                  f"   {total / 1000:.0f}{'' if is_good else '   not good enough'}")
            good = good and is_good
        for (lane, why), length in self.reasons.most_common(12):
            print(f"  not known for {length / 1000:.1f} s: {lane}, {why}")
        for mistake in self.mistakes[:20]:
            print("  " + mistake)
        return good


class Readings:
    """The two ways in which days are read."""

    def __init__(self, overlapping):
        self.as_played = Tally(MOST_WRONG_OVERLAPPING if overlapping else MOST_WRONG)
        self.with_pauses = Tally(MOST_WRONG_WITH_PAUSES, LEAST_RIGHT)

    def take(self, seed, looks, logs):
        """Judges a day by the folder with its logs."""
        unmoved = [None if isinstance(look, str) else look for look in looks]
        self.as_played.compare(unmoved, said(why(logs)), f"seed {seed}")
        pauses = Pauses(seed, looks)
        with tempfile.TemporaryDirectory() as folder:
            longer = pathlib.Path(folder) / "logs"
            rewrite_logs(pauses, logs, longer)
            self.with_pauses.compare(pauses.looks(looks), said(why(longer)), f"seed {seed}")

    def show(self):
        """Prints both; whether they are good enough."""
        good = True
        for title, tally in (("as played", self.as_played), ("with pauses", self.with_pauses)):
            print(title)
            good = tally.show() and good
        return good


def clock(milliseconds):
    return datetime.datetime.fromtimestamp(milliseconds / 1000, datetime.timezone.utc).strftime("%H:%M:%S.%f")[:-3]


def play_day(machine, seed, options, readings):
    machine.looks = []
    machine.start_long("cables 2 modems 1")
    try:
        Day(machine, seed).play(options.events, options.overlapping)
    finally:
        machine.settle()
        readings.take(seed, machine.looks, machine.log_folder())


def play(options, readings):
    with Watched(pathlib.Path(options.prefixes) / options.name, options.programs) as machine:
        for seed in range(options.seed, options.seed + options.days):
            print(f"seed {seed}{' overlapping' if options.overlapping else ''}", flush=True)
            try:
                play_day(machine, seed, options, readings)
            except (CommandFailed, NotAllowed) as failure:
                # What the rules do not allow is random_day's affair, and a day like any other here.
                print(f"the day ends early: {failure}", flush=True)


def arguments():
    parser = argparse.ArgumentParser(description="Holds what the doctor says against what the devices did.")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1_000_000))
    parser.add_argument("--days", type=int, default=10)
    parser.add_argument("--events", type=int, default=20)
    parser.add_argument("--overlapping", action="store_true", help="two events at a time")
    add_prefixes(parser)
    parser.add_argument("--name", default="notebook-agreement", help="the Wine prefix to make")
    return parser.parse_args()


def main():
    options = arguments()
    leave_by_signals()
    readings = Readings(options.overlapping)
    play(options, readings)
    return 0 if readings.show() else 1


if __name__ == "__main__":
    sys.exit(main())
