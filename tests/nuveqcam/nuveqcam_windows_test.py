"""nuveqcam.exe as a person runs it, under Wine over the camera fixtures.

Run by ctest, a test at a time, or by hand in a prefix with the fixtures:
NUVEQCAM=build/windows/bin/nuveqcam.exe NUVEQCAM_VERSION=0.1.0 NUVEQCAM_RUNNER=scripts/wine.sh \\
USE_PC=build/windows/fixtures/use_pc.exe python3 FILE
"""

import fcntl
import json
import os
import pty
import re
import select
import shutil
import signal
import subprocess
import time
import unittest
from pathlib import Path

from nuveqcam_tool import (CANNOT_OPEN, CANNOT_WRITE, ENDED_EARLY, NO_CAMERA, OK, PROGRAM, SMALL, UNEXPECTED, USAGE,
                           Tool, frame_number, reset_signals, wait_until, wait_until_stalled)

RUNNER = os.path.abspath(os.environ["NUVEQCAM_RUNNER"])
USE_PC = os.path.abspath(os.environ["USE_PC"])
PATIENCE = 100

# What the lowest eight bits of STATUS_CONTROL_C_EXIT are, which is all that a process under Wine can end with.
ENDED_BY_CTRL_C = 0x3A


class WindowsTool(Tool):
    PC = "laptop"

    def setUp(self):
        super().setUp()
        # As inconvenient as people's folders are.
        self.folder = self.folder / "Meine Bilder \u00e4 \u4e2d"
        self.folder.mkdir()
        self.use_pc(self.PC)
        self.runs = 0

    @staticmethod
    def use_pc(pc):
        subprocess.run([RUNNER, USE_PC, pc], stdin=subprocess.DEVNULL, timeout=PATIENCE, check=True)

    def start(self, *arguments, **options):
        """Into files: processes of Wine's may hold pipes open, so that nobody may wait for their end."""
        self.runs += 1
        self.out, self.err = (self.folder.parent / f"{name}{self.runs}" for name in ("out", "err"))
        with open(self.out, "wb") as out, open(self.err, "wb") as err:
            options = {"stdout": out, "stderr": err, **options}
            process = subprocess.Popen([RUNNER, "--live", PROGRAM, *map(str, arguments)], cwd=self.folder,
                                       stdin=subprocess.DEVNULL, preexec_fn=reset_signals, **options)
        self.addCleanup(self.end, process)
        return process

    @staticmethod
    def end(process):
        if process.poll() is None:
            process.kill()
        process.wait()

    def finish(self, process, code=OK):
        process.wait(timeout=PATIENCE)
        err = self.err.read_text(encoding="utf-8")
        self.assertEqual(process.returncode, code, err)
        return self.out.read_bytes(), err

    def run_tool(self, *arguments, code=OK, **options):
        out, err = self.finish(self.start(*arguments, **options), code)
        return out.decode("utf-8"), err

    def check_recording(self, name, summary, width, height):
        self.assertEqual(self.file(name).read_bytes()[:5], b"\0\0\0\1\x67")
        pictures = self.pictures(name, width, height)
        self.assertEqual(len(pictures), int(self.summary(summary)["frames"]))
        self.check_numbers(pictures, width, height)
        return pictures


class WindowsWords(WindowsTool):
    def test_version(self):
        self.assertEqual(self.run_tool("--version"), (f"nuveqcam {os.environ['NUVEQCAM_VERSION']}\n", ""))

    def test_help_is_of_this_system(self):
        for words in ([], ["list"], ["record"], ["snapshot"], ["doctor"]):
            out, err = self.run_tool(*words, "--help")
            self.assertEqual(err, "")
            self.assertIn("(libnuveqcamerahandler.dll beside the\n", out)
            for other in ("mp4", "--simulated", "\r"):
                self.assertNotIn(other, out)

    def test_wrong_arguments_are_refused_with_the_way_to_help(self):
        for arguments in ([], ["fly"], ["record", "--size", "big"], ["record", "-o", "me.mp4"], ["list", "--simulated"]):
            out, err = self.run_tool(*arguments, code=USAGE)
            self.assertEqual(out, "")
            self.assertRegex(err, r"^nuveqcam: .+; see 'nuveqcam --help'\n$")
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_arguments_keep_their_characters(self):
        _, err = self.run_tool("gr\u00fc\u00df \u4e2d\U0001F4F7", code=USAGE)
        self.assertIn("unknown command 'gr\u00fc\u00df \u4e2d\U0001F4F7';", err)

    def test_file_says_what_it_is(self):
        content = Path(PROGRAM).read_bytes()
        for text in ("Shows and records the PC's built-in camera", os.environ["NUVEQCAM_VERSION"], "nuveqcam.exe"):
            self.assertIn(text.encode("utf-16-le"), content)


