"""The command lines: all encoders get the same input, size, bit rate, key-frame interval and threads."""

from pathlib import Path

import pytest

import clips
from encoders import KEY_INTERVAL, PRODUCT_BIT_RATE, Job, PacedJob, encoders, paced_encoders, slice_threads

TOP = Path("/top")
ENCODERS = encoders(TOP, TOP / "bin")
PACED_ENCODERS = paced_encoders(TOP, TOP / "bin")


class FakeClip(clips.PacedClip):
    def sizes(self, path):
        return [1000, 2000]


CLIP = FakeClip("CLIP.yuy2")


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


def paced_job(form, threads=1):
    return PacedJob(CLIP, form, 1280, 720, threads, "TREE", "TIMES")


# Options of a paced encoder that its unpaced command has too: name, number of words.
SHARED = {"-c:v": 2, "-profile:v": 2, "-coder": 2, "-rc_mode": 2, "-loopfilter": 2, "-allow_skip_frames": 2, "-slices": 2,
          "-preset": 2, "-tune": 2, "-g": 2, "-b:v": 2}


@pytest.mark.parametrize("form", ["YUY2", "MJPG"])
@pytest.mark.parametrize("encoder", PACED_ENCODERS[1:], ids=name_of)
def test_encoder_at_a_cameras_pace_has_the_settings_of_the_unpaced_one(encoder, form):
    [unpaced] = [other.command(job(threads=2)) for other in ENCODERS if other.name == encoder.name]
    paced = encoder.command(paced_job(form, threads=2))
    if "fdsrc" in paced:
        first, last = (unpaced.index(word) for word in ("openh264enc", "filesink"))
        settings = unpaced[first:last]
        assert settings == paced[paced.index("openh264enc"):paced.index("fdsink")]
    else:
        shared = [option for option in SHARED if option in unpaced]
        assert [value_of(paced, option) for option in shared] == [value_of(unpaced, option) for option in shared]
        assert shared
        # The last one is the encoder's; the first one the decoder's.
        assert paced[len(paced) - paced[::-1].index("-threads")] == "2"
        assert "-re" not in paced


@pytest.mark.parametrize("encoder", PACED_ENCODERS, ids=name_of)
@pytest.mark.parametrize("form", ["YUY2", "MJPG"])
def test_encoder_at_a_cameras_pace_gets_the_frames_in_a_form_that_it_reads(encoder, form):
    form_read = "YUY2" if form == "YUY2" else "mpjpeg" if encoder.name.startswith("ffmpeg") else "MJPG"
    assert encoder.input(paced_job(form)) == CLIP.input(form_read)


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
