"""nuveqcam as a person runs it: the real program, over the simulated PC.

Run by ctest, a test at a time, or by hand:
NUVEQCAM=build/native/bin/nuveqcam NUVEQCAM_VERSION=0.1.0 NUVEQCAM_MAN=tools/nuveqcam/nuveqcam.1 python3 FILE
"""

import array
import fcntl
import glob
import json
import os
import pty
import re
import resource
import shutil
import signal
import subprocess
import tempfile
import termios
import time
import unittest
from pathlib import Path

PROGRAM = os.path.abspath(os.environ["NUVEQCAM"])
MAN_PAGE = os.environ["NUVEQCAM_MAN"]

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


def frame_number(gray, width, height):
    """The number that the simulated camera paints: 16 bits as blocks along the top, lowest first, 8 more below."""
    number = 0
    for bit in range(24):
        x = (2 * (bit % 16) + 1) * width // 32
        y = (2 * (bit // 16) + 1) * height // 24
        number |= (gray[y * width + x] > 127) << bit
    return number


class Words(Tool):
    def test_help_names_every_command_option_and_exit_code_and_the_man_page_the_same(self):
        helps = [self.run_tool(*words, "--help")[0] for words in ([], ["list"], ["record"], ["snapshot"])]
        rendered = subprocess.run(["mandoc", "-T", "utf8", MAN_PAGE], capture_output=True, check=True).stdout.decode()
        page = re.sub(".\b", "", rendered).replace("−", "-")
        of = lambda text: set(re.findall(r"(?<![\w-])--?[a-z]+\b", text))
        everything = {"--help", "-h", "--version", "--simulated", "--verbose", "-v", "--library", "--json", "--output",
                      "-o", "--size", "--fps", "--seconds", "--skip"}
        self.assertEqual(set().union(*map(of, helps)), everything)
        # The last two are ffplay's, in an example.
        self.assertEqual(of(page) - {"-f"}, everything)
        for command in ("list", "record", "snapshot"):
            self.assertRegex(helps[0], rf"(?m)^  {command} ")
            self.assertRegex(page, rf"(?m)^     {command}\b")
        for text in helps:
            self.assertEqual(re.findall(r"(?m)^  (\d)  ", text), list("0123456"))
        status = page[page.index("EXIT STATUS"):page.index("EXAMPLES")]
        self.assertEqual(re.findall(r"(?m)^     (\d)  ", status), list("0123456"))

    def test_help_of_a_command_describes_its_options_alone(self):
        out, err = self.run_tool("list", "--help")
        self.assertIn("--json", out)
        self.assertNotIn("--fps", out)
        self.assertEqual(err, "")
        self.assertTrue(all(len(line) <= 80 for line in out.splitlines()))

    def test_man_page_is_well_formed(self):
        result = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", MAN_PAGE], capture_output=True)
        self.assertEqual((result.returncode, result.stdout), (0, b""))

    def test_version(self):
        self.assertEqual(self.run_tool("--version"), (f"nuveqcam {os.environ['NUVEQCAM_VERSION']}\n", ""))

    def test_wrong_arguments_are_refused_with_the_way_to_help(self):
        for arguments in ([], ["fly"], ["record", "--seconds"], ["record", "--size", "big"], ["list", "--fps", "3"],
                          ["record", "--seconds", "86401"], ["record", "-o", "me.avi"], ["--bogus", "list"],
                          ["snapshot", "-o", "me.jpg"], ["list", "list"], ["--simulated=", "list"]):
            out, err = self.run_tool(*arguments, code=USAGE)
            self.assertEqual(out, "")
            self.assertRegex(err, r"^nuveqcam: .+; see 'nuveqcam --help'\n$")
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_unknown_extension_is_answered_with_those_that_are_understood(self):
        _, err = self.run_tool("record", "-o", "me.avi", code=USAGE)
        self.assertIn(".mp4, .h264 or .264", err)
        _, err = self.run_tool("snapshot", "-o", "me.jpg", code=USAGE)
        self.assertIn(".png", err)


class Listing(Tool):
    def test_shows_sizes_and_rates_and_the_devices_that_are_not_offered(self):
        out, err = self.run_tool("list", "--simulated")
        self.assertEqual(err, "")
        self.assertRegex(out, r"^Camera 0: \S")
        self.assertRegex(out, r"(?m)^  sizes +\d+ x +\d+$")
        self.assertRegex(out, r"(?m)^ +1280 x +720$")
        self.assertRegex(out, r"(?m)^ +30 fps$")
        self.assertIn("Other capture devices, not offered:", out)

    def test_json_has_the_documented_members(self):
        out, err = self.run_tool("list", "--json", "--simulated")
        self.assertEqual((err, out.count("\n")), ("", 1))
        answer = json.loads(out)
        self.assertEqual(set(answer), {"cameras", "devices"})
        [camera] = answer["cameras"]
        self.assertEqual(set(camera), {"id", "sizes", "rates"})
        self.assertEqual(camera["id"], "0")
        self.assertIn({"width": 1280, "height": 720}, camera["sizes"])
        self.assertIn(30, camera["rates"])
        self.assertEqual(sorted(device["builtIn"] for device in answer["devices"]), [False, True])
        for device in answer["devices"]:
            self.assertEqual(set(device), {"name", "node", "builtIn", "reason"})
            self.assertEqual(device["reason"] is None, device["builtIn"])

    def test_this_machine_has_a_camera_or_the_tool_says_why_not(self):
        has_devices = bool(glob.glob("/dev/video*"))
        process = self.start("list")
        _, err = process.communicate(timeout=PATIENCE)
        if process.returncode == NO_CAMERA:
            wanted = b"capture devices seen:" if has_devices else b"no capture device was seen"
            self.assertRegex(err, rb"(?s)^nuveqcam: this PC has no built-in camera; .*\n" + wanted)
        else:
            self.assertTrue(has_devices, err)
            self.assertIn(process.returncode, (OK, CANNOT_OPEN))

    def test_verbose_shows_the_log_of_the_library(self):
        out, err = self.run_tool("list", "--simulated", "-v")
        self.assertIn("Camera 0", out)
        self.assertRegex(err, r"(?m)^\d\d:\d\d:\d\d\.\d{3} ERROR \[CameraOperator\]ParseMediaType success")

    def test_library_can_be_named(self):
        beside = Path(PROGRAM).parent / "libnuveqcamerahandler.so"
        shutil.copy(beside, self.file("copy.so"))
        out, _ = self.run_tool("list", "--simulated", "--library", "copy.so",
                               env={**os.environ, "LD_LIBRARY_PATH": str(beside.parent)})
        self.assertIn("Camera 0", out)

    def test_library_that_is_none_is_refused(self):
        for name in ("missing.so", Path(PROGRAM).parent / "libnuveqplatform.so"):
            _, err = self.run_tool("list", "--simulated", "--library", name, code=UNEXPECTED)
            self.assertRegex(err, r"^nuveqcam: cannot load the camera library /.*; give its file with --library\n$")


class Record(Tool):
    def test_mp4_holds_every_frame_and_says_so(self):
        out, err = self.run_tool("record", "--simulated", "--seconds", 1, *SMALL)
        self.assertEqual(err, "")
        summary = self.summary(out)
        self.assertTrue(out.startswith("recorded camera.mp4\n"))
        self.assertEqual(summary["request"], "320x240,")
        stream = self.stream("camera.mp4")
        self.assertEqual((stream["codec_name"], stream["width"], stream["height"]), ("h264", 320, 240))
        self.assertEqual(stream["nb_read_frames"], summary["frames"])
        self.assertAlmostEqual(float(stream["duration"]), float(summary["duration"]), delta=0.05)
        pictures = self.pictures("camera.mp4", 320, 240)
        self.assertEqual(len(pictures), int(summary["frames"]))
        played = subprocess.run(["ffmpeg", "-v", "error", "-i", str(self.file("camera.mp4")), "-enc_time_base", "-1",
                                 "-f", "null", "-"],
                                capture_output=True, stdin=subprocess.DEVNULL, timeout=PATIENCE)
        self.assertEqual((played.returncode, played.stderr), (0, b""))
        self.check_numbers(pictures, 320, 240)

    def test_mp4_has_increasing_times_from_zero_and_key_frames_marked(self):
        out, _ = self.run_tool("record", "--simulated", "--seconds", 6, *SMALL)
        packets = self.probe("camera.mp4", "packet=pts_time,dts_time,flags")["packets"]
        times = [float(packet["pts_time"]) for packet in packets]
        self.assertEqual(times[0], 0)
        self.assertTrue(all(a < b for a, b in zip(times, times[1:])))
        self.assertEqual(times, [float(packet["dts_time"]) for packet in packets])
        marked = [packet["flags"].startswith("K") for packet in packets]
        self.assertEqual(str(sum(marked)), self.summary(out)["key frames"])
        self.assertTrue(marked[0])
        self.assertFalse(all(marked))

    def test_size_and_rate_are_the_best_offered_unless_given(self):
        out, _ = self.run_tool("record", "--simulated", "--seconds", 1, "-o", "best.mp4")
        self.assertIn("  request       1280x720, 30 fps\n", out)
        self.assertEqual((self.stream("best.mp4")["width"], self.stream("best.mp4")["height"]), (1280, 720))
        out, _ = self.run_tool("record", "--simulated", "--seconds", 1, "-o", "asked.mp4", "--size=640x480", "--fps=15")
        self.assertIn("  request       640x480, 15 fps\n", out)
        self.assertEqual((self.stream("asked.mp4")["width"], self.stream("asked.mp4")["height"]), (640, 480))

    def test_raw_recording_is_a_stream_in_annex_b_form(self):
        for name in ("camera.h264", "CAMERA.264"):
            out, _ = self.run_tool("record", "--simulated", "--seconds", 1, "-o", name, *SMALL)
            self.assertTrue(self.file(name).read_bytes().startswith(b"\0\0\0\1"))
            pictures = self.pictures(name, 320, 240)
            self.assertEqual(len(pictures), int(self.summary(out)["frames"]))
            self.check_numbers(pictures, 320, 240)

    def test_recording_into_a_pipe_leaves_the_pipe_to_the_stream(self):
        process = self.start("record", "--simulated", "--seconds", 1, "-o", "-", *SMALL)
        out, err = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, OK)
        self.file("piped.h264").write_bytes(out)
        frames = int(self.summary(err.decode())["frames"])
        self.assertEqual(len(self.pictures("piped.h264", 320, 240)), frames)

    def test_slow_reader_loses_nothing(self):
        process = self.start("record", "--simulated", "--seconds", 3, "-o", "-", *SMALL)
        time.sleep(2)
        out, err = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, OK)
        self.file("slow.h264").write_bytes(out)
        pictures = self.pictures("slow.h264", 320, 240)
        self.assertEqual(len(pictures), int(self.summary(err.decode())["frames"]))
        self.check_numbers(pictures, 320, 240)

    def test_recording_is_not_shown_on_a_terminal(self):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        _, err = self.run_tool("record", "--simulated", "-o", "-", stdout=slave, code=USAGE)
        os.close(slave)
        self.assertIn("pipe it on, or choose a file with -o", err)


