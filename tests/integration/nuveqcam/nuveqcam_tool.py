"""Helpers for tests that run nuveqcam: the program, its exit codes, and checks of its output files."""

import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

PROGRAM = os.path.abspath(os.environ["NUVEQCAM"])
MAN_PAGE = os.environ.get("NUVEQCAM_MAN")

# Timeout of every wait, in seconds. Sufficient for builds with sanitizers.
TIMEOUT = 120

OK, UNEXPECTED, USAGE, NO_CAMERA, CANNOT_OPEN, CANNOT_WRITE, ENDED_EARLY = range(7)

# A size that builds with sanitizers encode in real time.
SMALL = ["--size", "320x240"]


def reset_signals():
    """Restores default signal actions. A shell makes background jobs ignore SIGINT, and children inherit that."""
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_DFL)


def wait_until(condition, process=None):
    end = time.monotonic() + TIMEOUT
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("timeout")
        if process is not None and process.poll() is not None:
            raise AssertionError(f"the program ended with {process.returncode}")
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


def wait_until_polling(process):
    """Waits until a thread of the program is blocked in poll, which it calls for a full non-blocking pipe."""
    poll = 7
    wait_until(lambda: any(number == poll for number, _ in blocking_calls(process.pid)), process)


def is_capturing(process):
    """Whether the program's capture thread exists."""
    return "nuveq-capture\n" in in_threads(process.pid, "comm")


def signal_set(pid, name):
    """A signal set of /proc/PID/status as a bit mask; 0 once the process has ended."""
    try:
        status = Path(f"/proc/{pid}/status").read_text()
    except OSError:
        return 0
    return int(re.search(rf"(?m)^{name}:\s*([0-9a-f]+)$", status)[1], 16)


def catches(process, number):
    """Whether the program has installed a handler for the signal."""
    return signal_set(process.pid, "SigCgt") >> (number - 1) & 1 == 1


def is_pending(pid, number):
    """Whether the signal is pending. Another one would be merged with it."""
    return signal_set(pid, "ShdPnd") >> (number - 1) & 1 == 1


class Tool(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="nuveqcam-test-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def start(self, *arguments, **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "stdin": subprocess.DEVNULL, **options}
        process = subprocess.Popen([PROGRAM, *map(str, arguments)], cwd=self.folder, preexec_fn=reset_signals, **options)
        self.addCleanup(self.end, process)
        return process

    @staticmethod
    def end(process):
        if process.poll() is None:
            process.kill()
        process.communicate()

    def run_tool(self, *arguments, code=OK, **options):
        """Runs the program, checks its exit code, and returns standard output and standard error as text."""
        process = self.start(*arguments, **options)
        out, err = process.communicate(timeout=TIMEOUT)
        err = (err or b"").decode()
        self.assertEqual(process.returncode, code, err)
        return (out or b"").decode(errors="replace"), err

    def check_snapshot(self, *arguments):
        """Takes a snapshot of the simulated camera and checks that it is the tenth frame, upright and in color."""
        out, err = self.run_tool("snapshot", *arguments, "--size", "640x480")
        self.assertEqual((out, err), ("took camera.png\n  size     640x480\n  picture  10 of the stream\n", ""))
        stream = self.stream("camera.png")
        self.assertEqual((stream["codec_name"], stream["width"], stream["height"]), ("png", 640, 480))
        [gray] = self.pictures("camera.png", 640, 480)
        self.assertEqual(frame_number(gray, 640, 480), 9)
        [rgb] = self.pictures("camera.png", 640, 480, "rgb24")
        self.check_corners(rgb)

    def file(self, name):
        return self.folder / name

    def probe(self, name, entries):
        result = subprocess.run(
            ["ffprobe", "-v", "error", "-count_frames", "-show_entries", entries, "-of", "json", str(self.file(name))],
            capture_output=True, timeout=TIMEOUT, check=True)
        self.assertEqual(result.stderr, b"")
        return json.loads(result.stdout)

    def stream(self, name):
        streams = self.probe(name, "stream=codec_name,width,height,nb_read_frames,duration")["streams"]
        self.assertEqual(len(streams), 1)
        return streams[0]

    def pictures(self, name, width, height, pixels="gray"):
        """The decoded pictures' bytes; decoder messages are failures. Without -enc_time_base, ffmpeg would round the
        times to a guessed rate and warn about duplicates."""
        size = width * height * (3 if pixels == "rgb24" else 1)
        result = subprocess.run(
            ["ffmpeg", "-v", "error", "-i", str(self.file(name)), "-fps_mode", "passthrough", "-enc_time_base", "-1",
             "-f", "rawvideo", "-pix_fmt", pixels, "-"], capture_output=True, stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True)
        self.assertEqual(result.stderr, b"")
        self.assertEqual(len(result.stdout) % size, 0)
        return [result.stdout[i:i + size] for i in range(0, len(result.stdout), size)]

    def summary(self, text):
        found = dict(re.findall(r"^  ([a-z ]+?)  +(\S+)", text, re.MULTILINE))
        self.assertEqual(set(found), {"request", "frames", "key frames", "duration", "bit rate", "first packet"}, text)
        return found

    def check_numbers(self, pictures, width, height):
        """Checks that no frame was lost, repeated or reordered."""
        self.assertEqual([frame_number(picture, width, height) for picture in pictures], list(range(len(pictures))))

    def check_corners(self, rgb):
        """Checks orientation and colors of a 640x480 picture by its corners."""
        for x, y, color in ((10, 90, (255, 0, 0)), (629, 90, (0, 255, 0)), (10, 469, (0, 0, 255)),
                             (629, 469, (255, 255, 255))):
            pixel = rgb[3 * (640 * y + x):][:3]
            self.assertTrue(all(abs(a - b) < 24 for a, b in zip(pixel, color)), (x, y, tuple(pixel), color))


def frame_number(gray, width, height):
    """The frame number in the simulated camera's picture: 16 bits as blocks along the top, lowest first, and 8 bits
    below."""
    number = 0
    for bit in range(24):
        x = (2 * (bit % 16) + 1) * width // 32
        y = (2 * (bit // 16) + 1) * height // 24
        number |= (gray[y * width + x] > 127) << bit
    return number
