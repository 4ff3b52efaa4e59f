"""The computations of the measurement at a camera's pace: packets, latency, tables and goals."""

import pytest

import access_units
import camera_tree
import clips
import pace_report
import paced
import report
from processes import BenchError


def unit(kind, payload=b"\x88", code=b"\0\0\0\1"):
    return code + bytes([0x60 | kind]) + payload


SPS, PPS, SEI, AUD = (unit(kind) for kind in (7, 8, 6, 9))
# first_mb_in_slice: 0 and 3.
FIRST_SLICE, OTHER_SLICE, KEY_SLICE = unit(1), unit(1, b"\x20\x01"), unit(5)


@pytest.mark.parametrize("packets", [
    [SPS + PPS + KEY_SLICE, FIRST_SLICE, FIRST_SLICE],
    [KEY_SLICE + OTHER_SLICE, FIRST_SLICE + OTHER_SLICE],
    [SEI + FIRST_SLICE, SEI + FIRST_SLICE],
    [AUD + SPS + PPS + SEI + KEY_SLICE, AUD + FIRST_SLICE],
    [unit(1, code=b"\0\0\1"), unit(1, code=b"\0\0\1")],
    []], ids=["parameter sets", "slices", "SEI", "delimiters", "short start codes", "empty"])
def test_packets_end_where_the_next_one_begins(packets):
    ends = [sum(map(len, packets[:number + 1])) for number in range(len(packets))]
    assert access_units.end_offsets(b"".join(packets)) == ends


@pytest.mark.parametrize("outputs, times", [
    ([(5, 10), (9, 20)], [5, 9]),
    # In pieces; together.
    ([(5, 4), (6, 10), (9, 20)], [6, 9]),
    ([(5, 20)], [5, 5])])
def test_a_packet_is_complete_with_its_last_byte(outputs, times):
    assert paced.packet_times(outputs, [10, 20]) == times


def report_of(latencies_ms, interval=1_000_000_000):
    arrivals = [number * interval for number in range(len(latencies_ms))]
    lines = [f"frame {time}" for time in arrivals]
    lines += [f"output {time + int(ms * 1e6)} {(number + 1) * len(FIRST_SLICE)}"
              for number, (time, ms) in enumerate(zip(arrivals, latencies_ms))]
    return "\n".join(["begin 77", *lines, "steady 10000000 30", "peak 4096 1024 512"])


def test_figures_of_a_run_exclude_the_start():
    count = paced.SKIP + 5
    found = paced.figures(report_of([90.0] + [9.0] * (paced.SKIP - 1) + [4.0] * 5), FIRST_SLICE * count)
    assert found == {"cpu_ms": 2.0, "switches": 6.0, "latencies": [4.0] * 5, "first_ms": 90.0,
                     "peak_mib": 3.0, "files_mib": 0.5, "begin": 77}


def test_a_missing_packet_is_reported():
    with pytest.raises(BenchError, match="19 packets for 20 frames"):
        paced.figures(report_of([1.0] * 20), FIRST_SLICE * 19)


def test_parts_of_the_start_are_in_order():
    assert paced.start_parts("3000000 first frame\n2000000 main\n", 1_500_000) == {"main": 0.5, "first frame": 1.0}


def test_figures_are_the_medians_of_the_rounds():
    runs = [{"cpu_ms": ms, "switches": 1, "first_ms": 1, "peak_mib": 1, "files_mib": 1, "latencies": latencies}
            for ms, latencies in ((3.0, [1.0] * 50), (1.0, [2.0] * 48 + [3.0, 9.0]), (2.0, [3.0]))]
    found = pace_report.summary(runs)
    assert (found["cpu_ms"], found["latency_p50"], found["latency_p99"]) == (2.0, 2.0, 3.0)


def row(encoder, cpu=(4.0, 4.0), **others):
    made = {"clip": "webcam", "size": "1280x720", "format": "YUY2", "encoder": encoder, "kilobits": 1500.0, "psnr_y": 40.0,
            "latency_p50": 5.0, "latency_p99": 9.0, "first_ms": 100.0, "peak_mib": 20.0, "files_mib": 5.0, **others}
    medians = {name: made[name] for name in ("latency_p50", "latency_p99", "first_ms")}
    return {"runs": [{**medians, "cpu_ms": ms} for ms in cpu], **made}


SAME, X264 = pace_report.SAME, pace_report.X264


def goal(rows, name):
    pace_report.add_ratios(rows)
    [found] = [goal for goal in pace_report.goals(rows) if name in goal["goal"]]
    return found