class Interrupt(Tool):
    def interrupt(self, name, number):
        process = self.start("record", "--simulated", "--seconds", 0, "-o", name, *SMALL)
        wait_until(lambda: self.file(name).exists() and self.file(name).stat().st_size > 10000, process)
        process.send_signal(number)
        out, err = process.communicate(timeout=PATIENCE)
        self.assertEqual((process.returncode, err), (OK, b""))
        self.assertTrue(out.decode().startswith(f"recorded {name} (interrupted)\n"))
        pictures = self.pictures(name, 320, 240)
        self.assertEqual(len(pictures), int(self.summary(out.decode())["frames"]))
        self.check_numbers(pictures, 320, 240)

    def test_ctrl_c_completes_an_mp4(self):
        self.interrupt("camera.mp4", signal.SIGINT)

    def test_ctrl_c_completes_a_raw_recording(self):
        self.interrupt("camera.h264", signal.SIGINT)

    def test_request_to_terminate_completes_an_mp4(self):
        self.interrupt("camera.mp4", signal.SIGTERM)

    def test_terminal_that_goes_away_completes_an_mp4(self):
        self.interrupt("camera.mp4", signal.SIGHUP)

    def start_into_stalled_pipe(self):
        """A recording whose writer waits for its reader while the camera goes on."""
        process = self.start("record", "--simulated", "--seconds", 0, "-o", "-", *SMALL)
        fcntl.fcntl(process.stdout, fcntl.F_SETPIPE_SZ, 4096)
        latest = [0]

        def has_stalled():
            time.sleep(1)
            waiting = array.array("i", [0])
            fcntl.ioctl(process.stdout, termios.FIONREAD, waiting)
            earlier, latest[0] = latest[0], waiting[0]
            return latest[0] > 0 and latest[0] == earlier

        wait_until(has_stalled, process)
        return process

    def test_ctrl_c_with_a_stalled_reader_writes_all_once_the_reader_goes_on(self):
        process = self.start_into_stalled_pipe()
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, OK)
        self.file("stalled.h264").write_bytes(out)
        self.assertIn("(interrupted)", err.decode())
        self.assertEqual(len(self.pictures("stalled.h264", 320, 240)), int(self.summary(err.decode())["frames"]))

    def test_second_ctrl_c_ends_a_program_that_waits_for_its_reader(self):
        process = self.start_into_stalled_pipe()

        def has_ended():
            process.send_signal(signal.SIGINT)
            time.sleep(0.2)
            return process.poll() is not None

        wait_until(has_ended)
        self.assertEqual(process.returncode, -signal.SIGINT)

    def test_ignored_ctrl_c_stays_ignored(self):
        process = subprocess.Popen([PROGRAM, "record", "--simulated", "--seconds", "2", *SMALL, "-o", "camera.h264"],
                                   cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_IGN))
        self.addCleanup(self.end, process)
        wait_until(lambda: self.file("camera.h264").exists() and self.file("camera.h264").stat().st_size > 0, process)
        process.send_signal(signal.SIGINT)
        out, _ = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, OK)
        self.assertTrue(out.startswith(b"recorded camera.h264\n"))