class WindowsListing(WindowsTool):
    def test_shows_the_camera_and_the_devices_that_are_not_offered(self):
        out, err = self.run_tool("list")
        self.assertEqual(err, "")
        self.assertTrue(out.startswith("Camera 0: Integrated Camera (usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000)\n"
                                       "  sizes    320 x   240\n"), out)
        self.assertRegex(out, r"(?m)^ +1280 x +720$")
        self.assertRegex(out, r"(?m)^ +30 fps$")
        self.assertTrue(out.endswith("Other capture devices, not offered:\n"
                                     "  usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000  USB Camera  "
                                     "it is plugged in: its USB device can be removed\n"), out)

    def test_json_has_the_documented_members(self):
        out, err = self.run_tool("list", "--json")
        self.assertEqual((err, out.count("\n")), ("", 1))
        answer = json.loads(out)
        [camera] = answer["cameras"]
        self.assertEqual(set(camera), {"id", "sizes", "rates"})
        self.assertIn({"width": 1920, "height": 1080}, camera["sizes"])
        self.assertIn(30, camera["rates"])
        devices = {device["name"]: device for device in answer["devices"]}
        self.assertEqual(set(devices), {"Integrated Camera", "USB Camera"})
        self.assertTrue(devices["Integrated Camera"]["builtIn"])
        self.assertIsNone(devices["Integrated Camera"]["reason"])
        self.assertFalse(devices["USB Camera"]["builtIn"])

    def test_pc_without_a_camera_is_told_from_one_with_another_camera(self):
        for command in ("list", "record", "snapshot"):
            self.use_pc("none")
            out, err = self.run_tool(command, code=NO_CAMERA)
            self.assertEqual((out, err), ("", "nuveqcam: this PC has no built-in camera; switch it on if it has one, or "
                                              "look for it under Cameras in Device Manager\nno capture device was seen\n"))
            self.use_pc("plug-in")
            out, err = self.run_tool(command, code=NO_CAMERA)
            self.assertEqual(out, "")
            self.assertIn("capture devices seen:\n  usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000  USB Camera, not taken: "
                          "it is plugged in: its USB device can be removed\n", err)
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_json_without_a_camera_is_an_answer_too(self):
        self.use_pc("none")
        out, _ = self.run_tool("list", "--json", code=NO_CAMERA)
        self.assertEqual(json.loads(out), {"cameras": [], "devices": []})

    def test_verbose_shows_the_log_of_the_library(self):
        out, err = self.run_tool("list", "-v")
        self.assertIn("Camera 0", out)
        self.assertRegex(err, r"(?m)^\d\d:\d\d:\d\d\.\d{3} ERROR \[CameraOperator\]ParseMediaType success")

    def test_library_can_be_named(self):
        shutil.copy(Path(PROGRAM).parent / "libnuveqcamerahandler.dll", self.file("Kopie \u00e4.dll"))
        for name in ("Kopie \u00e4.dll", self.file("Kopie \u00e4.dll")):
            out, _ = self.run_tool("list", "--library", name)
            self.assertIn("Camera 0", out)

    def test_library_that_is_none_is_refused(self):
        self.file("text.dll").write_text("no library\n")
        for name, reason in (("missing \u00e4.dll", "Module not found"), ("text.dll", "Bad EXE format for .+"),
                             (Path(PROGRAM).parent / "MultiMediaEncoder.dll", "it gives no table of camera functions")):
            out, err = self.run_tool("list", "--library", name, code=UNEXPECTED)
            self.assertEqual(out, "")
            self.assertRegex(err, rf"^nuveqcam: cannot load the camera library Z:\\.*\\{Path(name).name}: {reason}; "
                                  r"give its file with --library\n$")

    def check_incomplete_copy(self, reason, *more):
        """What a copy of the program without some of its files says, which has those beside what it starts with."""
        copy = self.folder.parent / "bin"
        copy.mkdir()
        for name in ("nuveqcam.exe", "liblog4cplus.dll", "libstdc++-6.dll", "libgcc_s_seh-1.dll", "libwinpthread-1.dll",
                     *more):
            shutil.copy(Path(PROGRAM).parent / name, copy)
        process = subprocess.run([RUNNER, copy / "nuveqcam.exe", "list"], stdin=subprocess.DEVNULL, capture_output=True,
                                 env={**os.environ, "NUVEQ_WINEPREFIX": str(Path(PROGRAM).parent.parent / "wine")},
                                 timeout=PATIENCE)
        self.assertEqual(process.returncode, UNEXPECTED)
        self.assertRegex(process.stdout.decode(), r"^nuveqcam: cannot load the camera library "
                                                  rf"Z:\\.*\\bin\\libnuveqcamerahandler\.dll: {reason}; ")

    def test_program_without_its_library_says_where_it_belongs(self):
        self.check_incomplete_copy("Module not found")

    def test_library_without_a_file_that_it_needs_says_so(self):
        self.check_incomplete_copy("a DLL that it needs is missing", "libnuveqcamerahandler.dll")


