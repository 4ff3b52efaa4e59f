"""Tests of the computations of bench/compare_encoders: ratios, tables and goals."""

import unittest

import report

SAME = "ffmpeg openh264 same"


def row(encoder, user=(4.0, 4.0, 4.0), **others):
    made = {"clip": "webcam", "size": "640x480", "encoder": encoder, "asked": 1536, "kilobits": 1536.0, "psnr_y": 40.0,
            "ssim_y": 0.95, "peak_mib": 10.0, "user_ms": sorted(user)[len(user) // 2],
            "runs": [{"user_ms": ms, "cpu_ms": ms + 1} for ms in user]}
    return {**made, **others}


def untimed(encoder, asked, kilobits, psnr):
    made = row(encoder, asked=asked, kilobits=kilobits, psnr_y=psnr)
    del made["runs"], made["user_ms"]
    return made


def found(rows, recorded=None):
    """Returns the goals of the rows by name."""
    report.add_ratios(rows)
    return {goal["goal"]: goal for goal in report.goals(rows, recorded or {}, 240)}


class Ratios(unittest.TestCase):
    def test_compare_runs_of_the_same_round(self):
        rows = [row("product", (1.0, 10.0, 2.0)), row(SAME, (2.0, 10.0, 4.0))]
        report.add_ratios(rows)
        self.assertEqual(rows[1]["ratio"], 0.5)
        self.assertEqual(rows[1]["ratio_span"], "0.50-1.00")
        self.assertAlmostEqual(rows[1]["cpu_ratio"], 2 / 3)
        self.assertNotIn("ratio", rows[0])

    def test_compare_the_same_clip_size_and_bit_rate(self):
        for difference in ({"clip": "phone"}, {"size": "320x240"}, {"asked": 768}):
            rows = [row("product"), row(SAME, **difference)]
            report.add_ratios(rows)
            self.assertNotIn("ratio", rows[1], difference)

    def test_ignore_runs_with_zero_time(self):
        rows = [row("product"), row(SAME, (0.0, 0.0, 8.0))]
        report.add_ratios(rows)
        self.assertEqual(rows[1]["ratio"], 0.5)


class Tables(unittest.TestCase):
    def test_have_a_line_per_row_and_a_cell_per_column(self):
        rows = [row("product"), untimed("ffmpeg x264", 768, 770.4, 38.126)]
        lines = report.table(rows).splitlines()
        self.assertEqual(len(lines), 4)
        self.assertEqual({line.count("|") for line in lines}, {len(report.COLUMNS) + 1})
        self.assertIn("| 38.13 |", lines[3])
        self.assertIn("| 768 | 770 |  |", lines[3])

    def test_of_real_time_input_have_no_quality(self):
        self.assertNotIn("PSNR", report.table([row("product")], report.PACED_COLUMNS))


class PsnrAtARate(unittest.TestCase):
    ROWS = [untimed("ffmpeg x264", 768, 1000.0, 30.0), untimed("ffmpeg x264", 1536, 2000.0, 34.0),
            untimed("ffmpeg x264", 3072, 4000.0, 36.0), untimed("other", 768, 1500.0, 99.0)]

    def at(self, kilobits, rows=None):
        return report.psnr_at(rows or self.ROWS, self.ROWS[0], kilobits)

    def test_is_interpolated_over_the_logarithm(self):
        self.assertAlmostEqual(self.at(2000), 34.0)
        self.assertAlmostEqual(self.at(1000 * 2 ** 0.5), 32.0)
        self.assertAlmostEqual(self.at(2000 * 2 ** 0.5), 35.0)

    def test_is_extrapolated_slightly(self):
        self.assertAlmostEqual(self.at(1000 / 2 ** 0.1), 29.6)
        self.assertAlmostEqual(self.at(4000 * 2 ** 0.1), 36.2)

    def test_is_unknown_far_outside_or_with_one_bit_rate(self):
        self.assertIsNone(self.at(800))
        self.assertIsNone(self.at(5000))
        self.assertIsNone(self.at(1000, self.ROWS[:1]))

    def test_is_unknown_if_psnr_does_not_increase(self):
        self.assertIsNone(self.at(1000, [*self.ROWS, untimed("ffmpeg x264", 6144, 1010.0, 29.0)]))


class Goals(unittest.TestCase):
    CPU = "user CPU per frame at or under 1.00 of ffmpeg openh264 same"
    X264 = "user CPU per frame under 0.65 of ffmpeg x264"
    PSNR = "PSNR not below that of ffmpeg x264 at the same asked bit rate"
    REAL = "PSNR not below that of ffmpeg x264 at the same real bit rate"
    MEMORY = "peak memory under ffmpeg openh264 same's"
    QUALITY = "quality at the product's bit rate not below the recorded one (bench/quality.json)"

    def expect(self, name, is_reached, rows, recorded=None):
        goal = found(rows, recorded)[name]
        self.assertEqual(goal["cases"], 1)
        self.assertEqual(not goal["missed"], is_reached, goal)

    def test_of_cost_compare_with_their_limits(self):
        self.expect(self.CPU, True, [row("product", (4.0,)), row(SAME, (4.0,))])
        self.expect(self.CPU, False, [row("product", (4.01,)), row(SAME, (4.0,))])
        self.expect(self.X264, True, [row("product", (6.4,)), row("ffmpeg x264", (10.0,))])
        self.expect(self.X264, False, [row("product", (6.5,)), row("ffmpeg x264", (10.0,))])

    def test_print_enough_digits_for_a_narrow_miss(self):
        goal = found([row("product", (4.01,)), row(SAME, (4.0,))])[self.CPU]
        self.assertEqual(goal["missed"], ["webcam 640x480: 1.002 (1.00-1.00)"])

    def test_of_memory_are_missed_at_equality(self):
        self.expect(self.MEMORY, False, [row("product"), row(SAME)])
        self.expect(self.MEMORY, True, [row("product", peak_mib=9.9), row(SAME)])

    def test_of_quality_compare_with_the_other_encoder(self):
        self.expect(self.PSNR, True, [row("product"), row("ffmpeg x264")])
        self.expect(self.PSNR, False, [row("product", psnr_y=39.9), row("ffmpeg x264")])

    def test_of_quality_at_the_real_bit_rate_need_two_bit_rates(self):
        peers = [untimed("ffmpeg x264", 768, 768.0, 39.0), row("ffmpeg x264", kilobits=1536.0, psnr_y=40.5)]
        self.expect(self.REAL, False, [row("product", kilobits=1500.0), *peers])
        goal = found([row("product"), peers[1]])[self.REAL]
        self.assertEqual((goal["cases"], goal["unknown"]), (0, "1 without bit rates on either side"))

    def test_of_recorded_quality_are_missed_by_psnr_or_ssim(self):
        recorded = {"webcam 640x480 1536 240": {"psnr_y": 40.0, "ssim_y": 0.95}}
        self.expect(self.QUALITY, True, [row("product")], recorded)
        self.expect(self.QUALITY, True, [row("product", psnr_y=39.996)], recorded)
        self.expect(self.QUALITY, False, [row("product", psnr_y=39.98)], recorded)
        self.expect(self.QUALITY, False, [row("product", ssim_y=0.9498)], recorded)

    def test_report_missing_records(self):
        goal = found([row("product"), row("product", clip="phone")],
                     {"phone 640x480 1536 240": {"psnr_y": 40.0, "ssim_y": 0.95}})[self.QUALITY]
        self.assertEqual((goal["cases"], goal["unknown"]), (1, "nothing is recorded for 1 more with 240 frames"))

    def test_can_be_checked_for_misses(self):
        self.assertTrue(report.is_any_missed(found([row("product"), row(SAME)]).values()))
        self.assertFalse(report.is_any_missed(found([row("product", peak_mib=9.0), row(SAME)]).values()))

    def test_are_printed_as_text(self):
        text = report.goals_text([{"goal": "a", "cases": 0, "missed": [], "unknown": "why"},
                                  {"goal": "b", "cases": 2, "missed": [], "unknown": ""},
                                  {"goal": "c", "cases": 2, "missed": ["webcam: 1.1"], "unknown": ""}])
        self.assertEqual(text, "a: not measured (why)\nb: reached in all 2\nc: missed in 1 of 2\n  webcam: 1.1")


class OpenH264Same(unittest.TestCase):
    def missed(self, rows):
        return next(goal["missed"] for name, goal in found(rows).items() if "the product's pictures" in name)

    def test_must_produce_the_pictures_of_the_product(self):
        self.assertEqual(self.missed([row("product"), row(SAME), row("ffmpeg x264", psnr_y=44.0)]), [])

    def test_misses_a_goal_if_its_pictures_differ(self):
        self.assertEqual(self.missed([row("product"), row(SAME, psnr_y=40.1)]),
                         ["webcam 640x480 1536: 40.00 and 40.10 dB at 1536 and 1536 kbit/s"])
        self.assertEqual(len(self.missed([row("product"), row(SAME, kilobits=1600.0)])), 1)


class Commands(unittest.TestCase):
    def test_have_paths_relative_to_the_project(self):
        command = ["/home/top/build/encode_clip", "-i", "/home/top/build/clip", "/home/top/build/run-x/out"]
        self.assertEqual(report.command_text(command, "/home/top", "/home/top/build/run-x/out"),
                         "build/encode_clip -i build/clip OUT")
        command = ["gst-launch-1.0", "location=/home/top/build/clip", "!", "location=/home/top/build/run-x/out"]
        self.assertEqual(report.command_text(command, "/home/top", "/home/top/build/run-x/out"),
                         "gst-launch-1.0 location=build/clip ! location=OUT")


if __name__ == "__main__":
    unittest.main()
