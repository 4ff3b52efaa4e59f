"""nuveqcam as a user runs it: recordings and their outputs, with the simulated PC.

ctest runs each test separately. To run all of them:
NUVEQCAM=build/native/bin/nuveqcam NUVEQCAM_VERSION=0.1.0 NUVEQCAM_MAN=tools/nuveqcam/nuveqcam.1 python3 FILE
"""

import fcntl
import os
import pty
import resource
import signal
import subprocess
import time
import unittest
from pathlib import Path

from nuveqcam_tool import (CANNOT_OPEN, CANNOT_WRITE, ENDED_EARLY, OK, TIMEOUT, PROGRAM, SMALL, USAGE, Tool, catches,
                           is_capturing, reset_signals, wait_until, wait_until_blocked_writing, wait_until_polling)


class Record(Tool):
    def test_mp4_has_every_frame_and_a_summary(self):
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
                                capture_output=True, stdin=subprocess.DEVNULL, timeout=TIMEOUT)
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

    def test_size_and_rate_have_defaults(self):
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

    def test_recording_into_a_pipe_writes_only_the_stream(self):
        process = self.start("record", "--simulated", "--seconds", 1, "-o", "-", *SMALL)
        out, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, OK)
        self.file("piped.h264").write_bytes(out)
        frames = int(self.summary(err.decode())["frames"])
        self.assertEqual(len(self.pictures("piped.h264", 320, 240)), frames)

    def test_slow_reader_loses_nothing(self):
        process = self.start("record", "--simulated", "--seconds", 3, "-o", "-", *SMALL, pipesize=4096)
        wait_until_blocked_writing(process)
        # The reader stalls while the camera delivers more frames.
        time.sleep(1)
        out, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, OK)
        self.file("slow.h264").write_bytes(out)
        pictures = self.pictures("slow.h264", 320, 240)
        self.assertEqual(len(pictures), int(self.summary(err.decode())["frames"]))
        self.check_numbers(pictures, 320, 240)

    def test_duration_includes_the_wait_for_a_reader(self):
        endless, limited = (self.start("record", "--simulated", "--seconds", seconds, "-o", "-", "--size", "640x480",
                                       pipesize=4096) for seconds in (0, 1))
        for process in (endless, limited):
            wait_until_blocked_writing(process)
        # The camera is closed before anything is read.
        wait_until(lambda: not is_capturing(limited), limited)
        self.assertTrue(is_capturing(endless))
        out, err = limited.communicate(timeout=TIMEOUT)
        self.assertEqual(limited.returncode, OK)
        self.file("limited.h264").write_bytes(out)
        self.assertEqual(len(self.pictures("limited.h264", 640, 480)), int(self.summary(err.decode())["frames"]))

    def test_non_blocking_pipe_gets_everything(self):
        reader, writer = os.pipe()
        fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
        os.set_blocking(writer, False)
        process = self.start("record", "--simulated", "--seconds", 1, "-o", "-", *SMALL, stdout=writer)
        os.close(writer)
        wait_until_polling(process)
        with open(reader, "rb") as pipe:
            self.file("piped.h264").write_bytes(pipe.read())
        _, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, OK, err)
        self.assertEqual(len(self.pictures("piped.h264", 320, 240)), int(self.summary(err.decode())["frames"]))

    def test_recording_to_a_terminal_is_rejected(self):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        _, err = self.run_tool("record", "--simulated", "-o", "-", stdout=slave, code=USAGE)
        os.close(slave)
        self.assertIn("pipe it into a program, or choose a file with -o", err)


