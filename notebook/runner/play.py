"""Plays scenarios: `python3 -m notebook.runner.play [--repeat N] [--jobs N] [--record] [SCENARIO...]`

Without names all of notebook/scenarios is played. Each job has a notebook of its own, and takes the next
scenario that waits. Every failure is shown with its story; the last line counts.
"""

import argparse
import contextlib
import pathlib
import queue
import sys
import textwrap
import threading
import traceback

from .blocks import SCENARIOS, ScenarioError, named_lines, near
from .machine import add_prefixes, Machine
from .player import Player
from .prefix import leave_by_signals
from .record import with_recorded_log
from .scenario import read_scenario


def arguments():
    parser = argparse.ArgumentParser(
        prog="scripts/scenarios", description="Plays scenarios on simulated notebooks.",
        usage="%(prog)s [--repeat N] [--jobs N] [--record] [--verbose] [--list] [--blocks] [SCENARIO...]")
    parser.add_argument("scenarios", nargs="*", help="names or files; all when there are none")
    parser.add_argument("--repeat", type=int, default=1, metavar="N", help="plays each so often")
    parser.add_argument("--jobs", type=int, default=2, metavar="N", help="notebooks side by side")
    parser.add_argument("--second-chance", action="store_true",
                        help="plays what failed once more, on a fresh notebook, before it counts as failed")
    parser.add_argument("--note-again", type=pathlib.Path, metavar="FILE",
                        help="writes to a file what got its second chance, and why; no file when nothing did")
    parser.add_argument("--record", action="store_true", help="writes the log sections anew, to be read")
    parser.add_argument("--verbose", action="store_true", help="tells every scenario's story")
    parser.add_argument("--list", action="store_true", help="lists the scenarios with their titles")
    parser.add_argument("--blocks", action="store_true", help="lists the log lines that have a name")
    parser.add_argument("--check", action="store_true", help="reads the scenarios and plays none")
    parser.add_argument("--logs", type=pathlib.Path, metavar="FOLDER",
                        help="keeps the service's log of every scenario there, in a folder of its name")
    add_prefixes(parser)
    return parser.parse_args()


def scenario_files(names):
    known = {path.stem: path for path in sorted(SCENARIOS.glob("*.txt"))}
    files = []
    for name in names or known:
        if not (path := pathlib.Path(name)).is_file():
            path = known.get(name)
        if path is None:
            raise SystemExit(f"no scenario named {name}, and no such file{near(name, known)}")
        files.append(path)
    return files


def plays(files):
    """Every play of the scenarios: (file, what it adds to the scenario's machine)."""
    return [(path, also) for path in files for also in ("", *read_scenario(path).also)]


def list_scenarios(files):
    for path in files:
        print(f"{path.stem:38} {read_scenario(path).title}")


def list_blocks():
    for block in named_lines():
        name = f"log @{block.name}" if block.has_sections else f"@{block.name}"
        print(f"{name:44} lines/{block.path.name}:{block.number:<4} {block.comment}".rstrip())


def indented(text):
    return textwrap.indent(str(text), "    ")


class Runner:
    """Plays a list of scenarios on several notebooks at once."""

    def __init__(self, options, rounds):
        self._options = options
        self._waiting = queue.SimpleQueue()
        for path, also in rounds:
            self._waiting.put((path, also, options.second_chance))
        self._print = threading.Lock()
        self._machines = []
        self._stopping = False
        self.passed = 0
        self.failed = 0

    def run(self):
        jobs = [threading.Thread(target=self._job) for _ in range(self._options.jobs)]
        for job in jobs:
            job.start()
        try:
            for job in jobs:
                job.join()
        except BaseException:
            self._stop()
            for job in jobs:
                job.join()
            raise
        self.failed += self._waiting.qsize()

    def _stop(self):
        """Lets every job come to its end: what it plays fails, and nothing waits."""
        self._stopping = True
        with contextlib.suppress(queue.Empty):
            while True:
                self._waiting.get_nowait()
        for machine in self._machines:
            machine.abort()

    def _job(self):
        prefix = pathlib.Path(self._options.prefixes) / "notebook"
        try:
            while not self._waiting.empty():
                with Machine(prefix, self._options.programs) as machine:
                    self._machines.append(machine)
                    # After a failure the notebook may be in any state: the next scenario gets a new one.
                    while self._play(machine, *self._waiting.get_nowait()):
                        pass
        except queue.Empty:
            pass
        except Exception:  # A notebook that does not come up: what it did not play has failed.
            with self._print:
                traceback.print_exc()

    def _play(self, machine, path, also, has_second_chance):
        name = f"{path.stem}, {also}" if also else path.stem
        story = []
        failure = None
        try:
            self._play_once(machine, path, also, story)
        except Exception as error:
            failure = error
        if self._stopping:
            return False
        with self._print:
            if failure is None:
                self.passed += 1
            elif has_second_chance:
                self._waiting.put((path, also, False))
                self._note_again(name, failure)
            else:
                self.failed += 1
            outcome = "passed" if failure is None else "again " if has_second_chance else "FAILED"
            print(f"{outcome}  {name}", flush=True)
            if failure or self._options.verbose:
                print(indented("\n".join(story)), flush=True)
            if failure:
                print(indented(failure), flush=True)
        return failure is None

    def _note_again(self, name, failure):
        if self._options.note_again:
            with self._options.note_again.open("a", encoding="utf-8") as notes:
                notes.write(f"again   {name}\n{indented(failure)}\n")

    def _play_once(self, machine, path, also, story):
        scenario = read_scenario(path, also)
        story.append(scenario.title)
        recording = {} if self._options.record else None
        try:
            Player(machine, scenario, story.append, recording).play()
        finally:
            if self._options.logs:
                machine.copy_logs(self._options.logs / path.stem)
        if recording is not None:
            path.write_text(with_recorded_log(path.read_text(encoding="utf-8"), recording),
                            encoding="utf-8")


def main():
    options = arguments()
    leave_by_signals()
    try:
        files = scenario_files(options.scenarios)
        rounds = plays(files) * options.repeat
    except ScenarioError as error:
        raise SystemExit(str(error)) from None
    if options.list:
        list_scenarios(files)
    if options.blocks:
        list_blocks()
    if options.list or options.blocks or options.check:
        return 0
    if options.note_again:
        options.note_again.unlink(missing_ok=True)
    runner = Runner(options, rounds)
    runner.run()
    print(f"{runner.passed} passed, {runner.failed} failed")
    return 1 if runner.failed or not runner.passed else 0


if __name__ == "__main__":
    sys.exit(main())
