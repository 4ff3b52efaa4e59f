"""The command line, and the reports of list and doctor."""

import json
import os
import re
import shutil
from pathlib import Path

import pytest

from nuveqcam_tool import BUILT_IN, CAMERA, HAS_VIEW, IS_WINDOWS, LIBRARY, PLUG_IN, PROGRAM, UNEXPECTED, USAGE


def test_version_of_the_tool_and_its_libraries(tool):
    out, err = tool.run("--version")
    assert err == ""
    tool_line, *libraries = out.splitlines()
    assert tool_line == f"nuveqcam {os.environ['NUVEQCAM_VERSION']}"
    assert [re.fullmatch(r"([\w-]+) \d+(\.\d+)*", line)[1] for line in libraries] == [
        "log4cplus", "OpenH264", "libyuv", "libavcodec", "libavformat", "libavutil", "CLI11", "nlohmann-json",
        *(["Boost"] if HAS_VIEW else [])]


@pytest.mark.parametrize("command", ["", "list", "record", "snapshot", "doctor", "probe",
                                     *(["view"] if HAS_VIEW else [])])
def test_help_describes_the_features_of_this_system(tool, command):
    out, err = tool.run(*command.split(), "--help")
    assert err == ""
    assert f"(default: {LIBRARY.name} " in out
    assert "\r" not in out
    assert ("--simulated" in out) != IS_WINDOWS
    assert (".mp4" in out) == (command in ("record", "view"))
    assert ("--json" in out) == (command in ("list", "doctor", "probe", "view"))
    assert ("--fps" in out) == (command in ("record", "view"))


@pytest.mark.parametrize("arguments", [
    ["record", "-o", "x.txt", "--help"], ["list", "--fps", "3", "--help"], ["--json", "--help", "list"]])
def test_help_is_printed_despite_mistakes(tool, arguments):
    out, err = tool.run(*arguments)
    assert err == ""
    assert out.startswith("usage: nuveqcam ")
    assert tool.names() == []


@pytest.mark.parametrize("arguments", [
    [], ["fly"], ["record", "--seconds"], ["record", "--size", "big"], ["list", "--fps", "3"], ["record", "--seconds", "86401"],
    ["record", "-o", "me.avi"], ["--bogus", "list"], ["snapshot", "-o", "me.jpg"], ["list", "list"], ["--simulated=", "list"],
    ["probe", "--seconds", "0"], ["record", "--all-rates"],
    ["--json", "list"], ["list", "--", "--json"], ["--list.json"], ["list.list"], ["list", "/h"], ["record", "-o=me.png"],
    *([["list", "--simulated"]] if IS_WINDOWS else [])])
def test_invalid_arguments_are_rejected(tool, arguments):
    out, err = tool.run(*arguments, code=USAGE)
    assert out == ""
    assert re.fullmatch(r"nuveqcam: .+; see 'nuveqcam --help'\n", err)
    assert tool.names() == []


def test_arguments_may_have_non_ascii_characters(tool):
    _, err = tool.run("gr\u00fc\u00df \u4e2d\U0001F4F7", code=USAGE)
    assert "unknown command 'gr\u00fc\u00df \u4e2d\U0001F4F7';" in err


def test_list_prints_the_camera_and_devices_that_are_not_offered(tool):
    out, err = tool.run("list", *CAMERA)
    assert err == ""
    assert out.startswith(f"Camera 0: Integrated Camera ({BUILT_IN})\n  sizes    320 x   240\n")
    assert re.search(r"(?m)^ +1280 x +720$", out)
    assert re.search(r"(?m)^ +30 fps$", out)
    assert out.endswith(f"Other capture devices (not offered):\n  {PLUG_IN}  USB Camera  its USB device is removable\n")


def test_list_prints_json_with_the_documented_members(tool):
    out, err = tool.run("list", "--json", *CAMERA)
    assert (err, out.count("\n")) == ("", 1)
    answer = json.loads(out)
    assert set(answer) == {"cameras", "devices"}
    [camera] = answer["cameras"]
    assert set(camera) == {"id", "sizes", "rates"}
    assert camera["id"] == "0"
    assert {"width": 1920, "height": 1080} in camera["sizes"]
    assert 30 in camera["rates"]
    assert all(set(device) == {"name", "node", "builtIn", "reason"} for device in answer["devices"])
    # The system lists the camera that must not be offered first.
    assert [(device["name"], device["builtIn"], device["reason"] is None) for device in answer["devices"]] == [
        ("USB Camera", False, False), ("Integrated Camera", True, True)]


def test_doctor_prints_json_with_the_documented_members(tool):
    out, err = tool.run("doctor", "--json", *CAMERA)
    assert (err, out.count("\n")) == ("", 1)
    answer = json.loads(out)
    assert set(answer) == {"offered", "conclusion", "advice", "failure", "camera", "usbDevices", "captureDevices",
                           "otherNodes"}
    assert answer["offered"]
    assert (answer["failure"], answer["otherNodes"]) == (None, [])
    assert answer["advice"] == ["'nuveqcam probe' measures what each size delivers"]
    assert answer["camera"] == json.loads(tool.run("list", "--json", *CAMERA)[0])["cameras"][0]
    removable = {device["name"]: device["removable"] for device in answer["usbDevices"]}
    assert (removable["Integrated Camera"], removable["USB Camera"]) == (False, True)
    for device in answer["usbDevices"]:
        assert device["verdictFrom"] == ("windows" if IS_WINDOWS else "firmware")
        assert device["removable"] == device["verdict"].startswith("removable: ")
    [taken] = [device for device in answer["captureDevices"] if device["taken"]]
    assert (taken["name"], taken["reason"]) == ("Integrated Camera", None)
    [place] = [device["place"] for device in answer["usbDevices"] if device["name"] == "Integrated Camera"]
    assert taken["usbDevice"] == place


def test_verbose_prints_the_log_of_the_library(tool):
    out, err = tool.run("list", *CAMERA, "-v")
    assert "Camera 0" in out
    assert re.search(r"(?m)^\d\d:\d\d:\d\d\.\d{3} ERROR \[CameraOperator\]ParseMediaType success", err)


def test_library_can_be_specified(tool):
    name = "Kopie \u00e4" + LIBRARY.suffix
    shutil.copy(LIBRARY, tool.file(name))
    for path in (name, tool.file(name)):
        out, _ = tool.run("list", *CAMERA, "--library", path, env={**os.environ, "LD_LIBRARY_PATH": str(LIBRARY.parent)})
        assert "Camera 0" in out


@pytest.mark.parametrize("name, reason", [
    ("missing \u00e4.dll", "Module not found"), ("text.dll", "Bad EXE format for .+"),
    (Path(PROGRAM).parent / "MultiMediaEncoder.dll", "it does not export a camera handler table")] if IS_WINDOWS else [
    ("missing.so", ".+: No such file or directory"), ("text.so", ".+: file too short"),
    (Path(PROGRAM).parent / "libnuveqplatform.so", "it does not export a camera handler table")])
def test_invalid_library_is_rejected(tool, name, reason):
    for text in ("text.dll", "text.so"):
        tool.file(text).write_text("no library\n")
    out, err = tool.run("list", *CAMERA, "--library", name, code=UNEXPECTED)
    assert out == ""
    folder = r"Z:\\.*\\" if IS_WINDOWS else "/.*/"
    assert re.fullmatch(rf"nuveqcam: cannot load the camera library {folder}{Path(name).name}: {reason}; specify its file with "
                        r"--library\n", err)
