"""The server of nuveqcam view on Linux: requests of every form, several clients at a time, and its browser, port and
descriptors."""

import os
import re
import signal
import socket
import threading
from urllib.parse import urlsplit
from pathlib import Path

import pytest

from nuveqcam_tool import CAMERA, FAKE_LIBRARY, UNEXPECTED, fake_camera, signal_set, wait_until
from pictures import check_numbers, frame_number, pictures, stream
from view_client import free_port, make_noise

SIZE = (320, 240)

NO_BROWSER = "nuveqcam: cannot open a browser; open the address by hand\n"

# Notes its argument, its session and its open descriptors, and runs until it is ended.
BROWSER = """#!/bin/sh
exec 3>"$NOTES.part"
printf '%s\\n' "$1" $$ >&3
readlink /proc/$$/fd/* >&3
exec 3>&-
mv "$NOTES.part" "$NOTES"
exec sleep 1000
"""


@pytest.fixture
def opener(scratch):
    """A function that makes the folder of a program xdg-open. Returns options for the environment."""
    def make(script):
        folder = scratch / "programs"
        folder.mkdir(exist_ok=True)
        if script is not None:
            program = folder / "xdg-open"
            program.write_text(script)
            program.chmod(0o755)
        return {**os.environ, "PATH": f"{folder}:{os.environ['PATH']}" if script is not None else str(folder),
                "NOTES": str(scratch / "notes")}
    return make


def are_consecutive(numbers):
    return all(b == a + 1 for a, b in zip(numbers, numbers[1:]))


# --- Access and requests of every form ---

def test_every_program_has_another_token(view, start_server):
    other = start_server()
    assert other.token != view.token
    assert view.get("", target=f"/{other.token}/").status == 404


def test_only_loopback_addresses_are_listened_on(view):
    listening = "0A"
    addresses = set()
    for name in ("tcp", "tcp6"):
        with open(f"/proc/net/{name}") as file:
            for address, _, state in (line.split()[1:4] for line in file.readlines()[1:]):
                if state == listening and int(address.split(":")[1], 16) == view.port:
                    addresses.add(address.split(":")[0])
    assert addresses - {"00000000000000000000000001000000"} == {"0100007F"}


def test_every_response_forbids_everything_from_elsewhere(view):
    for response in (view.get(""), view.get("x"), view.get("", target="/"), view.get("", Host="x"),
                     view.get("", target="/" + "x" * 100_000)):
        assert response.fields["content-security-policy"].startswith("default-src 'none'; ")
        assert response.fields["x-content-type-options"] == "nosniff"
        assert response.fields["referrer-policy"] == "no-referrer"
        assert response.fields["cache-control"] == "no-store"
        assert response.fields["cross-origin-resource-policy"] == "same-origin"


def test_invalid_or_large_request_is_rejected_and_the_connection_closed(view):
    for status, data in (
            (400, "GET\r\n\r\n"), (400, "\x16\x03\x01\x00\xa5\x01\x00\x00\xa1\x03\x03"),
            (505, "GET / HTTP/3.0\r\n\r\n"), (431, "GET /" + "x" * 100_000 + " HTTP/1.1\r\n\r\n"),
            (431, "GET / HTTP/1.1\r\n" + "a: b\r\n" * 100_000 + "\r\n"),
            (413, "POST / HTTP/1.1\r\nContent-Length: 4097\r\n\r\n" + "x" * 4097),
            (413, "POST / HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n"),
            (501, "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n" + "1\r\nx\r\n" * 100_000)):
        connection = view.connect()
        try:
            connection.send(data.encode("latin-1"))
        except ConnectionError:
            pass  # The server need not read everything.
        try:
            assert connection.response().status == status, data[:50]
            assert connection.is_closed(), data[:50]
        except ConnectionError:
            # The rest of a large request makes the system discard the response.
            assert len(data) > 300_000
    assert view.get("time").status == 200


def test_pipelined_requests_are_answered_in_order(view):
    connection = view.connect()
    head = f"HTTP/1.1\r\nHost: localhost:{view.port}\r\n"
    connection.send(f"GET /{view.token}/view.css {head}\r\nHEAD /{view.token}/ {head}\r\n"
                    f"GET /{view.token}/time {head}\r\nGET /{view.token}/x {head}Connection: close\r\n\r\n")
    assert connection.response().fields["content-type"] == "text/css; charset=utf-8"
    assert connection.response(has_body=False).fields["content-type"] == "text/html; charset=utf-8"
    assert int(connection.response().body) > 0
    assert connection.response().status == 404
    assert connection.is_closed()


