"""Recordings and pictures, as a user makes them."""

import os
import pty
import re
import signal
import subprocess

import pytest

from nuveqcam_tool import (CAMERA, CANNOT_OPEN, CANNOT_WRITE, ENDED_EARLY, IS_WINDOWS, RECORDING, SMALL, TIMEOUT, USAGE,
                           check_recording, summary, wait_until)
from pictures import check_corners, frame_number, keep_times, pictures, probe, size_of, stream


@pytest.fixture
def terminal():
    """A pseudo terminal; under Wine a console."""
    master, slave = pty.openpty()
    yield slave
    os.close(slave)
    os.close(master)


@pytest.mark.parametrize("name", [RECORDING, "CAMERA.264", "Aufnahme \u00fc \u4e2d.h264"])
def test_recording_has_every_frame(tool, name):
    out, err = tool.run("record", *CAMERA, "--seconds", 1, "-o", name, *SMALL)
    assert err == ""
    assert out.startswith(f"recorded {name}\n  request       320x240, 30 fps\n")
    check_recording(tool.file(name), out)


def test_size_and_rate_can_be_specified(tool):
    out, _ = tool.run("record", *CAMERA, "--seconds", 1, "--size=640x480", "--fps=15")
    assert "  request       640x480, 15 fps\n" in out
    check_recording(tool.file(RECORDING), out, (640, 480))


def test_default_size_is_1280x720_unless_this_machine_is_too_slow(tool):
    """The camera has 30 frames per second at every size, but this machine may not encode them."""
    out, err = tool.run("record", *CAMERA, "--seconds", 1)
    width, height = re.match(rf"recorded {RECORDING}\n  request       (\d+)x(\d+), 30 fps\n", out).groups()
    assert err == "" if width == "1280" else re.match("nuveqcam: 1280x720 delivers only about ", err)
    check_recording(tool.file(RECORDING), out, (int(width), int(height)))


# The fake camera lists its rates for all sizes. The largest size up to 1280x720 is preferred, then smaller ones.
@pytest.mark.parametrize("camera, size, message", [
    ("rates=30 160x120@30 320x240@30", "320x240", None),
    ("rates=30 160x120@30 320x240@24", "320x240", None),
    ("rates=30 160x120@30 320x240@30 480x360@15", "320x240",
     r"480x360 delivers only about 1\d of 30 frames per second; using 320x240"),
    ("rates=10,30 160x120@10 320x240@30 400x300@10 480x360@10", "320x240",
     r"480x360 delivers only about \d+ of 30 .*; using 320x240"),
    ("rates=30 160x120@30 320x240@30:refuse 480x360@10", "160x120", "480x360 delivers only .*; using 160x120"),
    ("rates=30 160x120@10 320x240@10 480x360@10", "480x360",
     "no size delivers 30 frames per second, .*; using 480x360, .*"),
    ("rates=30 160x120@30 1600x900@10", "160x120", None),
    ("rates=30 1296x32@5 1312x32@30", "1312x32", "1296x32 delivers only .*; using 1312x32"),
    ("rates=10 160x120@10 320x240@5", "320x240", None)])
def test_default_size_delivers_the_rate(tool, camera, size, message):
    out, err = tool.run_with_fake_camera(camera, "record", "--seconds", 1)
    fps = 10 if camera.startswith("rates=10 ") else 30
    assert f"  request       {size}, {fps} fps\n" in out
    assert err == "" if message is None else re.match(f"nuveqcam: {message}", err)
    assert stream(tool.file(RECORDING))["nb_read_frames"] == summary(out)["frames"]


def test_recording_of_the_default_size_has_the_packets_that_were_judged(tool):
    """The judgement takes a quarter of a second, which is part of the recording."""
    out, _ = tool.run_with_fake_camera("160x120@30 320x240@30", "record", "--seconds", 1)
    assert int(summary(out)["frames"]) >= 25
    assert float(summary(out)["duration"]) == pytest.approx(1, abs=0.2)


