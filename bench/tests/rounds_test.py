"""The order of the measurements in bench/compare_encoders."""

import importlib.machinery
import importlib.util
from pathlib import Path
from unittest import mock

PATH = Path(__file__).resolve().parents[2] / "bench/compare_encoders"
loader = importlib.machinery.SourceFileLoader("bench_run", str(PATH))
run = importlib.util.module_from_spec(importlib.util.spec_from_loader("bench_run", loader))
loader.exec_module(run)


def test_rounds_run_all_encoders_in_rotating_order():
    measured = run.Run(run.options(["--frames", "7"]), Path("bin"), Path("scratch"))
    a, b, c = (mock.Mock() for _ in range(3))
    with mock.patch.object(run.measure, "run") as measuring, mock.patch.object(run, "log"):
        turns = [encoder for encoder, _ in measured.rounds("clip", 4, [a, b, c], "job")]
    assert turns == [a, b, c, b, c, a, c, a, b, a, b, c]
    measuring.assert_called_with(Path("bin"), c.command.return_value, Path("scratch"), 7)
    c.command.assert_called_with("job")
