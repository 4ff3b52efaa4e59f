"""Runs encoders: what they cost, and how good their pictures are."""

import contextlib
import os
import re
import signal
import statistics
import subprocess

# Seconds that one program may take.
PATIENCE = 900


class Failed(Exception):
    pass


def run(programs, command, scratch, frames):
    """User and system milliseconds per frame, frames per second and peak memory of one run."""
    figures = scratch / "figures"
    process = subprocess.Popen([programs / "measured", figures, *command], stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, start_new_session=True)
    try:
        _, errors = process.communicate(timeout=PATIENCE)
    except BaseException:
        # With what it runs, which would go on and disturb everything else.
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        raise
    if process.returncode != 0:
        raise Failed(f"{command[0]} answers {process.returncode}: {errors.strip()[-2000:]}")
    user, system, elapsed, peak = (int(word) for word in figures.read_text().split())
    return {"user_ms": user / 1000 / frames, "system_ms": system / 1000 / frames,
            "frames_per_second": frames * 1e6 / elapsed, "peak_mib": peak / 1024}


def medians(runs):
    return {name: statistics.median(run[name] for run in runs) for name in runs[0]}


def _frames_of(path):
    counted = subprocess.run(["ffprobe", "-v", "error", "-f", "h264", "-count_packets", "-show_entries",
                              "stream=nb_read_packets", "-of", "csv=p=0", path],
                             check=True, capture_output=True, text=True)
    return int(counted.stdout.strip().strip(","))


# Luma and everything.
_PSNR = re.compile(r"PSNR y:(\S+) .* average:(\S+) ")
_SSIM = re.compile(r"SSIM Y:(\S+) .* All:(\S+) ")


def quality(job, fps, frames):
    """PSNR and SSIM of a job's output against its clip, and the bit rate that it really has."""
    with open(job.out, "rb") as stream:
        size = stream.seek(0, 2)
    if _frames_of(job.out) != frames:
        raise Failed(f"{job.out} has {_frames_of(job.out)} frames instead of {frames}")
    # Pictures are matched by their number.
    graph = ("[0:v]settb=1/30,setpts=N,format=yuv420p,split[s1][s2];[1:v]settb=1/30,setpts=N,format=yuv420p,split[d1][d2];"
             "[d1][s1]psnr[p];[d2][s2]ssim[q]")
    compared = subprocess.run(
        ["ffmpeg", "-nostdin", "-hide_banner", "-f", "rawvideo", "-pix_fmt", "yuyv422", "-s", f"{job.width}x{job.height}",
         "-r", str(fps), "-i", job.clip, "-f", "h264", "-r", str(fps), "-i", job.out, "-filter_complex", graph,
         "-map", "[p]", "-f", "null", "-", "-map", "[q]", "-f", "null", "-"],
        capture_output=True, text=True, timeout=PATIENCE)
    psnr = _PSNR.search(compared.stderr)
    ssim = _SSIM.search(compared.stderr)
    if compared.returncode != 0 or not psnr or not ssim:
        raise Failed(f"comparing {job.out}: {compared.stderr[-2000:]}")
    return {"kilobits": size * 8 * fps / frames / 1000, "psnr_y": float(psnr[1]), "psnr": float(psnr[2]),
            "ssim_y": float(ssim[1]), "ssim": float(ssim[2])}