class WindowsDoctor(WindowsTool):
    def test_names_every_device_its_verdict_and_the_camera_that_is_offered(self):
        out, err = self.run_tool("doctor")
        self.assertEqual(err, "")
        self.assertIn(r"  USB\VID_04F2&PID_B6BE\0001  Integrated Camera (04f2:b6be)  built in: Windows says (device "
                      "status) that it cannot be removed\n", out)
        self.assertIn("  Port_#0002.Hub_#0001        USB Camera (046d:0825)         can be removed: Windows says "
                      "(device status) that it can be\n", out)
        self.assertIn("  usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000   Integrated Camera  TAKEN: the first function of "
                      "USB device USB\\VID_04F2&PID_B6BE\\0001, which is built in\n", out)
        self.assertIn("  usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000  USB Camera         not taken: it is plugged in: "
                      "its USB device can be removed\n", out)
        self.assertTrue(out.endswith("\nThe camera that is offered: Integrated Camera "
                                     "(usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000), 320x240 to 1920x1080, 10 to 30 fps\n"),
                        out)

    def test_json_has_the_documented_members(self):
        out, err = self.run_tool("doctor", "--json")
        self.assertEqual((err, out.count("\n")), ("", 1))
        answer = json.loads(out)
        self.assertEqual(set(answer), {"offered", "conclusion", "advice", "failure", "camera", "usbDevices",
                                       "captureDevices", "otherNodes"})
        devices = {device["model"]: device for device in answer["usbDevices"]}
        self.assertEqual(set(devices), {"04f2:b6be", "046d:0825"})
        camera = devices["04f2:b6be"]
        self.assertEqual((camera["removable"], camera["verdictFrom"], camera["video"], camera["firstFunction"]),
                         (False, "windows", None, r"USB\VID_04F2&PID_B6BE&MI_00\6&1A2B3C&0&0000"))
        plug_in = devices["046d:0825"]
        self.assertTrue(plug_in["removable"])
        self.assertEqual((plug_in["place"], plug_in["id"]), ("Port_#0002.Hub_#0001", r"USB\VID_046D&PID_0825\0002"))
        self.assertEqual([device["usbDevice"] for device in answer["captureDevices"] if device["taken"]], [camera["place"]])

    def test_pc_without_a_built_in_camera_gets_advice(self):
        self.use_pc("plug-in")
        out, err = self.run_tool("doctor", code=NO_CAMERA)
        self.assertEqual(err, "")
        self.assertIn("\nNo camera is offered: the only capture device is not a USB camera that is built in\n  - if USB Camera (usb#vid_"
                      "046d&pid_0825&mi_00#7&2fd3c3a&0&0000) is inside the PC, the firmware describes the port of USB "
                      "device Port_#0002.Hub_#0001 wrongly", out)
        self.use_pc("none")
        out, err = self.run_tool("doctor", code=NO_CAMERA)
        self.assertEqual(err, "")
        self.assertTrue(out.startswith("USB devices\n  none seen\n\nCapture devices\n  none seen\n\n"
                                       "No camera is offered: no capture device was seen\n"), out)
        self.assertTrue(out.endswith("\n  - look for it under Cameras in Device Manager\n"), out)


