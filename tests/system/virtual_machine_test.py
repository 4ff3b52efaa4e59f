"""That a machine which fails says so: the runner of the kernel tests, over programs that stand for the real ones.

The environment: KERNEL_FOLDER, what scripts/fetch-kernel.sh has left.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from virtual_machine import CannotRun, require_qemu

RUNNER = Path(__file__).parent / "kernel_test.py"
KERNEL = Path(os.environ["KERNEL_FOLDER"])
DID_NOT_RUN = 77

# As the real one, it ends when it is told to and with the machine.
CAMERA = """#!/usr/bin/env python3
import signal, socket, sys, time
signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
line = socket.socket(socket.AF_UNIX)
line.connect(sys.argv[sys.argv.index("--socket") + 1])
print("ready", flush=True)
while line.recv(4096):
    pass
"""
TESTS = "#!/bin/sh\necho the tests were here\n"
TOOL = "#!/bin/sh\necho no answer\nexit 3\n"


def processes_with(text):
    """Command lines of processes in which the text occurs."""
    lines = []
    for path in Path("/proc").glob("[0-9]*/cmdline"):
        try:
            lines.append(path.read_text(errors="replace"))
        except OSError:
            pass  # it has ended
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
                                 "--camera-patience", "0", *options, "no_built_in"], env=environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=280)
        return result.returncode, result.stdout.decode(errors="replace")

    def test_a_kernel_that_panics_is_a_failure_with_its_last_words(self):
        code, output = self.run_topology("--append", "rdinit=/nothing")
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the kernel did not boot; QEMU ended with 0; the end of the console:", output)
        self.assertIn("Kernel panic", output.split("the end of the console:")[1])

    def test_a_kernel_that_takes_for_ever_is_a_failure(self):
        code, output = self.run_topology("--boot-patience", "0.01")
        self.assertEqual(code, 1, output)
        self.assertIn("once more:", output)
        self.assertIn("FAILED  the kernel does not boot (waited 0.01 s); the end of the console:", output)

    def test_what_is_no_kernel_is_a_failure(self):
        kernel = self.folder / "kernel"
        shutil.copytree(KERNEL / "modules", kernel / "modules")
        (kernel / "vmlinux").write_text("nothing to boot")
        code, output = self.run_topology(kernel=kernel)
        self.assertEqual(code, 1, output)
        self.assertRegex(output, "FAILED  (QEMU did not start|the kernel did not boot); QEMU ended with 1;")

    def test_a_kernel_that_was_not_fetched_is_a_failure(self):
        code, output = self.run_topology(kernel=self.folder / "nowhere")
        self.assertEqual(code, 1, output)
        self.assertIn("fetch the kernel with scripts/fetch-kernel.sh", output)

    def test_a_camera_that_does_not_start_is_a_failure(self):
        self.write_program("uvc_camera", "#!/bin/sh\nexit 4\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the camera plug_in did not start; it ended with 4", output)

    def test_a_camera_that_ends_badly_is_a_failure(self):
        self.write_program("uvc_camera", "#!/bin/sh\necho ready\nexit 5\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the camera plug_in ended with 5", output)

    def test_nothing_is_left_of_a_run_that_is_ended(self):
        temporary = self.folder / "temporary"
        temporary.mkdir()
        self.write_program("kernel_tests", "#!/bin/sh\necho working\nsleep 100\n")
        with subprocess.Popen([sys.executable, "-B", str(RUNNER), "--bin", str(self.folder), "--kernel", str(KERNEL),
                               "--camera-patience", "0", "no_built_in"], env=dict(os.environ, TMPDIR=str(temporary)),
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True) as runner:
            while "working" not in (line := runner.stdout.readline()):
                self.assertNotEqual(line, "", "the runner ended")
            runner.terminate()
            self.assertEqual(runner.wait(60), 1)
        self.assertEqual(list(temporary.iterdir()), [])
        self.assertEqual(processes_with(str(temporary)), [])

    def test_tests_that_crash_and_a_tool_that_prints_something_else_are_failures(self):
        self.write_program("kernel_tests", "#!/bin/sh\nkill -SEGV $$\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the tests in the guest pass\n        they ended with 139", output)
        self.assertIn("ok      list ends with 3\nFAILED  list prints JSON", output)

    def test_a_guest_that_goes_down_early_is_a_failure(self):
        # What waits must need no file: those go first, and a program that ends lets the guest go on.
        self.write_program("kernel_tests", "#!/bin/sh\necho o >/proc/sysrq-trigger\nwhile :; do :; done\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("FAILED  the guest went down before it had finished, and QEMU ended with 0;", output)

    def test_a_guest_that_cannot_leave_its_results_is_a_failure(self):
        self.write_program("kernel_tests", "#!/bin/sh\nmount -o remount,bind,ro /run/share\n")
        code, output = self.run_topology()
        self.assertEqual(code, 1, output)
        self.assertIn("tests.code: Read-only file system", output)
        self.assertIn("FAILED  the guest went down before it had finished, and QEMU ended with 0;", output)

    def test_a_computer_without_qemu_says_that_nothing_ran(self):
        code, output = self.run_topology(path=str(self.folder))
        self.assertEqual(code, DID_NOT_RUN, output)
        self.assertIn("DID NOT RUN: qemu-system-x86_64 is not installed", output)

    def test_a_computer_where_qemu_cannot_run_says_that_nothing_ran(self):
        self.write_program("qemu-system-x86_64", "#!/bin/sh\necho no executable memory\nexit 1\n")
        code, output = self.run_topology(path=f"{self.folder}:{os.environ['PATH']}")
        self.assertEqual(code, DID_NOT_RUN, output)
        self.assertIn("DID NOT RUN: qemu-system-x86_64 cannot run here: no executable memory", output)


if __name__ == "__main__":
    try:
        require_qemu()
    except CannotRun as reason:
        print(f"DID NOT RUN: {reason}")
        sys.exit(DID_NOT_RUN)
    unittest.main(verbosity=2)
