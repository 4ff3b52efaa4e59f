"""Faults of cameras and libraries, which the program reports in the same way on every system."""

import json
import re

import pytest

from nuveqcam_tool import NO_CAMERA, PROBE_FAULT
from probe_reports import CHECKS, faults, findings, probe


def test_camera_that_stops_fails_the_checks_with_more_packets(tool):
    report = probe(tool, "160x120@30:stop=50", code=PROBE_FAULT)
    assert faults(report) == {check: "the camera stops after 50 packets"
                              for check in ("closeAfter55", "closeAfter89", "keyFrames")}


@pytest.mark.parametrize("behaviour, fault", [
    ("secondOpen", ("secondOpen", "the second open returns 0")),
    ("queryStops", ("queryWhileOpen", r"the camera stops after \d+ packets?")),
    ("keyFrames=40", ("keyFrames", "packet 40 is a key frame that is not due")),
    # The first three sessions measure the size.
    ("lateAfterClose=4", ("closeAfter1", "packets arrive after the close"))])
def test_undocumented_behaviour_is_reported(tool, behaviour, fault):
    report = probe(tool, f"160x120@100 {behaviour}", code=PROBE_FAULT)
    check, text = fault
    assert list(faults(report)) == [check]
    assert re.fullmatch(text, faults(report)[check])
    assert report["advice"][-1].startswith("wrong: ")


@pytest.mark.parametrize("behaviour, fault", [
    ("noReports", "the library reports nothing instead of open for id 0, closed for id 0"),
    ("closeResult=5", "the close returns 5")])
def test_undocumented_result_of_every_session_is_reported(tool, behaviour, fault):
    report = probe(tool, f"160x120@100 {behaviour}", code=PROBE_FAULT)
    assert faults(report)["closeAfter1"] == fault
    assert set(faults(report)) == set(CHECKS) - {"closeWithoutOpen"}


def test_all_rates_are_measured_on_request(tool):
    report = probe(tool, "320x240@30 160x120@15 rates=15,30", "--all-rates", code=PROBE_FAULT)
    assert [(size["width"], size["asked"], findings(size)) for size in report["sizes"]] == [
        (320, 30, []), (320, 15, []), (160, 30, ["tooSlow"]), (160, 15, [])]


def test_report_is_a_table_with_advice(tool, monkeypatch):
    monkeypatch.setenv("TMPDIR", str(tool.folder))
    out, err = tool.run_with_fake_camera("rates=30 320x240@15 160x120@30", "probe", "--seconds", 1, code=PROBE_FAULT)
    assert err == ""
    assert re.search(r"(?m)^ +320x240 +30 +1\d\.\d\d +\d+/\d+ .* 320x240  tooSlow\b", out)
    assert re.search(r"(?m)^ +160x120 +30 +\d\d\.\d\d +\d+/\d+ .* 160x120  (ok|jitter)$", out)
    assert "\nBehavior: 16 of 16 checks as documented\n" in out
    assert re.search(r"\n  - best: 160x120 at 30 fps, which delivers \d\d\.\d fps\n"
                     r"  - wrong: 320x240 at 30 fps delivers 1\d\.\d fps\n  - hint: more light, .*\n$", out)
    assert tool.names() == [], "no files, not even temporary ones"


def test_pc_without_a_camera_has_a_report(tool):
    out, err = tool.run_with_fake_camera("none", "probe", "--json", code=NO_CAMERA)
    report = json.loads(out)
    assert (report["camera"], report["sizes"], report["checks"], report["best"]) == (None, [], [], None)
    assert err.startswith("nuveqcam: this PC has no built-in camera; ")
