"""Recordings on Linux: pipes, and outputs that fail."""

import fcntl
import os
import pty
import re
import resource
import signal
import subprocess
import time

import pytest

from nuveqcam_tool import (CAMERA, CANNOT_WRITE, ENDED_EARLY, OK, PROGRAM, SMALL, blocking_calls, check_recording,
                           in_threads, reset_signals, signal_set, wait_until, wait_until_blocked_writing)


def wait_until_polling(process):
    """Waits until a thread of the program is blocked in poll, which it calls for a full non-blocking pipe."""
    poll = 7
    wait_until(lambda: any(number == poll for number, _ in blocking_calls(process.pid)), process)


def is_capturing(process):
    """Whether the program's capture thread exists."""
    return "nuveq-capture\n" in in_threads(process.pid, "comm")


def catches(process, number):
    """Whether the program has installed a handler for the signal."""
    return signal_set(process.pid, "SigCgt") >> (number - 1) & 1 == 1


def finish_reading(tool, process):
    """Reads the rest of the program's standard output and checks the recording."""
    tool.file("copy.h264").write_bytes(process.stdout.read())
    _, err = tool.finish(process)
    check_recording(tool.file("copy.h264"), err)
    return err


def start_stalled(tool, seconds):
    """Starts a recording to a pipe whose reader stalls, and returns once the program is blocked in a write."""
    process = tool.start("record", *CAMERA, "--seconds", seconds, "-o", "-", *SMALL, stdout=subprocess.PIPE, pipesize=4096)
    wait_until_blocked_writing(process)
    return process


def test_slow_reader_loses_nothing(tool):
    process = start_stalled(tool, 3)
    # The camera delivers more frames.
    time.sleep(1)
    finish_reading(tool, process)


def test_duration_includes_the_wait_for_a_reader(tool):
    endless, limited = (start_stalled(tool, seconds) for seconds in (0, 1))
    # The camera is closed before anything is read.
    wait_until(lambda: not is_capturing(limited), limited)
    assert is_capturing(endless)
    finish_reading(tool, limited)


def test_non_blocking_pipe_gets_everything(tool):
    reader, writer = os.pipe()
    fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
    os.set_blocking(writer, False)
    process = tool.start("record", *CAMERA, "--seconds", 1, "-o", "-", *SMALL, stdout=writer)
    os.close(writer)
    wait_until_polling(process)
    with open(reader, "rb") as process.stdout:
        finish_reading(tool, process)


def test_ctrl_c_with_a_stalled_reader_writes_all_once_the_reader_resumes(tool):
    process = start_stalled(tool, 0)
    process.send_signal(signal.SIGINT)
    assert "(interrupted)" in finish_reading(tool, process)


def test_second_ctrl_c_ends_a_program_that_waits_for_its_reader(tool):
    process = start_stalled(tool, 0)
    process.send_signal(signal.SIGINT)
    # The first one restores the signal's default action.
    wait_until(lambda: not catches(process, signal.SIGINT), process)
    process.send_signal(signal.SIGINT)
    tool.finish(process, -signal.SIGINT)


def test_ctrl_c_ends_the_wait_for_the_reader_of_a_named_pipe(tool):
    os.mkfifo(tool.file("pipe.h264"))
    process = tool.start("record", *CAMERA, "-o", "pipe.h264", *SMALL)
    wait_until(lambda: catches(process, signal.SIGINT), process)
    process.send_signal(signal.SIGINT)
    _, err = tool.finish(process, ENDED_EARLY)
    assert err == "nuveqcam: interrupted before a program opened pipe.h264 for reading; nothing was written\n"
    assert tool.file("pipe.h264").is_fifo()


def test_terminal_shows_progress_on_one_line(tool):
    master, slave = pty.openpty()
    process = tool.start("record", *CAMERA, "--seconds", 3, *SMALL, stderr=slave)
    os.close(slave)
    shown = b""
    with open(master, "rb", buffering=0) as terminal:
        try:
            while piece := terminal.read(4096):
                shown += piece
        except OSError:  # the other end was closed
            pass
    out, _ = tool.finish(process)
    assert out.startswith(b"recorded ")
    assert re.fullmatch(rb"(\r +\d+\.\d s +\d+ frames +\d+\.\d fps +\d+ kbit/s)+\r\n", shown)


