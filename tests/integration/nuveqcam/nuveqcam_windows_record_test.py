"""nuveqcam.exe as a user runs it: recordings, pictures and errors, under Wine with the camera fixtures.

ctest runs each test separately. To run all of them in a prefix with the fixtures:
NUVEQCAM=build/windows/bin/nuveqcam.exe NUVEQCAM_VERSION=0.1.0 NUVEQCAM_RUNNER=scripts/wine.sh \\
USE_PC=build/windows/fixtures/use_pc.exe python3 FILE
"""

import os
import signal
import subprocess
import time
import unittest

from nuveqcam_tool import CANNOT_OPEN, CANNOT_WRITE, ENDED_EARLY, SMALL, frame_number, is_pending, wait_until, wait_until_blocked_writing
from nuveqcam_windows_tool import WindowsTool

# The low eight bits of STATUS_CONTROL_C_EXIT: Wine's process exit status has only these.
ENDED_BY_CTRL_C = 0x3A


class WindowsRecord(WindowsTool):
    def test_recording_has_every_frame(self):
        for name in ("camera.h264", "Aufnahme \u00fc \u4e2d.264"):
            out, err = self.run_tool("record", "--seconds", 1, "-o", name, *SMALL)
            self.assertEqual(err, "")
            self.assertTrue(out.startswith(f"recorded {name}\n  request       320x240, 30 fps\n"), out)
            self.check_recording(name, out, 320, 240)

    def test_size_and_rate_have_defaults(self):
        out, _ = self.run_tool("record", "--seconds", 1)
        self.assertTrue(out.startswith("recorded camera.h264\n  request       1280x720, 30 fps\n"), out)
        self.check_recording("camera.h264", out, 1280, 720)
        out, _ = self.run_tool("record", "--seconds", 1, "--size=640x480", "--fps=15")
        self.assertIn("  request       640x480, 15 fps\n", out)
        self.check_recording("camera.h264", out, 640, 480)

    def test_standard_output_gets_the_stream_unchanged(self):
        out, err = self.finish(self.start("record", "--seconds", 1, "-o", "-", *SMALL))
        self.file("piped.h264").write_bytes(out)
        self.assertTrue(err.startswith("recorded standard output\n"))
        self.check_recording("piped.h264", err, 320, 240)

    def test_longer_earlier_recording_is_truncated(self):
        self.file("camera.h264").write_bytes(bytes(20_000_000))
        out, _ = self.run_tool("record", "--seconds", 1, *SMALL)
        self.assertLess(self.file("camera.h264").stat().st_size, 10_000_000)
        self.check_recording("camera.h264", out, 320, 240)

    def test_ctrl_c_completes_the_recording(self):
        process = self.start("record", "--seconds", 0, *SMALL)
        wait_until(lambda: self.file("camera.h264").exists() and self.file("camera.h264").stat().st_size > 10000, process)
        process.send_signal(signal.SIGINT)
        out, err = self.finish(process)
        self.assertEqual(err, "")
        self.assertTrue(out.startswith(b"recorded camera.h264 (interrupted)\n"))
        self.check_recording("camera.h264", out.decode(), 320, 240)

    def start_into_pipe(self, **options):
        process = self.start("record", "--seconds", 0, "-o", "-", *SMALL, stdout=subprocess.PIPE, **options)
        self.addCleanup(process.stdout.close)
        self.assertEqual(process.stdout.read(4), b"\0\0\0\1")
        return process

    def test_second_ctrl_c_ends_a_program_that_waits_for_its_reader(self):
        process = self.start_into_pipe(pipesize=4096)
        wait_until_blocked_writing(process)
        process.send_signal(signal.SIGINT)
        wait_until(lambda: not is_pending(process.pid, signal.SIGINT), process)
        # If the first Ctrl-C ended the program, it would have ended by then.
        time.sleep(0.5)
        self.assertIsNone(process.poll())
        process.send_signal(signal.SIGINT)
        self.finish(process, ENDED_BY_CTRL_C)

    def test_reader_that_exits_is_a_write_error(self):
        process = self.start_into_pipe()
        process.stdout.close()
        _, err = self.finish(process, CANNOT_WRITE)
        self.assertRegex(err, "nuveqcam: cannot write standard output: .+; the program that reads it has exited; "
                              "the recording can be played up to its end\n$")


