"""Tables and goals of a run."""

import math
import statistics

_COST = (("user ms", "{:.3f}", "user_ms"), ("ratio", "{:.2f}", "ratio"), ("of rounds", "{}", "ratio_span"),
         ("sys ms", "{:.3f}", "system_ms"), ("both ms", "{:.3f}", "cpu_ms"), ("ratio", "{:.2f}", "cpu_ratio"),
         ("fps", "{:.0f}", "frames_per_second"), ("MiB", "{:.1f}", "peak_mib"))
_CASE = (("clip", "{}", "clip"), ("size", "{}", "size"), ("encoder", "{}", "encoder"))
COLUMNS = (*_CASE, ("kbit/s", "{}", "asked"), ("real", "{:.0f}", "kilobits"), *_COST, ("PSNR Y", "{:.2f}", "psnr_y"),
           ("SSIM Y", "{:.4f}", "ssim_y"))
# Of the CPU time of the encoder's thread.
MAX_STREAM_COST = 0.05
LEGEND = ("CPU time and MiB are those of whole processes, including startup. user, sys, both: CPU time per frame in ms. "
          "ratio: product to this encoder, below 1.00 if the product costs less; median of the ratios of the rounds. "
          "of rounds: minimum and maximum of these ratios.")


def _ratios(own, other, key):
    return [mine[key] / its[key] for mine, its in zip(own["runs"], other["runs"]) if its[key] > 0]


def add_ratios(rows):
    """Adds the ratio of the product's CPU time to that of the encoder to the rows of the other encoders. Compares runs of the
    same round: they are close in time, so other load on the machine affects both."""
    for own, other in pairs(rows, None):
        if "runs" in own and "runs" in other:
            for name, key in (("ratio", "user_ms"), ("cpu_ratio", "cpu_ms")):
                ratios = _ratios(own, other, key)
                if ratios:
                    other[name] = statistics.median(ratios)
                if ratios and name == "ratio":
                    other["ratio_span"] = f"{min(ratios):.2f}-{max(ratios):.2f}"


def pairs(rows, name):
    """Pairs the product's rows with those of the named encoder (None: of all) for the same clip, size and bit rate."""
    own = {(row["clip"], row["size"], row["asked"]): row for row in rows if row["encoder"] == "product"}
    return [(own[key], row) for row in rows
            if row["encoder"] != "product" and name in (None, row["encoder"])
            and (key := (row["clip"], row["size"], row["asked"])) in own]


def table(rows, columns=COLUMNS):
    lines = ["| " + " | ".join(head for head, _, _ in columns) + " |", "|---" * len(columns) + "|"]
    for row in rows:
        cells = (form.format(row[key]) if key in row else "" for _, form, key in columns)
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def psnr_at(rows, like, kilobits):
    """Interpolates the PSNR of an encoder at an actual bit rate, linearly over the logarithm of the bit rate. Returns None
    with fewer than two rows, more than 10 % outside their range, or if PSNR does not increase with the bit rate."""
    return interpolate([(row["kilobits"], row["psnr_y"]) for row in rows
                        if all(row[key] == like[key] for key in ("clip", "size", "encoder"))], kilobits)


def interpolate(points, kilobits):
    """See psnr_at. points: (actual bit rate, PSNR) of one encoder."""
    points = sorted(points)
    is_rising = all(worse < better for (_, worse), (_, better) in zip(points, points[1:]))
    if len(points) < 2 or not is_rising or not points[0][0] / 1.1 <= kilobits <= points[-1][0] * 1.1:
        return None
    above = next((i for i in range(1, len(points)) if kilobits <= points[i][0]), len(points) - 1)
    (low, worse), (high, better) = points[above - 1:above + 1]
    if low == high:
        return better
    return worse + (better - worse) * math.log(kilobits / low) / math.log(high / low)


def goal(name, cases, unknown=""):
    """cases: (name, is reached, figures). unknown: why cases are missing."""
    missed = [f"{case}: {figures}" for case, is_reached, figures in cases if not is_reached]
    return {"goal": name, "cases": len(cases), "missed": missed, "unknown": unknown}


def _case_name(row):
    return f"{row['clip']} {row['size']}"


def goals(rows, recorded, frames):
    timed = [(own, other) for own, other in pairs(rows, None) if "ratio" in other]
    openh264 = [(own, other) for own, other in timed if other["encoder"] == "ffmpeg openh264 same"]
    found = [
        _same_pictures(rows),
        goal("user CPU per frame at or under 1.00 of ffmpeg openh264 same",
              [(_case_name(own), other["ratio"] <= 1.0, f"{other['ratio']:.3f} ({other['ratio_span']})")
               for own, other in openh264]),
    ]
    for name in ("ffmpeg x264 delay", "ffmpeg x264"):
        found += _x264_goals(rows, [pair for pair in timed if pair[1]["encoder"] == name], name)
    return found + [
        goal("peak memory under ffmpeg openh264 same's",
              [(_case_name(own), own["peak_mib"] < other["peak_mib"],
                f"{own['peak_mib']:.1f} against {other['peak_mib']:.1f} MiB") for own, other in openh264]),
        _against_recorded(rows, recorded, frames),
    ]


