"""Runs encoders: what they cost, and how good their pictures are."""

import re
import statistics
from pathlib import Path

import processes
from processes import Failed


def run(programs, command, scratch, frames):
    """Milliseconds of CPU per frame, frames per second and peak memory of one run.

    The system adds up precisely what a process has used, but goes by the clock's ticks in telling the program's own
    from the system's part: of short runs the sum is the better figure. All of the process counts, its start, too.
    """
    figures = scratch / "figures"
    processes.run([programs / "measured", figures, *command], name=Path(command[0]).name)
    try:
        user, system, elapsed, peak = (int(word) for word in figures.read_text().split())
    except (OSError, ValueError) as error:
        raise Failed(f"no figures of {command[0]}: {error}") from error
    return {"user_ms": user / 1000 / frames, "system_ms": system / 1000 / frames,
            "cpu_ms": (user + system) / 1000 / frames, "frames_per_second": frames * 1e6 / elapsed,
            "peak_mib": peak / 1024}


def require_pace(run_figures, command, fps, frames):
    """Failed when frames cannot have come at a camera's pace. (The last one needs no time after it.)"""
    seconds = frames / run_figures["frames_per_second"]
    if seconds < (frames - 1) / fps - 0.1:
        raise Failed(f"{command[0]} has taken {seconds:.1f} s for {frames} frames at {fps} a second: that is no pace")


def medians(runs):
    return {name: statistics.median(run[name] for run in runs) for name in runs[0]}


def _frames_of(path):
    output, _ = processes.run(["ffprobe", "-v", "error", "-f", "h264", "-count_packets", "-show_entries",
                               "stream=nb_read_packets", "-of", "csv=p=0", path])
    words = output.strip().strip(",")
    return int(words) if words.isdigit() else 0


# Luma and everything.
_PSNR = re.compile(r"PSNR y:(\S+) .* average:(\S+) ")
_SSIM = re.compile(r"SSIM Y:(\S+) .* All:(\S+) ")


def quality(job, fps, frames):
    """PSNR and SSIM of a job's output against its clip, and the bit rate that it really has."""
    encoded = _frames_of(job.out)
    if encoded != frames:
        raise Failed(f"{job.out} has {encoded} frames instead of {frames}")
    with open(job.out, "rb") as stream:
        size = stream.seek(0, 2)
    # Pictures are matched by their number.
    graph = ("[0:v]settb=1/30,setpts=N,format=yuv420p,split[s1][s2];[1:v]settb=1/30,setpts=N,format=yuv420p,split[d1][d2];"
             "[d1][s1]psnr[p];[d2][s2]ssim[q]")
    _, said = processes.run(
        ["ffmpeg", "-nostdin", "-hide_banner", "-f", "rawvideo", "-pix_fmt", "yuyv422", "-s", f"{job.width}x{job.height}",
         "-r", str(fps), "-i", job.clip, "-f", "h264", "-r", str(fps), "-i", job.out, "-filter_complex", graph,
         "-map", "[p]", "-f", "null", "-", "-map", "[q]", "-f", "null", "-"])
    psnr = _PSNR.search(said)
    ssim = _SSIM.search(said)
    if not psnr or not ssim:
        raise Failed(f"ffmpeg compares {job.out} without a PSNR and an SSIM:\n{said[-2000:]}")
    return {"kilobits": size * 8 * fps / frames / 1000, "psnr_y": float(psnr[1]), "psnr": float(psnr[2]),
            "ssim_y": float(ssim[1]), "ssim": float(ssim[2])}