def test_snapshot_has_the_default_size_of_a_recording(tool):
    out, err = tool.run_with_fake_camera("rates=30 160x120@30 320x240@10", "snapshot", "--skip", 0)
    assert "  size     160x120\n" in out
    assert re.match(r"nuveqcam: 320x240 delivers only about \d+ of 30 frames per second; using 160x120", err)
    assert size_of(tool.file("camera.png")) == (160, 120)


def test_requested_size_is_kept_at_any_rate(tool):
    out, err = tool.run_with_fake_camera("rates=30 160x120@30 320x240@10", "record", "--seconds", 1, "--size", "320x240")
    assert "  request       320x240, 30 fps\n" in out
    assert err == ""


def test_mp4_plays_without_warnings_for_its_duration(tool):
    out, _ = tool.run("record", *CAMERA, "--seconds", 1, *SMALL)
    found = stream(tool.file(RECORDING))
    assert (found["codec_name"], found["nb_read_frames"]) == ("h264", summary(out)["frames"])
    assert float(found["duration"]) == pytest.approx(float(summary(out)["duration"]), abs=0.05)
    played = subprocess.run(["ffmpeg", "-v", "warning", "-i", tool.file(RECORDING), *keep_times(), "-f", "null", "-"],
                            capture_output=True, stdin=subprocess.DEVNULL, timeout=TIMEOUT)
    assert (played.returncode, played.stderr) == (0, b"")


def test_mp4_has_increasing_times_from_zero_and_key_frames_marked(tool):
    out, _ = tool.run("record", *CAMERA, "--seconds", 6, *SMALL)
    packets = probe(tool.file(RECORDING), "packet=pts_time,dts_time,flags")["packets"]
    times = [float(packet["pts_time"]) for packet in packets]
    assert times[0] == 0
    assert all(a < b for a, b in zip(times, times[1:]))
    assert times == [float(packet["dts_time"]) for packet in packets]
    marked = [packet["flags"].startswith("K") for packet in packets]
    assert str(sum(marked)) == summary(out)["key frames"]
    assert marked[0]
    assert not all(marked)


def test_standard_output_gets_only_the_stream(tool):
    out, err = tool.finish(tool.start("record", *CAMERA, "--seconds", 1, "-o", "-", *SMALL))
    tool.file("copy.h264").write_bytes(out)
    assert err.startswith("recorded standard output\n")
    check_recording(tool.file("copy.h264"), err)


@pytest.mark.parametrize("name", [RECORDING, "camera.h264"])
def test_longer_earlier_recording_is_truncated(tool, name):
    tool.file(name).write_bytes(bytes(20_000_000))
    out, _ = tool.run("record", *CAMERA, "--seconds", 1, *SMALL, "-o", name)
    assert tool.file(name).stat().st_size < 10_000_000
    check_recording(tool.file(name), out)


# Windows has one signal, Ctrl-C.
@pytest.mark.parametrize("name, number", [("camera.h264", signal.SIGINT), (RECORDING, signal.SIGINT)] + (
    [] if IS_WINDOWS else [(RECORDING, signal.SIGTERM), (RECORDING, signal.SIGHUP)]))
def test_interrupt_completes_the_recording(tool, name, number):
    process = tool.start("record", *CAMERA, "--seconds", 0, "-o", name, *SMALL)
    tool.wait_for_content(name, 10000, process)
    process.send_signal(number)
    out, err = tool.finish(process)
    assert err == ""
    assert out.decode().startswith(f"recorded {name} (interrupted)\n")
    check_recording(tool.file(name), out.decode())


def test_reader_that_exits_is_a_write_error(tool):
    process = tool.start_recording()
    process.stdout.close()
    _, err = tool.finish(process, CANNOT_WRITE)
    assert re.search("nuveqcam: cannot write standard output: .+; the program that reads it has exited; the recording can "
                     "be played up to its end\n$", err)


def test_full_device_ends_a_recording(tool):
    with open("/dev/full", "wb") as full:
        _, err = tool.run("record", *CAMERA, "-o", "-", *SMALL, stdout=full, code=CANNOT_WRITE)
    assert re.search("nuveqcam: cannot write standard output: .+; write to a file with -o\n$", err)