class Interrupt(Tool):
    def interrupt(self, name, number):
        process = self.start("record", "--simulated", "--seconds", 0, "-o", name, *SMALL)
        wait_until(lambda: self.file(name).exists() and self.file(name).stat().st_size > 10000, process)
        process.send_signal(number)
        out, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual((process.returncode, err), (OK, b""))
        self.assertTrue(out.decode().startswith(f"recorded {name} (interrupted)\n"))
        pictures = self.pictures(name, 320, 240)
        self.assertEqual(len(pictures), int(self.summary(out.decode())["frames"]))
        self.check_numbers(pictures, 320, 240)

    def test_ctrl_c_completes_an_mp4(self):
        self.interrupt("camera.mp4", signal.SIGINT)

    def test_ctrl_c_completes_a_raw_recording(self):
        self.interrupt("camera.h264", signal.SIGINT)

    def test_sigterm_completes_an_mp4(self):
        self.interrupt("camera.mp4", signal.SIGTERM)

    def test_sighup_completes_an_mp4(self):
        self.interrupt("camera.mp4", signal.SIGHUP)

    def start_into_stalled_pipe(self):
        """Starts a recording whose writer is blocked while the camera delivers frames."""
        process = self.start("record", "--simulated", "--seconds", 0, "-o", "-", *SMALL, pipesize=4096)
        wait_until_blocked_writing(process)
        return process

    def test_ctrl_c_with_a_stalled_reader_writes_all_once_the_reader_resumes(self):
        process = self.start_into_stalled_pipe()
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, OK)
        self.file("stalled.h264").write_bytes(out)
        self.assertIn("(interrupted)", err.decode())
        self.assertEqual(len(self.pictures("stalled.h264", 320, 240)), int(self.summary(err.decode())["frames"]))

    def test_second_ctrl_c_ends_a_program_that_waits_for_its_reader(self):
        process = self.start_into_stalled_pipe()
        process.send_signal(signal.SIGINT)
        # The first one restores the signal's default action.
        wait_until(lambda: not catches(process, signal.SIGINT), process)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=TIMEOUT), -signal.SIGINT)

    def test_ctrl_c_ends_the_wait_for_the_reader_of_a_named_pipe(self):
        os.mkfifo(self.file("pipe.h264"))
        process = self.start("record", "--simulated", "-o", "pipe.h264", *SMALL)
        wait_until(lambda: catches(process, signal.SIGINT), process)
        process.send_signal(signal.SIGINT)
        _, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual((process.returncode, err),
                         (ENDED_EARLY, b"nuveqcam: interrupted before a program opened pipe.h264 for reading; nothing was "
                                       b"written\n"))
        self.assertTrue(self.file("pipe.h264").is_fifo())

    def test_named_pipe_gets_the_recording_once_it_has_a_reader(self):
        os.mkfifo(self.file("pipe.h264"))
        process = self.start("record", "--simulated", "--seconds", 1, "-o", "pipe.h264", *SMALL)
        wait_until(lambda: catches(process, signal.SIGINT), process)
        self.file("copy.h264").write_bytes(self.file("pipe.h264").read_bytes())
        out, _ = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, OK)
        self.assertEqual(len(self.pictures("copy.h264", 320, 240)), int(self.summary(out.decode())["frames"]))

    def test_ignored_ctrl_c_stays_ignored(self):
        process = subprocess.Popen([PROGRAM, "record", "--simulated", "--seconds", "2", *SMALL, "-o", "camera.h264"],
                                   cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_IGN))
        self.addCleanup(self.end, process)
        wait_until(lambda: self.file("camera.h264").exists() and self.file("camera.h264").stat().st_size > 0, process)
        process.send_signal(signal.SIGINT)
        out, _ = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, OK)
        self.assertTrue(out.startswith(b"recorded camera.h264\n"))


class Progress(Tool):
    def test_terminal_shows_progress_on_one_line(self):
        master, slave = pty.openpty()
        process = self.start("record", "--simulated", "--seconds", 3, *SMALL, stderr=slave)
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
        out, _ = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, OK)
        self.assertTrue(out.startswith(b"recorded "))
        self.assertRegex(shown, rb"^(\r +\d+\.\d s +\d+ frames +\d+\.\d fps +\d+ kbit/s)+\r\n$")

    def test_pipe_gets_no_progress(self):
        _, err = self.run_tool("record", "--simulated", "--seconds", 1, *SMALL)
        self.assertEqual(err, "")