def test_request_whose_end_does_not_arrive_is_dropped_without_influence_on_others(view):
    silent, header, body = (view.connect() for _ in range(3))
    header.send("GET / HTTP/1.1\r\nX: ")
    body.send("POST / HTTP/1.1\r\nContent-Length: 4000\r\n\r\n")
    has_ended = threading.Event()

    def drip(connection):
        try:
            while not has_ended.wait(0.2):
                connection.send("x")
        except OSError:
            pass  # dropped
    threads = [threading.Thread(target=drip, args=[connection]) for connection in (header, body)]
    for thread in threads:
        thread.start()
    try:
        records = view.open("stream")
        assert all(connection.is_closed() for connection in (silent, header, body))
        assert are_consecutive([records.packet().number for _ in range(100)])
    finally:
        has_ended.set()
        for thread in threads:
            thread.join()


def test_connections_are_limited_and_those_without_a_permitted_request_make_room(view):
    records = view.open("stream")
    silent = [view.connect() for _ in range(70)]
    assert silent[0].is_closed()
    # The limit is 64, with the stream.
    permitted, statuses = [], []
    for _ in range(64):
        # One after the other, since an unused connection would make room for the next.
        permitted.append(view.connect())
        permitted[-1].request("time")
        statuses.append(permitted[-1].response().status)
    assert set(statuses[:60]) == {200}
    assert statuses[-1] == 503
    assert permitted[-1].is_closed()
    assert are_consecutive([records.packet().number for _ in range(30)])
    for connection in permitted:
        connection.close()
    wait_until(lambda: view.get("time").status == 200, view.process)


def test_half_closed_connection_still_gets_the_response(view):
    connection = view.connect()
    connection.request("time")
    connection.socket.shutdown(socket.SHUT_WR)
    assert connection.response().status == 200
    assert connection.is_closed()


# --- Viewers ---

def test_end_of_a_viewer_is_noticed(view):
    for end in ("half-close", "close", "reset"):
        records = view.open("stream")
        view.wait_for_state(lambda state: state["viewers"] == 1)
        if end == "half-close":
            records.socket.shutdown(socket.SHUT_WR)
        else:
            if end == "reset":
                records.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
            records.close()
        view.wait_for_state(lambda state: state["viewers"] == 0)


def test_states_arrive_also_without_a_change(view):
    connection = view.open("stream")
    connection.next_state(lambda state: state["camera"]["phase"] == "open")
    # At least one a second, between the packets.
    for _ in range(3):
        assert connection.next_state()["camera"]["phase"] == "open"


def test_streams_for_other_programs_have_every_picture(start_server, scratch):
    # The pictures are numbered from the opening of the camera.
    view = start_server()
    connections = {name: view.open(name) for name in ("stream.h264", "stream.mp4")}
    for name, connection in connections.items():
        file = scratch / name
        file.write_bytes(b"".join(connection.chunk() for _ in range(60)))
        assert stream(file)["codec_name"] == "h264"
        check_numbers(file, SIZE, 60)


def test_camera_is_open_while_there_are_viewers(start_server):
    view = start_server()
    state = view.state()
    assert set(state) == {"camera", "measured", "recording", "viewers", "skipped", "version"}
    assert set(state["camera"]) == {"phase", "name", "error", "notice", "conclusion", "advice", "sizes", "rates",
                                    "width", "height", "fps"}
    assert set(state["recording"]) == {"running", "stopped", "frames", "seconds", "bytes", "error", "file"}
    head = view.connect()
    head.request("stream.mp4", method="HEAD")
    assert head.read_head().fields["content-type"] == "video/mp4"
    assert head.is_closed()
    assert view.state()["camera"]["phase"] == "closed"

    first, second = view.open("stream"), view.open("stream")
    last = [connection.packet() for connection in (first, second)][0].number
    camera = first.next_state(lambda state: state["camera"]["phase"] == "open")["camera"]
    assert camera["name"] == "Integrated Camera"
    assert {"width": 1280, "height": 720} in camera["sizes"]
    assert 30 in camera["rates"]
    assert (camera["width"], camera["height"], camera["error"]) == (*SIZE, "")
    first.close()
    view.wait_for_state(lambda state: state["viewers"] == 1)
    assert view.state()["camera"]["phase"] == "open"
    second.close()
    view.wait_for_state(lambda state: state["camera"]["phase"] == "closed")
    # A snapshot opens it for a while.
    assert view.get("snapshot.png").status == 200
    view.wait_for_state(lambda state: state["camera"]["phase"] == "closed")
    packet = view.open("stream").packet()
    assert packet.is_key_frame
    assert packet.number > last