class WindowsRecord(WindowsTool):
    def test_recording_is_the_stream_with_every_frame(self):
        for name in ("camera.h264", "Aufnahme \u00fc \u4e2d.264"):
            out, err = self.run_tool("record", "--seconds", 1, "-o", name, *SMALL)
            self.assertEqual(err, "")
            self.assertTrue(out.startswith(f"recorded {name}\n  request       320x240, 30 fps\n"), out)
            self.check_recording(name, out, 320, 240)

    def test_size_and_rate_are_the_best_offered_unless_given(self):
        out, _ = self.run_tool("record", "--seconds", 1)
        self.assertTrue(out.startswith("recorded camera.h264\n  request       1280x720, 30 fps\n"), out)
        self.check_recording("camera.h264", out, 1280, 720)
        out, _ = self.run_tool("record", "--seconds", 1, "--size=640x480", "--fps=15")
        self.assertIn("  request       640x480, 15 fps\n", out)
        self.check_recording("camera.h264", out, 640, 480)

    def test_standard_output_gets_the_stream_unchanged(self):
        out, err = self.finish(self.start("record", "--seconds", 1, "-o", "-", *SMALL))
        self.file("piped.h264").write_bytes(out)
        self.assertTrue(err.startswith("recorded the standard output\n"))
        self.check_recording("piped.h264", err, 320, 240)

    def test_longer_earlier_recording_is_replaced_whole(self):
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
        wait_until_stalled(process.stdout, process)
        process.send_signal(signal.SIGINT)
        time.sleep(0.5)
        self.assertIsNone(process.poll())
        process.send_signal(signal.SIGINT)
        self.finish(process, ENDED_BY_CTRL_C)

    def test_reader_that_ends_is_a_failure_to_write(self):
        process = self.start_into_pipe()
        process.stdout.close()
        _, err = self.finish(process, CANNOT_WRITE)
        self.assertRegex(err, "nuveqcam: cannot write the standard output: .+; the program that reads it has ended; "
                              "what is there plays up to where it ends\n$")


class WindowsSnapshot(WindowsTool):
    def test_picture_is_the_tenth_upright_and_in_its_colours(self):
        self.check_snapshot()

    def test_skip_says_which_picture(self):
        for skip in (0, 25):
            out, _ = self.run_tool("snapshot", "--skip", skip, *SMALL, "-o", "Bild \u4e2d.png")
            self.assertIn(f"picture  {skip + 1} of the stream", out)
            [gray] = self.pictures("Bild \u4e2d.png", 320, 240)
            self.assertEqual(frame_number(gray, 320, 240), skip)

    def test_size_that_is_no_whole_number_of_blocks_is_cut(self):
        self.run_tool("snapshot", "--size", "1920x1080", "--skip", 0)
        stream = self.stream("camera.png")
        self.assertEqual((stream["width"], stream["height"]), (1920, 1080))

    def test_picture_goes_to_the_standard_output(self):
        out, err = self.finish(self.start("snapshot", "-o", "-", *SMALL))
        self.file("piped.png").write_bytes(out)
        self.assertTrue(err.startswith("took the standard output\n"))
        self.assertEqual(len(self.pictures("piped.png", 320, 240)), 1)

    def test_interrupted_before_the_picture_leaves_nothing(self):
        process = self.start("snapshot", "-v", "--skip", 100000, *SMALL)
        # The keys are noted from before that on.
        wait_until(lambda: b"open camera success" in self.err.read_bytes(), process)
        self.assertTrue(self.file("camera.png").exists())
        process.send_signal(signal.SIGINT)
        _, err = self.finish(process, ENDED_EARLY)
        self.assertIn("interrupted", err)
        self.assertFalse(self.file("camera.png").exists())