class Progress(Tool):
    def test_terminal_shows_progress_and_the_summary_begins_a_new_line(self):
        master, slave = pty.openpty()
        process = self.start("record", "--simulated", "--seconds", 1, *SMALL, stderr=slave)
        os.close(slave)
        shown = b""
        while True:
            try:
                piece = os.read(master, 4096)
            except OSError:  # the other end was closed
                break
            if not piece:
                break
            shown += piece
        os.close(master)
        out, _ = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, OK)
        self.assertTrue(out.startswith(b"recorded "))
        self.assertRegex(shown, rb"^(\r +\d+\.\d s +\d+ frames +\d+\.\d fps +\d+ kbit/s)+\r\n$")

    def test_pipe_gets_no_progress(self):
        _, err = self.run_tool("record", "--simulated", "--seconds", 1, *SMALL)
        self.assertEqual(err, "")


class Output(Tool):
    def test_missing_folder_is_named_with_the_next_step(self):
        for command, name in (("record", "no/such/camera.mp4"), ("snapshot", "no/such/camera.png")):
            out, err = self.run_tool(command, "--simulated", "-o", name, code=CANNOT_WRITE)
            self.assertEqual(out, "")
            self.assertEqual(err, f"nuveqcam: cannot write {name}: No such file or directory; make the folder first "
                                  "or choose another file with -o\n")

    def test_folder_in_the_place_of_the_file_is_refused(self):
        self.file("camera.mp4").mkdir()
        _, err = self.run_tool("record", "--simulated", code=CANNOT_WRITE)
        self.assertEqual(err, "nuveqcam: cannot write camera.mp4: Is a directory; choose another file with -o\n")

    def test_mp4_into_something_that_cannot_be_rewound_is_refused(self):
        os.symlink("/dev/null", self.file("null.mp4"))
        _, err = self.run_tool("record", "--simulated", "-o", "null.mp4", code=CANNOT_WRITE)
        self.assertIn("choose a regular file, or .h264, with -o", err)

    def test_camera_that_cannot_be_opened_costs_no_earlier_recording(self):
        self.file("kept.mp4").write_bytes(b"an earlier recording")
        for name in ("kept.mp4", "new.mp4"):
            self.run_tool("record", "--simulated", "--size", "333x222", "-o", name, code=CANNOT_OPEN)
        self.assertEqual(self.file("kept.mp4").read_bytes(), b"an earlier recording")
        self.assertFalse(self.file("new.mp4").exists())

    def test_longer_earlier_recording_is_replaced_whole(self):
        for name in ("camera.mp4", "camera.h264", "camera.png"):
            self.file(name).write_bytes(bytes(20_000_000))
        self.run_tool("record", "--simulated", "--seconds", 1, *SMALL)
        self.run_tool("record", "--simulated", "--seconds", 1, *SMALL, "-o", "camera.h264")
        self.run_tool("snapshot", "--simulated", *SMALL)
        for name in ("camera.mp4", "camera.h264", "camera.png"):
            self.assertLess(self.file(name).stat().st_size, 10_000_000)
            self.assertGreater(len(self.pictures(name, 320, 240)), 0)

    def test_device_without_room_ends_a_raw_recording(self):
        with open("/dev/full", "wb") as full:
            _, err = self.run_tool("record", "--simulated", "-o", "-", *SMALL, stdout=full, code=CANNOT_WRITE)
        self.assertEqual(err, "nuveqcam: cannot write the standard output: No space left on device; "
                              "write to a file with -o\n")

    def test_list_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            self.run_tool("list", "--simulated", stdout=full, code=CANNOT_WRITE)

    def test_file_that_may_not_grow_ends_an_mp4_and_stays(self):
        def limit():
            reset_signals()
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
            resource.setrlimit(resource.RLIMIT_FSIZE, (50000, 50000))

        process = subprocess.Popen([PROGRAM, "record", "--simulated", "--seconds", "60", "--size", "640x480"],
                                   cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=limit)
        self.addCleanup(self.end, process)
        _, err = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, CANNOT_WRITE)
        self.assertRegex(err, rb"^nuveqcam: cannot write camera.mp4: File too large; make room there or choose another "
                              rb"place with -o; what is there is incomplete")
        self.assertGreater(self.file("camera.mp4").stat().st_size, 0)

    def test_reader_that_ends_is_a_failure_to_write(self):
        process = self.start("record", "--simulated", "--seconds", 60, "-o", "-", *SMALL)
        process.stdout.read(1000)
        process.stdout.close()
        err = process.stderr.read().decode()
        self.assertEqual(process.wait(timeout=PATIENCE), CANNOT_WRITE)
        self.assertRegex(err, "^nuveqcam: cannot write the standard output: Broken pipe; the program that reads it has")


