#!/usr/bin/env python3
"""Mutation testing: applies small mutations to src/, one at a time, and reports those that no unit test notices.

The mutations are listed in tests/robustness/mutation/, one file per source. The script builds a copy of the sources in
build/mutation without optimisation. It applies each mutation to the copy, rebuilds it and runs the tests. A failure, a
crash and a timeout count as noticed. The work tree is not modified.

  scripts/mutate.py                          run all mutations (15 minutes or more)
  scripts/mutate.py --only CBufferQueue      run those with this text in source, kind or title
  scripts/mutate.py --sample 6               run a fixed selection from different sources
  scripts/mutate.py --check-list             only check that the lists match the sources

An entry of a list is a small patch:

  [comparison] a frame that just fits is refused
  -  if (length > size) {
  +  if (length >= size) {

  [call dropped] stopping twice wakes everybody twice
   void StopLocked() {
  -    if (stopped) {
  +    if (false) {
  survives: nobody waits on a stopped queue.

Lines that start with a blank are context: they must exist and stay unchanged, and make the match unique. Leading and
trailing blanks are ignored. An entry must not insert more lines than it removes, because log messages contain line
numbers; blank lines replace removed lines. An entry without "+" lines deletes lines.
"survives:" states why no test can notice the mutation; the run fails if one does. "may survive:" states why the result
is not deterministic.

Exit codes: 0 if every mutation was noticed or survived as expected; 1 if a mutation survived without a reason, was
noticed despite a reason, or does not compile; 2 on other errors.
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

# The test programs, and the library that the first of them loads.
PROGRAMS = ["unit_tests", "defaults_tests"]
LIBRARY = "nuveqcamerahandler_scripted"
UNMUTATED = "_unmutated"
# Tests that take longer run after the other tests.
SLOW_TEST_MS = 100
# Timeout of a test run: PATIENCE_S + TIMEOUT_FACTOR times the duration without a mutation.
PATIENCE_S = 15
TIMEOUT_FACTOR = 5
BUILD_TIMEOUT_S = 900


# --- A copy of the sources ---


@dataclasses.dataclass
class Suite:
    target: str  # CMake target to build first
    program: str
    tests: str  # GoogleTest filter
    timeout: float  # seconds


class Copy:
    """A copy of the sources with its build folder. Used by one thread."""

    # Shared by all copies: the running child processes, and whether the run is being cancelled.
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
        """Locks the folder until this process exits."""
        self.folder.mkdir(parents=True, exist_ok=True)
        self.locked = open(self.folder / "lock", "w")
        try:
            fcntl.flock(self.locked, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise Trouble(f"another run is using {self.folder}") from None

    def run(self, command, timeout):
        """Runs a command. Returns its exit code (None after a timeout) and its output."""
        with open(self.log, "wb") as log, self.lock:
            if self.stopping:
                raise Trouble("cancelled")
            process = subprocess.Popen([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=log,
                                       stderr=subprocess.STDOUT, start_new_session=True, cwd=self.folder)
            self.running.add(process)
        try:
            result = process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            result = None
        finally:
            with self.lock:
                self.running.discard(process)
            kill(process)
        return result, self.log.read_text(errors="replace")

    def run_checked(self, command, timeout):
        """Runs a command and returns its output. Raises Trouble if the command fails."""
        result, output = self.run(command, timeout)
        if result != 0:
            raise Trouble(f"{' '.join(str(part) for part in command[:3])} ... failed:\n{tail(output)}")
        return output

    def compile(self, target):
        return self.run(["cmake", "--build", self.build, "--target", target, "--parallel", self.processors],
                        BUILD_TIMEOUT_S)

    def prepare(self):
        """Builds the unmodified copy and runs all tests, which must pass."""
        update(ROOT, self.tree)
        # Unity builds, as in the instrumented presets. Warnings are off. Tests are not discovered during the build,
        # because a mutation may prevent them from starting.
        self.run_checked(
            ["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
             f"-DCMAKE_PREFIX_PATH={ROOT / 'build/deps/native'}", "-DCMAKE_CXX_FLAGS=-w", "-DCMAKE_C_FLAGS=-w",
             "-DCMAKE_UNITY_BUILD=ON", "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0", "-DNUVEQ_INSTRUMENTATION=-O0",
             "-DNUVEQ_TESTS=library", f"-DCMAKE_PROJECT_INCLUDE={self.tree / LISTS / 'copy.cmake'}",
             "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST", *self.options],
            BUILD_TIMEOUT_S)
        for program in PROGRAMS:
            result, output = self.compile(program)
            if result != 0:
                raise Trouble(f"{program} does not build:\n{tail(output)}")
        shutil.copy2(self.program(PROGRAMS[0]), self.program(PROGRAMS[0] + UNMUTATED))
        self.suites = [suite for program in PROGRAMS for suite in self.measure(program)]

    def measure(self, program):
        """Returns the suites of a program: the quick tests first, then the slow ones."""
        output = self.run_checked([self.program(program)], BUILD_TIMEOUT_S)
        passed = re.findall(r"^\[       OK \] (\S+?)(?:, .*)? \((\d+) ms\)$", output, re.M)
        times = {name: int(ms) for name, ms in passed}
        slow = [name for name, ms in times.items() if ms > SLOW_TEST_MS]
        quick_s = sum(ms for name, ms in times.items() if name not in slow) / 1000
        slow_s = sum(times[name] for name in slow) / 1000
        suites = [Suite(program, program, "-" + ":".join(slow), PATIENCE_S + TIMEOUT_FACTOR * quick_s)]
        if slow:
            suites.append(Suite(program, program, ":".join(slow), PATIENCE_S + TIMEOUT_FACTOR * slow_s))
        return suites

    def program(self, name):
        return self.build / "bin" / name

    def test(self, is_header):
        """Returns the name of the test that noticed the mutation, or None. Builds each program before it runs."""
        suites = self.suites
        if is_header:
            # Compiling the tests takes most of the time, and the tests that load the library notice most mutations.
            # So these run first, in a program that was built without the mutation.
            suites = [dataclasses.replace(suites[0], target=LIBRARY, program=PROGRAMS[0] + UNMUTATED), *suites]
        for suite in suites:
            result, output = self.compile(suite.target)
            if result != 0:
                raise Trouble(f"does not compile:\n{tail(output)}")
            command = [self.program(suite.program), "--gtest_fail_fast", f"--gtest_filter={suite.tests}"]
            result, output = self.run(command, suite.timeout)
            if result is None:
                # Distinguishes a hang from a loaded machine.
                result, output = self.run(command, 2 * suite.timeout)
            if result != 0:
                return who_noticed(result, output)
        return None

    def test_mutant(self, mutant):
        file = find_source(self.tree, mutant.source)
        text = file.read_text()
        file.write_text(mutant.apply(text))
        try:
            return self.test(mutant.source.endswith(".h"))
        finally:
            file.write_text(text)


def kill_group(process):
    """Kills the process group of a process, if it still exists."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def kill(process):
    kill_group(process)
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
    """Synchronizes the copy with the source. Unchanged files keep their time stamps, so that they are not rebuilt."""
    def copy_changed(old, new):
        new = pathlib.Path(new)
        if not new.is_file() or new.read_bytes() != pathlib.Path(old).read_bytes():
            shutil.copyfile(old, new)

    shutil.copytree(source, copy, ignore=NOT_COPIED, copy_function=copy_changed, dirs_exist_ok=True)
    for file in [path for path in copy.rglob("*") if path.is_file() and not (source / path.relative_to(copy)).exists()]:
        file.unlink()


