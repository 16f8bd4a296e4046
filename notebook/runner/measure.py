"""What the service costs on the simulated notebook: `python3 -m notebook.runner.measure [--pairs N | --days N]`

Looks at the running service from outside: the processor time and the wake-ups of its idle threads, its
handles, threads and memory after few and after many pairs of plug and unplug, how long a switch of the
modem takes, and how long a stop. With days, what a day brings takes the place of the pairs, and the log is
kept as it is by default, in files that replace each other. Prints one table; fails when a bound is not kept.
"""

import argparse
import collections
import datetime
import pathlib
import statistics
import sys
import time

from .log import Log
from .machine import add_programs, Machine, parse_pairs, ROOT, SERVICE, TIMEOUT_SECONDS
from .prefix import leave_by_signals

FEW_PAIRS = 10
SWITCH = "ServiceUtils::SwitchWwanStatus"
REALLY_SWITCHED = "SetSoftwareRadioState Radio State"
# The pauses that a switch prescribes take 200 ms of it.
MOST_SWITCH_MILLISECONDS = 250
MOST_STOP_MILLISECONDS = 1000

# What a day of a busy notebook brings: 40,000 changes of the cable a year, 5,000 sleeps.
FEW_DAYS = 3
PAIRS_A_DAY = 55
SLEEPS_A_DAY = 14
NOTIFICATIONS_A_DAY = 10_000
SETTLE = f"settle quiet 20 within {TIMEOUT_SECONDS * 1000}"
# So many times as soon the service's pauses are over.
QUICKER = 50
# They come no quicker than they are handled.
NOTIFICATIONS_AT_ONCE = 1_000

# What the log's queue keeps for its next lines (logging/write_queue.cpp).
MOST_QUEUE_KILOBYTES = 3400
# Ten files of 2 MB, the size of the newest being looked at after some lines only; pairs do not fill them.
MOST_LOG_KILOBYTES = 10 * 2048 * 1.1

Resources = collections.namedtuple("Resources", "handles threads kilobytes log_kilobytes")


class Process:
    """The service's process, as the host sees it."""

    def __init__(self, prefix):
        self._folder = next(folder for folder in pathlib.Path("/proc").glob("[0-9]*")
                            if self._is_service(folder, prefix))

    @staticmethod
    def _is_service(folder, prefix):
        try:
            return (SERVICE.encode() in (folder / "cmdline").read_bytes()
                    and f"WINEPREFIX={prefix}\0".encode() in (folder / "environ").read_bytes())
        except OSError:
            return False

    def ticks(self):
        """Processor time, in the host's clock ticks."""
        fields = (self._folder / "stat").read_text().rpartition(")")[2].split()
        return int(fields[11]) + int(fields[12])

    def wake_ups(self):
        """How often each thread has been put to work, by its number."""
        counts = {}
        for task in (self._folder / "task").iterdir():
            status = dict(line.split(":\t", 1) for line in (task / "status").read_text().splitlines()
                          if ":\t" in line)
            counts[task.name] = (int(status["voluntary_ctxt_switches"])
                                 + int(status["nonvoluntary_ctxt_switches"]))
        return counts

    def threads(self):
        return len(list((self._folder / "task").iterdir()))

    def kilobytes(self):
        """Memory of its own that is in use."""
        rollup = (self._folder / "smaps_rollup").read_text()
        return sum(int(line.split()[1]) for line in rollup.splitlines() if line.startswith("Private_Dirty"))


class Table:
    """Rows of what was measured beside what is wanted."""

    def __init__(self):
        self.all_within = True
        print(f"\n{'':70}{'measured':>18}  {'wanted':14}", flush=True)

    def row(self, what, measured, wanted="", within=True):
        self.all_within = self.all_within and within
        print(f"{what:70}{measured:>18}  {wanted:14} {'' if within else 'MISSED'}", flush=True)


def measure_idle(table, process, seconds):
    ticks, wake_ups = process.ticks(), process.wake_ups()
    time.sleep(seconds)
    spent = process.ticks() - ticks
    woken = sum(count - wake_ups.get(thread, 0) for thread, count in process.wake_ups().items())
    table.row(f"processor time of {seconds} idle seconds, in clock ticks", str(spent), "0", spent == 0)
    table.row(f"wake-ups in {seconds} idle seconds, all threads", str(woken), "0", woken == 0)


def play_pairs(machine, count):
    for _ in range(count):
        for command, radios in (("plug", "phys=off,off wwan=off"), ("unplug", "phys=on,on wwan=on")):
            machine.do(command)
            machine.await_quiet(SETTLE)
            machine.do(f"wait {radios}")


