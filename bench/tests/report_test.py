"""The computations of bench/run: ratios and goals."""

import pytest

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


def goals(rows, recorded=None):
    """Returns the goals of the rows by name."""
    report.add_ratios(rows)
    return {goal["goal"]: goal for goal in report.goals(rows, recorded or {}, 240)}


def test_ratios_compare_runs_of_the_same_round():
    rows = [row("product", (1.0, 10.0, 2.0)), row(SAME, (2.0, 10.0, 4.0))]
    report.add_ratios(rows)
    assert (rows[1]["ratio"], rows[1]["ratio_span"]) == (0.5, "0.50-1.00")
    assert rows[1]["cpu_ratio"] == pytest.approx(2 / 3)
    assert "ratio" not in rows[0]


@pytest.mark.parametrize("difference", [{"clip": "phone"}, {"size": "320x240"}, {"asked": 768}])
def test_ratios_compare_the_same_clip_size_and_bit_rate(difference):
    rows = [row("product"), row(SAME, **difference)]
    report.add_ratios(rows)
    assert "ratio" not in rows[1]


def test_ratios_ignore_runs_with_zero_time():
    rows = [row("product"), row(SAME, (0.0, 0.0, 8.0))]
    report.add_ratios(rows)
    assert rows[1]["ratio"] == 0.5


RATES = [untimed("ffmpeg x264", 768, 1000.0, 30.0), untimed("ffmpeg x264", 1536, 2000.0, 34.0),
         untimed("ffmpeg x264", 3072, 4000.0, 36.0), untimed("other", 768, 1500.0, 99.0)]


@pytest.mark.parametrize("kilobits, psnr", [
    # Interpolated over the logarithm, and slightly extrapolated.
    (2000, 34.0), (1000 * 2 ** 0.5, 32.0), (2000 * 2 ** 0.5, 35.0), (1000 / 2 ** 0.1, 29.6), (4000 * 2 ** 0.1, 36.2)])
def test_psnr_at_a_rate_is_computed_from_the_rates_around_it(kilobits, psnr):
    assert report.psnr_at(RATES, RATES[0], kilobits) == pytest.approx(psnr)


@pytest.mark.parametrize("rows, kilobits", [
    (RATES, 800), (RATES, 5000), (RATES[:1], 1000), ([*RATES, untimed("ffmpeg x264", 6144, 1010.0, 29.0)], 1000)],
    ids=["far below", "far above", "one rate", "psnr does not increase"])
def test_psnr_at_a_rate_can_be_unknown(rows, kilobits):
    assert report.psnr_at(rows, RATES[0], kilobits) is None


CPU = "user CPU per frame at or under 1.00 of ffmpeg openh264 same"
X264 = "user CPU per frame under 0.65 of ffmpeg x264"
PSNR = "PSNR not below that of ffmpeg x264 at the same asked bit rate"
REAL = "PSNR not below that of ffmpeg x264 at the same real bit rate"
MEMORY = "peak memory under ffmpeg openh264 same's"
QUALITY = "quality at the product's bit rate not below the recorded one (bench/quality.json)"
PEERS = [untimed("ffmpeg x264", 768, 768.0, 39.0), row("ffmpeg x264", kilobits=1536.0, psnr_y=40.5)]


@pytest.mark.parametrize("name, is_reached, rows", [
    (CPU, True, [row("product", (4.0,)), row(SAME, (4.0,))]),
    (CPU, False, [row("product", (4.01,)), row(SAME, (4.0,))]),
    (X264, True, [row("product", (6.4,)), row("ffmpeg x264", (10.0,))]),
    (X264, False, [row("product", (6.5,)), row("ffmpeg x264", (10.0,))]),
    (MEMORY, True, [row("product", peak_mib=9.9), row(SAME)]),
    (MEMORY, False, [row("product"), row(SAME)]),
    (PSNR, True, [row("product"), row("ffmpeg x264")]),
    (PSNR, False, [row("product", psnr_y=39.9), row("ffmpeg x264")]),
    (REAL, False, [row("product", kilobits=1500.0), *PEERS]),
    (QUALITY, True, [row("product", psnr_y=39.996)]),
    (QUALITY, False, [row("product", psnr_y=39.98)]),
    (QUALITY, False, [row("product", ssim_y=0.9498)])])
def test_goal_compares_with_its_limit(name, is_reached, rows):
    goal = goals(rows, {"webcam 640x480 1536 240": {"psnr_y": 40.0, "ssim_y": 0.95}})[name]
    assert (goal["cases"], not goal["missed"]) == (1, is_reached)


def test_goals_report_what_could_not_be_compared():
    goal = goals([row("product"), PEERS[1]])[REAL]
    assert (goal["cases"], goal["unknown"]) == (0, "1 without bit rates on either side")
    goal = goals([row("product"), row("product", clip="phone")],
                 {"phone 640x480 1536 240": {"psnr_y": 40.0, "ssim_y": 0.95}})[QUALITY]
    assert (goal["cases"], goal["unknown"]) == (1, "nothing is recorded for 1 more with 240 frames")


def test_any_missed_goal_is_noticed():
    assert report.is_any_missed(goals([row("product"), row(SAME)]).values())
    assert not report.is_any_missed(goals([row("product", peak_mib=9.0), row(SAME)]).values())


def test_openh264_with_the_same_settings_must_produce_the_pictures_of_the_product():
    def missed(rows):
        return next(goal["missed"] for name, goal in goals(rows).items() if "the product's pictures" in name)

    assert missed([row("product"), row(SAME), row("ffmpeg x264", psnr_y=44.0)]) == []
    assert missed([row("product"), row(SAME, psnr_y=40.1)]) == [
        "webcam 640x480 1536: 40.00 and 40.10 dB at 1536 and 1536 kbit/s"]
    assert len(missed([row("product"), row(SAME, kilobits=1600.0)])) == 1
