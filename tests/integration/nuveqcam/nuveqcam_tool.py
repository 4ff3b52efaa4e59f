"""What the scripts that run nuveqcam share: the program, its exit codes, and a look at what it wrote."""

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

# Longer than anything that works takes, also with sanitizers.
PATIENCE = 120

OK, UNEXPECTED, USAGE, NO_CAMERA, CANNOT_OPEN, CANNOT_WRITE, ENDED_EARLY = range(7)

# Small, so that a build with sanitizers keeps up.
SMALL = ["--size", "320x240"]


def reset_signals():
    """A shell that runs tests in the background has them ignore Ctrl-C, and children inherit that."""
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_DFL)


def wait_until(condition, process=None):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("waited in vain")
        if process is not None and process.poll() is not None:
            raise AssertionError(f"the program ended with {process.returncode}")
        time.sleep(0.02)


def in_threads(pid, name):
    """That file of each thread of the process in /proc; nothing once the process has ended."""
    for file in Path(f"/proc/{pid}/task").glob(f"*/{name}"):
        try:
            yield file.read_text()
        except OSError:  # the thread has ended
            continue


def blocking_calls(pid):
    """The number and the first argument of each system call in which a thread of the process is blocked."""
    for text in in_threads(pid, "syscall"):
        # "running", or the number of the system call and its arguments in hexadecimal digits
        words = text.split()
        if len(words) > 2:
            yield int(words[0]), int(words[1], 16)


def is_blocked_writing(pid, pipe):
    """Whether a thread of the process is blocked in a write to the pipe, which the descriptor is an end of."""
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
    """Until a thread of the program is blocked in a write to the pipe that is its standard output."""
    wait_until(lambda: is_blocked_writing(process.pid, process.stdout.fileno()), process)


def wait_until_polling(process):
    """Until a thread of the program is blocked in poll, as it is when a pipe without room does not block writes."""
    poll = 7
    wait_until(lambda: any(number == poll for number, _ in blocking_calls(process.pid)), process)


def is_capturing(process):
    """Whether the program has the thread that captures the camera's frames."""
    return "nuveq-capture\n" in in_threads(process.pid, "comm")


def signal_set(pid, name):
    """The signals in that set of /proc, as bits; none once the process has ended."""
    try:
        status = Path(f"/proc/{pid}/status").read_text()
    except OSError:
        return 0
    return int(re.search(rf"(?m)^{name}:\s*([0-9a-f]+)$", status)[1], 16)


def catches(process, number):
    """Whether the program has installed a handler for the signal."""
    return signal_set(process.pid, "SigCgt") >> (number - 1) & 1 == 1


def is_pending(pid, number):
    """Whether the signal was sent to the process and not delivered yet. Another one would be merged with it."""
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
        """Standard output and standard error, as text, of a run that ends with that code."""
        process = self.start(*arguments, **options)
        out, err = process.communicate(timeout=PATIENCE)
        err = (err or b"").decode()
        self.assertEqual(process.returncode, code, err)
        return (out or b"").decode(errors="replace"), err

    def check_snapshot(self, *arguments):
        """Takes a picture of the camera that numbers its frames: the tenth, upright and in its colours."""
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
            capture_output=True, timeout=PATIENCE, check=True)
        self.assertEqual(result.stderr, b"")
        return json.loads(result.stdout)

    def stream(self, name):
        streams = self.probe(name, "stream=codec_name,width,height,nb_read_frames,duration")["streams"]
        self.assertEqual(len(streams), 1)
        return streams[0]

    def pictures(self, name, width, height, pixels="gray"):
        """The decoded pictures' bytes; a decoder's complaint is a failure. Without -enc_time_base ffmpeg would round
        the pictures' times to a rate that it guesses, and complain about two that become the same."""
        size = width * height * (3 if pixels == "rgb24" else 1)
        result = subprocess.run(
            ["ffmpeg", "-v", "error", "-i", str(self.file(name)), "-fps_mode", "passthrough", "-enc_time_base", "-1",
             "-f", "rawvideo", "-pix_fmt", pixels, "-"], capture_output=True, stdin=subprocess.DEVNULL, timeout=PATIENCE, check=True)
        self.assertEqual(result.stderr, b"")
        self.assertEqual(len(result.stdout) % size, 0)
        return [result.stdout[i:i + size] for i in range(0, len(result.stdout), size)]

    def summary(self, text):
        found = dict(re.findall(r"^  ([a-z ]+?)  +(\S+)", text, re.MULTILINE))
        self.assertEqual(set(found), {"request", "frames", "key frames", "duration", "bit rate", "first packet"}, text)
        return found

    def check_numbers(self, pictures, width, height):
        """No frame was lost, repeated or reordered."""
        self.assertEqual([frame_number(picture, width, height) for picture in pictures], list(range(len(pictures))))

    def check_corners(self, rgb):
        """Upright and in its colours is a picture of 640x480 whose corners are those that the camera paints."""
        for x, y, colour in ((10, 90, (255, 0, 0)), (629, 90, (0, 255, 0)), (10, 469, (0, 0, 255)),
                             (629, 469, (255, 255, 255))):
            pixel = rgb[3 * (640 * y + x):][:3]
            self.assertTrue(all(abs(a - b) < 24 for a, b in zip(pixel, colour)), (x, y, tuple(pixel), colour))


def frame_number(gray, width, height):
    """The number that the simulated camera paints: 16 bits as blocks along the top, lowest first, 8 more below."""
    number = 0
    for bit in range(24):
        x = (2 * (bit % 16) + 1) * width // 32
        y = (2 * (bit // 16) + 1) * height // 24
        number |= (gray[y * width + x] > 127) << bit
    return number
