"""The end of nuveqcam view while it has something to do."""

import re

import pytest

from pictures import frame_number, pictures, size_of
from view_client import PACKET

SIZE = (320, 240)
SAVED = r"nuveqcam: saved the recording that was not downloaded as (camera-\d{8}-\d{6}\.mp4)\n"


def start_recording(view):
    """A stream of a program that records."""
    records = view.open("stream")
    records.next_state(lambda state: state["camera"]["phase"] == "open")
    assert view.post("record", {"record": True}).status == 200
    view.wait_for_state(lambda state: state["recording"]["frames"] >= 15)
    return records


def saved_file(tool, err):
    """The file that the program has left in its folder, as it says."""
    saved = re.fullmatch(SAVED, err)
    assert saved, err
    assert tool.names() == [saved[1]]
    return tool.file(saved[1])


def test_recording_that_is_running_is_saved(tool, start_server):
    view = start_server()
    start_recording(view)
    _, err = view.stop()
    file = saved_file(tool, err)
    assert size_of(file) == SIZE
    assert file.stat().st_size > 1000


def test_recording_that_was_not_downloaded_is_saved(tool, start_server):
    view = start_server()
    start_recording(view)
    finished = view.post("record", {"record": False}).json()
    # That is no download.
    assert view.get("recording.mp4", method="HEAD").status == 200
    _, err = view.stop()
    numbers = [frame_number(picture, SIZE) for picture in pictures(saved_file(tool, err), SIZE)]
    assert numbers == list(range(numbers[0], numbers[0] + finished["frames"]))


def test_recording_that_was_downloaded_is_not_saved(tool, start_server):
    view = start_server()
    start_recording(view)
    assert view.post("record", {"record": False}).status == 200
    assert view.get("recording.mp4").status == 200
    _, err = view.stop()
    assert err == ""
    assert tool.names() == []


@pytest.mark.parametrize("packets", [0, 60], ids=["waiting for the camera", "decoding"])
def test_snapshot_does_not_delay_the_end(start_server, packets):
    view = start_server(size=("--size", "1280x720"))
    if packets:
        records = view.open("stream")
        for _ in range(packets):
            assert records.packet().kind == PACKET
    clients = [view.connect() for _ in range(3)]
    for client in clients:
        client.request("snapshot.png")
    _, err = view.stop()
    assert err == ""
    for client in clients:
        # A picture, a refusal, or nothing, depending on how far it was.
        try:
            assert client.read_head().status in (200, 503)
        except (EOFError, ConnectionError):
            continue
