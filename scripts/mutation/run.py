"""Runs tests with one mutant active."""
import dataclasses
import os
import pathlib
import re
import resource
import signal
import subprocess
import tempfile
import threading
import time

from .errors import MutationError

# Tests that take longer run on their own, after the others.
QUICK_S = 0.1
# The quick tests run in groups of about this duration, so that a hang is soon detected.
GROUP_S = 0.4
# A process hangs if it has used no CPU time for a while, or far more CPU time than the tests usually take. Elapsed time
# means little on a busy machine.
IDLE_S = 2.5
IDLE_FACTOR = 2
CPU_S = 2
CPU_FACTOR = 6
# Some CPU time is used for waiting in intervals.
IDLE_SHARE = 0.03
ELAPSED_LIMIT_S = 120
# A folder in memory, if there is one: many tests create small files.
FOLDERS = "/dev/shm" if os.access("/dev/shm", os.W_OK | os.X_OK) else None
TRACE_S = 30  # for a test whose duration is not known yet
MEMORY_LIMIT = 8 << 30
FILE_LIMIT = 64 << 20


@dataclasses.dataclass(frozen=True)
class Test:
    program: str
    name: str
    seconds: float


class Runner:
    """Runs test programs. Thread-safe."""

    def __init__(self, programs):
        self.programs = programs  # name -> path
        self.lock = threading.Lock()
        self.running = set()
        self.is_cancelled = False

    def cancel(self):
        with self.lock:
            self.is_cancelled = True
            for process in self.running:
                kill_group(process)

    def run(self, program, tests, usual_s, variables):
        """Runs tests in one process until one fails. Returns its exit code, None if it hangs, and its output."""
        with tempfile.TemporaryDirectory(prefix="nuveq-mutant-", dir=FOLDERS) as folder:
            flags = pathlib.Path(folder) / "flags"
            flags.write_text(f"--gtest_filter={':'.join(tests)}\n")
            log_file = pathlib.Path(folder) / "log"
            with open(log_file, "wb") as log, self.lock:
                if self.is_cancelled:
                    raise MutationError("cancelled")
                process = subprocess.Popen([self.programs[program], "--gtest_fail_fast", f"--gtest_flagfile={flags}"],
                                           stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT, cwd=folder,
                                           env={**os.environ, "TMPDIR": folder, **variables}, start_new_session=True,
                                           preexec_fn=limit_resources)
                self.running.add(process)
            try:
                result = wait(process, usual_s)
            finally:
                with self.lock:
                    self.running.discard(process)
                kill_group(process)
                process.wait()
            return result, log_file.read_text(errors="replace")


def limit_resources():
    # No core dumps: many mutants crash.
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_LIMIT, FILE_LIMIT))


def kill_group(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def cpu_seconds(process):
    """The CPU time of a process and of its children that have ended."""
    try:
        fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    except OSError:
        return 0.0
    return sum(int(ticks) for ticks in fields[11:15]) / os.sysconf("SC_CLK_TCK")


def wait(process, usual_s):
    """Returns the exit code of the process, or None if it hangs."""
    idle_limit = IDLE_S + IDLE_FACTOR * usual_s
    cpu_limit = CPU_S + CPU_FACTOR * usual_s
    elapsed_limit = time.monotonic() + ELAPSED_LIMIT_S + IDLE_FACTOR * usual_s
    while time.monotonic() < elapsed_limit:
        before = cpu_seconds(process)
        try:
            return process.wait(timeout=idle_limit)
        except subprocess.TimeoutExpired:
            used = cpu_seconds(process)
            if used - before < IDLE_SHARE * idle_limit or used > cpu_limit:
                return None
    return None


def list_tests(path):
    try:
        listed = subprocess.run([path, "--gtest_list_tests"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                                timeout=60, check=True).stdout
    except subprocess.SubprocessError as error:
        raise MutationError(f"cannot list the tests of {path}: {error}") from error
    suite = ""
    for line in listed.splitlines():
        name = line.partition("#")[0].strip()
        if not line.startswith(" "):
            suite = name
        elif name:
            yield suite + name


def trace(runner, program, name, mutant_count):
    """Runs a test without a mutant. Returns the test and the numbers of the mutants that it reaches."""
    with tempfile.NamedTemporaryFile(prefix="nuveq-reached-") as map_file:
        map_file.truncate(max(mutant_count, 1))
        result, output = runner.run(program, [name], TRACE_S, {"NUVEQ_REACHED_MUTANTS": map_file.name})
        if result != 0:
            raise MutationError(f"{program} {name} fails without a mutant:\n{output[-2000:]}")
        passed = re.search(r"^\[       OK \] .* \((\d+) ms\)$", output, re.M)
        if passed is None:
            return None  # skipped
        reached = pathlib.Path(map_file.name).read_bytes()
    return Test(program, name, int(passed[1]) / 1000), [number for number, byte in enumerate(reached) if byte]


def groups(tests):
    """Divides tests into groups that run in one process each, the quickest first."""
    quick = sorted((test for test in tests if test.seconds <= QUICK_S), key=lambda test: (test.program, test.seconds))
    group, duration = [], 0.0
    result = []
    for test in quick:
        if group and (group[0].program != test.program or duration + test.seconds > GROUP_S):
            result.append(group)
            group, duration = [], 0.0
        group.append(test)
        duration += test.seconds
    result += [group] if group else []
    result.sort(key=lambda group: sum(test.seconds for test in group) / len(group))
    return result + [[test] for test in sorted(tests, key=lambda test: test.seconds) if test.seconds > QUICK_S]


def killing_test(runner, mutant, tests):
    """Returns the test that kills the mutant, or None."""
    variables = {"NUVEQ_ACTIVE_MUTANT": str(mutant.number)}
    for group in groups(tests):
        result, output = runner.run(group[0].program, [test.name for test in group],
                                    sum(test.seconds for test in group), variables)
        if result != 0:
            return describe(result, output)
    return None


def describe(result, output):
    failed = re.findall(r"^\[  FAILED  \] (\w[^ ,]*)", output, re.M)
    if failed and result is not None:
        return failed[0]
    running = re.findall(r"^\[ RUN      \] (\S+)", output, re.M)
    return f"{running[-1] if running else 'the start'} ({'hangs' if result is None else 'crashes'})"
