#!/usr/bin/env python3
"""Makes small mistakes in src/, one at a time, and says which of them the unit tests do not notice.

The mistakes are listed in tests/robustness/mutation/, one file for each source. A copy of the sources is built in BUILD once, without
optimisation; then one mistake after another is made in the copy, which is built and tested again. A failure, a crash and
a test that does not end in time all count as noticed. The work tree is never written to.

  scripts/mutate.py                          all of them: a quarter of an hour or more
  scripts/mutate.py --only CBufferQueue      those whose source, kind or title has the text
  scripts/mutate.py --sample 6               a few, always the same, each from another source
  scripts/mutate.py --check-list             only whether the list still fits the sources; an instant

An entry of a list is a small patch:

  [comparison] a frame that just fits is refused
  -  if (length > size) {
  +  if (length >= size) {

  [call dropped] stopping twice wakes everybody twice
   void StopLocked() {
  -    if (stopped) {
  +    if (false) {
  survives: nobody waits on a stopped queue.

Lines that begin with a blank have to be there and stay; they are given where a line is not the only one of its kind.
Blanks at both ends of a line do not matter. What takes a line's place is no more lines than that, and lines behind it
keep their numbers, since log messages carry them. Without lines of its own to put there an entry deletes.
"survives:" says why no test can notice it; the run checks that none does. "may survive:" says why it is a matter of luck.

Results: 0 when every mistake was noticed or has a reason to survive; 1 when one survived without, or did not although it
has one, or does not compile; 2 when nothing could be found out.
"""
import argparse
import concurrent.futures
import dataclasses
import fcntl
import os
import pathlib
import queue
import re
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time

sys.dont_write_bytecode = True

from mutant_list import LISTS, Trouble, find_source, read_lists, sample  # noqa: E402
from mutant_report import Outcome, Progress, report, show  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parent.parent
NOT_COPIED = shutil.ignore_patterns("build", "out", ".git", "__pycache__")

# What is built and run, and the library that the first of them loads.
PROGRAMS = ["unit_tests", "defaults_tests"]
LIBRARY = "nuveqcamerahandler_scripted"
RIGHT = "_without_a_mistake"
# The slower of the two parts that the tests are run in: those that take longer than this.
SLOW_TEST_MS = 100
# Waiting for what does not come is waiting for a test's own time-out or for ever: it is cut short.
PATIENCE_S = 15
PATIENCE_FACTOR = 5
BUILD_PATIENCE_S = 900


# --- A copy of the sources ---


@dataclasses.dataclass
class Suite:
    target: str  # to be built before
    program: str
    tests: str  # a filter
    patience: float