class WindowsSnapshot(WindowsTool):
    def test_picture_is_the_tenth_upright_and_in_color(self):
        self.check_snapshot()

    def test_skip_selects_the_picture(self):
        for skip in (0, 25):
            out, _ = self.run_tool("snapshot", "--skip", skip, *SMALL, "-o", "Bild \u4e2d.png")
            self.assertIn(f"picture  {skip + 1} of the stream", out)
            [gray] = self.pictures("Bild \u4e2d.png", 320, 240)
            self.assertEqual(frame_number(gray, 320, 240), skip)

    def test_size_that_is_not_a_multiple_of_macroblocks_is_cropped(self):
        self.run_tool("snapshot", "--size", "1920x1080", "--skip", 0)
        stream = self.stream("camera.png")
        self.assertEqual((stream["width"], stream["height"]), (1920, 1080))

    def test_picture_can_be_written_to_standard_output(self):
        out, err = self.finish(self.start("snapshot", "-o", "-", *SMALL))
        self.file("piped.png").write_bytes(out)
        self.assertTrue(err.startswith("took standard output\n"))
        self.assertEqual(len(self.pictures("piped.png", 320, 240)), 1)

    def test_interrupted_before_the_picture_leaves_nothing(self):
        process = self.start("snapshot", "--skip", 100000, *SMALL)
        # The console control handler is installed before the file is created.
        wait_until(lambda: self.file("camera.png").exists(), process)
        process.send_signal(signal.SIGINT)
        _, err = self.finish(process, ENDED_EARLY)
        self.assertIn("interrupted", err)
        self.assertFalse(self.file("camera.png").exists())


class WindowsErrors(WindowsTool):
    def test_size_that_the_camera_does_not_have_is_explained(self):
        self.file("kept.h264").write_bytes(b"an earlier recording")
        for command, name in (("record", "kept.h264"), ("record", "new.h264"), ("snapshot", "new.png")):
            _, err = self.run_tool(command, "--size", "334x222", "-o", name, code=CANNOT_OPEN)
            self.assertRegex(err, r"^nuveqcam: cannot open the camera at 334x222, \d+ fps \(result -1001\): the camera does not "
                                  r"deliver that format; choose one of the sizes of 'nuveqcam list' with --size "
                                  r"\(library log: Set camera parameter fail, error:-\d+\)\n$")
        self.assertEqual(self.file("kept.h264").read_bytes(), b"an earlier recording")
        self.assertEqual([file.name for file in self.folder.iterdir()], ["kept.h264"])

    def test_missing_folder_is_reported_with_the_next_step(self):
        for command, name in (("record", "no/such/camera.h264"), ("snapshot", r"no\such\camera.png")):
            out, err = self.run_tool(command, "-o", name, code=CANNOT_WRITE)
            self.assertEqual(out, "")
            self.assertTrue(err.startswith(f"nuveqcam: cannot write {name}: "), err)
            self.assertTrue(err.endswith("; create the folder first or choose another file with -o\n"), err)

    def test_folder_as_output_is_rejected(self):
        self.file("camera.h264").mkdir()
        _, err = self.run_tool("record", code=CANNOT_WRITE)
        self.assertRegex(err, r"^nuveqcam: cannot write camera\.h264: .+; choose another file with -o\n$")

    def test_full_device_ends_a_recording(self):
        with open("/dev/full", "wb") as full:
            _, err = self.run_tool("record", "-o", "-", *SMALL, stdout=full, code=CANNOT_WRITE)
        self.assertRegex(err, r"nuveqcam: cannot write standard output: .+; write to a file with -o")


class WindowsFailingCamera(WindowsTool):
    def start(self, *arguments, **options):
        return super().start(*arguments, env={**os.environ, **self.behaviour}, **options)

    def test_camera_in_use_is_explained(self):
        self.behaviour = {"NUVEQ_FIXTURE_RUN": "800700AA"}
        for command in ("record", "snapshot"):
            out, err = self.run_tool(command, *SMALL, code=CANNOT_OPEN)
            self.assertEqual(out, "")
            self.assertRegex(err, r"^nuveqcam: cannot open the camera at 320x240, 30 fps \(result -1001\): the camera is in use "
                                  r"by another program; close that program and try again \(library log: .+\)\n$")
        self.assertEqual(list(self.folder.iterdir()), [])

    def check_cut_short(self, seconds, amount):
        """Records from a camera that is disconnected after 20 frames."""
        self.behaviour = {"NUVEQ_FIXTURE_LOST_AFTER": "20"}
        out, err = self.run_tool("record", "--seconds", seconds, *SMALL, code=ENDED_EARLY)
        self.assertRegex(err, rf"^nuveqcam: no packets from the camera for 10 s; recorded \d+\.\d\d s{amount}, complete up to that "
                              r"point; check with 'nuveqcam list' that the camera is present, then try again\n$")
        self.assertEqual(len(self.check_recording("camera.h264", out, 320, 240)), 20)

    def test_disconnect_ends_and_keeps_an_unlimited_recording(self):
        self.check_cut_short(0, "")

    def test_disconnect_ends_and_keeps_a_limited_recording(self):
        self.check_cut_short(5, " of 5 s")

    def test_disconnect_during_a_snapshot_leaves_nothing(self):
        self.behaviour = {"NUVEQ_FIXTURE_LOST_AFTER": "3"}
        out, err = self.run_tool("snapshot", *SMALL, code=ENDED_EARLY)
        self.assertEqual((out, err), ("", "nuveqcam: no packets from the camera for 10 s after 3 of 10 pictures; nothing "
                                          "was written; check with 'nuveqcam list' that the camera is present, then try "
                                          "again\n"))
        self.assertEqual(list(self.folder.iterdir()), [])


if __name__ == "__main__":
    unittest.main()