# --- The run ---


def test_all(copies, mutants, progress):
    """Runs all mutants, distributed over the copies. Returns the outcomes in the order of the list."""
    # Headers first, because they take longest. The others are ordered by source, so that restoring a source and
    # applying its next mutation need only one compilation.
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
                outcome = Outcome(mutant, copy.test_mutant(mutant))
            except Trouble as trouble:
                outcome = Outcome(mutant, None, str(trouble))
            outcomes[id(mutant)] = outcome
            progress.print_outcome(outcome)

    in_parallel(work, copies)
    return [outcomes[id(mutant)] for mutant in mutants]


def in_parallel(work, copies):
    with concurrent.futures.ThreadPoolExecutor(len(copies)) as pool:
        try:
            for done in [pool.submit(work, copy) for copy in copies]:
                done.result()
        except BaseException:
            # Ends the child processes, for which the threads wait.
            with Copy.lock:
                Copy.stopping = True
                for process in Copy.running:
                    kill_group(process)
            raise


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)), metavar="N",
                        help="number of copies that run in parallel (default: number of processors)")
    parser.add_argument("--only", metavar="TEXT", action="append", default=[],
                        help="run only mutations with this text in source, kind or title; may be repeated")
    parser.add_argument("--sample", type=int, metavar="N", help="run only N mutations")
    parser.add_argument("--list", action="store_true", help="list the mutations and exit")
    parser.add_argument("--check-list", action="store_true", help="check that the lists match the sources and exit")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/mutation", metavar="FOLDER",
                        help="folder of the copies, which the next run reuses (default: build/mutation)")
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
        raise Trouble("build/deps/native is missing; first run\n"
                      "scripts/install-packages.sh native && scripts/bootstrap-deps.sh native")
    begin = time.monotonic()
    # No core dumps: many mutations crash the tests.
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    # Building a copy does not pay off for a few mutations.
    count = min(options.jobs, 1 + len(mutants) // 10)
    copies = [Copy(options.build.resolve() / str(number), options.jobs // count) for number in range(1, count + 1)]
    print(f"building {count} {'copy' if count == 1 else 'copies'} in {options.build}", flush=True)
    for copy in copies:
        copy.lock_folder()
    in_parallel(Copy.prepare, copies)
    print(f"built and tested without mutations in {time.monotonic() - begin:.0f} s; testing {len(mutants)} mutations",
          flush=True)
    good = report(test_all(copies, mutants, Progress(len(mutants), sys.stdout)), sys.stdout)
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
