"""Decodes recordings of the cameras of the tests with ffmpeg, and checks the pictures and the numbers in them."""

import functools
import json
import re
import subprocess

# Seconds. Sufficient for a loaded machine.
TIMEOUT = 120


@functools.cache
def keep_times():
    """Options of ffmpeg that keep the times of the input, which it would round to a guessed rate, with a warning."""
    version = subprocess.run(["ffmpeg", "-version"], capture_output=True, stdin=subprocess.DEVNULL, text=True,
                             timeout=TIMEOUT, check=True).stdout
    # FFmpeg 7 warns about the value of earlier versions.
    return ["-enc_time_base", "-1" if int(re.match(r"ffmpeg version (\d+)", version)[1]) < 7 else "demux"]


def probe(file, entries):
    result = subprocess.run(["ffprobe", "-v", "error", "-count_frames", "-show_entries", entries, "-of", "json", file],
                            capture_output=True, timeout=TIMEOUT, check=True)
    assert result.stderr == b""
    return json.loads(result.stdout)


def stream(file):
    [found] = probe(file, "stream=codec_name,width,height,nb_read_frames,duration")["streams"]
    return found


def size_of(file):
    return stream(file)["width"], stream(file)["height"]


def pictures(file, size, pixels="gray"):
    """The decoded pictures' bytes; warnings of the decoder are failures. Without +genpts, ffmpeg would warn about the
    missing times of a raw stream."""
    length = size[0] * size[1] * (3 if pixels == "rgb24" else 1)
    result = subprocess.run(
        ["ffmpeg", "-v", "warning", "-fflags", "+genpts", "-i", file, "-fps_mode", "passthrough", *keep_times(), "-f", "rawvideo",
         "-pix_fmt", pixels, "-"], capture_output=True, stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True)
    assert result.stderr == b""
    assert len(result.stdout) % length == 0
    return [result.stdout[i:i + length] for i in range(0, len(result.stdout), length)]


def frame_number(gray, size):
    """The frame number in the camera's picture: 16 bits as blocks along the top, lowest first, and 8 bits below."""
    width, height = size
    number = 0
    for bit in range(24):
        x = (2 * (bit % 16) + 1) * width // 32
        y = (2 * (bit // 16) + 1) * height // 24
        number |= (gray[y * width + x] > 127) << bit
    return number


def pixel(rgb, size, x, y):
    return tuple(rgb[3 * (size[0] * y + x):][:3])


def is_close(color, expected):
    return all(abs(a - b) < 24 for a, b in zip(color, expected))


def check_numbers(file, size, count):
    """Checks that the pictures are numbered from 0 to count - 1: none was lost, repeated or reordered."""
    assert [frame_number(picture, size) for picture in pictures(file, size)] == list(range(count))


def check_corners(rgb, size):
    """Checks orientation and colors of a camera's picture by its corners."""
    width, height = size
    left, right, top, bottom = width // 64, width - 1 - width // 64, height * 3 // 16, height - 1 - height // 48
    for x, y, color in ((left, top, (255, 0, 0)), (right, top, (0, 255, 0)), (left, bottom, (0, 0, 255)),
                        (right, bottom, (255, 255, 255))):
        assert is_close(pixel(rgb, size, x, y), color), (x, y)
