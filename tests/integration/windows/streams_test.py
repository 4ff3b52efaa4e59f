"""Streams of the DLL in each size and layout: recorded under Wine, decoded and checked on the build machine."""

import os
import subprocess

import pytest

from pictures import TIMEOUT, check_corners, check_numbers, pictures


@pytest.mark.parametrize("layout", ["Yuy2", "Mjpg"])
@pytest.mark.parametrize("size", [(320, 240), (640, 480), (1280, 720), (1920, 1080)])
def test_pictures_are_complete_upright_and_in_their_colors(scratch, layout, size):
    name = f"{layout}_{size[0]}x{size[1]}"
    with open(scratch / "log", "wb") as log:
        result = subprocess.run([os.environ["WINE_RUNNER"], os.environ["WINDOWS_TESTS"],
                                 f"--gtest_filter=All/EveryFormat.Streams/{name}"], cwd=scratch, stdin=subprocess.DEVNULL,
                                stdout=log, stderr=log, timeout=TIMEOUT)
    assert result.returncode == 0, (scratch / "log").read_text()
    stream = scratch / "streams" / f"{name}.h264"
    count = int(stream.with_suffix(".count").read_text())
    assert count > 0
    check_numbers(stream, size, count)
    for rgb in pictures(stream, size, "rgb24"):
        check_corners(rgb, size)
