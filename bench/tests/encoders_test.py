"""The command lines: all encoders get the same input, size, bit rate, key-frame interval and threads."""

from pathlib import Path

import pytest

import clips
from encoders import KEY_INTERVAL, PRODUCT_BIT_RATE, Job, encoders, paced_encoders, slice_threads

TOP = Path("/top")
ENCODERS = encoders(TOP, TOP / "bin")
PACED_ENCODERS = paced_encoders(TOP, TOP / "bin")


def name_of(encoder):
    return encoder.name


def value_of(command, option):
    """Returns the value of an option: the next argument, or the rest of it if the option ends in '='."""
    if option.endswith("="):
        return next(word for word in command if word.startswith(option))[len(option):]
    return command[command.index(option) + 1]


def job(kilobits=PRODUCT_BIT_RATE, threads=1):
    return Job("CLIP", 1280, 720, kilobits, "OUT", threads)


def parameters(encoder, one_job):
    """Returns (input, width, height, kbit/s, key-frame interval, threads, output) of a command line."""
    command = encoder.command(one_job)
    if Path(command[0]).name == "encode_clip":
        # The product chooses the other parameters itself.
        kilobits = value_of(command, "--direct") if "--direct" in command else PRODUCT_BIT_RATE
        return command[3], int(command[1]), int(command[2]), int(kilobits), KEY_INTERVAL, one_job.threads, command[4]
    if Path(command[0]).name.startswith("ffmpeg"):
        width, _, height = value_of(command, "-s").partition("x")
        return (value_of(command, "-i"), int(width), int(height), int(value_of(command, "-b:v").rstrip("k")),
                int(value_of(command, "-g")), int(value_of(command, "-threads")), command[-1])
    is_x264 = "x264enc" in command
    bits = int(value_of(command, "bitrate="))
    return (value_of(command, "location="), int(value_of(command, "width=")), int(value_of(command, "height=")),
            bits if is_x264 else bits // 1000, int(value_of(command, "key-int-max=" if is_x264 else "gop-size=")),
            int(value_of(command, "threads=" if is_x264 else "multi-thread=")),
            [word for word in command if word.startswith("location=")][-1][len("location="):])


@pytest.mark.parametrize("encoder", ENCODERS, ids=name_of)
@pytest.mark.parametrize("kilobits", [768, PRODUCT_BIT_RATE, 3072])
@pytest.mark.parametrize("threads", [1, 2])
def test_encoder_gets_the_same_parameters(encoder, kilobits, threads):
    assert parameters(encoder, job(kilobits, threads)) == ("CLIP", 1280, 720, kilobits, KEY_INTERVAL, threads, "OUT")


@pytest.mark.parametrize("encoder", PACED_ENCODERS, ids=name_of)
def test_encoder_in_real_time_differs_by_one_option_only(encoder):
    [unpaced] = [other.command(job()) for other in ENCODERS if other.name == encoder.name]
    paced = encoder.command(job())
    assert [word for word in paced if word not in ("-re", "--paced")] == unpaced
    assert len(paced) == len(unpaced) + 1
    # An option of ffmpeg's input precedes it.
    assert "-re" not in paced or paced.index("-re") < paced.index("-i")


def test_openh264_has_the_settings_of_the_product():
    for command in (encoder.command(job()) for encoder in ENCODERS):
        if "libopenh264" in command:
            settings = ("-profile:v", "-coder", "-rc_mode", "-loopfilter", "-allow_skip_frames", "-slices")
            assert [value_of(command, option) for option in settings] == ["high", "cabac", "quality", "1", "0", "1"]


def test_slice_threads_are_two_from_1280x720_up_with_four_cores():
    assert (slice_threads(1280, 720, 4), slice_threads(1280, 720, 3), slice_threads(640, 480, 8)) == (2, 1, 1)


def test_clips_are_not_scaled_up():
    assert not clips.is_offered("webcam", "1920x1080")
    assert clips.is_offered("webcam", "1280x720")
    assert "crop=640:480" in clips.filters("webcam", "640x480")