@pytest.mark.parametrize("command, name", [("record", f"no/such/{RECORDING}"), ("snapshot", "no/such/camera.png")])
def test_missing_folder_is_reported_with_the_next_step(tool, command, name):
    out, err = tool.run(command, *CAMERA, "-o", name, code=CANNOT_WRITE)
    assert out == ""
    assert re.fullmatch(f"nuveqcam: cannot write {name}: .+; create the folder first or choose another file with -o\n", err)


def test_folder_as_output_is_rejected(tool):
    tool.file(RECORDING).mkdir()
    _, err = tool.run("record", *CAMERA, code=CANNOT_WRITE)
    assert re.fullmatch(f"nuveqcam: cannot write {RECORDING}: .+; choose another file with -o\n", err)


def test_size_that_the_camera_does_not_have_is_explained_and_changes_no_file(tool):
    tool.file("kept.h264").write_bytes(b"an earlier recording")
    for command, name in (("record", "kept.h264"), ("record", RECORDING), ("snapshot", "new.png")):
        _, err = tool.run(command, *CAMERA, "--size", "334x222", "-o", name, code=CANNOT_OPEN)
        assert re.fullmatch(
            r"nuveqcam: cannot open the camera at 334x222, \d+ fps \(result -1001\): the camera does not deliver that format; "
            r"choose one of the sizes of 'nuveqcam list' with --size \(library log: Set camera parameter fail, error:-\d+\)\n",
            err), err
    assert tool.file("kept.h264").read_bytes() == b"an earlier recording"
    assert tool.names() == ["kept.h264"]


@pytest.mark.parametrize("command, what", [("record", "recording"), ("snapshot", "picture")])
def test_terminal_as_output_is_rejected(tool, terminal, command, what):
    _, err = tool.run(command, *CAMERA, "-o", "-", stdout=terminal, code=USAGE)
    assert err == f"nuveqcam: a terminal cannot show the {what}; pipe it into a program, or choose a file with -o\n"


def test_snapshot_is_the_tenth_picture_upright_and_in_color(tool):
    assert tool.run("snapshot", *CAMERA, "--size", "640x480") == (
        "took camera.png\n  size     640x480\n  picture  10 of the stream\n", "")
    file, size = tool.file("camera.png"), (640, 480)
    assert stream(file)["codec_name"] == "png"
    assert size_of(file) == size
    [gray] = pictures(file, size)
    assert frame_number(gray, size) == 9
    [rgb] = pictures(file, size, "rgb24")
    check_corners(rgb, size)


@pytest.mark.parametrize("skip", [0, 25])
def test_skip_selects_the_picture_of_a_snapshot(tool, skip):
    name = "Bild \u4e2d.png"
    tool.file(name).write_bytes(bytes(20_000_000))
    out, _ = tool.run("snapshot", *CAMERA, "--skip", skip, *SMALL, "-o", name)
    assert f"picture  {skip + 1} of the stream" in out
    [gray] = pictures(tool.file(name), (320, 240))
    assert frame_number(gray, (320, 240)) == skip
    assert tool.file(name).stat().st_size < 10_000_000


def test_snapshot_of_a_size_that_is_not_a_multiple_of_macroblocks_is_cropped(tool):
    tool.run("snapshot", *CAMERA, "--size", "1920x1080", "--skip", 0)
    assert size_of(tool.file("camera.png")) == (1920, 1080)


def test_snapshot_can_be_written_to_standard_output(tool):
    out, err = tool.finish(tool.start("snapshot", *CAMERA, "-o", "-", *SMALL))
    tool.file("copy.png").write_bytes(out)
    assert err.startswith("took standard output\n")
    assert len(pictures(tool.file("copy.png"), (320, 240))) == 1


def test_snapshot_interrupted_before_the_picture_leaves_nothing(tool):
    process = tool.start("snapshot", *CAMERA, "--skip", 100000, *SMALL)
    # The signals are handled before the file is created.
    wait_until(lambda: tool.file("camera.png").exists(), process)
    process.send_signal(signal.SIGINT)
    _, err = tool.finish(process, ENDED_EARLY)
    assert "interrupted" in err
    assert tool.names() == []
