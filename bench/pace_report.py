"""Tables and goals of the measurement at a camera's pace."""

import math
import statistics
import textwrap

import report

PRODUCT = "product"
SAME = "ffmpeg openh264 same"
X264 = "ffmpeg x264"
# Characters of a line of the page.
WIDTH = 120
# The frame pool of the library.
POOL_FRAMES = 5
BYTES_PER_PIXEL = {"YUY2": 2, "MJPG": 4}

COLUMNS = (("clip", "{}", "clip"), ("size", "{}", "size"), ("frames", "{}", "format"), ("encoder", "{}", "encoder"),
           ("CPU ms", "{:.2f}", "cpu_ms"), ("ratio", "{:.2f}", "ratio"), ("of rounds", "{}", "ratio_span"),
           ("p50 ms", "{:.1f}", "latency_p50"), ("p99 ms", "{:.1f}", "latency_p99"), ("first ms", "{:.0f}", "first_ms"),
           ("MiB", "{:.1f}", "peak_mib"), ("file MiB", "{:.1f}", "files_mib"), ("switches", "{:.1f}", "switches"),
           ("kbit/s", "{:.0f}", "kilobits"), ("PSNR Y", "{:.2f}", "psnr_y"))
LEGEND = (
    "CPU: user and system time per frame, without the start and its key frame. ratio: product to this encoder, below "
    "1.00 if the product costs less; median of the rounds' ratios, with minimum and maximum. p50, p99: latency from the "
    "time at which a frame is due on the program's standard input to the end of its packet on standard output; with the "
    "default number of frames, none of them is a key frame. first: from the start of the process, when the first frame "
    "is waiting, to the first packet, for the product without the allocation of the driver's buffers. MiB: peak resident "
    "memory, for the product without the driver's buffers. file MiB: its part that is pages of the program and its "
    "libraries, which processes share, at the end of the run. switches: context switches per frame. PSNR: against the "
    "clip before JPEG compression.")


def percentile(values, percent):
    """Nearest rank."""
    ordered = sorted(values)
    return ordered[max(math.ceil(percent / 100 * len(ordered)), 1) - 1]


def summary(runs):
    """Adds the percentiles of the latency to the runs; returns the medians of the runs."""
    for run in runs:
        run.update(latency_p50=percentile(run["latencies"], 50), latency_p99=percentile(run["latencies"], 99))
    return {name: statistics.median(run[name] for run in runs)
            for name in ("cpu_ms", "switches", "first_ms", "peak_mib", "files_mib", "latency_p50", "latency_p99")}


def _case(row):
    return row["clip"], row["size"], row["format"]


def _name(row):
    return " ".join(_case(row))


def timed(rows):
    return [row for row in rows if "is_extra" not in row]


def pairs(rows, name=None):
    """Pairs the product's rows with those of the named encoder (None: of all others) for the same case."""
    own = {_case(row): row for row in timed(rows) if row["encoder"] == PRODUCT}
    return [(own[_case(row)], row) for row in timed(rows)
            if row["encoder"] != PRODUCT and name in (None, row["encoder"]) and _case(row) in own]


def add_ratios(rows):
    """Adds the ratio of CPU times to the rows of the other encoders. Compares runs of the same round, which are close in
    time."""
    for own, other in pairs(rows):
        ratios = [mine["cpu_ms"] / its["cpu_ms"] for mine, its in zip(own["runs"], other["runs"])]
        other["ratio"] = statistics.median(ratios)
        other["ratio_span"] = f"{min(ratios):.2f}-{max(ratios):.2f}"


def _ratio_goal(name, found, limit):
    return report.goal(name, [(_name(own), other["ratio"] <= limit, f"{other['ratio']:.3f} ({other['ratio_span']})")
                              for own, other in found])


def _lowest_goal(name, rows, key, unit):
    """The product's figure is the lowest: no encoder's is lower in the median of the rounds' ratios."""
    cases = []
    for own in (row for row in rows if row["encoder"] == PRODUCT):
        ratios = {other["encoder"]: [mine[key] / its[key] for mine, its in zip(own["runs"], other["runs"])]
                  for mine_row, other in pairs(rows) if mine_row is own}
        if ratios:
            best = max(ratios, key=lambda encoder: statistics.median(ratios[encoder]))
            found = ratios[best]
            cases.append((_name(own), statistics.median(found) <= 1,
                          f"{own[key]:.1f} {unit}, {statistics.median(found):.2f} ({min(found):.2f}-{max(found):.2f}) "
                          f"of {best}'s"))
    return report.goal(name, cases)


