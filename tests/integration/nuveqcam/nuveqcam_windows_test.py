"""nuveqcam.exe as a user runs it: help, list and doctor, under Wine with the camera fixtures.

ctest runs each test separately. To run all of them in a prefix with the fixtures:
NUVEQCAM=build/windows/bin/nuveqcam.exe NUVEQCAM_VERSION=0.1.0 NUVEQCAM_RUNNER=scripts/wine.sh \\
USE_PC=build/windows/fixtures/use_pc.exe python3 FILE
"""

import json
import os
import shutil
import subprocess
import unittest
from pathlib import Path

from nuveqcam_tool import NO_CAMERA, PROGRAM, UNEXPECTED, USAGE
from nuveqcam_windows_tool import TIMEOUT, RUNNER, WindowsTool


class WindowsCommandLine(WindowsTool):
    def test_version(self):
        self.assertEqual(self.run_tool("--version"), (f"nuveqcam {os.environ['NUVEQCAM_VERSION']}\n", ""))

    def test_help_describes_features_of_windows_only(self):
        for words in ([], ["list"], ["record"], ["snapshot"], ["doctor"]):
            out, err = self.run_tool(*words, "--help")
            self.assertEqual(err, "")
            self.assertIn("(default: libnuveqcamerahandler.dll in the program's\n", out)
            for other in ("mp4", "--simulated", "\r"):
                self.assertNotIn(other, out)

    def test_invalid_arguments_are_rejected(self):
        for arguments in ([], ["fly"], ["record", "--size", "big"], ["record", "-o", "me.mp4"], ["list", "--simulated"]):
            out, err = self.run_tool(*arguments, code=USAGE)
            self.assertEqual(out, "")
            self.assertRegex(err, r"^nuveqcam: .+; see 'nuveqcam --help'\n$")
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_arguments_may_have_non_ascii_characters(self):
        _, err = self.run_tool("gr\u00fc\u00df \u4e2d\U0001F4F7", code=USAGE)
        self.assertIn("unknown command 'gr\u00fc\u00df \u4e2d\U0001F4F7';", err)

    def test_executable_has_version_information(self):
        content = Path(PROGRAM).read_bytes()
        for text in ("Shows and records the PC's built-in camera", os.environ["NUVEQCAM_VERSION"], "nuveqcam.exe"):
            self.assertIn(text.encode("utf-16-le"), content)