def test_camera_can_be_kept_open(start_server):
    view = start_server("--keep-open")
    view.wait_for_state(lambda state: state["camera"]["phase"] == "open")
    assert view.state()["viewers"] == 0


def test_eight_viewers_lose_nothing_and_begin_with_the_same_key_frame(view):
    first = view.open("stream")
    payloads = {packet.number: packet.payload for packet in (first.packet() for _ in range(40))}
    later = [view.open("stream") for _ in range(7)]
    for connection in later:
        packets = [connection.packet() for _ in range(60)]
        assert packets[0].is_key_frame
        assert are_consecutive([packet.number for packet in packets])
        # Unless a key frame has arrived in the meantime.
        assert payloads.get(packets[0].number, packets[0].payload) == packets[0].payload
    assert are_consecutive([*payloads, *(first.packet().number for _ in range(30))])
    view.wait_for_state(lambda state: state["viewers"] == 8)


def test_viewer_that_stops_reading_skips_to_a_key_frame_and_delays_nobody(start_server, scratch):
    make_noise(scratch / "noise.avi")
    view = start_server("--simulated", scratch / "noise.avi")
    slow = view.open("stream", receive_buffer=4096)
    fast = view.open("stream")
    # Until after the second key frame: the system's buffers hold some packets of the slow viewer, and the server waits
    # two seconds for it.
    numbers = [fast.packet().number for _ in range(210)]
    assert are_consecutive(numbers)
    previous, packet = slow.packet(), slow.packet()
    while packet.number == previous.number + 1:
        assert packet.number < numbers[-1] + 150, "nothing was skipped"
        previous, packet = packet, slow.packet()
    assert packet.is_key_frame
    skipped = packet.number - previous.number - 1
    slow.next_state(lambda state: state["skipped"] >= skipped)
    assert fast.next_state()["skipped"] == 0


def test_default_size_is_judged_once_and_before_it_is_shown(start_server, scratch):
    log = scratch / "opens"
    view = start_server("--library", FAKE_LIBRARY, size=[],
                        env=fake_camera(f"rates=30 160x120@30 320x240@30 480x360@10 log={log}"))
    notices = []
    for first in (True, False):
        connection = view.open("stream")
        packet = connection.packet()
        assert packet.is_key_frame
        # Packets are numbered over all sessions.
        assert (packet.number == 0) == first
        camera = view.state()["camera"]
        assert (camera["width"], camera["height"], camera["error"]) == (320, 240, "")
        notices.append(camera["notice"])
        connection.close()
        view.wait_for_state(lambda state: state["camera"]["phase"] == "closed")
    _, err = view.stop()
    assert log.read_text().splitlines() == ["480x360 30", "320x240 30", "320x240 30"]
    assert re.fullmatch(r"nuveqcam: 480x360 delivers only about \d+ of 30 .*; using 320x240 .*\n", err)
    assert {f"nuveqcam: {notice}\n" for notice in notices} == {err}


# --- Control ---

def test_earlier_picture_comes_back_after_a_failed_change(start_server):
    view = start_server()
    records = view.open("stream")
    before = records.packet().number
    assert view.post("camera", {"width": 334, "height": 222, "fps": 30}).status == 202
    camera = records.next_state(
        lambda state: state["camera"]["phase"] == "open" and state["camera"]["error"])["camera"]
    assert "334x222" in camera["error"]
    assert (camera["width"], camera["height"]) == SIZE
    assert records.packet().number > before


def test_invalid_change_is_rejected(view):
    for body in ("", "{", "[]", '{"width":640,"height":480}', '{"width":0,"height":480,"fps":30}'):
        response = view.post("camera", body)
        assert response.status == 400
        assert "choose one of those that the camera offers" in response.json()["error"]


