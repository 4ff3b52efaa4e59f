"""The running `nuveqcam view` of bench/compare_viewers: its packets, their arrival times, and its CPU time."""

import contextlib
import http.client
import json
import struct
import subprocess
import sys
import threading
import time
import urllib.request
from pathlib import Path

import processes
from processes import BenchError
from screen import BLOCK_HEIGHT, COLUMNS, ROWS, number_of

FPS = 30
HEADER = struct.Struct("<IBBHQQ")
PACKET = 1
ENCODER_THREAD = "nuveq-encoder"
TIMEOUT = 30


class Server:
    """Its clock is time.monotonic(), as that of every program on this computer."""

    def __init__(self, process, address):
        self.process = process
        self.address = address

    def state(self):
        return json.loads(self._get("state"))

    def wait_for(self, condition):
        end = time.monotonic() + TIMEOUT
        while not condition(state := self.state()):
            if time.monotonic() > end:
                raise BenchError(f"the program's state is still {state}")
            time.sleep(0.05)

    def _get(self, resource):
        with urllib.request.urlopen(f"{self.address}{resource}", timeout=TIMEOUT) as response:
            return response.read()

    def require_same_clock(self):
        before = time.monotonic()
        found = int(self._get("time")) / 1e6
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
        running.wait_for(lambda state: state["camera"]["phase"] == "open")
        yield running


def thread_times(pid):
    """The CPU time in seconds of the threads of a process, as pairs with their names, by their id."""
    times = {}
    for folder in Path(f"/proc/{pid}/task").iterdir():
        with contextlib.suppress(OSError):  # the thread has ended
            nanoseconds = int((folder / "schedstat").read_text(encoding="ascii").split()[0])
            times[int(folder.name)] = (folder / "comm").read_text().strip(), nanoseconds / 1e9
    return times


def cost(before, after, server_thread):
    """The CPU time of the server's thread relative to that of the encoder's threads."""
    server = after[server_thread][1] - before[server_thread][1]
    encoder = sum(seconds - before[thread][1] for thread, (name, seconds) in after.items()
                  if name == ENCODER_THREAD and thread in before)
    if encoder <= 0:
        raise BenchError("the encoder's thread has not run")
    return server / encoder


@contextlib.contextmanager
def readers(server, count):
    """Programs that read the page's stream and do nothing with it, in a process of their own."""
    with processes.background([sys.executable, "-B", Path(__file__).parent / "read_streams.py", server.address, count]):
        server.wait_for(lambda state: state["viewers"] == count)
        yield


def cost_of_readers(server, count, seconds):
    """The cost while so many programs read the stream."""
    with readers(server, count):
        before = thread_times(server.process.pid)
        time.sleep(seconds)
        # The server runs on the main thread.
        return cost(before, thread_times(server.process.pid), server.process.pid)


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
            raise BenchError(f"{len(self._packets)} packets have {len(numbers)} pictures, {numbers.count(None)} of "
                             "them without a number")
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
