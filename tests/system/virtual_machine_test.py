"""Tests of kernel_test.py with fake programs: every failure of the virtual machine is reported.

Environment: KERNEL_FOLDER is the output folder of scripts/fetch-kernel.sh.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from virtual_machine import QemuUnavailable, require_qemu

RUNNER = Path(__file__).parent / "kernel_test.py"
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


class Runner(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="nuveq-machine-"))
        self.addCleanup(shutil.rmtree, self.folder)
        for name, text in (("uvc_camera", CAMERA), ("kernel_tests", TESTS), ("nuveqcam", TOOL)):
            self.write_program(name, text)

    def write_program(self, name, text):
        (self.folder / name).write_text(text)
        (self.folder / name).chmod(0o755)

    def run_topology(self, *options, path=None, kernel=KERNEL):
        environment = dict(os.environ, PATH=path or os.environ["PATH"])
        result = subprocess.run([sys.executable, "-B", str(RUNNER), "--bin", str(self.folder), "--kernel", str(kernel),
                                 "--camera-timeout", "0", *options, "no_built_in"], env=environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=280)
        return result.returncode, result.stdout.decode(errors="replace")

    def test_kernel_panic_fails_with_the_end_of_the_console(self):
        code, output = self.run_topology("--append", "rdinit=/nothing")
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the kernel did not boot; QEMU exited with 0; the end of the console:", output)
        self.assertIn("Kernel panic", output.split("the end of the console:")[1])

    def test_boot_timeout_fails_after_one_retry(self):
        code, output = self.run_topology("--boot-timeout", "0.01")
        self.assertEqual(code, 1, output)
        self.assertIn("retrying:", output)
        self.assertIn("FAILED  the kernel does not boot (waited 0.01 s); the end of the console:", output)

    def test_invalid_kernel_image_fails(self):
        kernel = self.folder / "kernel"
        shutil.copytree(KERNEL / "modules", kernel / "modules")
        (kernel / "vmlinux").write_text("not a kernel")
        code, output = self.run_topology(kernel=kernel)
        self.assertEqual(code, 1, output)
        self.assertRegex(output, "FAILED  (QEMU did not start|the kernel did not boot); QEMU exited with 1;")

    def test_missing_kernel_fails(self):
        code, output = self.run_topology(kernel=self.folder / "nowhere")
        self.assertEqual(code, 1, output)
        self.assertIn("fetch the kernel with scripts/fetch-kernel.sh", output)

    def test_camera_that_does_not_start_fails(self):
        self.write_program("uvc_camera", "#!/bin/sh\nexit 4\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the camera plug_in did not start; it exited with 4", output)

    def test_camera_that_exits_with_an_error_fails(self):
        self.write_program("uvc_camera", "#!/bin/sh\necho ready\nexit 5\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the camera plug_in exited with 5", output)

    def test_terminated_run_leaves_no_files_and_no_processes(self):
        temporary = self.folder / "temporary"
        temporary.mkdir()
        self.write_program("kernel_tests", "#!/bin/sh\necho working\nsleep 100\n")
        with subprocess.Popen([sys.executable, "-B", str(RUNNER), "--bin", str(self.folder), "--kernel", str(KERNEL),
                               "--camera-timeout", "0", "no_built_in"], env=dict(os.environ, TMPDIR=str(temporary)),
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True) as runner:
            while "working" not in (line := runner.stdout.readline()):
                self.assertNotEqual(line, "", "the runner exited")
            runner.terminate()
            self.assertEqual(runner.wait(60), 1)
        self.assertEqual(list(temporary.iterdir()), [])
        self.assertEqual(processes_with(str(temporary)), [])

    def test_crash_of_the_tests_and_invalid_tool_output_fail(self):
        self.write_program("kernel_tests", "#!/bin/sh\nkill -SEGV $$\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the tests in the guest pass\n        they exited with 139", output)
        self.assertIn("ok      list exits with 3\nFAILED  list prints JSON", output)

    def test_early_power_off_of_the_guest_fails(self):
        # A loop of builtins, because it has to keep running until the power-off, after the file systems are gone.
        self.write_program("kernel_tests", "#!/bin/sh\necho o >/proc/sysrq-trigger\nwhile :; do :; done\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the guest powered off before it had finished; QEMU exited with 0;", output)

    def test_guest_that_cannot_write_its_results_fails(self):
        self.write_program("kernel_tests", "#!/bin/sh\nmount -o remount,bind,ro /run/share\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("tests.code: Read-only file system", output)
        self.assertIn("FAILED  the guest powered off before it had finished; QEMU exited with 0;", output)

    def test_run_without_qemu_is_skipped(self):
        code, output = self.run_topology(path=str(self.folder))
        self.assertEqual(code, DID_NOT_RUN, output)
        self.assertIn("DID NOT RUN: qemu-system-x86_64 is not installed", output)

    def test_run_with_unusable_qemu_is_skipped(self):
        self.write_program("qemu-system-x86_64", "#!/bin/sh\necho no executable memory\nexit 1\n")
        code, output = self.run_topology(path=f"{self.folder}:{os.environ['PATH']}")
        self.assertEqual(code, DID_NOT_RUN, output)
        self.assertIn("DID NOT RUN: qemu-system-x86_64 cannot run here: no executable memory", output)


if __name__ == "__main__":
    try:
        require_qemu()
    except QemuUnavailable as reason:
        print(f"DID NOT RUN: {reason}")
        sys.exit(DID_NOT_RUN)
    unittest.main(verbosity=2)