def test_recording_ends_when_the_size_changes(start_server, scratch):
    view = start_server()
    records = view.open("stream")
    records.next_state(lambda state: state["camera"]["phase"] == "open")
    assert view.post("record", {"record": True}).status == 200
    view.wait_for_state(lambda state: state["recording"]["frames"] > 0)
    assert view.post("camera", {"width": 640, "height": 480, "fps": 30}).status == 202
    state = records.next_state(lambda state: state["recording"]["file"] is not None)
    assert not state["recording"]["running"]
    file = scratch / "recording.mp4"
    file.write_bytes(view.get("recording.mp4").body)
    assert are_consecutive([frame_number(picture, SIZE) for picture in pictures(file, SIZE)])


# --- The program ---

def test_browser_gets_an_address_that_works_once_and_nothing_else_of_the_program(start_server, opener, scratch):
    view = start_server(opening=[], env=opener(BROWSER))
    notes = scratch / "notes"
    wait_until(notes.exists, view.process)
    address, process, *descriptors = notes.read_text().splitlines()
    try:
        # Other users of the computer can read it in the list of processes.
        assert view.token not in address
        path = urlsplit(address).path
        first, second = (view.get("", target=path) for _ in range(2))
        assert (first.status, first.fields["location"]) == (303, f"/{view.token}/")
        assert second.status == 404
        # The shell's own descriptor for the notes, and for its script.
        others = [path for path in descriptors if not path.startswith(str(scratch))]
        assert set(others) == {"/dev/null"}
        # A Ctrl-C in the terminal reaches only processes of its session.
        assert os.getsid(int(process)) == int(process)
        # Except for the two signals that the C library keeps to itself.
        assert signal_set(process, "SigIgn") & ~(0b11 << 31) == 0
        view.stop()
        os.kill(int(process), 0)
    finally:
        os.kill(int(process), signal.SIGKILL)


def test_user_is_asked_to_open_the_address_if_there_is_no_browser(start_server, opener):
    for script in (None, "#!/bin/sh\nexit 3\n"):
        view = start_server(opening=[], env=opener(script))
        wait_until(lambda: view.process.outputs[1].read_text() == NO_BROWSER, view.process)
        assert view.get("").status == 200
        _, err = view.stop()
        assert err == NO_BROWSER


def test_no_browser_is_opened_on_request(start_server, opener, scratch):
    view = start_server(env=opener(BROWSER))
    # By then it would have been started.
    view.open("stream").packet()
    view.stop()
    assert not (scratch / "notes").exists()


def test_port_can_be_chosen_and_used_again_at_once(start_server):
    port = free_port()
    for _ in range(2):
        view = start_server("--port", port)
        assert view.port == port
        view.open("stream").packet()
        # The server closes the connection first, whose port then stays in use by the system for a minute.
        view.stop()


def test_ended_viewers_leave_no_descriptors(start_server):
    view = start_server()
    descriptors = Path(f"/proc/{view.process.pid}/fd")
    # The camera is opened once.
    view.open("stream").packet()
    view.wait_for_state(lambda state: state["camera"]["phase"] == "open")
    before = len(list(descriptors.iterdir()))
    for _ in range(20):
        for name in ("stream", "stream.h264", "stream.mp4"):
            connection = view.open(name)
            connection.chunk()
            connection.close()
    wait_until(lambda: len(list(descriptors.iterdir())) <= before, view.process)


def test_port_in_use_is_reported_with_the_next_step(tool, view):
    out, err = tool.run("view", *CAMERA, "--no-open", "--port", view.port, code=UNEXPECTED)
    assert out == ""
    assert err == f"nuveqcam: port {view.port} is in use; choose another one with --port\n"


def test_address_is_printed_as_text_and_a_program_without_viewers_ends(tool):
    process = tool.start("view", *CAMERA, "--no-open")
    output = process.outputs[0]
    wait_until(lambda: output.read_bytes().count(b"\n") == 2, process)
    process.send_signal(signal.SIGINT)
    out, _ = tool.finish(process)
    assert re.fullmatch(r"view the camera at http://127\.0\.0\.1:\d+/[\w-]{32}/\npress Ctrl-C to end\n", out.decode())
