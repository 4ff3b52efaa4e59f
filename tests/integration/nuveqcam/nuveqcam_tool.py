"""Runs nuveqcam: natively with the simulated PC, or nuveqcam.exe under Wine with the camera fixtures."""

import os
import re
import signal
import subprocess
import time
from pathlib import Path

from pictures import check_numbers, size_of

PROGRAM = os.path.abspath(os.environ["NUVEQCAM"])
IS_WINDOWS = PROGRAM.endswith(".exe")
# Whether the program is built with the command view.
HAS_VIEW = os.environ.get("NUVEQCAM_HAS_VIEW") == "1"
# The options that select the camera of the tests, its id and the id of the camera that is not offered.
CAMERA = [] if IS_WINDOWS else ["--simulated"]
BUILT_IN = "usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000" if IS_WINDOWS else "simulated"
PLUG_IN = "usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000" if IS_WINDOWS else "simulated"
# The default output of a recording.
RECORDING = "camera.mp4"
LIBRARY = Path(PROGRAM).parent / ("libnuveqcamerahandler.dll" if IS_WINDOWS else "libnuveqcamerahandler.so")
# A camera library whose camera behaves as the environment describes.
FAKE_LIBRARY = os.path.abspath(os.environ["FAKE_LIBRARY"])
if IS_WINDOWS:
    RUNNER = os.path.abspath(os.environ["NUVEQCAM_RUNNER"])
    USE_PC = os.path.abspath(os.environ["USE_PC"])

# Timeout of every wait, in seconds. Sufficient for builds with sanitizers.
TIMEOUT = 120

OK, UNEXPECTED, USAGE, NO_CAMERA, CANNOT_OPEN, CANNOT_WRITE, ENDED_EARLY, PROBE_FAULT = range(8)

# A size that builds with sanitizers encode in real time.
SMALL = ["--size", "320x240"]


def fake_camera(description):
    """The environment of a program that uses the fake camera library."""
    return {**os.environ, "NUVEQ_FAKE_CAMERA": description}


def reset_signals():
    """Restores default signal actions. A shell makes background jobs ignore SIGINT, and children inherit that."""
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_DFL)


def use_pc(pc):
    """Sets up the devices of the Wine prefix."""
    subprocess.run([RUNNER, USE_PC, pc], stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True)


class Tool:
    """Runs the program in a folder. Redirects its output to files next to the folder: Wine's background processes can
    keep pipes open after the program has ended."""

    def __init__(self, scratch):
        # With spaces and non-ASCII characters.
        self.folder = scratch / "Meine Bilder \u00e4 \u4e2d"
        self.folder.mkdir()
        self._processes = []

    def file(self, name):
        return self.folder / name

    def names(self):
        """The names of the files that the program has left."""
        return sorted(file.name for file in self.folder.iterdir())

    def start(self, *arguments, program=PROGRAM, **options):
        number = len(self._processes)
        outputs = [self.folder.parent / f"{name}{number}" for name in ("out", "err")]
        command = [RUNNER, "--live", program] if IS_WINDOWS else [program]
        with open(outputs[0], "wb") as out, open(outputs[1], "wb") as err:
            options = {"stdout": out, "stderr": err, "preexec_fn": reset_signals, **options}
            process = subprocess.Popen([*command, *map(str, arguments)], cwd=self.folder, stdin=subprocess.DEVNULL,
                                       **options)
        process.outputs = outputs
        self._processes.append(process)
        return process

    def start_recording(self, *arguments, **options):
        """Starts an endless recording to a pipe, and returns once it has begun."""
        process = self.start("record", *CAMERA, "--seconds", 0, "-o", "-", *SMALL, *arguments, stdout=subprocess.PIPE,
                             **options)
        assert process.stdout.read(4) == b"\0\0\0\1"
        return process

    def finish(self, process, code=OK):
        """Waits for the program, checks its exit code, and returns its standard output (bytes) and error (text)."""
        process.wait(timeout=TIMEOUT)
        out, err = (file.read_bytes() for file in process.outputs)
        assert process.returncode == code, err.decode()
        # Rarely, a thread of the ending process prints this: its connection to Wine's server is closed already.
        return out, re.sub(r"^wine client error:\w+: .*\n", "", err.decode(), flags=re.MULTILINE)

    def run_with_fake_camera(self, description, *arguments, **options):
        """Runs the program with the fake camera library. support/fakecamera/FakeCameraSettings.h defines the description."""
        return self.run(*arguments, "--library", FAKE_LIBRARY, env=fake_camera(description), **options)

    def run(self, *arguments, code=OK, **options):
        """Runs the program, checks its exit code, and returns its standard output and standard error as text."""
        out, err = self.finish(self.start(*arguments, **options), code)
        return out.decode(), err

    def wait_for_content(self, name, size, process):
        """Waits until an output file has more bytes than size."""
        wait_until(lambda: self.file(name).exists() and self.file(name).stat().st_size > size, process)

    def end(self):
        for process in self._processes:
            if process.poll() is None:
                process.kill()
            process.wait()
            if process.stdout:
                process.stdout.close()


