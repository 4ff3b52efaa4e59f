"""The command line on Windows: version information, incomplete installations, and PCs without a built-in camera."""

import json
import os
import re
import shutil
from pathlib import Path

import pytest

from nuveqcam_tool import BUILT_IN, NO_CAMERA, PLUG_IN, PROGRAM, UNEXPECTED, use_pc


def test_executable_has_version_information():
    content = Path(PROGRAM).read_bytes()
    for text in ("Shows and records the PC's built-in camera", os.environ["NUVEQCAM_VERSION"], "nuveqcam.exe"):
        assert text.encode("utf-16-le") in content


@pytest.mark.parametrize("command", ["list", "record", "snapshot", "probe"])
def test_pc_without_any_camera_differs_from_one_with_another_camera(tool, command):
    use_pc("none")
    assert tool.run(command, code=NO_CAMERA) == (
        "", "nuveqcam: this PC has no built-in camera; enable it if it has one, or look for it under Cameras in Device Manager\n"
            "no capture devices were found\n")
    use_pc("plug-in")
    out, err = tool.run(command, code=NO_CAMERA)
    assert out == ""
    assert f"capture devices found:\n  {PLUG_IN}  USB Camera, not selected: its USB device is removable\n" in err
    assert tool.names() == []


def test_list_prints_json_also_without_a_camera(tool):
    use_pc("none")
    out, _ = tool.run("list", "--json", code=NO_CAMERA)
    assert json.loads(out) == {"cameras": [], "devices": []}


@pytest.mark.parametrize("more, reason", [([], "Module not found"),
                                          (["libnuveqcamerahandler.dll"], "a DLL that it needs is missing")])
def test_incomplete_installation_is_reported_with_the_path_of_the_library(tool, more, reason):
    """Only the files that the program needs to start are installed, and some more."""
    installed = tool.folder.parent / "bin"
    installed.mkdir()
    for name in ("nuveqcam.exe", "liblog4cplus.dll", "libstdc++-6.dll", "libgcc_s_seh-1.dll", "libwinpthread-1.dll",
                 "avcodec-*.dll", "avformat-*.dll", "avutil-*.dll", *more):
        [file] = Path(PROGRAM).parent.glob(name)
        shutil.copy(file, installed)
    _, err = tool.run("list", program=installed / "nuveqcam.exe", code=UNEXPECTED,
                      env={**os.environ, "NUVEQ_WINEPREFIX": str(Path(PROGRAM).parent.parent / "wine")})
    assert re.match("nuveqcam: cannot load the camera library "
                    rf"Z:\\.*\\bin\\libnuveqcamerahandler\.dll: {reason}; ", err)


def test_doctor_prints_every_device_and_the_offered_camera(tool):
    out, err = tool.run("doctor")
    assert err == ""
    for line in (r"  USB\VID_04F2&PID_B6BE\0001  Integrated Camera (04f2:b6be)  built in: according to its device status in "
                 "Windows\n",
                 "  Port_#0002.Hub_#0001        USB Camera (046d:0825)         removable: according to its device status in "
                 "Windows\n",
                 f"  {BUILT_IN}   Integrated Camera  SELECTED: the first camera of USB device USB\\VID_04F2&PID_B6BE\\0001, "
                 "which is built in\n",
                 f"  {PLUG_IN}  USB Camera         not selected: its USB device is removable\n"):
        assert line in out
    assert out.endswith(f"\nOffered camera: Integrated Camera ({BUILT_IN}), 320x240 to 1920x1080, 10 to 30 fps\n"
                        "  - 'nuveqcam probe' measures what each size delivers\n")


def test_doctor_prints_the_ids_of_windows_as_json(tool):
    plug_in, camera = json.loads(tool.run("doctor", "--json")[0])["usbDevices"]
    assert (plug_in["model"], camera["model"]) == ("046d:0825", "04f2:b6be")
    assert (camera["video"], camera["firstFunction"]) == (None, r"USB\VID_04F2&PID_B6BE&MI_00\6&1A2B3C&0&0000")
    assert (plug_in["place"], plug_in["id"]) == ("Port_#0002.Hub_#0001", r"USB\VID_046D&PID_0825\0002")


def test_doctor_advises_on_a_pc_without_a_built_in_camera(tool):
    use_pc("plug-in")
    out, err = tool.run("doctor", code=NO_CAMERA)
    assert err == ""
    assert ("\nNo camera is offered: the only capture device is not a built-in USB camera\n"
            f"  - if USB Camera ({PLUG_IN}) is inside the PC, the firmware describes the port of USB device "
            "Port_#0002.Hub_#0001 incorrectly") in out
    use_pc("none")
    out, err = tool.run("doctor", code=NO_CAMERA)
    assert err == ""
    assert out.startswith("USB devices\n  none found\n\nCapture devices\n  none found\n\n"
                          "No camera is offered: no capture devices were found\n")
    assert out.endswith("\n  - look for it under Cameras in Device Manager\n")
