"""nuveqcam interrupted at system calls of its main thread."""

import concurrent.futures
import json
import math
import os
import signal
import subprocess

from nuveqcam_tool import CAMERA, ENDED_EARLY, OK, PROGRAM, SMALL, TIMEOUT

INTERRUPT_AT_CALL = os.path.abspath(os.environ["INTERRUPT_AT_CALL"])

SNAPSHOT = ["snapshot", *CAMERA, "--skip", "0", "-o", "camera.png", *SMALL]
RECORD = ["record", *CAMERA, "--seconds", "1", "-o", "camera.mp4", *SMALL]

# 1: interrupt at every call. 16 with sanitizers, which slow down the runs.
STRIDE = int(os.environ.get("INTERRUPT_STRIDE", "1"))

# The maximum number of runs. The program polls, so the number of calls depends on the machine's load.
MAX_RUNS = 250

# Number of runs before the signal handlers are installed, while the program only loads libraries.
SAMPLES_BEFORE_HANDLERS = 8


def run_interrupted(folder, call, arguments):
    """Runs the program in a new folder and interrupts it at a call (0: never). Returns the report, the program's
    messages and the content of the files that it leaves."""
    own_folder = folder / str(call)
    own_folder.mkdir()
    report = folder / f"{call}.json"
    # The leak check does not work in a traced program.
    options = ":".join(filter(None, [os.environ.get("ASAN_OPTIONS"), "detect_leaks=0"]))
    result = subprocess.run([INTERRUPT_AT_CALL, str(call), report, PROGRAM, *arguments], cwd=own_folder, text=True,
                            env={**os.environ, "ASAN_OPTIONS": options}, stdin=subprocess.DEVNULL, capture_output=True,
                            timeout=TIMEOUT)
    assert result.returncode == 0, "this test traces the program with ptrace: " + result.stderr
    return json.loads(report.read_text()), result.stderr, {file.name: file.read_bytes() for file in own_folder.iterdir()}


def is_complete(files):
    [(name, content)] = files.items()
    # These are written last.
    return (b"IEND" if name.endswith(".png") else b"moov") in content


def is_documented_result(report, err, files):
    if report["status"] == -signal.SIGINT:
        return report["handled"] == 0 and files == {}
    if report["status"] == ENDED_EARLY:
        return "interrupted before" in err and files == {}
    return report["status"] == OK and is_complete(files)


def check_interrupts(folder, arguments, last):
    """Interrupts at each call from just before the handlers are installed to the last one, and at samples of the earlier
    calls. Checks the results, and that both sides of the installation are covered."""
    report, _, files = run_interrupted(folder, 0, arguments)
    assert report["status"] == OK
    assert is_complete(files)
    assert 0 < report["handled"] < report["created"]
    first = report["handled"] - 2
    end = last(report) + 1
    stride = max(STRIDE, math.ceil((end - first) / MAX_RUNS))
    calls = [*range(1, first, first // SAMPLES_BEFORE_HANDLERS), *range(first, end, stride)]
    with concurrent.futures.ThreadPoolExecutor(2 * os.cpu_count()) as executor:
        runs = list(executor.map(lambda call: run_interrupted(folder, call, arguments), calls))
    wrong = [(call, report, err, list(files)) for call, (report, err, files) in zip(calls, runs)
             if not is_documented_result(report, err, files)]
    assert wrong == []
    # An interrupted run may need more calls than the reference run, so OK is not required.
    assert {-signal.SIGINT, ENDED_EARLY} <= {report["status"] for report, _, _ in runs}


def test_snapshot_interrupted_at_any_call_is_complete_or_leaves_nothing(tool):
    check_interrupts(tool.folder, SNAPSHOT, lambda report: report["calls"])


def test_recording_interrupted_at_any_call_until_it_has_begun_is_complete_or_leaves_nothing(tool):
    check_interrupts(tool.folder, RECORD, lambda report: report["slept"] + 10)
