"""The running `nuveqcam view` of bench/compare_viewers: its packets and their arrival times."""

import contextlib
import http.client
import json
import struct
import subprocess
import threading
import time
import urllib.request

import processes
from processes import BenchError
from screen import BLOCK_HEIGHT, COLUMNS, ROWS, number_of

FPS = 30
HEADER = struct.Struct("<IBBHQQ")
PACKET = 1
TIMEOUT = 30


class Server:
    """Its clock is time.monotonic(), as that of every program on this computer."""

    def __init__(self, process, address):
        self.process = process
        self.address = address

    def require_same_clock(self):
        before = time.monotonic()
        with urllib.request.urlopen(f"{self.address}time", timeout=TIMEOUT) as response:
            found = int(response.read()) / 1e6
        if not before - 0.001 <= found <= time.monotonic() + 0.001:
            raise BenchError("the program and this script have different clocks")


@contextlib.contextmanager
def server(program, size):
    """`nuveqcam view` with the simulated camera, which stays open."""
    command = [program, "view", "--simulated", "--json", "--no-open", "--keep-open", "--size", size, "--fps", FPS]
    with processes.background(command, stdout=subprocess.PIPE, text=True) as process:
        with process.stdout:
            line = process.stdout.readline()
        if not line:
            raise BenchError(f"{program} did not start")
        running = Server(process, json.loads(line)["address"])
        running.require_same_clock()
        yield running


class Recorder:
    """Reads the packets, with the times of their arrival in the program."""

    def __init__(self, address):
        self._stream = urllib.request.urlopen(f"{address}stream", timeout=TIMEOUT)
        self._packets = []  # of arrival and payload
        self._error = None
        self._is_stopping = False
        self._thread = threading.Thread(target=self._read)
        self._thread.start()

    def _read(self):
        try:
            while not self._is_stopping:
                length, kind, _, _, _, arrival = HEADER.unpack(self._stream.read(HEADER.size))
                payload = self._stream.read(length)
                if kind == PACKET:
                    self._packets.append((arrival / 1e6, payload))
        except (OSError, http.client.HTTPException, struct.error) as error:
            self._error = error

    def stop(self):
        self._is_stopping = True
        self._thread.join()
        self._stream.close()

    def arrivals(self):
        """The arrival time of each frame number. Call it after stop."""
        if self._error is not None:
            raise BenchError(f"the stream ended early: {self._error}")
        numbers = numbers_in(b"".join(payload for _, payload in self._packets))
        if len(numbers) != len(self._packets) or None in numbers:
            raise BenchError(f"{len(self._packets)} packets have {len(numbers)} pictures, {numbers.count(None)} of them "
                             "without a number")
        return {number: arrival for number, (arrival, _) in zip(numbers, self._packets)}


@contextlib.contextmanager
def recorder(address):
    running = Recorder(address)
    try:
        yield running
    finally:
        running.stop()


def numbers_in(stream):
    """The frame numbers in the pictures of an H.264 stream."""
    # One pixel for each block, so that ffmpeg does the work.
    blocks = f"crop=iw:ih*{ROWS}/{BLOCK_HEIGHT}:0:0,scale={COLUMNS}:{ROWS}:flags=area,format=gray"
    command = ["ffmpeg", "-v", "error", "-f", "h264", "-i", "-", "-fps_mode", "passthrough", "-vf", blocks,
               "-f", "rawvideo", "-"]
    result = subprocess.run(command, input=stream, capture_output=True, timeout=10 * TIMEOUT, check=False)
    if result.returncode != 0:
        raise BenchError(f"ffmpeg cannot decode the stream: {result.stderr.decode(errors='replace')}")
    size = COLUMNS * ROWS
    return [number_of(result.stdout[i:i + size]) for i in range(0, len(result.stdout), size)]
