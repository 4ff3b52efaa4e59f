"""The order of the measurements in bench/run, and its options."""

import importlib.machinery
import importlib.util
from pathlib import Path
from unittest import mock

import pytest

import unpaced

PATH = Path(__file__).resolve().parents[2] / "bench/run"
loader = importlib.machinery.SourceFileLoader("bench_run", str(PATH))
run = importlib.util.module_from_spec(importlib.util.spec_from_loader("bench_run", loader))
loader.exec_module(run)


def test_rounds_run_all_encoders_in_rotating_order():
    chosen = run.options(["--unpaced", "--frames", "7"])
    measured = unpaced.Unpaced(Path("top"), chosen, Path("bin"), Path("scratch"), mock.Mock())
    a, b, c = (mock.Mock() for _ in range(3))
    with mock.patch.object(unpaced.measure, "run") as measuring:
        turns = [encoder for encoder, _ in measured.rounds("clip", 4, [a, b, c], "job")]
    assert turns == [a, b, c, b, c, a, c, a, b, a, b, c]
    measuring.assert_called_with(Path("bin"), c.command.return_value, Path("scratch"), 7)
    c.command.assert_called_with("job")


def test_paced_rounds_run_all_encoders_in_rotating_order(tmp_path):
    measured = run.Paced(tmp_path, run.options(["--rounds", "3"]), tmp_path, tmp_path, mock.Mock())
    measured.encoders = [mock.Mock() for _ in range(2)]
    a, b = measured.encoders
    turns = []
    with mock.patch.object(measured, "run", side_effect=lambda encoder, _: turns.append(encoder)), \
            mock.patch.object(measured, "quality", return_value={}), \
            mock.patch.object(measured, "measure_x264_rates"), \
            mock.patch("paced.pace_report.summary", return_value={}), \
            mock.patch("paced.report.command_text"):
        measured.measure_case(mock.Mock(), "webcam", "640x480", "MJPG", "case 1 of 1")
    assert turns == [a, b, b, a, a, b]


def test_cases_are_all_clips_of_every_size_and_format(tmp_path):
    measured = run.Paced(tmp_path, run.options(["--sizes", "1280x720,1920x1080"]), tmp_path, tmp_path, mock.Mock())
    assert measured.cases() == [(clip, size, form) for form in ("YUY2", "MJPG") for clip, size in (
        ("webcam", "1280x720"), ("phone", "1280x720"), ("phone", "1920x1080"))]


def test_the_product_before_a_change_is_compared_only_with_the_product(tmp_path):
    measured = run.Paced(tmp_path, run.options(["--before", "/old"]), Path("/new"), tmp_path, mock.Mock())
    job = mock.MagicMock(format="YUY2", width=1, height=1)
    job.clip.input.return_value = ("frames", "sizes")
    assert [encoder.command(job)[0] for encoder in measured.encoders] == ["/new/camera_host", "/old/bin/camera_host"]


@pytest.mark.parametrize("arguments", [
    ["--record-quality"], ["--bit-rates", "768"], ["--unpaced", "--record"], ["--unpaced", "--before", "."],
    ["--frames", "29"], ["--formats", "NV12"],
    ["--clips", "webcam", "--sizes", "1920x1080"]], ids=" ".join)
def test_contradicting_options_are_usage_errors(arguments):
    with pytest.raises(SystemExit) as end:
        run.options(arguments)
    assert end.value.code == 2
