"""Tests of the options of bench/compare_encoders."""

import contextlib
import importlib.machinery
import importlib.util
import io
import unittest
from pathlib import Path
from unittest import mock

PATH = Path(__file__).resolve().parents[2] / "bench/compare_encoders"
loader = importlib.machinery.SourceFileLoader("bench_run", str(PATH))
run = importlib.util.module_from_spec(importlib.util.spec_from_loader("bench_run", loader))
loader.exec_module(run)


class Options(unittest.TestCase):
    def usage_error(self, *arguments):
        with contextlib.redirect_stderr(io.StringIO()) as output, self.assertRaises(SystemExit) as exit_status:
            run.options(arguments)
        self.assertEqual(exit_status.exception.code, 2)
        return output.getvalue()

    def test_have_defaults(self):
        chosen = run.options([])
        self.assertEqual((chosen.rounds, chosen.frames, chosen.bit_rates), (3, 240, [768, 1536, 3072]))
        self.assertEqual(chosen.paced_sizes, ["1280x720"])

    def test_override_quick(self):
        chosen = run.options(["--quick", "--sizes", "320x240", "--rounds", "5"])
        self.assertEqual((chosen.sizes, chosen.rounds, chosen.frames), (["320x240"], 5, 120))

    def test_remove_duplicates(self):
        chosen = run.options(["--sizes", "640x480,320x240,640x480", "--bit-rates", "768,768"])
        self.assertEqual((chosen.sizes, chosen.bit_rates), (["640x480", "320x240"], [768]))

    def test_can_disable_real_time_input(self):
        self.assertEqual(run.options(["--paced-sizes", "none"]).paced_sizes, [])

    def test_without_a_suitable_clip_are_rejected(self):
        self.assertIn("large enough", self.usage_error("--clips", "webcam", "--sizes", "1920x1080"))
        self.assertIn("large enough", self.usage_error("--clips", "webcam", "--paced-sizes", "1920x1080", "--quick"))

    def test_with_invalid_values_are_rejected(self):
        for arguments in (("--rounds", "0"), ("--rounds", "many"), ("--bit-rates", "768;1536"),
                          ("--bit-rates", "65536"), ("--sizes", "8x8"), ("--sizes", "none"), ("--clips", "cat"),
                          ("--frames", "281")):
            with self.subTest(arguments=arguments):
                self.usage_error(*arguments)


class Rounds(unittest.TestCase):
    def test_run_all_encoders_in_rotating_order(self):
        chosen = run.options(["--frames", "7"])
        measured = run.Run(chosen, Path("bin"), Path("scratch"))
        some = [mock.Mock() for _ in range(3)]
        with mock.patch.object(run.measure, "run") as measuring, mock.patch.object(run, "log"):
            turns = [encoder for encoder, _ in measured.rounds("clip", 4, some, "job")]
        a, b, c = some
        self.assertEqual(turns, [a, b, c, b, c, a, c, a, b, a, b, c])
        measuring.assert_called_with(Path("bin"), c.command.return_value, Path("scratch"), 7)
        c.command.assert_called_with("job")


if __name__ == "__main__":
    unittest.main()
