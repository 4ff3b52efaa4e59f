"""Speaks HTTP with nuveqcam view over plain sockets, so that requests can have any form."""

import json
import signal
import socket
import struct
import subprocess
import time
from urllib.parse import urlsplit

from nuveqcam_tool import CAMERA, TIMEOUT, wait_until

PACKET, STATE = 1, 2
KEY_FRAME = 1


class Response:
    def __init__(self, head, body=b""):
        line, *fields = head.decode().split("\r\n")
        self.status = int(line.split()[1])
        self.fields = {name.lower(): value for name, value in (field.split(": ", 1) for field in fields)}
        self.body = body

    def json(self):
        return json.loads(self.body)


class Record:
    """A record of the page's stream."""

    def __init__(self, header, payload):
        _, self.kind, flags, reserved, self.number, self.time = struct.unpack("<IBBHQQ", header)
        assert reserved == 0
        self.is_key_frame = flags == KEY_FRAME
        assert flags in (0, KEY_FRAME)
        self.payload = payload

    def state(self):
        assert self.kind == STATE
        return json.loads(self.payload)


class Connection:
    """A connection to the server. The ends of messages are found as HTTP defines them."""

    def __init__(self, view, receive_buffer=None):
        self.view = view
        self.socket = socket.socket()
        self.socket.settimeout(TIMEOUT)
        if receive_buffer is not None:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.connect(("127.0.0.1", view.port))
        self._received = b""

    def send(self, data):
        self.socket.sendall(data.encode() if isinstance(data, str) else data)

    def request(self, resource, method="GET", target=None, body=None, **fields):
        """Sends a request. Underscores in the names of fields stand for hyphens; a field that is None is omitted."""
        fields = {"Host": f"127.0.0.1:{self.view.port}", **{name.replace("_", "-"): v for name, v in fields.items()}}
        if body is not None:
            body = body if isinstance(body, str) else json.dumps(body)
            fields = {"X-Nuveqcam": "1", "Content-Type": "application/json", **fields, "Content-Length": len(body)}
        target = f"/{self.view.token}/{resource}" if target is None else target
        lines = [f"{name}: {value}" for name, value in fields.items() if value is not None]
        self.send("\r\n".join([f"{method} {target} HTTP/1.1", *lines, "", body or ""]))

    def is_closed(self):
        """Waits until the server has closed the connection; false if it sends something instead."""
        try:
            return not self._received and self.socket.recv(1) == b""
        except ConnectionError:
            return True

    def read(self, size):
        while len(self._received) < size:
            self._receive()
        data, self._received = self._received[:size], self._received[size:]
        return data

    def read_through(self, end):
        while end not in self._received:
            self._receive()
        data, self._received = self._received.split(end, 1)
        return data

    def _receive(self):
        data = self.socket.recv(65536)
        if not data:
            raise EOFError("the server has closed the connection")
        self._received += data

    def read_head(self):
        return Response(self.read_through(b"\r\n\r\n"))

    def response(self, has_body=True):
        response = self.read_head()
        if has_body:
            response.body = self.read(int(response.fields["content-length"]))
        return response

    def chunk(self):
        """The next chunk of a body of unknown size; empty at the end."""
        data = self.read(int(self.read_through(b"\r\n"), 16))
        assert self.read(2) == b"\r\n"
        return data

    def record(self):
        """The next record of the page's stream, each of which is a chunk."""
        data = self.chunk()
        record = Record(data[:24], data[24:])
        assert struct.unpack("<I", data[:4])[0] == len(record.payload)
        return record

    def next_record(self, condition):
        """The next record of the page's stream that meets a condition."""
        # States arrive every second, so the socket's timeout does not apply.
        end = time.monotonic() + TIMEOUT
        while not condition(record := self.record()):
            assert time.monotonic() < end, "timeout"
        return record

    def packet(self):
        """The next packet of the page's stream; states in front of it are skipped."""
        return self.next_record(lambda record: record.kind == PACKET)

    def next_state(self, condition=lambda state: True):
        """The next state that meets a condition; the records in front of it are skipped."""
        return self.next_record(lambda record: record.kind == STATE and condition(record.state())).state()

    def read_to_end(self):
        """Reads the rest of a body of unknown size."""
        end = time.monotonic() + TIMEOUT
        while self.chunk():
            assert time.monotonic() < end, "timeout"

    def close(self):
        self.socket.close()


class View:
    """The running program."""

    def __init__(self, tool, *arguments, size=("--size", "320x240"), opening=("--no-open",), **options):
        self._tool = tool
        self.process = tool.start("view", *CAMERA, "--json", *opening, *size, *arguments, **options)
        output = self.process.outputs[0]
        wait_until(lambda: b"\n" in output.read_bytes(), self.process)
        self.address = json.loads(output.read_text())["address"]
        parts = urlsplit(self.address)
        self.port = parts.port
        self.token = parts.path.strip("/")
        self._connections = []

    def connect(self, **options):
        self._connections.append(Connection(self, **options))
        return self._connections[-1]

    def get(self, resource, **options):
        """The response to a request on a connection of its own."""
        connection = Connection(self)
        try:
            connection.request(resource, **options)
            return connection.response(has_body=options.get("method") != "HEAD")
        finally:
            connection.close()

    def post(self, resource, body, **options):
        return self.get(resource, method="POST", body=body, **options)

    def open(self, resource, **options):
        """The connection of a stream, after the header of the response."""
        connection = self.connect(**options)
        connection.request(resource)
        assert connection.read_head().status == 200
        return connection

    def state(self):
        return self.get("state").json()

    def wait_for_state(self, condition):
        wait_until(lambda: condition(self.state()), self.process)

    def stop(self):
        self.process.send_signal(signal.SIGINT)
        return self._tool.finish(self.process)

    def close(self):
        """Closes all connections."""
        while self._connections:
            self._connections.pop().close()


def make_noise(file):
    """A clip that needs the whole bit rate, so that the buffers of a connection hold little of it."""
    noise = "color=c=gray:size=320x240:rate=30,noise=alls=60:allf=t"
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", noise, "-t", "1", "-c:v", "mjpeg", file],
                   stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]
