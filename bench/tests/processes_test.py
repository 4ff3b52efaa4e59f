"""Tests that child processes of bench/compare_encoders are terminated and that failures are reported."""

import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

import machine
import measure
import processes
from processes import BenchError

TIMEOUT = 30
# Starts a background process, like a build, and writes its process id to a file.
PARENT = "sleep 600 & echo $! >{0}.part; mv {0}.part {0}; wait"
RUNNER = """
import sys, processes
processes.stop_on_signals()
try:
    processes.run(["sh", "-c", sys.argv[1]])
except processes.Stopped as stopped:
    sys.exit(128 + stopped.number)
"""


def is_running(pid):
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def wait_until(condition):
    end = time.monotonic() + TIMEOUT
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("timeout")
        time.sleep(0.01)


class ChildProcesses(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="nuveq-bench-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.pid_file = self.folder / "pid"
        self.script = PARENT.format(self.pid_file)
        self.addCleanup(self.kill_leftover)

    def kill_leftover(self):
        # Left over if a test failed.
        if self.pid_file.exists():
            pid = int(self.pid_file.read_text())
            if is_running(pid):
                os.kill(pid, signal.SIGKILL)

    def expect_end(self):
        pid = int(self.pid_file.read_text())
        wait_until(lambda: not is_running(pid))

    def stop_runner(self, number):
        runner = subprocess.Popen([sys.executable, "-B", "-c", RUNNER, self.script], stdin=subprocess.DEVNULL)
        try:
            wait_until(self.pid_file.exists)
            runner.send_signal(number)
            self.assertEqual(runner.wait(timeout=TIMEOUT), 128 + number)
        finally:
            runner.kill()
            runner.wait()
        self.expect_end()

    def test_are_terminated_with_descendants_on_sigint(self):
        self.stop_runner(signal.SIGINT)

    def test_are_terminated_with_descendants_on_sigterm(self):
        self.stop_runner(signal.SIGTERM)

    def exceed_timeout(self, script):
        """Increases the timeout until the script has started its background process."""
        timeout = 0.25
        while not self.pid_file.exists():
            timeout *= 2
            self.assertLess(timeout, TIMEOUT)
            with self.assertRaisesRegex(BenchError, f"sh did not finish within {timeout} s: sh -c"):
                processes.run(["sh", "-c", script], timeout=timeout)
        self.expect_end()

    def test_are_terminated_with_descendants_on_timeout(self):
        self.exceed_timeout(self.script)

    def test_can_terminate_descendants_in_other_groups(self):
        self.exceed_timeout("trap 'kill $!' TERM; setsid " + self.script)

    def test_that_fail_leave_no_descendants(self):
        with self.assertRaisesRegex(BenchError, "sh exited with status 4"):
            processes.run(["sh", "-c", self.script.replace("; wait", "; exit 4")])
        self.expect_end()

    def test_that_fail_are_reported_with_their_output(self):
        with self.assertRaises(BenchError) as failure:
            processes.run(["sh", "-c", "printf 'on %s' output; printf 'on %s' error >&2; exit 3"])
        for text in ("sh exited with status 3", "on output", "on error", "The command was: sh -c"):
            self.assertIn(text, str(failure.exception))

    def test_that_crash_are_reported(self):
        with self.assertRaisesRegex(BenchError, "SIGSEGV"):
            processes.run(["sh", "-c", "kill -SEGV $$"])

    def test_that_crash_while_measured_are_reported(self):
        with self.assertRaisesRegex(BenchError, "encoder was terminated by SIGSEGV"):
            processes.run([os.environ["RESOURCE_USAGE"], self.folder / "figures", "sh", "-c", "kill -SEGV $$"],
                          name="encoder")

    def test_that_fail_while_measured_keep_their_exit_status(self):
        with self.assertRaisesRegex(BenchError, "encoder exited with status 7"):
            processes.run([os.environ["RESOURCE_USAGE"], self.folder / "figures", "sh", "-c", "exit 7"], name="encoder")

    def test_that_do_not_exist_are_reported(self):
        with self.assertRaisesRegex(BenchError, "nowhere-to-be-found cannot be started"):
            processes.run(["nowhere-to-be-found"])

    def test_return_standard_output_and_standard_error(self):
        self.assertEqual(processes.run(["sh", "-c", "echo out; echo err >&2"]), ("out\n", "err\n"))


class BuildFolders(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="nuveq-bench-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def test_without_optimisation_are_rejected(self):
        for line in ("CMAKE_BUILD_TYPE:STRING=Debug", "CMAKE_BUILD_TYPE:STRING=", ""):
            (self.folder / "CMakeCache.txt").write_text(f"OTHER:STRING=Release\n{line}\n")
            with self.assertRaisesRegex(BenchError, "not optimised"):
                machine.check_configured(self.folder)

    def test_without_configuration_are_rejected(self):
        with self.assertRaisesRegex(BenchError, "cmake --preset native"):
            machine.check_configured(self.folder)

    def test_with_optimisation_are_accepted(self):
        (self.folder / "CMakeCache.txt").write_text("CMAKE_BUILD_TYPE:STRING=RelWithDebInfo\n")
        machine.check_configured(self.folder)


class Measurements(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="nuveq-bench-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        # Output of the fake resource_usage.
        self.line = "240000 60000 3000000 20480"

    def figures(self, frames):
        fake = self.folder / "resource_usage"
        fake.write_text(f'#!/bin/sh\necho "{self.line}" >"$1"\n')
        fake.chmod(0o755)
        return measure.run(self.folder, ["encoder"], self.folder, frames)

    def test_are_converted_to_values_per_frame(self):
        expected = {"user_ms": 1.0, "system_ms": 0.25, "cpu_ms": 1.25, "frames_per_second": 80.0, "peak_mib": 20.0}
        figures = self.figures(240)
        self.assertEqual(figures.keys(), expected.keys())
        for name, value in expected.items():
            self.assertAlmostEqual(figures[name], value, msg=name)

    def test_that_are_missing_are_reported(self):
        self.line = ""
        with self.assertRaisesRegex(BenchError, "no resource usage of encoder"):
            self.figures(240)

    def test_have_a_median_for_each_value(self):
        runs = [{"a": 3, "b": 1}, {"a": 1, "b": 2}, {"a": 2, "b": 9}]
        self.assertEqual(measure.medians(runs), {"a": 2, "b": 2})

    def test_faster_than_real_time_are_rejected(self):
        measure.require_real_time({"frames_per_second": 30.1}, ["encoder"], 30, 240)
        measure.require_real_time({"frames_per_second": 25}, ["encoder"], 30, 240)
        with self.assertRaisesRegex(BenchError, "not real time"):
            measure.require_real_time({"frames_per_second": 31}, ["encoder"], 30, 240)


if __name__ == "__main__":
    unittest.main()
