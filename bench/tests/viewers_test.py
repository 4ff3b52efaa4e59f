"""The computations of bench/compare_viewers, and the reading of frame numbers."""

import importlib.machinery
import importlib.util
import os
from pathlib import Path
from unittest import mock

import pytest

import live
import report
import screen
from processes import BenchError

PATH = Path(__file__).resolve().parents[2] / "bench/compare_viewers"
loader = importlib.machinery.SourceFileLoader("compare_viewers", str(PATH))
compare = importlib.util.module_from_spec(importlib.util.spec_from_loader("compare_viewers", loader))
loader.exec_module(compare)


def blocks_of(number):
    bits = number | screen.checksum(number) << screen.NUMBER_BITS
    return [220 if bits >> bit & 1 else 35 for bit in range(32)]


@pytest.mark.parametrize("number", [0, 1, 123456, (1 << 24) - 1])
def test_number_is_read_from_the_blocks(number):
    assert screen.number_of(blocks_of(number)) == number


def test_parts_of_two_pictures_have_no_number():
    torn = blocks_of(1000)[:16] + blocks_of(70000)[16:]
    assert screen.number_of(torn) is None
    assert screen.number_of([0] * 32) is None


def test_each_picture_is_seen_when_it_appears_first():
    width, height = 64, 24
    header = bytearray(100)
    for field, value in ((0, 100), (11, 32), (12, 4 * width), (19, 0)):
        header[4 * field:4 * field + 4] = value.to_bytes(4, "big")

    def memory(number):
        pixels = bytearray(4 * width * height)
        for (x, y), block in zip(screen.block_centers(width, height), blocks_of(number)):
            pixels[4 * (y * width + x) + 1] = block
        return pixels

    # Each sleep shows the next content of the screen.
    shown = bytearray(header + memory(5))
    contents = iter([memory(5), memory(6), memory(6), memory(5), memory(8)])
    with mock.patch.object(screen, "time") as time:
        time.sleep.side_effect = lambda _: shown.__setitem__(slice(100, None), next(contents))
        time.monotonic.side_effect = range(10, 16)
        first, intervals = screen.Screen(":1", shown, width, height).watch(5)
    assert first == {5: 11, 6: 12, 8: 15}
    assert intervals == [1] * 5


def test_delay_is_the_time_from_the_arrival():
    arrivals = {number: number / 30 for number in range(100)}
    # Every second frame is shown, after 50 ms; a picture of an earlier measurement is ignored.
    first = {5000: 1.0, **{number: arrivals[number] + 0.05 for number in range(10, 90, 2)}}
    found = compare.figures(first, arrivals)
    assert (found["p50_ms"], found["p99_ms"]) == (pytest.approx(50), pytest.approx(50))
    assert found["shown"] == pytest.approx(100 * 40 / 79)


@pytest.mark.parametrize("first, text", [({number: 100 for number in range(20)}, "only 20 frames were shown"),
                                         ({number: -1 for number in range(60)}, "before it arrived")])
def test_implausible_measurement_is_rejected(first, text):
    with pytest.raises(BenchError, match=text):
        compare.figures(first, {number: 0 for number in range(60)})


def test_rounds_run_all_viewers_in_rotating_order():
    assert [order for _, order in compare.rounds(4, ["a", "b", "c"])] == [
        ["a", "b", "c"], ["b", "c", "a"], ["c", "a", "b"], ["a", "b", "c"]]


def rows(other):
    runs = {"page": [{"p50_ms": 10, "p99_ms": 20}, {"p50_ms": 20, "p99_ms": 40}, {"p50_ms": 30, "p99_ms": 60}],
            "other": [{"p50_ms": p50, "p99_ms": p99} for p50, p99 in other]}
    return compare.rows_of(runs, {"page": "", "other": ""})


def test_ratios_compare_runs_of_the_same_round():
    _, other = rows([(20, 30), (20, 20), (90, 60)])
    assert (other["p50_ms"], other["p99_ms"]) == (20, 30)
    assert (other["p50_ratio"], other["p50_span"]) == (2, "1.00-3.00")
    assert (other["p99_ratio"], other["p99_span"]) == (1, "0.50-1.50")


def test_goal_is_missed_if_another_viewer_is_as_fast():
    p50, p99 = report.viewer_goals(rows([(20, 30), (20, 20), (90, 60)]))
    assert p50["missed"] == []
    assert p99["missed"] == ["other: 1.00 (0.50-1.50)"]


def test_cost_is_the_time_of_the_server_relative_to_the_encoder():
    before = {7: ("nuveqcam", 1.0), 8: ("nuveq-encoder", 10.0), 9: ("nuveq-capture", 5.0)}
    after = {7: ("nuveqcam", 1.3), 8: ("nuveq-encoder", 16.0), 9: ("nuveq-capture", 6.0), 10: ("new", 1.0)}
    assert live.cost(before, after, 7) == pytest.approx(0.05)
    with pytest.raises(BenchError, match="has not run"):
        live.cost(before, before, 7)


@pytest.mark.parametrize("costs, missed", [([0.03, 0.049, 0.2], []), ([0.02, 0.05, 0.06], ["8 streams: 5.0 %"])])
def test_goal_of_the_cost_is_about_the_median(costs, missed):
    assert report.cost_goal(compare.cost_rows({1: [1.0], 8: costs}), 8)["missed"] == missed


def test_times_of_threads_are_found():
    [(_, seconds), *_] = live.thread_times(os.getpid()).values()
    assert seconds > 0
