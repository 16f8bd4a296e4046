"""What `why` says of each lane, held against what the devices did:
`python3 -m notebook.runner.agreement [--days N] [--events N] [--overlapping] [--seed N]`

Plays short days of random events and looks at the devices all the time, also while the service is at work.
Then the lanes of the doctor's report are laid beside that: for how much of the time they say the same, say
that they do not know, or say something wrong. What lies between two looks that differ,
or that lie far apart, is not counted.
While the service does not run, or has not looked yet after its start, or the notebook sleeps, nobody can know
much from its log: what counts is the time in between. Of that each lane must be right for 99 % of what it claims to know, and wrong
for a thousandth at most.
"""

import argparse
import collections
import datetime
import json
import pathlib
import random
import sys
import time

from .machine import CommandFailed, Machine, ROOT
from .random_day import Day

KEYS = ("cable", "cables", "wifi", "wwan", "airplane", "asleep", "stored_wlan", "stored_wwan", "service")
RADIO = {"on": "on", "off": "off"}
STORED = {"True": "on", "missing": "on", "False": "off"}
# Of events that happen at once the later is told of late, and may have been over before.
MOST_WRONG = 0.001
MOST_WRONG_OVERLAPPING = 0.02
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
            self.looks.append(None)
        return super().do(command)

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
    local = datetime.datetime.now().replace(tzinfo=datetime.timezone.utc)
    return int(local.timestamp() * 1000)


def truth(values):
    """What each lane should say."""
    cables = dict(part.split(":") for part in values["cables"].split(","))
    told = {"cable": "in" if "in" in cables.values() else "out",
            "wifi": RADIO.get(values["wifi"]), "wwan": RADIO.get(values["wwan"]),
            "airplane": values["airplane"],
            "remembered-wlan": STORED.get(values["stored_wlan"]),
            "remembered-wwan": STORED.get(values["stored_wwan"]),
            "sleep": "asleep" if values["asleep"] == "yes" else "awake",
            "runs": "running" if values["service"] == "running" else "stopped"}
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

    def __init__(self, most_wrong=MOST_WRONG):
        self._most_wrong = most_wrong
        self.milliseconds = collections.defaultdict(collections.Counter)
        self.watched = collections.defaultdict(collections.Counter)
        self.mistakes = []
        self.reasons = collections.Counter()

    def compare(self, looks, lanes, day):
        for look, next_look in zip(looks, looks[1:]):
            if look is None or next_look is None:
                continue
            (_, begin, values), (end, _, following) = look, next_look
            if end - begin > MOST_APART_MS:
                continue
            now, then = truth(values), truth(following)
            for lane, state in now.items():
                # What changed in between changed at a time that nobody has seen.
                if lane in lanes and state is not None and then.get(lane) == state and end > begin:
                    runs = values["asleep"] == "no" and any(
                        run["from"] <= begin and end <= run["until"] and run["state"] == "running"
                        for run in lanes["runs"])
                    self._lay_beside(lane, begin, end, state, lanes[lane], day, runs)

    def _lay_beside(self, lane, begin, end, state, intervals, day, runs):
        for interval in intervals:
            length = min(end, interval["until"]) - max(begin, interval["from"])
            if length <= 0:
                continue
            verdict = self._judge(lane, state, interval)
            if verdict == "wrong" and self._is_late(begin, end, state, interval, intervals):
                verdict = "right"
            self.milliseconds[lane][verdict] += length
            if runs:
                self.watched[lane][verdict] += length
            if verdict == "unknown" and runs:
                self.reasons[lane, interval["why"]] += length
            if verdict == "wrong" and length > SLACK_MS and runs:
                self.mistakes.append(f"{day}: {lane} at {clock(begin)} is {state} for {length} ms, "
                                     f"but why says {interval['state']} ({interval['why']})")

    @staticmethod
    def _judge(lane, state, interval):
        told = interval["state"]
        if told == "unknown":
            return "unknown"
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
        print("all the time")
        self._show_shares(self.milliseconds)
        print("while the service ran and had started")
        good = self._show_shares(self.watched, self._most_wrong)
        for (lane, why), length in self.reasons.most_common(12):
            print(f"  not known for {length / 1000:.1f} s: {lane}, {why}")
        for mistake in self.mistakes[:20]:
            print("  " + mistake)
        return good

    @staticmethod
    def _show_shares(milliseconds, most_wrong=1.0):
        print(f"  {'lane':18} {'right':>9} {'not known':>9} {'wrong':>9}   seconds")
        good = True
        for lane, counts in sorted(milliseconds.items()):
            total = sum(counts.values())
            share = {verdict: counts[verdict] / total for verdict in ("right", "unknown", "wrong")}
            print(f"  {lane:18} {share['right']:9.2%} {share['unknown']:9.2%} {share['wrong']:9.3%}"
                  f"   {total / 1000:.0f}")
            known = counts["right"] + counts["wrong"]
            good = good and share["wrong"] <= most_wrong and counts["right"] >= min(LEAST_RIGHT, 1 - most_wrong) * known
        return good


def clock(milliseconds):
    return datetime.datetime.fromtimestamp(milliseconds / 1000, datetime.timezone.utc).strftime("%H:%M:%S.%f")[:-3]


def play_day(machine, seed, options, tally):
    machine.begin("cables 2 modems 1")
    machine.do("policy MaxLogSize 65536")
    machine.looks = []
    machine.do("start")
    machine.settle()
    try:
        Day(machine, seed).play(options.events, options.overlapping)
    finally:
        machine.settle()
        compare_day(machine, seed, options, tally)


def compare_day(machine, seed, options, tally):
    report = machine.why()
    tally.compare(machine.looks, said(report), f"seed {seed}")
    if options.logs:
        machine.copy_logs(options.logs / f"seed-{seed}")
        (options.logs / f"seed-{seed}" / "looks.json").write_text(json.dumps(machine.looks), encoding="utf-8")


def arguments():
    parser = argparse.ArgumentParser(description="Holds what the doctor says against what the devices did.")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1_000_000))
    parser.add_argument("--days", type=int, default=10)
    parser.add_argument("--events", type=int, default=20)
    parser.add_argument("--overlapping", action="store_true", help="two events at a time")
    parser.add_argument("--logs", type=pathlib.Path, metavar="FOLDER", help="keeps each day's log there")
    parser.add_argument("--programs", default=ROOT / "build/cross/bin", help="where the programs are")
    parser.add_argument("--prefixes", default=ROOT / "build/wine", help="where Wine prefixes are made")
    parser.add_argument("--name", default="notebook-agreement", help="the Wine prefix to make")
    return parser.parse_args()


def main():
    options = arguments()
    tally = Tally(MOST_WRONG_OVERLAPPING if options.overlapping else MOST_WRONG)
    with Watched(pathlib.Path(options.prefixes) / options.name, options.programs) as machine:
        for seed in range(options.seed, options.seed + options.days):
            print(f"seed {seed}{' overlapping' if options.overlapping else ''}", flush=True)
            try:
                play_day(machine, seed, options, tally)
            except (CommandFailed, SystemExit) as failure:
                # What the rules do not allow is random_day's affair, and a day like any other here.
                print(f"the day ends early: {failure}", flush=True)
    return 0 if tally.show() else 1


if __name__ == "__main__":
    sys.exit(main())