def _psnr_goal(rows):
    cases, unknown = [], 0
    for own, other in pairs(rows, X264):
        points = [row for row in rows if row["encoder"] == X264 and _case(row) == _case(own) and "is_extra" in row]
        psnr = report.interpolate([(row["kilobits"], row["psnr_y"]) for row in points], own["kilobits"])
        if psnr is None:
            unknown += 1
        else:
            cases.append((_name(own), own["psnr_y"] >= psnr,
                          f"{own['psnr_y']:.2f} against {psnr:.2f} dB at {own['kilobits']:.0f} kbit/s"))
    return report.goal(f"PSNR not below that of {X264} at the same real bit rate", cases,
                       f"{unknown} without bit rates on either side" if unknown else "")


def pool_mib(row):
    width, _, height = row["size"].partition("x")
    return POOL_FRAMES * int(width) * int(height) * BYTES_PER_PIXEL[row["format"]] / 2**20


def goals(rows):
    same = pairs(rows, SAME)
    firsts = [row for row in rows if row["encoder"] == PRODUCT and row["size"] == "1280x720"]
    return [
        _ratio_goal(f"CPU at or under 1.00 of {SAME}, YUY2", [pair for pair in same if pair[0]["format"] == "YUY2"], 1.0),
        _ratio_goal(f"CPU at or under 1.05 of {SAME}, MJPG", [pair for pair in same if pair[0]["format"] == "MJPG"], 1.05),
        _ratio_goal(f"CPU at or under 0.85 of {X264}", pairs(rows, X264), 0.85),
        _psnr_goal(rows),
        _lowest_goal("p50 of the latency the lowest", rows, "latency_p50", "ms"),
        _lowest_goal("p99 of the latency the lowest", rows, "latency_p99", "ms"),
        report.goal("first packet in under 150 ms at 1280x720",
                    [(_name(row), row["first_ms"] < 150, f"{row['first_ms']:.0f} ms") for row in firsts]),
        _lowest_goal("first packet the earliest", rows, "first_ms", "ms"),
        report.goal(f"peak memory at most the frame pool above {SAME}",
                    [(_name(own), own["peak_mib"] - other["peak_mib"] <= pool_mib(own),
                      f"{own['peak_mib'] - other['peak_mib']:.1f} MiB more, {own['files_mib'] - other['files_mib']:.1f} of "
                      f"them file pages; the pool has {pool_mib(own):.1f}")
                     for own, other in same]),
    ]


# The points of camera_host's start, in words.
_PARTS = {"main": "process start", "loaded": "loading the library", "queried": "GetCapability",
          "opened": "the rest of OpenCameraDevice", "first frame": "OpenCameraDevice, until it has a frame", "first packet": "first packet"}


def starts_table(starts):
    """The parts of the product's start in ms. starts: by case, each part's time in order."""
    lines = ["| clip | size | frames | parts in order, ms |", "|---|---|---|---|"]
    for case, parts in starts.items():
        text = ", ".join(f"{_PARTS[name]} {time:.1f}" for name, time in parts.items())
        lines.append(f"| {' | '.join(case)} | {text} |")
    return "\n".join(lines)


def text(about, versions, run, found):
    """Returns the results as a page."""
    notes = "\n".join(f"- {encoder.name}: {encoder.note}" for encoder in run.encoders)
    libraries = ", ".join(f"{name} {version}" for name, version in versions.items() if name != "project")
    circumstances = textwrap.fill(
        f"{about['date']}, commit {versions['project']}, {about['usable_cores']} cores of {about['model']}, "
        f"{about['memory_mib']} MiB, kernel {about['kernel']}, load {about['load_at_start']:.1f} to "
        f"{about['load_at_end']:.1f}. {run.chosen.frames} frames at 30 per second, rounds: {run.chosen.rounds}. "
        f"{libraries}.", WIDTH, break_on_hyphens=False)
    return f"""# At a camera's pace

    {about['command']}

{circumstances}

{notes}

{textwrap.fill(LEGEND, WIDTH)}

{report.table(timed(run.rows), COLUMNS)}

## Start of the product

{starts_table(run.median_starts())}

## Goals

```
{report.goals_text(found)}
```
"""