class WindowsListing(WindowsTool):
    def test_prints_the_camera_and_devices_that_are_not_offered(self):
        out, err = self.run_tool("list")
        self.assertEqual(err, "")
        self.assertTrue(out.startswith("Camera 0: Integrated Camera (usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000)\n"
                                       "  sizes    320 x   240\n"), out)
        self.assertRegex(out, r"(?m)^ +1280 x +720$")
        self.assertRegex(out, r"(?m)^ +30 fps$")
        self.assertTrue(out.endswith("Other capture devices (not offered):\n"
                                     "  usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000  USB Camera  "
                                     "its USB device is removable\n"), out)

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

    def test_pc_without_any_camera_differs_from_one_with_another_camera(self):
        for command in ("list", "record", "snapshot"):
            self.use_pc("none")
            out, err = self.run_tool(command, code=NO_CAMERA)
            self.assertEqual((out, err), ("", "nuveqcam: this PC has no built-in camera; enable it if it has one, or "
                                              "look for it under Cameras in Device Manager\nno capture devices were found\n"))
            self.use_pc("plug-in")
            out, err = self.run_tool(command, code=NO_CAMERA)
            self.assertEqual(out, "")
            self.assertIn("capture devices found:\n  usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000  USB Camera, not selected: "
                          "its USB device is removable\n", err)
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_json_is_also_printed_without_a_camera(self):
        self.use_pc("none")
        out, _ = self.run_tool("list", "--json", code=NO_CAMERA)
        self.assertEqual(json.loads(out), {"cameras": [], "devices": []})

    def test_verbose_prints_the_log_of_the_library(self):
        out, err = self.run_tool("list", "-v")
        self.assertIn("Camera 0", out)
        self.assertRegex(err, r"(?m)^\d\d:\d\d:\d\d\.\d{3} ERROR \[CameraOperator\]ParseMediaType success")

    def test_library_can_be_specified(self):
        shutil.copy(Path(PROGRAM).parent / "libnuveqcamerahandler.dll", self.file("Kopie \u00e4.dll"))
        for name in ("Kopie \u00e4.dll", self.file("Kopie \u00e4.dll")):
            out, _ = self.run_tool("list", "--library", name)
            self.assertIn("Camera 0", out)

    def test_invalid_library_is_rejected(self):
        self.file("text.dll").write_text("no library\n")
        for name, reason in (("missing \u00e4.dll", "Module not found"), ("text.dll", "Bad EXE format for .+"),
                             (Path(PROGRAM).parent / "MultiMediaEncoder.dll", "it does not export a camera handler table")):
            out, err = self.run_tool("list", "--library", name, code=UNEXPECTED)
            self.assertEqual(out, "")
            self.assertRegex(err, rf"^nuveqcam: cannot load the camera library Z:\\.*\\{Path(name).name}: {reason}; "
                                  r"specify its file with --library\n$")

    def check_incomplete_copy(self, reason, *more):
        """Checks the error of a copy of the program that has only the files it needs to start, and some more."""
        copy = self.folder.parent / "bin"
        copy.mkdir()
        for name in ("nuveqcam.exe", "liblog4cplus.dll", "libstdc++-6.dll", "libgcc_s_seh-1.dll", "libwinpthread-1.dll",
                     *more):
            shutil.copy(Path(PROGRAM).parent / name, copy)
        process = subprocess.run([RUNNER, copy / "nuveqcam.exe", "list"], stdin=subprocess.DEVNULL, capture_output=True,
                                 env={**os.environ, "NUVEQ_WINEPREFIX": str(Path(PROGRAM).parent.parent / "wine")},
                                 timeout=TIMEOUT)
        self.assertEqual(process.returncode, UNEXPECTED)
        self.assertRegex(process.stdout.decode(), r"^nuveqcam: cannot load the camera library "
                                                  rf"Z:\\.*\\bin\\libnuveqcamerahandler\.dll: {reason}; ")

    def test_missing_library_is_reported_with_its_path(self):
        self.check_incomplete_copy("Module not found")

    def test_missing_dependency_of_the_library_is_reported(self):
        self.check_incomplete_copy("a DLL that it needs is missing", "libnuveqcamerahandler.dll")


class WindowsDoctor(WindowsTool):
    def test_prints_every_device_and_the_offered_camera(self):
        out, err = self.run_tool("doctor")
        self.assertEqual(err, "")
        self.assertIn(r"  USB\VID_04F2&PID_B6BE\0001  Integrated Camera (04f2:b6be)  built in: according to its device "
                      "status in Windows\n", out)
        self.assertIn("  Port_#0002.Hub_#0001        USB Camera (046d:0825)         removable: according to its "
                      "device status in Windows\n", out)
        self.assertIn("  usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000   Integrated Camera  SELECTED: the first camera of "
                      "USB device USB\\VID_04F2&PID_B6BE\\0001, which is built in\n", out)
        self.assertIn("  usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000  USB Camera         not selected: its USB "
                      "device is removable\n", out)
        self.assertTrue(out.endswith("\nOffered camera: Integrated Camera "
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
        self.assertIn("\nNo camera is offered: the only capture device is not a built-in USB camera\n  - if USB Camera (usb#vid_"
                      "046d&pid_0825&mi_00#7&2fd3c3a&0&0000) is inside the PC, the firmware describes the port of USB "
                      "device Port_#0002.Hub_#0001 incorrectly", out)
        self.use_pc("none")
        out, err = self.run_tool("doctor", code=NO_CAMERA)
        self.assertEqual(err, "")
        self.assertTrue(out.startswith("USB devices\n  none found\n\nCapture devices\n  none found\n\n"
                                       "No camera is offered: no capture devices were found\n"), out)
        self.assertTrue(out.endswith("\n  - look for it under Cameras in Device Manager\n"), out)


if __name__ == "__main__":
    unittest.main()
