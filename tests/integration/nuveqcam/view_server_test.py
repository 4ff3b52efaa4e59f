"""The server of nuveqcam view: access, the stream, and the control of the camera."""

import re

import pytest

from pictures import check_corners, frame_number, pictures, size_of, stream
from view_client import PACKET, STATE

SIZE = (320, 240)


def are_consecutive(numbers):
    return all(b == a + 1 for a, b in zip(numbers, numbers[1:]))


def test_only_requests_of_the_page_are_permitted(view):
    assert re.fullmatch(rf"http://127\.0\.0\.1:{view.port}/[A-Za-z0-9_-]{{32}}/", view.address)
    for host in ("127.0.0.1", "localhost", "[::1]"):
        host = f"{host}:{view.port}"
        response = view.get("", Host=host, Origin=f"http://{host}", Sec_Fetch_Site="same-origin")
        assert (response.status, response.fields["content-type"]) == (200, "text/html; charset=utf-8")
    for status, options in (
            (404, {"target": "/"}), (404, {"target": "/view.js"}), (404, {"target": f"/{'A' * 32}/"}),
            (404, {"target": "/../../etc/passwd"}), (421, {"Host": "example.org"}), (421, {"Host": None}),
            (403, {"Origin": "http://example.org"}), (403, {"Sec_Fetch_Site": "cross-site"}), (405, {"method": "PUT"})):
        response = view.get("", **options)
        assert response.status == status, options
        if status in (404, 421):
            # Tells nothing to those who do not know the token.
            assert response.body == b""
    change = {"width": 640, "height": 480, "fps": 30}
    for status, fields in ((403, {"X_Nuveqcam": None}), (415, {"Content_Type": "text/plain"}),
                           (403, {"Origin": "null"})):
        assert view.post("camera", change, **fields).status == status, fields


def test_stream_has_states_and_consecutive_packets(view):
    # Otherwise the first packets would be those since the last key frame.
    view.wait_for_state(lambda state: state["camera"]["phase"] == "closed")
    before = int(view.get("time").body)
    connection = view.open("stream")
    records = [connection.record() for _ in range(60)]
    after = int(view.get("time").body)
    assert records[0].kind == STATE
    packets = [record for record in records if record.kind == PACKET]
    assert packets[0].is_key_frame
    assert are_consecutive([packet.number for packet in packets])
    times = [packet.time for packet in packets]
    assert times == sorted(times)
    assert before < times[0] and times[-1] <= after
    for packet in packets:
        assert packet.payload.startswith(b"\0\0\0\1")


def test_snapshot_is_the_picture_in_full_size(view, scratch):
    response = view.get("snapshot.png")
    assert (response.status, response.fields["content-type"]) == (200, "image/png")
    file = scratch / "snapshot.png"
    file.write_bytes(response.body)
    assert size_of(file) == SIZE
    [rgb] = pictures(file, SIZE, "rgb24")
    check_corners(rgb, SIZE)


def test_recording_is_downloaded_with_every_frame(start_server, scratch):
    view = start_server()
    records = view.open("stream")
    records.next_state(lambda state: state["camera"]["phase"] == "open")
    assert view.get("recording.mp4").status == 404
    assert view.post("record", {"record": True}).status == 200
    assert view.post("record", {"record": True}).status == 409
    view.wait_for_state(lambda state: state["recording"]["frames"] >= 15)
    # The recording does not depend on viewers, without which the camera is closed after two seconds.
    records.close()
    frames = view.state()["recording"]["frames"]
    view.wait_for_state(lambda state: state["recording"]["frames"] >= frames + 75)
    finished = view.post("record", {"record": False}).json()
    assert finished["file"] == "recording.mp4"
    for _ in range(2):
        response = view.get("recording.mp4")
        assert response.fields["content-type"] == "video/mp4"
        assert re.fullmatch(r'attachment; filename="camera-\d{8}-\d{6}\.mp4"', response.fields["content-disposition"])
    file = scratch / "recording.mp4"
    file.write_bytes(response.body)
    found = stream(file)
    assert int(found["nb_read_frames"]) == finished["frames"]
    assert float(found["duration"]) == pytest.approx(finished["seconds"], abs=0.1)
    assert are_consecutive([frame_number(picture, SIZE) for picture in pictures(file, SIZE)])


def test_change_of_the_size_reopens_the_camera_and_ctrl_c_ends_the_program(start_server, scratch):
    """Ctrl-C while viewers are connected and a recording runs."""
    view = start_server()
    mp4 = view.open("stream.mp4")
    records = view.open("stream")
    records.packet()
    assert view.post("camera", {"width": 640, "height": 480, "fps": 15}).status == 202
    camera = records.next_state(
        lambda state: (state["camera"]["phase"], state["camera"]["width"]) == ("open", 640))["camera"]
    assert (camera["height"], camera["fps"], camera["error"]) == (480, 15, "")
    file = scratch / "snapshot.png"
    file.write_bytes(view.get("snapshot.png").body)
    assert size_of(file) == (640, 480)
    # A video has only one size.
    mp4.read_to_end()
    assert mp4.is_closed()

    assert view.post("record", {"record": True}).status == 200
    connections = [view.open(name) for name in ("stream", "stream.h264", "stream.mp4")]
    waiting = view.connect()
    connections[0].packet()
    out, err = view.stop()
    assert out.decode() == '{"address":"' + view.address + '"}\n'
    # view_exit_test.py has the cases of a recording that was not downloaded.
    assert err.startswith("nuveqcam: saved the recording that was not downloaded as camera-"), err
    assert waiting.is_closed()
    for connection in (*connections, records):
        with pytest.raises((EOFError, ConnectionError)):
            while True:
                connection.read(1000)