class FullDisk(Tool):
    """Registered where a file system can be mounted for the test alone."""

    SCRIPT = 'mount -t tmpfs -o size=64k none "$0" && cd "$0" && "$@"; code=$?; ls -l; cd /; umount "$0"; exit $code'

    def run_on_full_disk(self, *arguments):
        command = ["unshare", "-m", "--propagation", "unchanged"] if os.geteuid() == 0 else ["unshare", "-rm"]
        return subprocess.run([*command, "sh", "-c", self.SCRIPT, str(self.folder), PROGRAM, *arguments],
                              capture_output=True, timeout=PATIENCE, preexec_fn=reset_signals, text=True)

    def test_full_disk_ends_a_recording_with_the_cause_and_leaves_the_file(self):
        for name, left in (("camera.mp4", "incomplete and will not play"), ("camera.h264", "plays up to where it ends")):
            result = self.run_on_full_disk("record", "--simulated", "--seconds", "60", "-o", name, "--size", "640x480")
            self.assertEqual(result.returncode, CANNOT_WRITE, result.stderr)
            self.assertIn(f"nuveqcam: cannot write {name}: No space left on device; make room there", result.stderr)
            self.assertIn(left, result.stderr)
            self.assertRegex(result.stdout, rf"\d{{5}} .*{name}")

    def test_full_disk_ends_a_snapshot(self):
        result = self.run_on_full_disk("snapshot", "--simulated", "-o", "camera.png")
        self.assertEqual(result.returncode, CANNOT_WRITE, result.stderr)
        self.assertIn("nuveqcam: cannot write camera.png: No space left on device; make room there", result.stderr)


