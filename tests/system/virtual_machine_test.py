"""Tests of topology_test.py with fake programs: every failure of the virtual machine is reported.

Environment: KERNEL_FOLDER is the output folder of scripts/fetch-kernel.sh.
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

from virtual_machine import QemuUnavailable, require_qemu

COMMAND = [sys.executable, "-B", "-m", "pytest", "-s", "--no-header",
           f"{Path(__file__).parent}/topology_test.py::test_undeclared"]
KERNEL = Path(os.environ["KERNEL_FOLDER"])
DID_NOT_RUN = 77

# Exits on SIGTERM and when QEMU closes the socket, as the real camera does.
CAMERA = """#!/usr/bin/env python3
import signal, socket, sys, time
signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
line = socket.socket(socket.AF_UNIX)
line.connect(sys.argv[sys.argv.index("--socket") + 1])
print("ready", flush=True)
while line.recv(4096):
    pass
"""
TESTS = "#!/bin/sh\necho the tests ran\n"
TOOL = "#!/bin/sh\necho not JSON\nexit 3\n"


def processes_with(text):
    """The command lines of all processes that contain the text."""
    lines = []
    for path in Path("/proc").glob("[0-9]*/cmdline"):
        try:
            lines.append(path.read_text(errors="replace"))
        except OSError:
            pass  # the process has exited
    return [line for line in lines if text in line]


class Runner:
    """Runs a topology with programs in the folder scratch."""

    def __init__(self, scratch):
        self.folder = scratch
        for name, text in (("uvc_camera", CAMERA), ("kernel_tests", TESTS), ("nuveqcam", TOOL)):
            self.write_program(name, text)

    def write_program(self, name, text):
        (self.folder / name).write_text(text)
        (self.folder / name).chmod(0o755)

    def environment(self, **variables):
        """The variables of topology_test.py."""
        return {**os.environ, "KERNEL_BIN": str(self.folder), "KERNEL_CAMERA_TIMEOUT": "0", **variables}

    def run(self, code=1, **variables):
        """Checks the exit code and returns the output."""
        result = subprocess.run(COMMAND, env=self.environment(**variables), stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=280)
        output = result.stdout.decode(errors="replace")
        assert result.returncode == code, output
        return output


@pytest.fixture
def runner(scratch):
    try:
        require_qemu()
    except QemuUnavailable as reason:
        pytest.skip(str(reason))
    return Runner(scratch)


def test_kernel_panic_fails_with_the_end_of_the_console(runner):
    output = runner.run(KERNEL_APPEND="rdinit=/nothing")
    assert "the kernel did not boot; QEMU exited with 0; the end of the console:" in output
    assert "Kernel panic" in output.split("the end of the console:")[1]


def test_boot_timeout_fails_after_one_retry(runner):
    first, second = runner.run(KERNEL_BOOT_TIMEOUT="0.01").split("retrying:")
    for output in (first, second):
        assert "the kernel does not boot (waited 0.01 s); the end of the console:" in output


def test_invalid_kernel_image_fails(runner):
    kernel = runner.folder / "kernel"
    shutil.copytree(KERNEL, kernel)
    (kernel / "vmlinux").write_text("not a kernel")
    output = runner.run(KERNEL_FOLDER=str(kernel))
    assert re.search("(QEMU did not start|the kernel did not boot); QEMU exited with 1;", output)


def test_missing_kernel_fails(runner):
    assert "fetch the kernel with scripts/fetch-kernel.sh" in runner.run(KERNEL_FOLDER=str(runner.folder / "nowhere"))


POWERED_OFF = "the guest powered off before it had finished; QEMU exited with 0;"


@pytest.mark.parametrize("name, commands, reports", [
    ("uvc_camera", "exit 4", ["the camera first did not start; it exited with 4"]),
    ("kernel_tests", "kill -SEGV $$", ["only, tests: exits with 139", "only, nuveqcam list: not JSON"]),
    # A loop of builtins, because it has to keep running until the power-off, after the file systems are gone.
    ("kernel_tests", "echo o >/proc/sysrq-trigger; while :; do :; done", [POWERED_OFF])])
def test_failure_of_a_program_fails_with_its_cause(runner, name, commands, reports):
    runner.write_program(name, f"#!/bin/sh\n{commands}\n")
    output = runner.run()
    for report in reports:
        assert report in output


def test_terminated_run_leaves_no_files_and_no_processes(runner):
    temporary = runner.folder / "temporary"
    temporary.mkdir()
    runner.write_program("kernel_tests", "#!/bin/sh\necho working\nsleep 100\n")
    with subprocess.Popen(COMMAND, env=runner.environment(TMPDIR=str(temporary)), text=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE) as process:
        while "working" not in (line := process.stdout.readline()):
            assert line, "the runner exited"
        process.terminate()
        assert process.wait(60) == 1
    assert list(temporary.iterdir()) == []
    assert processes_with(str(temporary)) == []


def test_run_without_qemu_is_skipped(runner):
    output = runner.run(code=DID_NOT_RUN, PATH=str(runner.folder))
    assert "DID NOT RUN: qemu-system-x86_64 is not installed" in output


def test_run_with_unusable_qemu_is_skipped(runner):
    runner.write_program("qemu-system-x86_64", "#!/bin/sh\necho no executable memory\nexit 1\n")
    output = runner.run(code=DID_NOT_RUN, PATH=f"{runner.folder}:{os.environ['PATH']}")
    assert "DID NOT RUN: qemu-system-x86_64 cannot run here: no executable memory" in output
