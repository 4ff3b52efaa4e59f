"""What bench/run runs on and with."""

import os
import platform
import shutil
from pathlib import Path

import processes
from processes import Failed

PACKAGES = ("ffmpeg", "gstreamer1.0-plugins-bad", "gstreamer1.0-plugins-base", "gstreamer1.0-plugins-ugly",
            "gstreamer1.0-tools", "libopenh264-7", "libx264-164", "libyuv0")
INSTALL = "scripts/install-packages.sh native bench"


def build_programs(top, build, say):
    """The folder of the programs to measure with. Everything that a run needs is there afterwards."""
    for program in ("ffmpeg", "ffprobe", "gst-inspect-1.0", "gst-launch-1.0", "nasm"):
        if shutil.which(program) is None:
            raise Failed(f"{program} is missing: {INSTALL}")
    for element in ("rawvideoparse", "videoconvert", "openh264enc", "x264enc"):
        # It also makes GStreamer look through its plugins, which the first run would be charged with otherwise.
        try:
            processes.run(["gst-inspect-1.0", element])
        except Failed:
            raise Failed(f"GStreamer's element {element} is missing: {INSTALL}") from None
    check_configured(build)
    say("building the programs")
    processes.run(["cmake", "--build", build, "--target", "encode_clip", "simulated_clip", "measured"], patience=3600)
    processes.run([top / "bench/build-ffmpeg.sh"], patience=3600, is_shown=True)
    return build / "bin"


def check_configured(build):
    """A build folder whose programs are optimised, as what they are compared with is."""
    cache = build / "CMakeCache.txt"
    if not cache.exists():
        raise Failed(f"{build} is not configured: cmake --preset native -B {build}")
    kind = [line.partition("=")[2] for line in cache.read_text().splitlines() if line.startswith("CMAKE_BUILD_TYPE:")]
    if kind not in (["Release"], ["RelWithDebInfo"]):
        raise Failed(f"{build} is not optimised (CMAKE_BUILD_TYPE is {kind[0] if kind else 'not set'}): "
                     "use one of the preset native")


def versions(top):
    def first_line(*command):
        try:
            return processes.run(command)[0].partition("\n")[0]
        except Failed:
            return "unknown"

    found = {"project": first_line("git", "-C", top, "describe", "--always", "--dirty"),
             "ffmpeg built here": first_line(top / "build/bench/ffmpeg/ffmpeg", "-version"),
             "gst-launch-1.0": first_line("gst-launch-1.0", "--version")}
    for package in PACKAGES:
        found[package] = first_line("dpkg-query", "-W", "-f", "${Version}", package)
    return found


def describe():
    model = [line.partition(":")[2].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
             if line.startswith("model name")]
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") >> 20
    return {"model": model[0] if model else platform.machine(), "cores": os.cpu_count(),
            "usable_cores": len(os.sched_getaffinity(0)), "memory_mib": memory, "kernel": platform.release(),
            "load_at_start": os.getloadavg()[0]}