class WindowsConsole(WindowsTool):
    """A pseudo terminal is a console to the program; what Wine writes there is steered by escape sequences."""

    def run_on_console(self, *arguments, code=OK):
        """What the console got of standard error, without what steers it."""
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        process = self.start(*arguments, stderr=slave)
        os.close(slave)
        shown = b""
        while process.poll() is None or select.select([master], [], [], 0)[0]:
            if select.select([master], [], [], 0.1)[0]:
                try:
                    shown += os.read(master, 4096)
                except OSError:  # the other end was closed
                    break
        self.finish(process, code)
        return re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", shown.decode("utf-8"))

    def test_shows_progress(self):
        shown = self.run_on_console("record", "--seconds", 2, *SMALL)
        self.assertRegex(shown, r"\r +\d+\.\d s +\d+ frames +\d+\.\d fps +\d+ kbit/s\r")
        self.assertGreater(shown.count("\r"), 3)

    def test_shows_characters_of_every_kind(self):
        self.assertIn("gr\u00fc\u00df", self.run_on_console("gr\u00fc\u00df", code=USAGE))

    def test_gets_no_recording_and_no_picture(self):
        for command, what in (("record", "recording"), ("snapshot", "picture")):
            master, slave = pty.openpty()
            self.addCleanup(os.close, master)
            _, err = self.run_tool(command, "-o", "-", stdout=slave, code=USAGE)
            os.close(slave)
            self.assertEqual(err, f"nuveqcam: a terminal cannot show the {what}; pipe it on, or choose a file with -o\n")

    def code_pages_around(self, arguments, armed, presses):
        """The console's code page before and after the program, which waits for room in a full pipe until it has got so
        many Ctrl-C."""
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        prefix = Path(PROGRAM).parent.parent / "wine"
        [code_page, program] = (f"Z:{file}".replace("/", "\\") for file in (Path(USE_PC).parent / "code_page.exe", PROGRAM))
        # The first answer goes to the console, where it is not in the way.
        process = subprocess.Popen(
            [RUNNER, "--live", prefix / "drive_c/windows/system32/cmd.exe", "/c",
             f"{code_page} 1>&2 & {program} {arguments} & {code_page}"], cwd=self.folder, stdin=subprocess.DEVNULL,
            stdout=writer, stderr=slave, env={**os.environ, "NUVEQ_WINEPREFIX": str(prefix)}, preexec_fn=reset_signals)
        self.addCleanup(self.end, process)
        os.write(writer, bytes(4096))
        os.close(writer)
        os.close(slave)
        shown, piped = bytearray(), bytearray()

        def has_come(text, source, into):
            if select.select([source], [], [], 0)[0]:
                into += os.read(source, 8192)
            return text in self.plain(into)

        wait_until(lambda: has_come("codepage:", master, shown) and has_come(armed, master, shown) and self.found(program),
                   process)
        time.sleep(0.5)
        for _ in range(presses):
            for number in self.found(program):
                os.kill(number, signal.SIGINT)
            time.sleep(0.5)
        self.assertEqual(self.found(program), [])
        wait_until(lambda: has_come("codepage:", reader, piped))
        return [re.search(r"codepage:(\d+)\.", self.plain(text))[1] for text in (shown, piped)]

    @staticmethod
    def plain(text):
        """Without what steers the console, and without spaces, which may come as steps of its cursor."""
        return re.sub(rb"\x1b\[[0-9;?]*[A-Za-z]|\s", b"", text).decode(errors="replace")

    def found(self, program):
        """The processes of that program in the test's folder."""
        numbers = []
        for folder in Path("/proc").glob("[0-9]*"):
            try:
                command = (folder / "cmdline").read_bytes()
                if command.startswith(program.encode() + b"\0") and self.folder.samefile(folder / "cwd"):
                    numbers.append(int(folder.name))
            except OSError:  # it has ended, or is somebody else's
                continue
        return numbers

    def test_gets_its_code_page_back_from_a_program_that_ctrl_c_ends(self):
        for arguments, armed, presses in (("--help", "", 1),
                                          ("record -v -o - --seconds 0 --size 320x240", "opencamerasuccess", 2)):
            before, after = self.code_pages_around(arguments, armed, presses)
            self.assertNotEqual(before, "65001")
            self.assertEqual(after, before)

    def test_file_gets_no_progress(self):
        _, err = self.run_tool("record", "--seconds", 1, *SMALL)
        self.assertEqual(err, "")


