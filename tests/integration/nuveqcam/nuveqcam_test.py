"""nuveqcam as a user runs it: help, list, doctor, snapshots and errors, with the simulated PC.

ctest runs each test separately. To run all of them:
NUVEQCAM=build/native/bin/nuveqcam NUVEQCAM_VERSION=0.1.0 NUVEQCAM_MAN=tools/nuveqcam/nuveqcam.1 python3 FILE
"""

import glob
import json
import os
import re
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

from nuveqcam_tool import (CANNOT_OPEN, CANNOT_WRITE, ENDED_EARLY, MAN_PAGE, NO_CAMERA, OK, TIMEOUT, PROGRAM, SMALL,
                           UNEXPECTED, USAGE, Tool, frame_number, reset_signals, wait_until)


class CommandLine(Tool):
    def test_help_and_man_page_cover_every_command_option_and_exit_code(self):
        helps = [self.run_tool(*words, "--help")[0] for words in ([], ["list"], ["record"], ["snapshot"], ["doctor"])]
        rendered = subprocess.run(["mandoc", "-T", "utf8", MAN_PAGE], capture_output=True, check=True).stdout.decode()
        page = re.sub(".\b", "", rendered).replace("−", "-")
        of = lambda text: set(re.findall(r"(?<![\w-])--?[a-z]+\b", text))
        everything = {"--help", "-h", "--version", "--simulated", "--verbose", "-v", "--library", "--json", "--output",
                      "-o", "--size", "--fps", "--seconds", "--skip"}
        self.assertEqual(set().union(*map(of, helps)), everything)
        # -f belongs to ffplay in an example.
        self.assertEqual(of(page) - {"-f"}, everything)
        for command in ("list", "record", "snapshot", "doctor"):
            self.assertRegex(helps[0], rf"(?m)^  {command} ")
            self.assertRegex(page, rf"(?m)^     {command}\b")
        for text in helps:
            self.assertEqual(re.findall(r"(?m)^  (\d)  ", text), list("0123456"))
        status = page[page.index("EXIT STATUS"):page.index("EXAMPLES")]
        self.assertEqual(re.findall(r"(?m)^     (\d)  ", status), list("0123456"))

    def test_help_of_a_command_describes_only_its_options(self):
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

    def test_invalid_arguments_are_rejected(self):
        for arguments in ([], ["fly"], ["record", "--seconds"], ["record", "--size", "big"], ["list", "--fps", "3"],
                          ["record", "--seconds", "86401"], ["record", "-o", "me.avi"], ["--bogus", "list"],
                          ["snapshot", "-o", "me.jpg"], ["list", "list"], ["--simulated=", "list"]):
            out, err = self.run_tool(*arguments, code=USAGE)
            self.assertEqual(out, "")
            self.assertRegex(err, r"^nuveqcam: .+; see 'nuveqcam --help'\n$")
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_unknown_extension_is_rejected_with_the_known_ones(self):
        _, err = self.run_tool("record", "-o", "me.avi", code=USAGE)
        self.assertIn(".mp4, .h264 or .264", err)
        _, err = self.run_tool("snapshot", "-o", "me.jpg", code=USAGE)
        self.assertIn(".png", err)


class Listing(Tool):
    def test_prints_sizes_rates_and_devices_that_are_not_offered(self):
        out, err = self.run_tool("list", "--simulated")
        self.assertEqual(err, "")
        self.assertRegex(out, r"^Camera 0: \S")
        self.assertRegex(out, r"(?m)^  sizes +\d+ x +\d+$")
        self.assertRegex(out, r"(?m)^ +1280 x +720$")
        self.assertRegex(out, r"(?m)^ +30 fps$")
        self.assertIn("Other capture devices (not offered):", out)

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

    def test_result_for_this_machine_is_a_camera_or_a_reason(self):
        has_devices = bool(glob.glob("/dev/video*"))
        process = self.start("list")
        _, err = process.communicate(timeout=TIMEOUT)
        if process.returncode == NO_CAMERA:
            wanted = b"capture devices found:" if has_devices else b"no capture devices were found"
            self.assertRegex(err, rb"(?s)^nuveqcam: this PC has no built-in camera; .*\n" + wanted)
        else:
            self.assertTrue(has_devices, err)
            self.assertIn(process.returncode, (OK, CANNOT_OPEN))

    def test_verbose_prints_the_log_of_the_library(self):
        out, err = self.run_tool("list", "--simulated", "-v")
        self.assertIn("Camera 0", out)
        self.assertRegex(err, r"(?m)^\d\d:\d\d:\d\d\.\d{3} ERROR \[CameraOperator\]ParseMediaType success")

    def test_library_can_be_specified(self):
        default_path = Path(PROGRAM).parent / "libnuveqcamerahandler.so"
        shutil.copy(default_path, self.file("copy.so"))
        out, _ = self.run_tool("list", "--simulated", "--library", "copy.so",
                               env={**os.environ, "LD_LIBRARY_PATH": str(default_path.parent)})
        self.assertIn("Camera 0", out)

    def test_invalid_library_is_rejected(self):
        for name in ("missing.so", Path(PROGRAM).parent / "libnuveqplatform.so"):
            _, err = self.run_tool("list", "--simulated", "--library", name, code=UNEXPECTED)
            self.assertRegex(err, r"^nuveqcam: cannot load the camera library /.*; specify its file with --library\n$")


