"""Tests of scripts/wine.sh, with a fake Wine."""

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

RUNNER = Path(__file__).resolve().parents[3] / "scripts/wine.sh"
FAKE_WINE = """#!/bin/sh
echo run >>"$FAKE_WINE_RUNS"
[ "$(wc -l <"$FAKE_WINE_RUNS")" -gt "$FAKE_WINE_SILENT_FAILURES" ] || exit 1
echo started
exit "$FAKE_WINE_RESULT"
"""


class Runner(unittest.TestCase):
    def run_program(self, silent_failures, result):
        """(exit code, output, number of runs)"""
        with tempfile.TemporaryDirectory(prefix="wine test ") as name:
            folder = Path(name)
            for program, text in [("wine", FAKE_WINE), ("wineserver", "#!/bin/sh\nexit 2\n")]:
                (folder / program).write_text(text)
                (folder / program).chmod(0o755)
            prefix = folder / "prefix"
            prefix.mkdir()
            (prefix / ".made").touch()
            runs = folder / "runs"
            environment = {**os.environ, "PATH": f"{folder}:{os.environ['PATH']}", "NUVEQ_WINEPREFIX": str(prefix),
                           "FAKE_WINE_RUNS": str(runs), "FAKE_WINE_SILENT_FAILURES": str(silent_failures),
                           "FAKE_WINE_RESULT": str(result)}
            done = subprocess.run([RUNNER, sys.executable], env=environment, stdin=subprocess.DEVNULL, timeout=60,
                                  capture_output=True, text=True, check=False)
            return done.returncode, done.stdout, len(runs.read_text().splitlines())

    def test_program_that_wine_did_not_start_is_started_again(self):
        self.assertEqual(self.run_program(silent_failures=1, result=0), (0, "started\n", 2))

    def test_second_silent_failure_is_reported(self):
        self.assertEqual(self.run_program(silent_failures=2, result=0), (1, "", 2))

    def test_program_that_fails_is_not_repeated(self):
        self.assertEqual(self.run_program(silent_failures=0, result=1), (1, "started\n", 1))


if __name__ == "__main__":
    unittest.main()