def viewer_goals(rows):
    """The page of `nuveqcam view` shows the frames before the other viewers do."""
    others = [row for row in rows if row["viewer"] != "page" and "p50_ratio" in row]
    return [goal(f"{key} of the delay above that of the page",
                  [(row["viewer"], row[f"{key}_ratio"] > 1, f"{row[f'{key}_ratio']:.2f} ({row[f'{key}_span']})")
                   for row in others]) for key in ("p50", "p99")]


def cost_goal(rows, streams):
    """rows: the medians of the cost by number of streams."""
    limit = f"{100 * MAX_STREAM_COST:.0f} %"
    return goal(f"CPU time of the server's thread for {streams} streams below {limit} of the encoder's",
                 [(f"{row['streams']} streams", row["cost"] < MAX_STREAM_COST, f"{100 * row['cost']:.1f} %")
                  for row in rows if row["streams"] == streams])


def _x264_goals(rows, timed, name):
    candidates = [(own, other, psnr_at(rows, other, own["kilobits"])) for own, other in pairs(rows, name)]
    known = [case for case in candidates if case[2] is not None]
    unknown = (f"{len(candidates) - len(known)} without bit rates on either side" if len(known) < len(candidates)
               else "")
    return [
        goal(f"user CPU per frame under 0.65 of {name}",
              [(_case_name(own), other["ratio"] < 0.65, f"{other['ratio']:.3f} ({other['ratio_span']})")
               for own, other in timed]),
        goal(f"PSNR not below that of {name} at the same asked bit rate",
              [(f"{_case_name(own)} {own['asked']}", own["psnr_y"] >= other["psnr_y"],
                f"{own['psnr_y']:.2f} against {other['psnr_y']:.2f} dB at {own['kilobits']:.0f} and "
                f"{other['kilobits']:.0f} kbit/s")
               for own, other in pairs(rows, name)]),
        goal(f"PSNR not below that of {name} at the same real bit rate",
              [(f"{_case_name(own)} {own['asked']}", own["psnr_y"] >= psnr,
                f"{own['psnr_y']:.2f} against {psnr:.2f} dB at {own['kilobits']:.0f} kbit/s")
               for own, _, psnr in known], unknown),
    ]


def _against_recorded(rows, recorded, frames):
    # Runs are deterministic except for rounding.
    tolerance = {"psnr_y": 0.005, "ssim_y": 0.0001}
    cases = []
    missing = 0
    for row in recordable(rows):
        then = recorded.get(quality_key(row, frames))
        if then is None:
            missing += 1
        else:
            cases.append((_case_name(row), all(row[key] >= then[key] - tolerance[key] for key in tolerance),
                          f"PSNR {row['psnr_y']:.3f} against {then['psnr_y']:.3f} dB, SSIM {row['ssim_y']:.4f} against "
                          f"{then['ssim_y']:.4f}"))
    return goal("quality at the product's bit rate not below the recorded one (bench/quality.json)", cases,
                 f"nothing is recorded for {missing} more with {frames} frames" if missing else "")


def recordable(rows):
    """Returns the product's rows at its own bit rate, for which cost is measured."""
    return [row for row in rows if row["encoder"] == "product" and "runs" in row]


def quality_key(row, frames):
    return f"{row['clip']} {row['size']} {row['asked']} {frames}"


def _same_pictures(rows):
    """Comparing the cost with ffmpeg openh264 same is meaningful only if its settings, and so its pictures, are those of
    the product."""
    return goal("ffmpeg openh264 same makes the product's pictures (otherwise adapt bench/build-ffmpeg.sh)",
                 [(f"{_case_name(own)} {own['asked']}",
                   abs(own["psnr_y"] - other["psnr_y"]) <= 0.01
                   and abs(own["kilobits"] / other["kilobits"] - 1) <= 0.005,
                   f"{own['psnr_y']:.2f} and {other['psnr_y']:.2f} dB at {own['kilobits']:.0f} and "
                   f"{other['kilobits']:.0f} kbit/s")
                  for own, other in pairs(rows, "ffmpeg openh264 same")])


def command_text(command, top, out):
    """Returns a command line without paths of this machine or this run."""
    # out is below top, so it is replaced first.
    return " ".join(command).replace(out, "OUT").replace(f"{top}/", "")


def is_any_missed(found):
    return any(goal["missed"] for goal in found)


def goals_text(found):
    lines = []
    for goal in found:
        if goal["cases"] == 0:
            state = "not measured"
        elif goal["missed"]:
            state = f"missed in {len(goal['missed'])} of {goal['cases']}"
        else:
            state = f"reached in all {goal['cases']}"
        if goal["unknown"]:
            state += f" ({goal['unknown']})"
        lines.append(f"{goal['goal']}: {state}")
        lines += [f"  {missed}" for missed in goal["missed"]]
    return "\n".join(lines)