class Doctor(Tool):
    def test_prints_every_device_and_the_offered_camera(self):
        out, err = self.run_tool("doctor", "--simulated")
        self.assertEqual(err, "")
        self.assertEqual(out, """\
USB devices
  1-10  Bluetooth Radio (8087:0026)     built in: the firmware (ACPI) declares its port hard-wired
  2-1   USB Camera (046d:0825)          removable: the firmware (ACPI) declares its port hot-pluggable
  1-5   Integrated Camera (04f2:b6be)   built in: the firmware (ACPI) declares its port hard-wired
  1-7   Fingerprint Reader (27c6:55a2)  built in: the firmware (ACPI) declares its port hard-wired

Capture devices
  simulated  USB Camera         not selected: its USB device is removable
  simulated  Integrated Camera  SELECTED: the first camera of USB device 1-5, which is built in

Offered camera: Integrated Camera (simulated), 320x240 to 1920x1080, 10 to 30 fps
""")

    def test_json_has_the_documented_members(self):
        out, err = self.run_tool("doctor", "--json", "--simulated")
        self.assertEqual((err, out.count("\n")), ("", 1))
        answer = json.loads(out)
        words = set(answer)
        self.assertTrue(answer["offered"])
        self.assertEqual((answer["advice"], answer["failure"], answer["otherNodes"]), ([], None, []))
        self.assertEqual(answer["camera"], json.loads(self.run_tool("list", "--json", "--simulated")[0])["cameras"][0])
        for device in answer["usbDevices"]:
            words |= set(device)
            self.assertEqual(device["verdictFrom"], "firmware")
            self.assertEqual(device["removable"], device["attribute"] == "removable")
            self.assertEqual(device["removable"], device["verdict"].startswith("removable: "))
        [taken] = [device for device in answer["captureDevices"] if device["taken"]]
        self.assertEqual((taken["name"], taken["reason"], taken["usbDevice"]), ("Integrated Camera", None, "1-5"))
        words |= set(taken)
        page = Path(MAN_PAGE).read_text()
        page = page[page.index(".Cm doctor Fl -json"):page.index(".Sh EXIT STATUS")]
        help_text = self.run_tool("doctor", "--help")[0]
        for word in words:
            self.assertRegex(page, rf"(?m)^\.(It )?Li (.*\s)?{word}\b")
            self.assertRegex(help_text, rf"\b{word}\b")

    def test_result_for_this_machine_matches_the_exit_code(self):
        process = self.start("doctor")
        out, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual(err, b"")
        self.assertIn(process.returncode, (OK, NO_CAMERA, CANNOT_OPEN))
        conclusion = b"Offered camera: " if process.returncode == OK else b"No camera is offered: "
        self.assertEqual(out.count(b"\n" + conclusion), 1)
        process = self.start("doctor", "--json")
        out, _ = process.communicate(timeout=TIMEOUT)
        self.assertEqual(json.loads(out)["offered"], process.returncode == OK)

    def test_write_error_fails(self):
        with open("/dev/full", "wb") as full:
            _, err = self.run_tool("doctor", "--simulated", code=CANNOT_WRITE, stdout=full)
        self.assertIn("cannot write to standard output", err)


class Snapshot(Tool):
    def test_picture_is_the_tenth_upright_and_in_color(self):
        self.check_snapshot("--simulated")

    def test_skip_selects_the_picture(self):
        for skip in (0, 25):
            out, _ = self.run_tool("snapshot", "--simulated", "--skip", skip, *SMALL)
            self.assertIn(f"picture  {skip + 1} of the stream", out)
            [gray] = self.pictures("camera.png", 320, 240)
            self.assertEqual(frame_number(gray, 320, 240), skip)

    def test_picture_can_be_piped(self):
        process = self.start("snapshot", "--simulated", "-o", "-", *SMALL)
        out, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, OK)
        self.assertTrue(out.startswith(b"\x89PNG"))
        self.assertTrue(err.startswith(b"took standard output\n"))

    def test_interrupted_before_the_picture_leaves_nothing(self):
        process = self.start("snapshot", "--simulated", "--skip", 100000, *SMALL)
        wait_until(lambda: self.file("camera.png").exists(), process)
        process.send_signal(signal.SIGINT)
        _, err = process.communicate(timeout=TIMEOUT)
        self.assertEqual(process.returncode, ENDED_EARLY)
        self.assertIn(b"interrupted", err)
        self.assertFalse(self.file("camera.png").exists())