def test_mp4_to_an_unseekable_file_is_rejected(tool):
    os.symlink("/dev/null", tool.file("null.mp4"))
    _, err = tool.run("record", *CAMERA, "-o", "null.mp4", code=CANNOT_WRITE)
    assert "choose a regular file, or .h264, with -o" in err


@pytest.mark.parametrize("command", ["list", "doctor"])
def test_report_to_a_full_device_fails(tool, command):
    with open("/dev/full", "wb") as full:
        _, err = tool.run(command, *CAMERA, stdout=full, code=CANNOT_WRITE)
    assert re.search("^nuveqcam: cannot write .*to standard output", err)


def test_file_size_limit_ends_an_mp4_and_keeps_it(tool):
    def limit():
        reset_signals()
        signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
        resource.setrlimit(resource.RLIMIT_FSIZE, (50000, 50000))

    # A coverage profile would exceed the limit, too.
    environment = {**os.environ, "LLVM_PROFILE_FILE": os.devnull}
    _, err = tool.run("record", *CAMERA, "--seconds", 60, "--size", "640x480", code=CANNOT_WRITE, preexec_fn=limit,
                      env=environment)
    assert re.match("nuveqcam: cannot write camera.mp4: File too large; free some space there or choose another place with "
                    "-o; the file is incomplete", err)
    assert tool.file("camera.mp4").stat().st_size > 0


def run_without(tool, redirection, *arguments, code):
    """Runs the program with closed standard streams."""
    return tool.run("-c", f'exec "$0" "$@" {redirection}', PROGRAM, *arguments, program="sh", code=code)


@pytest.mark.parametrize("redirection", ["2>&-", "<&- 2>&-", "<&-"])
def test_closed_standard_streams_do_not_corrupt_a_recording(tool, redirection):
    out, _ = run_without(tool, redirection, "record", "-v", *CAMERA, "--seconds", "1", *SMALL, code=OK)
    check_recording(tool.file("camera.mp4"), out)


@pytest.mark.parametrize("arguments", [["list", *CAMERA], ["--version"], ["record", *CAMERA, "-o", "-", *SMALL]])
def test_closed_standard_output_fails(tool, arguments):
    run_without(tool, ">&-", *arguments, code=CANNOT_WRITE)


@pytest.fixture
def small_disk(tool):
    """The command that runs another one in a file system of 64 KiB and lists the files that it leaves. It mounts the file
    system in a private mount namespace, which some containers forbid."""
    unshare = ["unshare", "-m", "--propagation", "unchanged"] if os.geteuid() == 0 else ["unshare", "-rm"]
    script = ('mount -t tmpfs -o size=64k none "$0" || exit; cd "$0" && "$@"; code=$?; ls -l; cd /; umount "$0"; '
              "exit $code")
    command = [*unshare, "sh", "-c", script, tool.folder]
    attempt = subprocess.run([*command, "true"], capture_output=True, text=True)
    if attempt.returncode != 0:
        pytest.skip(f"a file system cannot be mounted here: {attempt.stderr.strip()}")
    return command


@pytest.mark.parametrize("arguments, effect", [
    (["record", "--seconds", "60", "--size", "640x480", "-o", "camera.mp4"], "incomplete and cannot be played"),
    (["record", "--seconds", "60", "--size", "640x480", "-o", "camera.h264"], "can be played up to its end"),
    (["snapshot", "-o", "camera.png"], "")])
def test_full_disk_ends_the_program(tool, small_disk, arguments, effect):
    out, err = tool.run(*small_disk[1:], PROGRAM, *arguments, *CAMERA, program=small_disk[0], code=CANNOT_WRITE)
    name = arguments[-1]
    assert f"nuveqcam: cannot write {name}: No space left on device; free some space there" in err
    assert effect in err
    # A recording is kept.
    assert arguments[0] == "snapshot" or re.search(rf"\d{{5}} .*{name}", out)