def play_days(machine, count):
    """Each sleep with the cable pulled out meanwhile."""
    for _ in range(count):
        play_pairs(machine, PAIRS_A_DAY - SLEEPS_A_DAY)
        for _ in range(SLEEPS_A_DAY):
            for command in ("plug", SETTLE, "wait phys=off,off wwan=off", "suspend", "unplug", "resume", SETTLE,
                            "wait phys=on,on wwan=on"):
                machine.do(command)
        for _ in range(NOTIFICATIONS_A_DAY // NOTIFICATIONS_AT_ONCE):
            machine.do(f"wifi notify 8 13 times {NOTIFICATIONS_AT_ONCE}")
            machine.await_quiet(SETTLE)


def resources(machine, process):
    # The log's writer and the pool's spare threads end by themselves.
    time.sleep(8)
    log_bytes = sum(file.stat().st_size for file in machine.log_folder().iterdir())
    return Resources(int(machine.values("handles")["handles"]), process.threads(), process.kilobytes(),
                     log_bytes // 1024)


def measure_growth(table, machine, process, options):
    what, count, few_count, play_some = (("days", options.days, FEW_DAYS, play_days) if options.days else
                                         ("pairs", options.pairs, FEW_PAIRS, play_pairs))
    play_some(machine, few_count)
    few = resources(machine, process)
    play_some(machine, count - few_count)
    many = resources(machine, process)
    most = few._replace(
        # Pages that the log's buffers happen to touch come and go; its queue keeps what its largest burst took.
        kilobytes=few.kilobytes * 1.1 + MOST_QUEUE_KILOBYTES,
        log_kilobytes=MOST_LOG_KILOBYTES)
    for name, before, after, limit in zip(Resources._fields, few, many, most):
        table.row(f"{name} at rest after {few_count} and after {count} {what}", f"{before} -> {after}",
                  f"at most {limit:.0f}", after <= limit)


def switch_times(entries):
    """Milliseconds that each switch of the modem took which had something to do."""
    begun, times, switched = {}, [], set()
    for entry in entries:
        if entry.function != SWITCH:
            continue
        when = datetime.datetime.strptime(entry.time, "%Y/%m/%d %H:%M:%S.%f")
        if entry.level == "TraceIn":
            begun[entry.thread] = when
            switched.discard(entry.thread)
        elif entry.message.startswith(REALLY_SWITCHED):
            switched.add(entry.thread)
        elif entry.level == "TraceOut" and entry.thread in switched:
            times.append((when - begun[entry.thread]).total_seconds() * 1000)
    return times


def measure_switches(table, log):
    times = switch_times(log.read_settled())
    table.row(f"switch of a modem that confirms at once, in ms ({len(times)} switches), median",
              f"{statistics.median(times):.0f}", f"at most {MOST_SWITCH_MILLISECONDS}",
              statistics.median(times) <= MOST_SWITCH_MILLISECONDS)
    table.row("the slowest of them", f"{max(times):.0f}")


def measure_stop(table, machine):
    took = int(parse_pairs(machine.do("stop"))["took"])
    table.row("stop, in ms", str(took), f"at most {MOST_STOP_MILLISECONDS}", took <= MOST_STOP_MILLISECONDS)


def arguments():
    parser = argparse.ArgumentParser(description="Measures the service on the simulated notebook.")
    parser.add_argument("--pairs", type=int, default=200, help="pairs of plug and unplug")
    parser.add_argument("--days", type=int, help="days of a busy notebook in place of the pairs; a year has 365")
    parser.add_argument("--idle", type=int, default=30, metavar="SECONDS", help="how long to watch it idle")
    add_programs(parser)
    parser.add_argument("--prefix", default=ROOT / "build/wine/measure", help="the Wine prefix to make")
    options = parser.parse_args()
    if options.days is not None and options.days <= FEW_DAYS:
        parser.error(f"--days: what grows shows after more than {FEW_DAYS}")
    return options


def main():
    options = arguments()
    leave_by_signals()
    with Machine(options.prefix, options.programs) as machine:
        machine.start_long("modems 1", max_log_kilobytes=None if options.days else 65536)
        if options.days:
            machine.do(f"sleeps {QUICKER}")
        log = Log(machine.log_file())
        process = Process(machine.prefix)
        table = Table()
        time.sleep(8)
        measure_idle(table, process, options.idle)
        measure_growth(table, machine, process, options)
        if not options.days:
            measure_switches(table, log)
        measure_stop(table, machine)
    return 0 if table.all_within else 1


if __name__ == "__main__":
    sys.exit(main())
