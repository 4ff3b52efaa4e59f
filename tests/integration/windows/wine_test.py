"""scripts/wine.sh, with a fake Wine."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

RUNNER = Path(__file__).resolve().parents[3] / "scripts/wine.sh"
FAKE_WINE = """#!/bin/sh
echo run >>"$FAKE_WINE_RUNS"
[ "$(wc -l <"$FAKE_WINE_RUNS")" -gt "$FAKE_WINE_SILENT_FAILURES" ] || exit 1
echo started
exit "$FAKE_WINE_RESULT"
"""


@pytest.mark.parametrize("silent_failures, result, expected", [
    # exit code, output, number of runs
    (1, 0, (0, "started\n", 2)), (2, 0, (1, "", 2)), (0, 1, (1, "started\n", 1))])
def test_program_is_started_again_once_if_wine_did_not_start_it(scratch, silent_failures, result, expected):
    folder = scratch / "with spaces"
    (folder / "prefix").mkdir(parents=True)
    (folder / "prefix/.made").touch()
    for program, text in [("wine", FAKE_WINE), ("wineserver", "#!/bin/sh\nexit 2\n")]:
        (folder / program).write_text(text)
        (folder / program).chmod(0o755)
    runs = folder / "runs"
    environment = {**os.environ, "PATH": f"{folder}:{os.environ['PATH']}", "NUVEQ_WINEPREFIX": str(folder / "prefix"),
                   "FAKE_WINE_RUNS": str(runs), "FAKE_WINE_SILENT_FAILURES": str(silent_failures),
                   "FAKE_WINE_RESULT": str(result)}
    done = subprocess.run([RUNNER, sys.executable], env=environment, stdin=subprocess.DEVNULL, timeout=60,
                          capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout, len(runs.read_text().splitlines())) == expected
