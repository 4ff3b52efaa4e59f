#!/usr/bin/env python3
"""Viewers of nuveqcam view that come and go: see --help."""

import argparse
import collections
import os
import random
import re
import resource
import socket
import struct
import sys
import tempfile
import threading
import time
from pathlib import Path

TOP = Path(__file__).resolve().parents[3]
sys.path[:0] = [str(TOP / "tests/integration/nuveqcam"), str(TOP / "tests/support/video")]
sys.dont_write_bytecode = True

STREAMS = ("stream", "stream.h264", "stream.mp4")
SIZES = ((160, 120), (320, 240), (640, 480))
RATES = (10, 15, 30)
VIEWERS = 8
# Until the resources are counted first. The longest session so far determines the kept memory.
WARM_UP = 0.2
# Between the viewers' comings and goings, so that the resources of the remaining ones can be counted.
ROUND = 20
# Shorter runs may not have time for everything.
MIN_CONTROLLED = 60
# What the server says about requests that come at a bad moment.
REFUSED = {"snapshot.png": {503}, "recording.mp4": {404}, "record": {409, 500}, "camera": set(), "state": set(),
           "time": set(), "": set()}


def options():
    parser = argparse.ArgumentParser(
        description="For a number of seconds, viewers of all streams connect to nuveqcam view with the simulated "
                    "camera, read, stop reading and disconnect in all ways; sizes and rates change, snapshots are taken, and "
                    "recordings are made and downloaded. Checks the packets' order, the responses, the exit code, and "
                    "that descriptors, threads and memory do not grow.",
        epilog="The last line is \"soak: ok\" on success.")
    parser.add_argument("program", type=Path, help="nuveqcam")
    parser.add_argument("seconds", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--max-growth", type=float, default=8, metavar="MIB",
                        help="of the resident memory (8); more with sanitizers, which keep freed memory")
    return parser.parse_args()


