"""A virtual X screen, and the frame numbers of the camera's pictures on it.

The screen's memory is a file, which is read without the X server: the same way for every program that draws, and
without asking any of them.
"""

import contextlib
import mmap
import operator
import os
import shutil
import struct
import time
from pathlib import Path

import processes
from processes import BenchError

# Of the marker: blocks in two rows along the top, of 1/16 of the width and 1/12 of the height. From the lowest bit,
# they are the 24 bits of the frame number and the 8 bits of its checksum.
COLUMNS, ROWS, BLOCK_HEIGHT = 16, 2, 12
NUMBER_BITS = 24
# Between two looks at the screen, in seconds.
INTERVAL = 0.0005


def checksum(number):
    """The CRC-8 of a frame number."""
    crc = 0xFF
    for byte in number.to_bytes(3, "little"):
        crc ^= byte
        for _ in range(8):
            crc = (crc << 1 ^ (0x07 if crc & 0x80 else 0)) & 0xFF
    return crc


def number_of(blocks):
    """The frame number that blocks of a brightness show; None if they show none, or parts of two."""
    bits = sum((block > 127) << bit for bit, block in enumerate(blocks))
    number = bits & ((1 << NUMBER_BITS) - 1)
    return number if checksum(number) == bits >> NUMBER_BITS else None


def block_centers(width, height):
    return [((2 * column + 1) * width // (2 * COLUMNS), (2 * row + 1) * height // (2 * BLOCK_HEIGHT))
            for row in range(ROWS) for column in range(COLUMNS)]


class Screen:
    """The screen of a display. Its pictures fill it."""

    def __init__(self, display, memory, width, height):
        self.width, self.height = width, height
        self.display = display
        # The header of the format XWD: its own size, and later the bytes of a line and the number of colours.
        fields = struct.unpack(">25I", memory[:100])
        header, bits, line, colors = fields[0], fields[11], fields[12], fields[19]
        if bits != 32:
            raise BenchError(f"the screen has {bits} bits per pixel instead of 32")
        begin = header + 12 * colors
        # The green component.
        self._blocks = operator.itemgetter(*(begin + y * line + 4 * x + 1 for x, y in block_centers(width, height)))
        self._memory = memory

    def number(self):
        return number_of(self._blocks(self._memory))

    def watch(self, seconds):
        """Returns when each frame number was first on the screen, and the intervals between the looks at it."""
        first, intervals = {}, []
        latest = None
        before = time.monotonic()
        end = before + seconds
        while before < end:
            time.sleep(INTERVAL)
            blocks = self._blocks(self._memory)
            now = time.monotonic()
            intervals.append(now - before)
            before = now
            if blocks != latest:
                latest = blocks
                number = number_of(blocks)
                if number is not None:
                    first.setdefault(number, now)
        return first, intervals

    def wait_for_pictures(self, seconds):
        """Waits until the pictures have been moving for a while, and nothing that a program shows at its start covers
        the number in them."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            numbers = []
            for _ in range(60):
                time.sleep(0.05)
                numbers.append(self.number())
            if numbers.count(None) <= 3 and len(set(numbers)) > 30:
                return
        raise BenchError("no moving pictures appeared on the screen")


@contextlib.contextmanager
def screen(width, height, scratch):
    """A new display whose screen has a size."""
    if shutil.which("Xvfb") is None:
        raise BenchError("Xvfb is missing: scripts/install-packages.sh native bench browser")
    folder = Path(scratch) / "screen"
    folder.mkdir()
    read, write = os.pipe()
    # The server chooses a free display and writes its number to the pipe.
    command = ["Xvfb", "-displayfd", str(write), "-screen", "0", f"{width}x{height}x24", "-fbdir", folder, "-nolisten",
               "tcp", "-nocursor", "-s", "0"]
    with processes.background(command, pass_fds=(write,)):
        os.close(write)
        with open(read, encoding="ascii") as lines:
            display = ":" + lines.readline().strip()
        with open(folder / "Xvfb_screen0", "rb") as file, \
                mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ) as memory:
            yield Screen(display, memory, width, height)
