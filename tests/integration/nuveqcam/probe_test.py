"""Measurements of cameras, as a user makes them."""

import json
import re
import signal

import pytest

from nuveqcam_tool import (CAMERA, ENDED_EARLY, FAKE_LIBRARY, IS_WINDOWS, OK, PROBE_FAULT, RECORDING, fake_camera,
                           wait_until)
from pictures import probe as probe_file
from probe_reports import CHECKS, by_size, faults, findings, probe


def test_camera_without_faults(tool):
    report = probe(tool, "320x240@30 160x120@30")
    assert (report["ok"], report["complete"], report["seconds"]) == (True, True, 1)
    assert [check["check"] for check in report["checks"]] == CHECKS
    assert faults(report) == {}
    assert report["best"] == {"width": 320, "height": 240, "asked": 30}
    [advice] = report["advice"]
    assert re.fullmatch(r"best: 320x240 at 30 fps, which delivers \d\d\.\d fps", advice)
    for size in report["sizes"]:
        assert (size["asked"], size["faultyPackets"], size["failure"]) == (30, 0, None)
        assert findings(size) == []
        assert size["delivered"] == pytest.approx(30, rel=0.1)
        assert (size["pictureWidth"], size["pictureHeight"]) == (size["width"], size["height"])
        assert 0 < size["firstPacketMedian"] <= size["firstPacketWorst"]
        assert size["packets"] >= 27
        assert size["cpuPerFrame"] > 0
        # The fake library has no counters.
        assert (size["listed"], size["missed"], size["damaged"]) == (None, None, None)


def test_every_fault_is_reported_as_what_it_is(tool):
    report = probe(tool, "rates=30 480x360@15 464x352@30:jitter=25 448x336@30:start=2500 432x324@30:damage=7 "
                         "416x312@30:refuse 400x304@30:stop=20 384x288@30:crop=16 320x240@30", code=PROBE_FAULT)
    sizes = by_size(report)
    assert sizes[464]["findings"] == ["jitter"]
    assert {width: findings(size) for width, size in sizes.items()} == {
        480: ["tooSlow"], 464: [], 448: ["slowStart"], 432: ["faultyPacket"], 416: ["cannotOpen"], 400: ["stopped"],
        384: ["otherPicture"], 320: []}
    assert sizes[480]["delivered"] == pytest.approx(15, rel=0.1)
    assert sizes[464]["jitterP99"] == pytest.approx(25, abs=10)
    assert sizes[448]["firstPacketMedian"] >= 2500
    assert sizes[432]["packetFault"] == "packet 6: cannot be decoded"
    assert "cannot open the camera at 416x312, 30 fps (result -1001)" in sizes[416]["failure"]
    assert sizes[400]["packets"] == 20
    assert sizes[384]["pictureWidth"] == 368
    # A size that only jitters or starts late is not wrong.
    assert (report["best"]["width"], report["complete"]) == (464, True)
    assert re.fullmatch(r"wrong: .+; .+; .+; and 2 more", report["advice"][1])
    assert faults(report) == {}


def test_simulated_camera_is_reported_consistently(tool):
    """This machine may be too slow for the larger sizes."""
    process = tool.start("probe", *CAMERA, "--json", "--seconds", 1)
    code = process.wait(timeout=240)
    out, _ = tool.finish(process, code)
    report = json.loads(out)
    assert report["camera"] == json.loads(tool.run("list", "--json", *CAMERA)[0])["cameras"][0]
    assert report["name"] == "Integrated Camera"
    assert [(size["width"], size["height"]) for size in report["sizes"]] == [
        (size["width"], size["height"]) for size in report["camera"]["sizes"]]
    for size in report["sizes"]:
        # The highest rate of each size, which the library's log has.
        assert (size["asked"], size["listed"]) == (30, 30)
        assert size["faultyPackets"] == 0
        assert (size["pictureWidth"], size["pictureHeight"]) == (size["width"], size["height"])
        assert (size["missed"], size["damaged"]) == ((None, None) if IS_WINDOWS else (0, 0))
        assert ("tooSlow" in size["findings"]) == (size["delivered"] < 27)
    assert faults(report) == {}
    assert code == (OK if all(27 <= size["delivered"] <= 33 for size in report["sizes"]) else PROBE_FAULT)
    assert report["ok"] == (code == OK)


def check_against_recording(report, file, fps):
    """Compares the figures with those of the same number of packets of a recording, which ffprobe reads."""
    [size] = report["sizes"]
    packets = [int(packet["size"]) for packet in probe_file(file, "packet=size")["packets"]][:size["packets"]]
    assert len(packets) == size["packets"]
    assert size["largestPacket"] == pytest.approx(max(packets), rel=0.02)
    assert size["delivered"] == pytest.approx(fps, rel=0.02)
    assert size["bitRate"] == pytest.approx(sum(packets) / len(packets) * 8 / 1000 * fps, rel=0.02)


def test_figures_agree_with_those_of_ffprobe(tool):
    camera = "320x240@30"
    out, _ = tool.run_with_fake_camera(camera, "probe", "--json", "--seconds", 3)
    arguments = ["record", "--size", "320x240", "--seconds", 4]
    tool.run_with_fake_camera(camera, *arguments, "-o", "camera.h264")
    tool.run_with_fake_camera(camera, *arguments, "-o", RECORDING)
    times = [float(packet["pts_time"]) for packet in probe_file(tool.file(RECORDING), "packet=pts_time")["packets"]]
    check_against_recording(json.loads(out), tool.file("camera.h264"), (len(times) - 1) / (times[-1] - times[0]))


def test_ctrl_c_prints_what_is_known(tool):
    log = tool.folder.parent / "opens"
    process = tool.start("probe", "--json", "--seconds", 2, "--library", FAKE_LIBRARY,
                         env=fake_camera(f"320x240@30 160x120@30 log={log}"))
    # The first size has been measured after three opens.
    wait_until(lambda: log.exists() and len(log.read_text().splitlines()) >= 4, process)
    process.send_signal(signal.SIGINT)
    out, err = tool.finish(process, ENDED_EARLY)
    report = json.loads(out)
    assert (report["ok"], report["complete"], report["checks"]) == (False, False, [])
    assert report["sizes"][0]["width"] == 320
    assert report["sizes"][0]["delivered"] == pytest.approx(30, rel=0.1)
    assert err == "nuveqcam: the probe has ended early; the report has what was measured until then\n"
