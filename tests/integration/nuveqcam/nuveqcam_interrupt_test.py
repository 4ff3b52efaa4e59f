"""nuveqcam interrupted at system calls of its main thread, with the simulated PC.

ctest runs each test separately. To run all of them:
NUVEQCAM=build/native/bin/nuveqcam INTERRUPT_AT_CALL=build/native/fixtures/interrupt_at_call python3 FILE
"""

import concurrent.futures
import json
import math
import os
import signal
import subprocess
import unittest

from nuveqcam_tool import ENDED_EARLY, OK, TIMEOUT, PROGRAM, SMALL, Tool

INTERRUPT_AT_CALL = os.path.abspath(os.environ["INTERRUPT_AT_CALL"])

SNAPSHOT = ["snapshot", "--simulated", "--skip", "0", "-o", "camera.png", *SMALL]
RECORD = ["record", "--simulated", "--seconds", "1", "-o", "camera.mp4", *SMALL]

# 1: interrupt at every call. 4 with sanitizers, which slow down the runs.
STRIDE = int(os.environ.get("INTERRUPT_STRIDE", "1"))

# The maximum number of runs. The program polls, so the number of calls depends on the machine's load.
MAX_RUNS = 250

# Number of runs before the signal handlers are installed, while the program only loads libraries.
SAMPLES_BEFORE_HANDLERS = 8


class InterruptAtCall(Tool):
    def run_interrupted(self, call, arguments):
        """Runs the program in a new folder and interrupts it at a call (0: never). Returns the report, the program's
        messages and the content of the files that it leaves."""
        folder = self.folder / str(call)
        folder.mkdir()
        report = self.folder / f"{call}.json"
        # The leak check does not work in a traced program.
        options = ":".join(filter(None, [os.environ.get("ASAN_OPTIONS"), "detect_leaks=0"]))
        result = subprocess.run([INTERRUPT_AT_CALL, str(call), report, PROGRAM, *arguments], cwd=folder, text=True,
                                env={**os.environ, "ASAN_OPTIONS": options}, stdin=subprocess.DEVNULL, capture_output=True,
                                timeout=TIMEOUT)
        self.assertEqual(result.returncode, 0, "this test traces the program with ptrace: " + result.stderr)
        return json.loads(report.read_text()), result.stderr, {file.name: file.read_bytes() for file in folder.iterdir()}

    def check_complete(self, files):
        [(name, content)] = files.items()
        # These are written last.
        self.assertIn(b"IEND" if name.endswith(".png") else b"moov", content)

    def check_interrupted(self, report, err, files):
        if report["status"] == -signal.SIGINT:
            self.assertEqual(report["handled"], 0, "ended by the signal although there was a handler")
            self.assertEqual(files, {})
        elif report["status"] == ENDED_EARLY:
            self.assertIn("interrupted before", err)
            self.assertEqual(files, {})
        else:
            self.assertEqual(report["status"], OK)
            self.check_complete(files)

    def check_all(self, arguments, last):
        """Interrupts at each call from just before the handlers are installed to the last one, and at samples of the
        earlier calls. Checks the results, and that both sides of the installation are covered."""
        report, _, files = self.run_interrupted(0, arguments)
        self.assertEqual(report["status"], OK)
        self.check_complete(files)
        self.assertGreater(report["handled"], 0)
        with self.subTest("order"):
            self.assertGreater(report["created"], report["handled"])
        first = min(report["created"], report["handled"]) - 2
        end = last(report) + 1
        stride = max(STRIDE, math.ceil((end - first) / MAX_RUNS))
        calls = [*range(1, first, first // SAMPLES_BEFORE_HANDLERS), *range(first, end, stride)]
        ends = set()
        with concurrent.futures.ThreadPoolExecutor(2 * os.cpu_count()) as runs:
            for call, run in zip(calls, runs.map(lambda call: self.run_interrupted(call, arguments), calls)):
                with self.subTest(call=call, report=run[0], err=run[1], files=list(run[2])):
                    self.check_interrupted(*run)
                ends.add(run[0]["status"])
        # An interrupted run may need more calls than the reference run, so OK is not required.
        self.assertLessEqual({-signal.SIGINT, ENDED_EARLY}, ends)

    def test_snapshot_interrupted_at_any_call_is_complete_or_leaves_nothing(self):
        self.check_all(SNAPSHOT, lambda report: report["calls"])

    def test_recording_interrupted_at_any_call_until_it_has_begun_is_complete_or_leaves_nothing(self):
        self.check_all(RECORD, lambda report: report["slept"] + 10)


if __name__ == "__main__":
    unittest.main()
