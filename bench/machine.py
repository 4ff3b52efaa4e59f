"""The machine, the tools and the programs that the comparisons use."""

import contextlib
import datetime
import fcntl
import os
import platform
import shutil
from pathlib import Path

import processes
from processes import BenchError

PACKAGES = ("ffmpeg", "gstreamer1.0-plugins-bad", "gstreamer1.0-plugins-base", "gstreamer1.0-plugins-good",
            "gstreamer1.0-plugins-ugly", "gstreamer1.0-tools", "libjpeg62-turbo", "libopenh264-dev", "libx264-dev", "libyuv-dev")
INSTALL = "scripts/install-packages.sh native bench"


def build_programs(top, build, log):
    """Builds everything that a run needs and returns the folder of the programs."""
    for program in ("ffmpeg", "ffprobe", "gst-inspect-1.0", "gst-launch-1.0", "nasm"):
        if shutil.which(program) is None:
            raise BenchError(f"{program} is missing: {INSTALL}")
    for element in ("rawvideoparse", "videoconvert", "jpegparse", "jpegdec", "openh264enc", "x264enc"):
        # Also fills the plugin cache of GStreamer, which would otherwise slow down the first run.
        try:
            processes.run(["gst-inspect-1.0", element])
        except BenchError:
            raise BenchError(f"GStreamer's element {element} is missing: {INSTALL}") from None
    check_configured(build)
    log("building the programs")
    processes.run(["cmake", "--build", build, "--target", "camera_host", "encode_clip", "jpeg_clip", "paced_run",
                   "resource_usage", "simulated_clip"], timeout=3600)
    processes.run([top / "bench/build-ffmpeg.sh"], timeout=3600, is_shown=True)
    return build / "bin"


def check_configured(build):
    """Requires an optimised build, for a fair comparison."""
    cache = build / "CMakeCache.txt"
    if not cache.exists():
        raise BenchError(f"{build} is not configured: cmake --preset native -B {build}")
    kind = [line.partition("=")[2] for line in cache.read_text().splitlines() if line.startswith("CMAKE_BUILD_TYPE:")]
    if kind not in (["Release"], ["RelWithDebInfo"]):
        raise BenchError(f"{build} is not optimised (CMAKE_BUILD_TYPE is {kind[0] if kind else 'not set'}): "
                     "use a build of the preset native")


def first_line(*command):
    """The first line of a program's output, such as its version."""
    try:
        return processes.run(command)[0].partition("\n")[0]
    except BenchError:
        return "unknown"


def versions(top, packages):
    found = {"project": first_line("git", "-C", top, "describe", "--always", "--dirty")}
    for package in packages:
        found[package] = first_line("dpkg-query", "-W", "-f", "${Version}", package)
    return found


def describe():
    model = [line.partition(":")[2].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
             if line.startswith("model name")]
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") >> 20
    return {"date": datetime.date.today().isoformat(), "model": model[0] if model else platform.machine(),
            "cores": os.cpu_count(), "usable_cores": len(os.sched_getaffinity(0)), "memory_mib": memory, "kernel": platform.release(),
            "load_at_start": os.getloadavg()[0]}


@contextlib.contextmanager
def exclusive(folder):
    """Prevents concurrent comparisons, which would disturb each other and write the same files."""
    folder.mkdir(parents=True, exist_ok=True)
    with open(folder / "lock", "w", encoding="ascii") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise BenchError("another comparison is running") from None
        yield
