"""Recordings and pictures on Windows: Ctrl-C, and cameras that fail."""

import os
import re
import signal
import time

import pytest

from nuveqcam_tool import (CANNOT_OPEN, ENDED_EARLY, RECORDING, SMALL, check_recording, is_pending, wait_until,
                           wait_until_blocked_writing)

# The low eight bits of STATUS_CONTROL_C_EXIT: Wine's process exit status has only these.
ENDED_BY_CTRL_C = 0x3A


def test_second_ctrl_c_ends_a_program_that_waits_for_its_reader(tool):
    process = tool.start_recording(pipesize=4096)
    wait_until_blocked_writing(process)
    process.send_signal(signal.SIGINT)
    wait_until(lambda: not is_pending(process.pid, signal.SIGINT), process)
    # If the first Ctrl-C ended the program, it would have ended by then.
    time.sleep(0.5)
    assert process.poll() is None
    process.send_signal(signal.SIGINT)
    tool.finish(process, ENDED_BY_CTRL_C)


def run_with_camera(tool, behaviour, *arguments, code):
    """Runs the program with a camera that behaves according to variables of the environment."""
    return tool.run(*arguments, *SMALL, code=code, env={**os.environ, **behaviour})


@pytest.mark.parametrize("command", ["record", "snapshot"])
def test_camera_in_use_is_explained(tool, command):
    out, err = run_with_camera(tool, {"NUVEQ_FIXTURE_RUN": "800700AA"}, command, code=CANNOT_OPEN)
    assert out == ""
    assert re.fullmatch(r"nuveqcam: cannot open the camera at 320x240, 30 fps \(result -1001\): the camera is in use by another "
                        r"program; close that program and try again \(library log: .+\)\n", err)
    assert tool.names() == []


@pytest.mark.parametrize("seconds, amount", [(0, ""), (5, " of 5 s")])
def test_disconnect_ends_and_keeps_a_recording(tool, seconds, amount):
    out, err = run_with_camera(tool, {"NUVEQ_FIXTURE_LOST_AFTER": "20"}, "record", "--seconds", seconds, code=ENDED_EARLY)
    assert re.fullmatch(rf"nuveqcam: no packets from the camera for 10 s; recorded \d+\.\d\d s{amount}, complete up to that "
                        r"point; check with 'nuveqcam list' that the camera is present, then try again\n", err)
    assert check_recording(tool.file(RECORDING), out) == 20


def test_disconnect_during_a_snapshot_leaves_nothing(tool):
    out, err = run_with_camera(tool, {"NUVEQ_FIXTURE_LOST_AFTER": "3"}, "snapshot", code=ENDED_EARLY)
    assert (out, err) == ("", "nuveqcam: no packets from the camera for 10 s after 3 of 10 pictures; nothing was written; "
                              "check with 'nuveqcam list' that the camera is present, then try again\n")
    assert tool.names() == []