class Snapshot(Tool):
    def test_picture_is_the_tenth_upright_and_in_its_colours(self):
        out, err = self.run_tool("snapshot", "--simulated", "--size", "640x480")
        self.assertEqual((out, err), ("took camera.png\n  size     640x480\n  picture  10 of the stream\n", ""))
        stream = self.stream("camera.png")
        self.assertEqual((stream["codec_name"], stream["width"], stream["height"]), ("png", 640, 480))
        [gray] = self.pictures("camera.png", 640, 480)
        self.assertEqual(frame_number(gray, 640, 480), 9)
        [rgb] = self.pictures("camera.png", 640, 480, "rgb24")
        for x, y, colour in ((10, 90, (255, 0, 0)), (629, 90, (0, 255, 0)), (10, 469, (0, 0, 255)),
                             (629, 469, (255, 255, 255))):
            pixel = rgb[3 * (640 * y + x):][:3]
            self.assertTrue(all(abs(a - b) < 24 for a, b in zip(pixel, colour)), (x, y, tuple(pixel), colour))

    def test_skip_says_which_picture(self):
        for skip in (0, 25):
            out, _ = self.run_tool("snapshot", "--simulated", "--skip", skip, *SMALL)
            self.assertIn(f"picture  {skip + 1} of the stream", out)
            [gray] = self.pictures("camera.png", 320, 240)
            self.assertEqual(frame_number(gray, 320, 240), skip)

    def test_picture_goes_into_a_pipe(self):
        process = self.start("snapshot", "--simulated", "-o", "-", *SMALL)
        out, err = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, OK)
        self.assertTrue(out.startswith(b"\x89PNG"))
        self.assertTrue(err.startswith(b"took the standard output\n"))

    def test_interrupted_before_the_picture_leaves_nothing(self):
        process = self.start("snapshot", "--simulated", "--skip", 100000, *SMALL)
        wait_until(lambda: self.file("camera.png").exists(), process)
        process.send_signal(signal.SIGINT)
        _, err = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, ENDED_EARLY)
        self.assertIn(b"interrupted", err)
        self.assertFalse(self.file("camera.png").exists())