def summary(text):
    found = dict(re.findall(r"^  ([a-z ]+?)  +(\S+)", text, re.MULTILINE))
    assert set(found) == {"request", "frames", "key frames", "duration", "bit rate", "first packet"}, text
    return found


def check_recording(file, text, size=(320, 240)):
    """Checks that the recording has exactly the frames of the summary. Returns their number."""
    if file.suffix.lower() in (".h264", ".264"):
        assert file.read_bytes()[:5] == b"\0\0\0\1\x67"
    count = int(summary(text)["frames"])
    check_numbers(file, size, count)
    assert size_of(file) == size
    return count


def wait_until(condition, process=None):
    end = time.monotonic() + TIMEOUT
    while not condition():
        assert time.monotonic() < end, "timeout"
        assert process is None or process.poll() is None, f"the program ended with {process.returncode}"
        time.sleep(0.02)


def in_threads(pid, name):
    """The content of a file in /proc for each thread of the process; nothing once the process has ended."""
    for file in Path(f"/proc/{pid}/task").glob(f"*/{name}"):
        try:
            yield file.read_text()
        except OSError:  # the thread has ended
            continue


def blocking_calls(pid):
    """The number and first argument of each system call that a thread of the process is blocked in."""
    for text in in_threads(pid, "syscall"):
        # "running", or the number of the system call and its arguments in hexadecimal digits
        words = text.split()
        if len(words) > 2:
            yield int(words[0]), int(words[1], 16)


def is_blocked_writing(pid, pipe):
    """Whether a thread of the process is blocked in a write to the pipe of the descriptor."""
    write = 1
    descriptors = Path(f"/proc/{pid}/fd")
    wanted = os.readlink(f"/proc/self/fd/{pipe}")
    for number, descriptor in blocking_calls(pid):
        try:
            if number == write and os.readlink(descriptors / str(descriptor)) == wanted:
                return True
        except OSError:  # the process has ended or closed the descriptor
            continue
    return False


def wait_until_blocked_writing(process):
    """Waits until a thread of the program is blocked in a write to the pipe at its standard output."""
    wait_until(lambda: is_blocked_writing(process.pid, process.stdout.fileno()), process)


def signal_set(pid, name):
    """A signal set of /proc/PID/status as a bit mask; 0 once the process has ended."""
    try:
        status = Path(f"/proc/{pid}/status").read_text()
    except OSError:
        return 0
    return int(re.search(rf"(?m)^{name}:\s*([0-9a-f]+)$", status)[1], 16)


def is_pending(pid, number):
    """Whether the signal is pending. Another one would be merged with it."""
    return signal_set(pid, "ShdPnd") >> (number - 1) & 1 == 1
