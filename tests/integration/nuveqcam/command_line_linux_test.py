"""The command line on Linux: the man page, this machine's devices, clips, and the encoder's limits."""

import glob
import json
import os
import re
import subprocess
from pathlib import Path

import pytest

from nuveqcam_tool import CAMERA, CANNOT_OPEN, HAS_VIEW, NO_CAMERA, OK, SMALL, TIMEOUT, USAGE, summary
from pictures import is_close, pictures, pixel

MAN_PAGE = os.environ["NUVEQCAM_MAN"]


@pytest.mark.skipif(not HAS_VIEW, reason="the man page describes view, without which the program was built")
def test_help_and_man_page_cover_every_command_option_and_exit_code(tool):
    commands = ("list", "record", "snapshot", "doctor", "probe", "view")
    helps = [tool.run(*words, "--help")[0] for words in ([], *([command] for command in commands))]
    rendered = subprocess.run(["mandoc", "-T", "utf8", MAN_PAGE], capture_output=True, check=True).stdout.decode()
    page = re.sub(".\b", "", rendered).replace("\u2212", "-")
    options = lambda text: set(re.findall(r"(?<![\w-])--?[a-z]+(?:-[a-z]+)*\b", text))
    everything = {"--help", "-h", "--version", "--simulated", "--verbose", "-v", "--library", "--json", "--output", "-o",
                  "--size", "--fps", "--seconds", "--skip", "--all-rates", "--port", "--no-open", "--keep-open"}
    assert set().union(*map(options, helps)) == everything
    # -f belongs to ffplay in an example.
    assert options(page) - {"-f"} == everything
    for command in commands:
        assert re.search(rf"(?m)^  {command} ", helps[0])
        assert re.search(rf"(?m)^     {command}\b", page)
    for text in helps:
        assert re.findall(r"(?m)^  (\d)  ", text) == list("01234567")
    status = page[page.index("EXIT STATUS"):page.index("EXAMPLES")]
    assert re.findall(r"(?m)^     (\d)  ", status) == list("01234567")


def test_help_and_man_page_describe_every_member_of_the_json_of_doctor(tool):
    answer = json.loads(tool.run("doctor", "--json", *CAMERA)[0])
    words = set(answer).union(*answer["usbDevices"], *answer["captureDevices"])
    page = Path(MAN_PAGE).read_text()
    page = page[page.index(".Cm doctor Fl -json"):page.index(".Cm probe Fl -json")]
    help_text = tool.run("doctor", "--help")[0]
    for word in words:
        assert re.search(rf"(?m)^\.(It )?Li (.*\s)?{word}\b", page)
        assert re.search(rf"\b{word}\b", help_text)


def test_help_and_man_page_describe_every_member_of_the_json_of_probe(tool):
    answer = json.loads(tool.run_with_fake_camera("160x120@30", "probe", "--json", "--seconds", 1)[0])
    words = set(answer).union(*answer["sizes"], *answer["checks"])
    page = Path(MAN_PAGE).read_text()
    page = page[page.index(".Cm probe Fl -json"):page.index(".Sh EXIT STATUS")]
    help_text = tool.run("probe", "--help")[0]
    for word in words:
        assert re.search(rf"(?m)^\.(It )?Li (.*\s)?{word}\b", page), word
        assert re.search(rf"\b{word}\b", help_text), word
    for check in answer["checks"]:
        assert re.sub(r"\d+$", "", check["check"]) in page


def test_man_page_is_well_formed():
    result = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", MAN_PAGE], capture_output=True)
    assert (result.returncode, result.stdout) == (0, b"")


def test_result_of_list_for_this_machine_is_a_camera_or_a_reason(tool):
    has_devices = bool(glob.glob("/dev/video*"))
    process = tool.start("list")
    code = process.wait(timeout=TIMEOUT)
    _, err = tool.finish(process, code)
    if code == NO_CAMERA:
        reason = "capture devices found:" if has_devices else "no capture devices were found"
        assert re.match(rf"(?s)nuveqcam: this PC has no built-in camera; .*\n{reason}", err)
    else:
        assert has_devices, err
        assert code in (OK, CANNOT_OPEN)


