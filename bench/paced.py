"""Measures encoders whose input arrives at a camera's pace."""

import os
import statistics
import time
from pathlib import Path

import access_units
import camera_tree
import clips
import encoders
import measure
import pace_report
import processes
import report
from encoders import FPS, PRODUCT_BIT_RATE, PacedJob, slice_threads
from processes import BenchError

# Frames of the start, which are excluded from latency, CPU time and context switches.
SKIP = 15
# Relative to PRODUCT_BIT_RATE: bit rates at which x264's quality is measured, for its quality at the product's actual
# bit rate.
QUALITY_RATES = (0.6, 1.0, 1.6)


def parse_report(text):
    """Returns the measurements of paced_run by name: a list of the lists of numbers of the lines with that name."""
    found = {}
    for line in text.splitlines():
        name, *numbers = line.split()
        found.setdefault(name, []).append([int(number) for number in numbers])
    return found


def packet_times(outputs, ends):
    """Returns when each packet was complete. outputs: (time, total bytes) of each read; ends: end offset of each packet."""
    times = []
    reads = iter(outputs)
    time, received = next(reads, (0, 0))
    for end in ends:
        while received < end:
            time, received = next(reads)
        times.append(time)
    return times


def figures(text, stream):
    """Returns the figures of a run: times in ms, memory in MiB."""
    found = parse_report(text)
    arrivals = [time for time, in found["frame"]]
    ends = access_units.end_offsets(stream)
    if len(ends) != len(arrivals):
        raise BenchError(f"{len(ends)} packets for {len(arrivals)} frames")
    packets = packet_times(found["output"], ends)
    latencies = [(packet - arrival) / 1e6 for packet, arrival in zip(packets, arrivals)]
    [[cpu, switches]], [[peak, shared, files]] = found["steady"], found["peak"]
    steady = len(arrivals) - SKIP
    return {"cpu_ms": cpu / 1e6 / steady, "switches": switches / steady, "latencies": latencies[SKIP:],
            "first_ms": latencies[0], "peak_mib": (peak - shared) / 1024, "files_mib": files / 1024,
            "begin": found["begin"][0][0]}


def start_parts(text, begin):
    """Returns the parts of the product's start in ms, in order. text: the times that camera_host wrote."""
    points = sorted((int(time), name) for time, _, name in (line.partition(" ") for line in text.splitlines()))
    before = [begin] + [time for time, _ in points]
    return {name: (time - earlier) / 1e6 for (time, name), earlier in zip(points, before)}


class Paced:
    """The measurement of all cases."""

    def __init__(self, top, chosen, programs, scratch, log):
        self.top = top
        self.chosen = chosen
        self.programs = programs
        self.scratch = scratch
        self.log = log
        self.encoders = encoders.paced_encoders(top, programs)
        if chosen.before:
            self.encoders = [self.encoders[0], encoders.product_before(chosen.before.resolve() / "bin")]
        self.rows = []
        self.starts = {}  # by case: parts of the product's start, in ms
        self.commands = {}
        self.tree = scratch / "pc"
        camera_tree.make(self.tree)

    def cases(self):
        return [(clip, size, form) for form in self.chosen.formats for size in self.chosen.sizes
                for clip in self.chosen.clips if clips.is_offered(clip, size)]

    def run_all(self):
        cases = self.cases()
        # Before the clock of the progress display starts.
        prepared = {(clip, size): clips.prepare_paced(self.top, self.programs, clip, size, self.chosen.frames, self.log)
                    for clip, size, _ in cases}
        started = time.monotonic()
        for done, (clip, size, form) in enumerate(cases):
            minutes = (time.monotonic() - started) / max(done, 1) * (len(cases) - done) / 60
            remaining = f", about {minutes:.0f} min left" if done else ""
            self.measure_case(prepared[clip, size], clip, size, form, f"case {done + 1} of {len(cases)}{remaining}")
        pace_report.add_ratios(self.rows)

    def measure_case(self, paced_clip, clip, size, form, progress):
        width, height = clips.SIZES[size]
        job = PacedJob(paced_clip, form, width, height, slice_threads(width, height, os.cpu_count()), self.tree,
                       self.scratch / "times")
        runs = {encoder.name: [] for encoder in self.encoders}
        pictures = {}
        for number in range(self.chosen.rounds):
            self.log(f"{clip} {size} {form}, round {number + 1} of {self.chosen.rounds} ({progress})")
            first = number % len(self.encoders)
            # Each round starts with another encoder, so that the order does not favour any.
            for encoder in self.encoders[first:] + self.encoders[:first]:
                runs[encoder.name].append(self.run(encoder, job))
                if encoder.name not in pictures:
                    pictures[encoder.name] = self.quality(job)
                if encoder.name == "product":
                    parts = start_parts(Path(job.times).read_text(), runs["product"][-1]["begin"])
                    self.starts.setdefault((clip, size, form), []).append(parts)
        for encoder in self.encoders:
            self.rows.append({"clip": clip, "size": size, "format": form, "encoder": encoder.name,
                              **pictures[encoder.name], **pace_report.summary(runs[encoder.name]),
                              "runs": runs[encoder.name]})
            self.commands.setdefault(encoder.name, {})[f"{clip} {size} {form}"] = report.command_text(
                encoder.command(job), self.top, str(self.scratch))
        if not self.chosen.before:
            self.measure_x264_rates(job, clip, size, form)

    def run(self, encoder, job):
        frames, sizes = encoder.input(job)
        out, text = self.scratch / "out.h264", self.scratch / "report"
        command = encoder.command(job)
        processes.run([self.programs / "paced_run", frames, sizes, FPS, SKIP, out, text, *command],
                      name=Path(command[0]).name, timeout=60 + self.chosen.frames / FPS)
        return figures(text.read_text(), out.read_bytes())

    def quality(self, job):
        compared = encoders.Job(job.clip.yuy2, job.width, job.height, PRODUCT_BIT_RATE, self.scratch / "out.h264", 1)
        return measure.quality(compared, FPS, self.chosen.frames)

    def measure_x264_rates(self, job, clip, size, form):
        """Adds rows with x264's quality at other bit rates."""
        binary = self.top / "build/bench/ffmpeg/ffmpeg"
        frames, _ = job.clip.input("YUY2" if form == "YUY2" else "mpjpeg")
        for rate in QUALITY_RATES:
            command = encoders.paced_ffmpeg(binary, encoders.x264_options, frames, self.scratch / "out.h264",
                                            round(rate * PRODUCT_BIT_RATE))
            processes.run(command(job))
            self.rows.append({"clip": clip, "size": size, "format": form, "encoder": "ffmpeg x264", "is_extra": True,
                              **self.quality(job)})

    def median_starts(self):
        """Returns the medians of the parts of the product's start by case."""
        return {case: {name: statistics.median(run[name] for run in runs) for name in runs[0]}
                for case, runs in self.starts.items()}