class Clip(Tool):
    def make_clip(self, name):
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=c=0x2060C0:size=320x240:rate=30", "-t", "1",
                        "-c:v", "mjpeg", str(self.file(name))], stdin=subprocess.DEVNULL, timeout=PATIENCE, check=True)

    def test_camera_shows_the_clip_wherever_the_option_stands(self):
        self.make_clip("clip.avi")
        for arguments in (["--simulated", "clip.avi", "snapshot"], ["snapshot", "--simulated=clip.avi"],
                          ["snapshot", *SMALL, "--simulated", "clip.avi"]):
            self.run_tool(*arguments, *SMALL)
            [rgb] = self.pictures("camera.png", 320, 240, "rgb24")
            middle = rgb[3 * (320 * 120 + 160):][:3]
            self.assertTrue(all(abs(a - b) < 24 for a, b in zip(middle, (0x20, 0x60, 0xC0))), tuple(middle))

    def test_clip_is_played_over_and_over(self):
        self.make_clip("clip.avi")
        out, _ = self.run_tool("record", "--simulated", "clip.avi", "--seconds", 2, *SMALL)
        self.assertGreater(int(self.summary(out)["frames"]), 30)

    def test_unplayable_clip_is_named(self):
        self.file("clip.txt").write_text("no film\n" * 100)
        for name in ("clip.txt", "missing.mp4"):
            _, err = self.run_tool("list", "--simulated", name, code=USAGE)
            self.assertRegex(err, rf"^nuveqcam: cannot play {name}: .+; name another video file after --simulated\n$")


class Refusal(Tool):
    def test_size_that_the_camera_lacks_is_explained(self):
        for command in ("record", "snapshot"):
            _, err = self.run_tool(command, "--simulated", "--size", "334x222", code=CANNOT_OPEN)
            self.assertRegex(err, r"^nuveqcam: cannot open the camera at 334x222, \d+ fps \(result -1001\): the camera does not "
                                  r"deliver that format; choose a size with --size from those of 'nuveqcam list' "
                                  r"\(the library said: Set camera parameter fail, error:-2147220992\)\n$")

    def test_size_that_the_encoder_refuses_is_explained(self):
        _, err = self.run_tool("record", "--simulated", "--size", "9000x222", code=CANNOT_OPEN)
        self.assertRegex(err, r"\(result -1004\) \(the library said: .*encoder.*\); the encoder refuses this; "
                              r"choose another size with --size")


if __name__ == "__main__":
    unittest.main()
