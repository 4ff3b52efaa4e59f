"""That what bench/run starts ends with it, and that failures are told."""

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
from processes import Failed

PATIENCE = 30
# Starts a program of its own, as a build does, and says which.
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
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("it does not happen")
        time.sleep(0.01)


class Programs(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="nuveq-bench-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.pid_file = self.folder / "pid"
        self.script = PARENT.format(self.pid_file)
        self.addCleanup(self.end_what_is_left)

    def end_what_is_left(self):
        # By tests that failed.
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
            self.assertEqual(runner.wait(timeout=PATIENCE), 128 + number)
        finally:
            runner.kill()
            runner.wait()
        self.expect_end()

    def test_end_with_theirs_on_ctrl_c(self):
        self.stop_runner(signal.SIGINT)

    def test_end_with_theirs_on_sigterm(self):
        self.stop_runner(signal.SIGTERM)

    def take_too_long(self, script):
        """Runs it for longer and longer, until it has come to start its program."""
        patience = 0.25
        while not self.pid_file.exists():
            patience *= 2
            self.assertLess(patience, PATIENCE)
            with self.assertRaisesRegex(Failed, f"sh has not ended within {patience} s: sh -c"):
                processes.run(["sh", "-c", script], patience=patience)
        self.expect_end()

    def test_end_with_theirs_when_they_take_too_long(self):
        self.take_too_long(self.script)

    def test_can_end_what_is_in_a_group_of_its_own(self):
        self.take_too_long("trap 'kill $!' TERM; setsid " + self.script)

    def test_end_with_theirs_when_they_fail(self):
        with self.assertRaisesRegex(Failed, "sh answers 4"):
            processes.run(["sh", "-c", self.script.replace("; wait", "; exit 4")])
        self.expect_end()

    def test_that_fail_are_quoted_whole(self):
        with self.assertRaises(Failed) as failure:
            processes.run(["sh", "-c", "printf 'on %s' output; printf 'on %s' error >&2; exit 3"])
        for words in ("sh answers 3", "on output", "on error", "The command was: sh -c"):
            self.assertIn(words, str(failure.exception))

    def test_that_crash_are_said_to(self):
        with self.assertRaisesRegex(Failed, "SIGSEGV"):
            processes.run(["sh", "-c", "kill -SEGV $$"])

    def test_that_crash_while_they_are_measured_are_said_to_as_well(self):
        with self.assertRaisesRegex(Failed, "encoder was ended by SIGSEGV"):
            processes.run([os.environ["MEASURED"], self.folder / "figures", "sh", "-c", "kill -SEGV $$"],
                          name="encoder")

    def test_that_fail_while_they_are_measured_answer_the_same(self):
        with self.assertRaisesRegex(Failed, "encoder answers 7"):
            processes.run([os.environ["MEASURED"], self.folder / "figures", "sh", "-c", "exit 7"], name="encoder")

    def test_that_are_not_there_are_said_to_be_missing(self):
        with self.assertRaisesRegex(Failed, "nowhere-to-be-found cannot be started"):
            processes.run(["nowhere-to-be-found"])

    def test_answer_with_both_their_outputs(self):
        self.assertEqual(processes.run(["sh", "-c", "echo out; echo err >&2"]), ("out\n", "err\n"))


class BuildFolders(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="nuveq-bench-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def test_without_optimisation_are_refused(self):
        for line in ("CMAKE_BUILD_TYPE:STRING=Debug", "CMAKE_BUILD_TYPE:STRING=", ""):
            (self.folder / "CMakeCache.txt").write_text(f"OTHER:STRING=Release\n{line}\n")
            with self.assertRaisesRegex(Failed, "not optimised"):
                machine.check_configured(self.folder)

    def test_of_nothing_are_refused(self):
        with self.assertRaisesRegex(Failed, "cmake --preset native"):
            machine.check_configured(self.folder)

    def test_with_optimisation_are_taken(self):
        (self.folder / "CMakeCache.txt").write_text("CMAKE_BUILD_TYPE:STRING=RelWithDebInfo\n")
        machine.check_configured(self.folder)


class Figures(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="nuveq-bench-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        # Stands for the real one, whose place it takes.
        self.line = "240000 60000 3000000 20480"

    def figures(self, frames):
        measured = self.folder / "measured"
        measured.write_text(f'#!/bin/sh\necho "{self.line}" >"$1"\n')
        measured.chmod(0o755)
        return measure.run(self.folder, ["encoder"], self.folder, frames)

    def test_are_by_the_frame_in_their_units(self):
        expected = {"user_ms": 1.0, "system_ms": 0.25, "cpu_ms": 1.25, "frames_per_second": 80.0, "peak_mib": 20.0}
        figures = self.figures(240)
        self.assertEqual(figures.keys(), expected.keys())
        for name, value in expected.items():
            self.assertAlmostEqual(figures[name], value, msg=name)

    def test_that_are_missing_are_a_failure(self):
        self.line = ""
        with self.assertRaisesRegex(Failed, "no figures of encoder"):
            self.figures(240)

    def test_have_medians_each_of_its_own(self):
        runs = [{"a": 3, "b": 1}, {"a": 1, "b": 2}, {"a": 2, "b": 9}]
        self.assertEqual(measure.medians(runs), {"a": 2, "b": 2})

    def test_faster_than_a_camera_are_no_pace(self):
        measure.require_pace({"frames_per_second": 30.1}, ["encoder"], 30, 240)
        measure.require_pace({"frames_per_second": 25}, ["encoder"], 30, 240)
        with self.assertRaisesRegex(Failed, "no pace"):
            measure.require_pace({"frames_per_second": 31}, ["encoder"], 30, 240)


if __name__ == "__main__":
    unittest.main()
