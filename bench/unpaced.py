"""Encodes raw clips as fast as possible: the cost of all encoders, and their quality at several bit rates."""

import json
import os
from pathlib import Path

import clips
import measure
import report
from encoders import FPS, PRODUCT_BIT_RATE, Job, encoders, slice_threads


class Unpaced:
    """The measurement of all cases."""

    def __init__(self, top, chosen, programs, scratch, log):
        self.top = top
        self.log = log
        self.chosen = chosen
        self.programs = programs
        self.scratch = scratch
        self.encoders = encoders(self.top, programs)
        self.rows = []
        self.commands = {}

    def prepare(self, clip, size, kilobits):
        """Returns a job whose clip is in the page cache, for equal conditions."""
        path = clips.prepare(self.top, self.programs, clip, size, self.chosen.frames, self.log)
        with open(path, "rb") as file:
            while file.read(1 << 24):
                pass
        width, height = clips.SIZES[size]
        return Job(path, width, height, kilobits, self.scratch / "out.h264",
                   slice_threads(width, height, os.cpu_count()))

    def rounds(self, title, number, some_encoders, job):
        """Runs the encoders in turn; yields each with its figures. Each round starts with another encoder, so that the
        order does not favour any."""
        for done in range(number):
            self.log(f"{title}, round {done + 1} of {number}")
            first = done % len(some_encoders)
            for encoder in some_encoders[first:] + some_encoders[:first]:
                yield encoder, measure.run(self.programs, encoder.command(job), self.scratch, self.chosen.frames)

    def note_command(self, encoder, job, case):
        """Records the command for the results, with paths relative to the project."""
        command = report.command_text(encoder.command(job), self.top, job.out)
        self.commands.setdefault(encoder.name, {})[case] = command

    def encode(self, clip, size, kilobits):
        """Runs all encoders: one round if the cost is not measured."""
        job = self.prepare(clip, size, kilobits)
        is_timed = kilobits == PRODUCT_BIT_RATE
        runs = {encoder.name: [] for encoder in self.encoders}
        pictures = {}
        for encoder, figures in self.rounds(f"{clip} {size} {kilobits} kbit/s", self.chosen.rounds if is_timed else 1,
                                            self.encoders, job):
            runs[encoder.name].append(figures)
            if encoder.name not in pictures:
                pictures[encoder.name] = measure.quality(job, FPS, self.chosen.frames)
            Path(job.out).unlink()
        for encoder in self.encoders:
            row = {"clip": clip, "size": size, "encoder": encoder.name, "asked": kilobits, **pictures[encoder.name]}
            if is_timed:
                row.update(measure.medians(runs[encoder.name]), runs=runs[encoder.name])
                self.note_command(encoder, job, f"{clip} {size}")
            self.rows.append(row)

    def run_all(self):
        for clip in self.chosen.clips:
            for size in self.chosen.sizes:
                if clips.is_offered(clip, size):
                    for kilobits in self.chosen.bit_rates:
                        self.encode(clip, size, kilobits)
        report.add_ratios(self.rows)


def record_quality(run, path, recorded):
    """Writes the product's quality to a file, together with what is recorded already."""
    recorded.update({report.quality_key(row, run.chosen.frames): {"psnr_y": round(row["psnr_y"], 3),
                                                                  "ssim_y": round(row["ssim_y"], 4)}
                     for row in report.recordable(run.rows)})
    path.write_text(json.dumps(dict(sorted(recorded.items())), indent=1) + "\n")