chosen = options()
os.environ["NUVEQCAM"] = str(chosen.program.resolve())
# AddressSanitizer would keep 256 MiB of freed memory.
os.environ["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=8"
# The tool's tests need it.
os.environ.setdefault("FAKE_LIBRARY", "unused")

from nuveqcam_tool import TIMEOUT, Tool, wait_until  # noqa: E402
from view_client import PACKET, Connection, View  # noqa: E402


class Counts:
    """How often each thing has happened."""

    def __init__(self):
        self._lock = threading.Lock()
        self._counts = collections.Counter()

    def add(self, name, count=1):
        with self._lock:
            self._counts[name] += count

    def __str__(self):
        with self._lock:
            return ", ".join(f"{name} {count}" for name, count in sorted(self._counts.items()))

    def __getitem__(self, name):
        return self._counts[name]


class Visitor(threading.Thread):
    """Acts until the end. The first failure of one ends all."""

    failures = []

    def __init__(self, view, counts, end, seed):
        super().__init__()
        self.view = view
        self.counts = counts
        self.end = end
        self.random = random.Random(seed)

    def is_over(self):
        return time.monotonic() > self.end or bool(self.failures)

    def run(self):
        try:
            while not self.is_over():
                self.act()
        except Exception as failure:  # pylint: disable=broad-except
            self.failures.append(f"{type(self).__name__}: {failure!r}")

    def disconnect(self, connection):
        way = self.random.choice(("close", "reset", "half"))
        try:
            if way == "reset":
                connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            elif way == "half":
                connection.socket.shutdown(socket.SHUT_WR)
                time.sleep(self.random.uniform(0, 0.1))
        except OSError:
            pass  # the server was faster
        connection.close()
        self.counts.add("end: " + way)

    def request(self, resource, **options):
        """A response, or None if the viewer has left before it came."""
        connection = Connection(self.view)
        try:
            connection.request(resource, **options)
            self.counts.add("request: " + resource)
            if self.random.random() < 0.2:
                self.disconnect(connection)
                return None
            response = connection.response()
        finally:
            connection.close()
        if response.status not in (200, 202):
            assert response.status in REFUSED[resource], (resource, response.status, response.body)
            assert response.json()["error"]
            self.counts.add(f"{resource}: {response.status}")
            return None
        return response


class Viewer(Visitor):
    """Watches one stream after the other."""

    def act(self):
        kind = self.random.choice(STREAMS)
        connection = Connection(self.view, receive_buffer=self.random.choice((None, 4096)))
        try:
            connection.request(kind)
            self.counts.add(kind)
            if self.random.random() < 0.9:
                assert connection.read_head().status == 200
                self.watch(kind, connection)
            self.disconnect(connection)
        except EOFError:
            # A video ends when the size changes.
            assert kind == "stream.mp4", kind
            self.counts.add("end: of the video")
        finally:
            connection.close()

    def watch(self, kind, connection):
        latest = None
        end = min(self.end, time.monotonic() + self.random.expovariate(1))
        while time.monotonic() < end:
            if self.random.random() < 0.02:
                # More than the buffers hold, if it is long.
                time.sleep(self.random.expovariate(1))
                self.counts.add("stall")
            if kind != "stream":
                assert connection.chunk() or kind == "stream.mp4"
                continue
            record = connection.record()
            if record.kind == PACKET:
                assert latest is not None or record.is_key_frame
                if latest is not None and record.number != latest + 1:
                    assert record.number > latest and record.is_key_frame
                    self.counts.add("skip")
                latest = record.number
                self.counts.add("packets")


class Controller(Visitor):
    """Uses everything but the streams."""

    def act(self):
        self.random.choice((self.change, self.take_picture, self.start_recording, self.stop_recording, self.download,
                            self.look))()
        time.sleep(self.random.uniform(0, 0.3))

    def change(self):
        if self.random.random() < 0.5:
            width, height = self.random.choice(SIZES)
            self.request("camera", method="POST",
                         body={"width": width, "height": height, "fps": self.random.choice(RATES)})

    def take_picture(self):
        if response := self.request("snapshot.png"):
            assert response.body.startswith(b"\x89PNG")

    def start_recording(self):
        self.request("record", method="POST", body={"record": True})

    def stop_recording(self):
        self.request("record", method="POST", body={"record": False})

    def download(self):
        if response := self.request("recording.mp4"):
            assert response.body[4:8] == b"ftyp"
            self.counts.add("recordings")

    def look(self):
        for resource in ("", "state", "time"):
            self.request(resource)


class Footprint:
    """The resources of the process."""

    def __init__(self, pid):
        process = Path(f"/proc/{pid}")
        self.descriptors = len(list((process / "fd").iterdir()))
        self.threads = len(list((process / "task").iterdir()))
        pages = int((process / "statm").read_text(encoding="ascii").split()[1])
        self.mebibytes = pages * resource.getpagesize() / (1 << 20)

    def __str__(self):
        return f"{self.descriptors} descriptors, {self.threads} threads, {self.mebibytes:.1f} MiB"


def footprint_at_rest(view):
    """The resources once all viewers have left and the camera is closed."""

    def is_closed(state):
        # A recording would keep the camera open. One that is about to start cannot be stopped yet.
        if state["recording"]["running"] or state["camera"]["phase"] != "closed":
            view.post("record", {"record": False})
        return state["viewers"] == 0 and state["camera"]["phase"] == "closed"

    view.wait_for_state(is_closed)
    # The server may not have closed all connections yet.
    before = None

    def is_steady():
        nonlocal before
        previous, before = before, str(Footprint(view.process.pid)).rsplit(",", 1)[0]
        time.sleep(0.2)
        return previous == before

    wait_until(is_steady, view.process)
    return Footprint(view.process.pid)


def visit(view, counts, seconds, seed):
    """Lets the visitors act, and returns the resources after they have left."""
    end = time.monotonic() + seconds
    visitors = [Viewer(view, counts, end, f"{seed} {number}") for number in range(VIEWERS)]
    visitors.append(Controller(view, counts, end, f"{seed} controller"))
    for visitor in visitors:
        visitor.start()
    for visitor in visitors:
        visitor.join()
    if Visitor.failures:
        raise AssertionError("; ".join(Visitor.failures))
    return footprint_at_rest(view)


def check_growth(first, last):
    assert last.descriptors <= first.descriptors, f"descriptors grew from {first} to {last}"
    assert last.threads <= first.threads, f"threads grew from {first} to {last}"
    assert last.mebibytes <= first.mebibytes + chosen.max_growth, f"memory grew from {first} to {last}"


def check_end(view):
    _, errors = view.stop()
    saved = r"nuveqcam: saved the recording that was not downloaded as camera-\d{8}-\d{6}\.mp4\n"
    assert re.fullmatch(f"({saved})?", errors), errors


def soak(scratch):
    tool = Tool(scratch)
    counts = Counts()
    try:
        view = View(tool)
        # Starts the thread that takes snapshots and finishes recordings, which remains.
        wait_until(lambda: view.get("snapshot.png").status == 200, view.process)
        begin = time.monotonic()
        first = visit(view, counts, WARM_UP * chosen.seconds, chosen.seed)
        print(f"soak: after the warm-up: {first}", flush=True)
        last = first
        while (left := begin + chosen.seconds - time.monotonic()) > 0:
            chosen.seed += 1
            last = visit(view, counts, min(left, ROUND), chosen.seed)
            print(f"soak: {time.monotonic() - begin:.0f} s: {last}", flush=True)
        print(f"soak: {counts}")
        check_growth(first, last)
        controls = ["request: camera", "request: snapshot.png", "request: record", "recordings"]
        for name in (*STREAMS, "packets", *(controls if chosen.seconds >= MIN_CONTROLLED else [])):
            assert counts[name] > 0, f"nothing was tested: {name}"
        check_end(view)
    except BaseException:
        for process in tool._processes:  # pylint: disable=protected-access
            print(process.outputs[1].read_text(errors="replace"), file=sys.stderr)
        raise
    finally:
        tool.end()


def main():
    with tempfile.TemporaryDirectory(prefix="nuveq-soak-", ignore_cleanup_errors=True) as scratch:
        soak(Path(scratch))
    print("soak: ok")


if __name__ == "__main__":
    main()