class Output(Tool):
    def test_missing_folder_is_reported_with_the_next_step(self):
        for command, name in (("record", "no/such/camera.mp4"), ("snapshot", "no/such/camera.png")):
            out, err = self.run_tool(command, "--simulated", "-o", name, code=CANNOT_WRITE)
            self.assertEqual(out, "")
            self.assertEqual(err, f"nuveqcam: cannot write {name}: No such file or directory; create the folder first "
                                  "or choose another file with -o\n")

    def test_folder_as_output_is_rejected(self):
        self.file("camera.mp4").mkdir()
        _, err = self.run_tool("record", "--simulated", code=CANNOT_WRITE)
        self.assertEqual(err, "nuveqcam: cannot write camera.mp4: Is a directory; choose another file with -o\n")

    def test_mp4_to_an_unseekable_file_is_rejected(self):
        os.symlink("/dev/null", self.file("null.mp4"))
        _, err = self.run_tool("record", "--simulated", "-o", "null.mp4", code=CANNOT_WRITE)
        self.assertIn("choose a regular file, or .h264, with -o", err)

    def test_failed_open_keeps_an_earlier_recording(self):
        self.file("kept.mp4").write_bytes(b"an earlier recording")
        for name in ("kept.mp4", "new.mp4"):
            self.run_tool("record", "--simulated", "--size", "333x222", "-o", name, code=CANNOT_OPEN)
        self.assertEqual(self.file("kept.mp4").read_bytes(), b"an earlier recording")
        self.assertFalse(self.file("new.mp4").exists())

    def test_longer_earlier_recording_is_truncated(self):
        for name in ("camera.mp4", "camera.h264", "camera.png"):
            self.file(name).write_bytes(bytes(20_000_000))
        self.run_tool("record", "--simulated", "--seconds", 1, *SMALL)
        self.run_tool("record", "--simulated", "--seconds", 1, *SMALL, "-o", "camera.h264")
        self.run_tool("snapshot", "--simulated", *SMALL)
        for name in ("camera.mp4", "camera.h264", "camera.png"):
            self.assertLess(self.file(name).stat().st_size, 10_000_000)
            self.assertGreater(len(self.pictures(name, 320, 240)), 0)

    def test_full_device_ends_a_raw_recording(self):
        with open("/dev/full", "wb") as full:
            _, err = self.run_tool("record", "--simulated", "-o", "-", *SMALL, stdout=full, code=CANNOT_WRITE)
        self.assertEqual(err, "nuveqcam: cannot write standard output: No space left on device; "
                              "write to a file with -o\n")

    def test_list_to_a_full_device_fails(self):
        with open("/dev/full", "wb") as full:
            self.run_tool("list", "--simulated", stdout=full, code=CANNOT_WRITE)

    def run_without(self, redirection, *arguments):
        """Runs the program with closed standard streams."""
        return subprocess.run(["sh", "-c", f'exec "$0" "$@" {redirection}', PROGRAM, *arguments], cwd=self.folder,
                              capture_output=True, timeout=TIMEOUT, preexec_fn=reset_signals)

    def test_closed_standard_streams_do_not_corrupt_a_recording(self):
        for number, redirection in enumerate(("2>&-", "<&- 2>&-", "<&-")):
            name = f"camera{number}.mp4"
            result = self.run_without(redirection, "record", "-v", "--simulated", "--seconds", "1", "-o", name, *SMALL)
            self.assertEqual(result.returncode, OK)
            pictures = self.pictures(name, 320, 240)
            self.assertEqual(len(pictures), int(self.summary(result.stdout.decode())["frames"]))

    def test_closed_standard_output_fails(self):
        for arguments in (["list", "--simulated"], ["--version"], ["record", "--simulated", "-o", "-", *SMALL]):
            self.assertEqual(self.run_without(">&-", *arguments).returncode, CANNOT_WRITE)

    def test_file_size_limit_ends_an_mp4_and_keeps_it(self):
        def limit():
            reset_signals()
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
            resource.setrlimit(resource.RLIMIT_FSIZE, (50000, 50000))

        process = subprocess.Popen([PROGRAM, "record", "--simulated", "--seconds", "60", "--size", "640x480"],
                                   cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=limit)
        self.addCleanup(self.end, process)
        _, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, CANNOT_WRITE)
        self.assertRegex(err, rb"^nuveqcam: cannot write camera.mp4: File too large; free some space there or choose another "
                              rb"place with -o; the file is incomplete")
        self.assertGreater(self.file("camera.mp4").stat().st_size, 0)

    def test_reader_that_exits_is_a_write_error(self):
        process = self.start("record", "--simulated", "--seconds", 60, "-o", "-", *SMALL)
        process.stdout.read(1000)
        process.stdout.close()
        err = process.stderr.read().decode()
        self.assertEqual(process.wait(timeout=TIMEOUT), CANNOT_WRITE)
        self.assertRegex(err, "^nuveqcam: cannot write standard output: Broken pipe; the program that reads it has")


if __name__ == "__main__":
    unittest.main()