class Copy:
    """A copy with its build. One thread's."""

    # Of all copies: the processes that they wait for, and whether that has to end.
    running = set()
    stopping = False
    lock = threading.Lock()

    def __init__(self, folder, processors, options=()):
        self.folder = folder
        self.tree = folder / "tree"
        self.build = folder / "build"
        self.log = folder / "log"
        self.processors = processors
        self.options = options
        self.suites = []

    def lock_folder(self):
        """Keeps other runs out until this process ends."""
        self.folder.mkdir(parents=True, exist_ok=True)
        self.locked = open(self.folder / "lock", "w")
        try:
            fcntl.flock(self.locked, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise Trouble(f"another run is at work in {self.folder}") from None

    def run(self, command, patience):
        """(result or None when it did not end in time, what it wrote)"""
        with open(self.log, "wb") as log, self.lock:
            if self.stopping:
                raise Trouble("stopped")
            process = subprocess.Popen([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=log,
                                       stderr=subprocess.STDOUT, start_new_session=True, cwd=self.folder)
            self.running.add(process)
        try:
            result = process.wait(timeout=patience)
        except subprocess.TimeoutExpired:
            result = None
        finally:
            with self.lock:
                self.running.discard(process)
            kill(process)
        return result, self.log.read_text(errors="replace")

    def must(self, command, patience):
        result, output = self.run(command, patience)
        if result != 0:
            raise Trouble(f"{' '.join(str(part) for part in command[:3])} ... failed:\n{tail(output)}")
        return output

    def compile(self, target):
        return self.run(["cmake", "--build", self.build, "--target", target, "--parallel", self.processors],
                        BUILD_PATIENCE_S)

    def prepare(self):
        """Builds what there is and runs all tests, which have to pass."""
        update(ROOT, self.tree)
        # Tests are compiled together, as in the instrumented builds. Warnings are not what is asked for. Tests are not
        # listed when they are built: a mistake may keep them from starting.
        self.must(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                   f"-DCMAKE_PREFIX_PATH={ROOT / 'build/deps/native'}", "-DCMAKE_CXX_FLAGS=-w", "-DCMAKE_C_FLAGS=-w",
                   "-DCMAKE_UNITY_BUILD=ON", "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0", "-DNUVEQ_INSTRUMENTATION=-O0",
                   "-DNUVEQ_TESTS=library", f"-DCMAKE_PROJECT_INCLUDE={self.tree / LISTS / 'copy.cmake'}",
                   "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST", *self.options],
                  BUILD_PATIENCE_S)
        for program in PROGRAMS:
            result, output = self.compile(program)
            if result != 0:
                raise Trouble(f"{program} does not build:\n{tail(output)}")
        shutil.copy2(self.program(PROGRAMS[0]), self.program(PROGRAMS[0] + RIGHT))
        self.suites = [suite for program in PROGRAMS for suite in self.measure(program)]

    def measure(self, program):
        """The suites of a program: its quick tests, then its slow ones."""
        output = self.must([self.program(program)], BUILD_PATIENCE_S)
        times = {name: int(ms) for name, ms in re.findall(r"^\[       OK \] (\S+?)(?:, .*)? \((\d+) ms\)$", output, re.M)}
        slow = [name for name, ms in times.items() if ms > SLOW_TEST_MS]
        quick_s = sum(ms for name, ms in times.items() if name not in slow) / 1000
        slow_s = sum(times[name] for name in slow) / 1000
        suites = [Suite(program, program, "-" + ":".join(slow), PATIENCE_S + PATIENCE_FACTOR * quick_s)]
        if slow:
            suites.append(Suite(program, program, ":".join(slow), PATIENCE_S + PATIENCE_FACTOR * slow_s))
        return suites

    def program(self, name):
        return self.build / "bin" / name

    def test(self, is_header):
        """What noticed the mistake, or None. Programs are built when they are needed."""
        suites = self.suites
        if is_header:
            # Most of the work is to compile the tests, and most mistakes are noticed by those that load the library:
            # from a program without a mistake.
            suites = [dataclasses.replace(suites[0], target=LIBRARY, program=PROGRAMS[0] + RIGHT), *suites]
        for suite in suites:
            result, output = self.compile(suite.target)
            if result != 0:
                raise Trouble(f"does not compile:\n{tail(output)}")
            command = [self.program(suite.program), "--gtest_fail_fast", f"--gtest_filter={suite.tests}"]
            result, output = self.run(command, suite.patience)
            if result is None:
                # It hangs, or others have the processor.
                result, output = self.run(command, 2 * suite.patience)
            if result != 0:
                return who_noticed(result, output)
        return None

    def try_out(self, mutant):
        file = find_source(self.tree, mutant.source)
        text = file.read_text()
        file.write_text(mutant.apply(text))
        try:
            return self.test(mutant.source.endswith(".h"))
        finally:
            file.write_text(text)


def end(process):
    """Ends the process and what it has started, if it has not ended."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def kill(process):
    end(process)
    process.wait()


def tail(output, lines=15):
    return "\n".join(output.splitlines()[-lines:])


def who_noticed(result, output):
    failed = re.findall(r"^\[  FAILED  \] (\w[^ ,]*)", output, re.M)
    running = re.findall(r"^\[ RUN      \] (\S+)", output, re.M)
    if failed:
        return failed[0]
    test = running[-1] if running else "the start of the tests"
    return f"{test} ({'hangs' if result is None else 'crashes'})"


def update(source, copy):
    """Makes copy like source. Files that are the same stay as they are, so that they are not compiled again."""
    def copy_changed(old, new):
        new = pathlib.Path(new)
        if not new.is_file() or new.read_bytes() != pathlib.Path(old).read_bytes():
            shutil.copyfile(old, new)

    shutil.copytree(source, copy, ignore=NOT_COPIED, copy_function=copy_changed, dirs_exist_ok=True)
    for file in [path for path in copy.rglob("*") if path.is_file() and not (source / path.relative_to(copy)).exists()]:
        file.unlink()


# --- The run ---


def try_all(copies, mutants, progress):
    """The outcomes, in the order of the list. A copy works on its own; the next free one takes the next mutant."""
    # Those of headers take longest. The others follow by source, so that what is put back is compiled together with
    # what comes next.
    waiting = queue.SimpleQueue()
    for mutant in sorted(mutants, key=lambda mutant: not mutant.source.endswith(".h")):
        waiting.put(mutant)
    outcomes = {}

    def work(copy):
        while not Copy.stopping:
            try:
                mutant = waiting.get_nowait()
            except queue.Empty:
                return
            try:
                outcome = Outcome(mutant, copy.try_out(mutant))
            except Trouble as trouble:
                outcome = Outcome(mutant, None, str(trouble))
            outcomes[id(mutant)] = outcome
            progress.tell(outcome)

    in_parallel(work, copies)
    return [outcomes[id(mutant)] for mutant in mutants]


def in_parallel(work, copies):
    with concurrent.futures.ThreadPoolExecutor(len(copies)) as pool:
        try:
            for done in [pool.submit(work, copy) for copy in copies]:
                done.result()
        except BaseException:
            # The threads end with what they wait for.
            with Copy.lock:
                Copy.stopping = True
                for process in Copy.running:
                    end(process)
            raise


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)), metavar="N",
                        help="how many at a time, each in a copy of its own (default: one for each processor)")
    parser.add_argument("--only", metavar="TEXT", action="append", default=[],
                        help="only those that have the text in source, kind or title; may be repeated")
    parser.add_argument("--sample", type=int, metavar="N", help="only so many")
    parser.add_argument("--list", action="store_true", help="show them and do nothing")
    parser.add_argument("--check-list", action="store_true", help="check the list and do nothing else")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/mutation", metavar="FOLDER",
                        help="where the copies are kept for the next run (default: build/mutation)")
    return parser.parse_args()


def main():
    options = arguments()
    mutants = read_lists(ROOT)
    if options.only:
        mutants = [mutant for mutant in mutants if any(text in str(mutant) for text in options.only)]
    if options.sample is not None:
        mutants = sample(mutants, options.sample)
    if options.list or options.check_list:
        if options.list:
            show(mutants, sys.stdout)
        else:
            print(f"{len(mutants)} fit the sources")
        return 0
    if not mutants or options.jobs < 1:
        raise Trouble("nothing to do")
    if not (ROOT / "build/deps/native").is_dir() and (ROOT / "scripts/bootstrap-deps.sh").exists():
        raise Trouble("there is nothing to build with yet; first run\n"
                      "scripts/install-packages.sh native && scripts/bootstrap-deps.sh native")
    begin = time.monotonic()
    # Mistakes crash; nobody looks at what that leaves.
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    # A copy has to be built, which a few are not worth.
    count = min(options.jobs, 1 + len(mutants) // 10)
    copies = [Copy(options.build.resolve() / str(number), options.jobs // count) for number in range(1, count + 1)]
    print(f"building {count} {'copy' if count == 1 else 'copies'} in {options.build}", flush=True)
    for copy in copies:
        copy.lock_folder()
    in_parallel(Copy.prepare, copies)
    print(f"built and tested without a mistake in {time.monotonic() - begin:.0f} s; now {len(mutants)} with one each",
          flush=True)
    good = report(try_all(copies, mutants, Progress(len(mutants), sys.stdout)), sys.stdout)
    print(f"took {(time.monotonic() - begin) / 60:.1f} min")
    return 0 if good else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Trouble as trouble:
        print(trouble, file=sys.stderr)
        sys.exit(2)
    except KeyboardInterrupt:
        sys.exit(130)
