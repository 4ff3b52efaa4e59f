"""The table of a run, and what of the goals it reaches."""

import math

COLUMNS = (("clip", "{}", "clip"), ("size", "{}", "size"), ("encoder", "{}", "encoder"), ("kbit/s", "{}", "asked"),
           ("real", "{:.0f}", "kilobits"), ("user ms", "{:.3f}", "user_ms"), ("ratio", "{:.2f}", "ratio"),
           ("sys ms", "{:.3f}", "system_ms"), ("fps", "{:.0f}", "frames_per_second"), ("MiB", "{:.1f}", "peak_mib"),
           ("PSNR Y", "{:.2f}", "psnr_y"), ("SSIM Y", "{:.4f}", "ssim_y"))


def add_ratios(rows):
    """The product's user CPU as a share of each other's, in the others' rows."""
    for own, other in pairs(rows, None):
        if "user_ms" in own and "user_ms" in other:
            other["ratio"] = own["user_ms"] / other["user_ms"]


def pairs(rows, name):
    """The product's rows, each with that of another encoder for the same clip, size and bit rate."""
    own = {(row["clip"], row["size"], row["asked"]): row for row in rows if row["encoder"] == "product"}
    return [(own[key], row) for row in rows
            if row["encoder"] != "product" and name in (None, row["encoder"])
            and (key := (row["clip"], row["size"], row["asked"])) in own]


def table(rows):
    lines = ["| " + " | ".join(head for head, _, _ in COLUMNS) + " |", "|---" * len(COLUMNS) + "|"]
    for row in rows:
        cells = (form.format(row[key]) if key in row else "" for _, form, key in COLUMNS)
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def psnr_at(rows, like, kilobits):
    """What an encoder would reach at a real bit rate: between its rows on either side, along the logarithm. Beyond
    them, or with one row only, the nearest row's."""
    points = sorted((row["kilobits"], row["psnr_y"]) for row in rows
                    if all(row[key] == like[key] for key in ("clip", "size", "encoder")))
    for (low, worse), (high, better) in zip(points, points[1:]):
        if low <= kilobits <= high:
            return worse + (better - worse) * math.log(kilobits / low) / math.log(high / low)
    return min(points, key=lambda point: abs(point[0] - kilobits))[1]


def _goal(name, cases):
    """cases: (what, is reached, figures)."""
    missed = [f"{what}: {figures}" for what, is_reached, figures in cases if not is_reached]
    return {"goal": name, "cases": len(cases), "missed": missed}


def _what(row):
    return f"{row['clip']} {row['size']}"


def goals(rows, recorded, frames):
    timed = [(own, other) for own, other in pairs(rows, None) if "ratio" in other]
    openh264 = [(own, other) for own, other in timed if other["encoder"] == "ffmpeg openh264 same"]
    found = [
        _goal("user CPU per frame at or under 1.00 of ffmpeg openh264 same",
              [(_what(own), other["ratio"] <= 1.0, f"{other['ratio']:.2f}") for own, other in openh264]),
    ]
    for name in ("ffmpeg x264 delay", "ffmpeg x264"):
        found += _x264_goals(rows, [pair for pair in timed if pair[1]["encoder"] == name], name)
    return found + [
        _goal("peak memory under ffmpeg openh264 same's",
              [(_what(own), own["peak_mib"] < other["peak_mib"],
                f"{own['peak_mib']:.1f} against {other['peak_mib']:.1f} MiB") for own, other in openh264]),
        _goal("quality at the product's bit rate not below the recorded one (bench/quality.json)",
              _against_recorded(rows, recorded, frames)),
    ]


def _x264_goals(rows, timed, name):
    return [
        _goal(f"user CPU per frame under 0.65 of {name}",
              [(_what(own), other["ratio"] < 0.65, f"{other['ratio']:.2f}") for own, other in timed]),
        _goal(f"PSNR not below that of {name} at the same asked bit rate",
              [(f"{_what(own)} {own['asked']}", own["psnr_y"] >= other["psnr_y"],
                f"{own['psnr_y']:.2f} against {other['psnr_y']:.2f} dB at {own['kilobits']:.0f} and "
                f"{other['kilobits']:.0f} kbit/s")
               for own, other in pairs(rows, name)]),
        _goal(f"PSNR not below that of {name} at the same real bit rate",
              [(f"{_what(own)} {own['asked']}", own["psnr_y"] >= (there := psnr_at(rows, other, own["kilobits"])),
                f"{own['psnr_y']:.2f} against {there:.2f} dB at {own['kilobits']:.0f} kbit/s")
               for own, other in pairs(rows, name)]),
    ]


def _against_recorded(rows, recorded, frames):
    # The encoder and the clips are the same in every run; what may differ is rounding.
    slack = 0.005
    cases = []
    for row in rows:
        then = recorded.get(quality_key(row, frames))
        if row["encoder"] == "product" and then is not None:
            cases.append((_what(row), row["psnr_y"] >= then["psnr_y"] - slack,
                          f"{row['psnr_y']:.2f} against {then['psnr_y']:.2f} dB"))
    return cases


def quality_key(row, frames):
    return f"{row['clip']} {row['size']} {row['asked']} {frames}"


def goals_text(found):
    lines = []
    for goal in found:
        if goal["cases"] == 0:
            state = "not measured"
        elif goal["missed"]:
            state = f"missed in {len(goal['missed'])} of {goal['cases']}"
        else:
            state = f"reached in all {goal['cases']}"
        lines.append(f"{goal['goal']}: {state}")
        lines += [f"  {missed}" for missed in goal["missed"]]
    return "\n".join(lines)