class WindowsRefusal(WindowsTool):
    def test_size_that_the_camera_lacks_is_explained(self):
        self.file("kept.h264").write_bytes(b"an earlier recording")
        for command, name in (("record", "kept.h264"), ("record", "new.h264"), ("snapshot", "new.png")):
            _, err = self.run_tool(command, "--size", "334x222", "-o", name, code=CANNOT_OPEN)
            self.assertRegex(err, r"^nuveqcam: cannot open the camera at 334x222, \d+ fps \(result -1001\): the camera does not "
                                  r"deliver that format; choose a size with --size from those of 'nuveqcam list' "
                                  r"\(the library said: Set camera parameter fail, error:-\d+\)\n$")
        self.assertEqual(self.file("kept.h264").read_bytes(), b"an earlier recording")
        self.assertEqual([file.name for file in self.folder.iterdir()], ["kept.h264"])

    def test_missing_folder_is_named_with_the_next_step(self):
        for command, name in (("record", "no/such/camera.h264"), ("snapshot", r"no\such\camera.png")):
            out, err = self.run_tool(command, "-o", name, code=CANNOT_WRITE)
            self.assertEqual(out, "")
            self.assertTrue(err.startswith(f"nuveqcam: cannot write {name}: "), err)
            self.assertTrue(err.endswith("; make the folder first or choose another file with -o\n"), err)

    def test_folder_in_the_place_of_the_file_is_refused(self):
        self.file("camera.h264").mkdir()
        _, err = self.run_tool("record", code=CANNOT_WRITE)
        self.assertRegex(err, r"^nuveqcam: cannot write camera\.h264: .+; choose another file with -o\n$")

    def test_device_without_room_ends_a_recording(self):
        with open("/dev/full", "wb") as full:
            _, err = self.run_tool("record", "-o", "-", *SMALL, stdout=full, code=CANNOT_WRITE)
        self.assertRegex(err, r"nuveqcam: cannot write the standard output: .+; write to a file with -o")


class WindowsFailingCamera(WindowsTool):
    def start(self, *arguments, **options):
        return super().start(*arguments, env={**os.environ, **self.behaviour}, **options)

    def test_camera_in_use_is_explained(self):
        self.behaviour = {"NUVEQ_FIXTURE_RUN": "800700AA"}
        for command in ("record", "snapshot"):
            out, err = self.run_tool(command, *SMALL, code=CANNOT_OPEN)
            self.assertEqual(out, "")
            self.assertRegex(err, r"^nuveqcam: cannot open the camera at 320x240, 30 fps \(result -1001\): the camera is in use "
                                  r"by another program; close that program and try again \(the library said: .+\)\n$")
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_recording_is_kept_up_to_where_the_camera_was_lost(self):
        self.behaviour = {"NUVEQ_FIXTURE_LOST_AFTER": "20"}
        out, err = self.run_tool("record", "--seconds", 0, *SMALL, code=ENDED_EARLY)
        self.assertEqual(err, "nuveqcam: the camera has delivered nothing for 10 s; the recording is complete up to there; "
                              "see with 'nuveqcam list' whether the camera is still there\n")
        self.assertEqual(len(self.check_recording("camera.h264", out, 320, 240)), 20)

    def test_snapshot_of_a_camera_that_was_lost_leaves_nothing(self):
        self.behaviour = {"NUVEQ_FIXTURE_LOST_AFTER": "3"}
        out, err = self.run_tool("snapshot", *SMALL, code=ENDED_EARLY)
        self.assertEqual((out, err), ("", "nuveqcam: the camera has delivered nothing for 10 s after 3 of 10 pictures; "
                                          "see with 'nuveqcam list' whether the camera is still there\n"))
        self.assertEqual(list(self.folder.iterdir()), [])


if __name__ == "__main__":
    unittest.main()