def test_result_of_doctor_for_this_machine_matches_the_exit_code(tool):
    process = tool.start("doctor")
    code = process.wait(timeout=TIMEOUT)
    out, err = tool.finish(process, code)
    assert err == ""
    assert code in (OK, NO_CAMERA, CANNOT_OPEN)
    assert out.count(b"\nOffered camera: " if code == OK else b"\nNo camera is offered: ") == 1
    out, _ = tool.run("doctor", "--json", code=code)
    assert json.loads(out)["offered"] == (code == OK)


def test_doctor_prints_every_device_and_the_offered_camera(tool):
    assert tool.run("doctor", *CAMERA) == ("""\
USB devices
  1-10  Bluetooth Radio (8087:0026)     built in: the firmware (ACPI) declares its port hard-wired
  2-1   USB Camera (046d:0825)          removable: the firmware (ACPI) declares its port hot-pluggable
  1-5   Integrated Camera (04f2:b6be)   built in: the firmware (ACPI) declares its port hard-wired
  1-7   Fingerprint Reader (27c6:55a2)  built in: the firmware (ACPI) declares its port hard-wired

Capture devices
  simulated  USB Camera         not selected: its USB device is removable
  simulated  Integrated Camera  SELECTED: the first camera of USB device 1-5, which is built in

Offered camera: Integrated Camera (simulated), 320x240 to 1920x1080, 10 to 30 fps
  - 'nuveqcam probe' measures what each size delivers
""", "")


def make_clip(tool, name):
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=c=0x2060C0:size=320x240:rate=30", "-t", "1",
                    "-c:v", "mjpeg", tool.file(name)], stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True)


@pytest.mark.parametrize("arguments", [["--simulated", "clip.avi", "snapshot"], ["snapshot", "--simulated=clip.avi"],
                                       ["snapshot", *SMALL, "--simulated", "clip.avi"]])
def test_clip_is_played_for_every_position_of_the_option(tool, arguments):
    make_clip(tool, "clip.avi")
    tool.run(*arguments, *SMALL)
    [rgb] = pictures(tool.file("camera.png"), (320, 240), "rgb24")
    assert is_close(pixel(rgb, (320, 240), 160, 120), (0x20, 0x60, 0xC0))


def test_clip_is_played_in_a_loop(tool):
    make_clip(tool, "clip.avi")
    out, _ = tool.run("record", "--simulated", "clip.avi", "--seconds", 2, *SMALL)
    assert int(summary(out)["frames"]) > 30


def test_clip_is_never_overwritten(tool):
    make_clip(tool, "clip.mp4")
    clip = tool.file("clip.mp4").read_bytes()
    os.link(tool.file("clip.mp4"), tool.file("second.h264"))
    os.symlink("clip.mp4", tool.file("link.png"))
    for command, name, what in (("record", "clip.mp4", "recording"), ("record", "second.h264", "recording"),
                                ("snapshot", "link.png", "picture")):
        _, err = tool.run(command, "--simulated", "clip.mp4", "-o", name, code=USAGE)
        assert err == f"nuveqcam: the {what} would overwrite the clip; choose another file with -o\n"
        assert tool.file("clip.mp4").read_bytes() == clip


@pytest.mark.parametrize("name", ["clip.txt", "missing.mp4"])
def test_unplayable_clip_is_reported(tool, name):
    tool.file("clip.txt").write_text("no film\n" * 100)
    _, err = tool.run("list", "--simulated", name, code=USAGE)
    assert re.fullmatch(rf"nuveqcam: cannot play {name}: .+; specify another video file with --simulated\n", err)


def test_size_that_the_encoder_does_not_support_is_explained(tool):
    _, err = tool.run("record", *CAMERA, "--size", "9000x222", code=CANNOT_OPEN)
    assert re.search(r"\(result -1004\) \(library log: .*encoder.*\); the encoder does not support the size; choose another one "
                     "with --size", err)
