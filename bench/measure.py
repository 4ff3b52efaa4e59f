"""Measures the cost and the quality of encoders."""

import re
import statistics
from pathlib import Path

import processes
from processes import BenchError


def run(programs, command, scratch, frames):
    """Runs an encoder and returns CPU time per frame in ms, frames per second and peak memory.

    The kernel measures the total CPU time exactly, but splits it into user and system time by sampling: for short runs,
    the total is more accurate. All values include process startup.
    """
    usage = scratch / "usage"
    processes.run([programs / "resource_usage", usage, *command], name=Path(command[0]).name)
    try:
        user, system, elapsed, peak = (int(word) for word in usage.read_text().split())
    except (OSError, ValueError) as error:
        raise BenchError(f"no resource usage of {command[0]}: {error}") from error
    return {"user_ms": user / 1000 / frames, "system_ms": system / 1000 / frames,
            "cpu_ms": (user + system) / 1000 / frames, "frames_per_second": frames * 1e6 / elapsed,
            "peak_mib": peak / 1024}


def medians(runs):
    return {name: statistics.median(run[name] for run in runs) for name in runs[0]}


def _count_frames(path):
    output, _ = processes.run(["ffprobe", "-v", "error", "-f", "h264", "-count_packets", "-show_entries",
                               "stream=nb_read_packets", "-of", "csv=p=0", path])
    words = output.strip().strip(",")
    return int(words) if words.isdigit() else 0


# Luma value and total.
_PSNR = re.compile(r"PSNR y:(\S+) .* average:(\S+) ")
_SSIM = re.compile(r"SSIM Y:(\S+) .* All:(\S+) ")


def quality(job, fps, frames):
    """Returns PSNR and SSIM of the output of a job compared with its clip, and the actual bit rate."""
    encoded = _count_frames(job.out)
    if encoded != frames:
        raise BenchError(f"{job.out} has {encoded} frames instead of {frames}")
    with open(job.out, "rb") as stream:
        size = stream.seek(0, 2)
    # Pictures are matched by number.
    graph = ("[0:v]settb=1/30,setpts=N,format=yuv420p,split[s1][s2];[1:v]settb=1/30,setpts=N,format=yuv420p,split[d1][d2];"
             "[d1][s1]psnr[p];[d2][s2]ssim[q]")
    _, log = processes.run(
        ["ffmpeg", "-nostdin", "-hide_banner", "-f", "rawvideo", "-pix_fmt", "yuyv422", "-s", f"{job.width}x{job.height}",
         "-r", str(fps), "-i", job.clip, "-f", "h264", "-r", str(fps), "-i", job.out, "-filter_complex", graph,
         "-map", "[p]", "-f", "null", "-", "-map", "[q]", "-f", "null", "-"])
    psnr = _PSNR.search(log)
    ssim = _SSIM.search(log)
    if not psnr or not ssim:
        raise BenchError(f"ffmpeg printed no PSNR and SSIM for {job.out}:\n{log[-2000:]}")
    return {"kilobits": size * 8 * fps / frames / 1000, "psnr_y": float(psnr[1]), "psnr": float(psnr[2]),
            "ssim_y": float(ssim[1]), "ssim": float(ssim[2])}