class Clip(Tool):
    def make_clip(self, name):
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=c=0x2060C0:size=320x240:rate=30", "-t", "1",
                        "-c:v", "mjpeg", str(self.file(name))], stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True)

    def test_clip_is_played_for_every_position_of_the_option(self):
        self.make_clip("clip.avi")
        for arguments in (["--simulated", "clip.avi", "snapshot"], ["snapshot", "--simulated=clip.avi"],
                          ["snapshot", *SMALL, "--simulated", "clip.avi"]):
            self.run_tool(*arguments, *SMALL)
            [rgb] = self.pictures("camera.png", 320, 240, "rgb24")
            middle = rgb[3 * (320 * 120 + 160):][:3]
            self.assertTrue(all(abs(a - b) < 24 for a, b in zip(middle, (0x20, 0x60, 0xC0))), tuple(middle))

    def test_clip_is_played_in_a_loop(self):
        self.make_clip("clip.avi")
        out, _ = self.run_tool("record", "--simulated", "clip.avi", "--seconds", 2, *SMALL)
        self.assertGreater(int(self.summary(out)["frames"]), 30)

    def test_clip_is_never_overwritten(self):
        self.make_clip("clip.mp4")
        clip = self.file("clip.mp4").read_bytes()
        os.link(self.file("clip.mp4"), self.file("second.h264"))
        os.symlink("clip.mp4", self.file("link.png"))
        for command, name, what in (("record", "clip.mp4", "recording"), ("record", "second.h264", "recording"),
                                    ("snapshot", "link.png", "picture")):
            _, err = self.run_tool(command, "--simulated", "clip.mp4", "-o", name, code=USAGE)
            self.assertEqual(err, f"nuveqcam: the {what} would overwrite the clip; choose another file with -o\n")
            self.assertEqual(self.file("clip.mp4").read_bytes(), clip)

    def test_unplayable_clip_is_reported(self):
        self.file("clip.txt").write_text("no film\n" * 100)
        for name in ("clip.txt", "missing.mp4"):
            _, err = self.run_tool("list", "--simulated", name, code=USAGE)
            self.assertRegex(err, rf"^nuveqcam: cannot play {name}: .+; specify another video file with --simulated\n$")


class Errors(Tool):
    def test_size_that_the_camera_does_not_have_is_explained(self):
        for command in ("record", "snapshot"):
            _, err = self.run_tool(command, "--simulated", "--size", "334x222", code=CANNOT_OPEN)
            self.assertRegex(err, r"^nuveqcam: cannot open the camera at 334x222, \d+ fps \(result -1001\): the camera does not "
                                  r"deliver that format; choose one of the sizes of 'nuveqcam list' with --size "
                                  r"\(library log: Set camera parameter fail, error:-2147220992\)\n$")

    def test_size_that_the_encoder_does_not_support_is_explained(self):
        _, err = self.run_tool("record", "--simulated", "--size", "9000x222", code=CANNOT_OPEN)
        self.assertRegex(err, r"\(result -1004\) \(library log: .*encoder.*\); the encoder does not support the size; "
                              r"choose another one with --size")


class FullDisk(Tool):
    """Registered only if a file system can be mounted in a private mount namespace."""

    SCRIPT = 'mount -t tmpfs -o size=64k none "$0" && cd "$0" && "$@"; code=$?; ls -l; cd /; umount "$0"; exit $code'

    def run_on_full_disk(self, *arguments):
        command = ["unshare", "-m", "--propagation", "unchanged"] if os.geteuid() == 0 else ["unshare", "-rm"]
        return subprocess.run([*command, "sh", "-c", self.SCRIPT, str(self.folder), PROGRAM, *arguments],
                              capture_output=True, timeout=TIMEOUT, preexec_fn=reset_signals, text=True)

    def test_full_disk_ends_a_recording_and_keeps_the_file(self):
        for name, part in (("camera.mp4", "incomplete and cannot be played"), ("camera.h264", "can be played up to its end")):
            result = self.run_on_full_disk("record", "--simulated", "--seconds", "60", "-o", name, "--size", "640x480")
            self.assertEqual(result.returncode, CANNOT_WRITE, result.stderr)
            self.assertIn(f"nuveqcam: cannot write {name}: No space left on device; free some space there", result.stderr)
            self.assertIn(part, result.stderr)
            self.assertRegex(result.stdout, rf"\d{{5}} .*{name}")

    def test_full_disk_ends_a_snapshot(self):
        result = self.run_on_full_disk("snapshot", "--simulated", "-o", "camera.png")
        self.assertEqual(result.returncode, CANNOT_WRITE, result.stderr)
        self.assertIn("nuveqcam: cannot write camera.png: No space left on device; free some space there", result.stderr)


if __name__ == "__main__":
    unittest.main()