def test_ratios_compare_runs_of_the_same_round_and_case():
    rows = [row("product", (1.0, 9.0)), row(SAME, (2.0, 9.0)), row(SAME, format="MJPG")]
    pace_report.add_ratios(rows)
    assert (rows[1]["ratio"], rows[1]["ratio_span"]) == (0.75, "0.50-1.00")
    assert "ratio" not in rows[2]


MJPG = {"format": "MJPG"}


@pytest.mark.parametrize("name, is_reached, rows", [
    ("1.00 of " + SAME, True, [row("product"), row(SAME)]),
    ("1.00 of " + SAME, False, [row("product", (4.1, 4.1)), row(SAME)]),
    ("1.05 of " + SAME, True, [row("product", (4.2, 4.2), **MJPG), row(SAME, **MJPG)]),
    ("1.05 of " + SAME, False, [row("product", (4.3, 4.3), **MJPG), row(SAME, **MJPG)]),
    ("0.85 of " + X264, True, [row("product", (8.5, 8.5)), row(X264, (10.0, 10.0))]),
    ("0.85 of " + X264, False, [row("product", (8.6, 8.6)), row(X264, (10.0, 10.0))]),
    ("p50", True, [row("product"), row(SAME), row(X264, latency_p50=6.0)]),
    ("p50", False, [row("product"), row(SAME, latency_p50=6.0), row(X264, latency_p50=4.9)]),
    ("p99", False, [row("product"), row(SAME, latency_p99=8.9)]),
    ("under 150 ms", True, [row("product"), row("product", size="640x480", first_ms=150.0)]),
    ("under 150 ms", False, [row("product", first_ms=150.0)]),
    ("the earliest", False, [row("product"), row(SAME, first_ms=99.0)]),
    # Five frames of two bytes per pixel are 8.8 MiB; of four, 17.6.
    ("peak memory", True, [row("product", peak_mib=28.7), row(SAME)]),
    ("peak memory", False, [row("product", peak_mib=28.9), row(SAME)]),
    ("peak memory", True, [row("product", peak_mib=37.5, **MJPG), row(SAME, **MJPG)])])
def test_goal_compares_with_its_limit(name, is_reached, rows):
    found = goal(rows, name)
    assert (found["cases"], not found["missed"]) == (1, is_reached)


def quality_row(kilobits, psnr):
    return row(X264, kilobits=kilobits, psnr_y=psnr, is_extra=True)


@pytest.mark.parametrize("psnr, is_reached", [(40.1, True), (39.9, False)])
def test_quality_is_compared_at_the_actual_bit_rate(psnr, is_reached):
    rows = [row("product", psnr_y=psnr), row(X264, kilobits=1600.0, psnr_y=44.0), quality_row(1500.0, 40.0),
            quality_row(3000.0, 42.0)]
    found = goal(rows, "PSNR")
    assert (found["cases"], not found["missed"]) == (1, is_reached)
    # Rows that only have a quality are in no table.
    assert len(pace_report.timed(rows)) == 2


def test_unknown_quality_is_noted():
    assert goal([row("product"), row(X264)], "PSNR")["unknown"] == "1 without bit rates on either side"


def test_table_has_a_line_for_each_encoder_and_case():
    rows = [row("product", cpu_ms=4.0, switches=5.0), row(SAME, cpu_ms=5.0, switches=6.0)]
    pace_report.add_ratios(rows)
    assert report.table(rows, pace_report.COLUMNS).splitlines()[2:] == [
        "| webcam | 1280x720 | YUY2 | product | 4.00 |  |  | 5.0 | 9.0 | 100 | 20.0 | 5.0 | 5.0 | 1500 | 40.00 |",
        f"| webcam | 1280x720 | YUY2 | {SAME} | 5.00 | 1.00 | 1.00-1.00 | 5.0 | 9.0 | 100 | 20.0 | 5.0 | 6.0 | 1500 | 40.00 |"]


def test_starts_are_listed_in_words():
    table = pace_report.starts_table({("webcam", "1280x720", "YUY2"): {"main": 1.0, "opened": 2.04}})
    assert table.splitlines()[2] == "| webcam | 1280x720 | YUY2 | process start 1.0, the rest of OpenCameraDevice 2.0 |"


def test_multipart_frames_have_their_length():
    assert clips.multipart(b"1234") == b"--frame\r\nContent-type: image/jpeg\r\nContent-length: 4\r\n\r\n1234\r\n"


def test_links_of_the_camera_lead_to_its_usb_device(tmp_path):
    camera_tree.make(tmp_path)
    node = tmp_path / "sys/class/video4linux/video0"
    assert (node / "device/bInterfaceNumber").read_text() == "00\n"
    assert (tmp_path / "sys/bus/usb/devices/1-5/removable").read_text() == "fixed\n"
    assert (node / "device").resolve().parent == (tmp_path / "sys/bus/usb/devices/1-5").resolve()
