"""Child processes of the comparisons are terminated, failures are reported, and figures are converted."""

import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest

import machine
import measure
import processes
from processes import BenchError

TIMEOUT = 30
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
        assert time.monotonic() < end, "timeout"
        time.sleep(0.01)


class Background:
    """A shell script that starts a background process, like a build, and writes its process id to a file."""

    def __init__(self, folder):
        self.file = folder / "pid"
        self.script = f"sleep 600 & echo $! >{self.file}.part; mv {self.file}.part {self.file}; wait"

    def is_running(self):
        return self.file.exists() and is_running(int(self.file.read_text()))


@pytest.fixture
def background(tmp_path):
    background = Background(tmp_path)
    yield background
    if background.is_running():
        os.kill(int(background.file.read_text()), signal.SIGKILL)
        pytest.fail("the background process has not been terminated")


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_signal_terminates_descendants(background, number):
    runner = subprocess.Popen([sys.executable, "-B", "-c", RUNNER, background.script], stdin=subprocess.DEVNULL)
    try:
        wait_until(background.file.exists)
        runner.send_signal(number)
        assert runner.wait(timeout=TIMEOUT) == 128 + number
    finally:
        runner.kill()
        runner.wait()
    wait_until(lambda: not background.is_running())


@pytest.mark.parametrize("prefix", ["", "trap 'kill $!' TERM; setsid "], ids=["", "in other groups"])
def test_timeout_terminates_descendants(background, prefix):
    timeout = 0.25
    while not background.file.exists():
        timeout *= 2
        assert timeout < TIMEOUT
        with pytest.raises(BenchError, match=f"sh did not finish within {timeout} s: sh -c"):
            processes.run(["sh", "-c", prefix + background.script], timeout=timeout)
    wait_until(lambda: not background.is_running())


def test_end_of_the_context_terminates_descendants(background, tmp_path):
    log = tmp_path / "log"
    with processes.background(["sh", "-c", f"echo started; {background.script}"], log=log):
        wait_until(background.is_running)
    wait_until(lambda: not background.is_running())
    assert log.read_text() == "started\n"


@pytest.mark.parametrize("content", ["", "/autogroup-1 nice 0\n", None])
def test_background_process_runs_without_a_priority_to_inherit(monkeypatch, tmp_path, content):
    autogroup = tmp_path / "autogroup"
    if content is not None:
        autogroup.write_text(content)
    monkeypatch.setattr(processes, "_AUTOGROUP", autogroup)
    with processes.background(["true"]) as process:
        assert process.wait(timeout=TIMEOUT) == 0


def test_failure_terminates_descendants(background):
    with pytest.raises(BenchError, match="sh exited with status 4"):
        processes.run(["sh", "-c", background.script.replace("; wait", "; exit 4")])
    wait_until(lambda: not background.is_running())


MEASURED = [os.environ["RESOURCE_USAGE"], "/dev/null", "sh", "-c"]


@pytest.mark.parametrize("command, texts", [
    (["sh", "-c", "printf 'on %s' output; printf 'on %s' error >&2; exit 3"],
     ["encoder exited with status 3", "on output", "on error", "The command was: sh -c"]),
    (["sh", "-c", "kill -SEGV $$"], ["encoder was terminated by SIGSEGV"]),
    ([*MEASURED, "kill -SEGV $$"], ["encoder was terminated by SIGSEGV"]),
    ([*MEASURED, "exit 7"], ["encoder exited with status 7"]),
    (["nowhere-to-be-found"], ["encoder cannot be started"])])
def test_failure_is_reported(command, texts):
    with pytest.raises(BenchError) as failure:
        processes.run(command, name="encoder")
    for text in texts:
        assert text in str(failure.value)


def test_standard_output_and_standard_error_are_returned():
    assert processes.run(["sh", "-c", "echo out; echo err >&2"]) == ("out\n", "err\n")


@pytest.mark.parametrize("line", ["CMAKE_BUILD_TYPE:STRING=Debug", "CMAKE_BUILD_TYPE:STRING=", ""])
def test_build_without_optimisation_is_rejected(tmp_path, line):
    (tmp_path / "CMakeCache.txt").write_text(f"OTHER:STRING=Release\n{line}\n")
    with pytest.raises(BenchError, match="not optimised"):
        machine.check_configured(tmp_path)


def test_build_with_optimisation_is_accepted(tmp_path):
    (tmp_path / "CMakeCache.txt").write_text("CMAKE_BUILD_TYPE:STRING=RelWithDebInfo\n")
    machine.check_configured(tmp_path)


def figures(folder, line, frames):
    """The figures of a run with a fake resource_usage that writes the line."""
    fake = folder / "resource_usage"
    fake.write_text(f'#!/bin/sh\necho "{line}" >"$1"\n')
    fake.chmod(0o755)
    return measure.run(folder, ["encoder"], folder, frames)


def test_figures_are_converted_to_values_per_frame(tmp_path):
    assert figures(tmp_path, "240000 60000 3000000 20480", 240) == pytest.approx(
        {"user_ms": 1.0, "system_ms": 0.25, "cpu_ms": 1.25, "frames_per_second": 80.0, "peak_mib": 20.0})


def test_missing_figures_are_reported(tmp_path):
    with pytest.raises(BenchError, match="no resource usage of encoder"):
        figures(tmp_path, "", 240)


def test_median_of_each_figure_is_computed():
    assert measure.medians([{"a": 3, "b": 1}, {"a": 1, "b": 2}, {"a": 2, "b": 9}]) == {"a": 2, "b": 2}
