"""The clips that bench/run encodes: raw YUY2 files under build/bench/clips, made once."""

import contextlib

import processes
from processes import Failed

SIZES = {"320x240": (320, 240), "640x480": (640, 480), "1280x720": (1280, 720), "1920x1080": (1920, 1080)}

# The recordings under build/deps/clips, and what they are large enough for. The phone's is short: it is played to its
# end and back, so that there is no cut.
RECORDED = {
    "webcam": ("cockatoo.mp4", 280, False),
    "phone": ("VID_20191220_170832.mp4", 41, True),
}
# Part of the files' names. To be raised when they are made in another way or the simulated camera's picture changes.
RECIPE = 1
CLIPS = ("webcam", "phone", "simulated")
MOST_FRAMES = 280


def is_offered(clip, size):
    """No recording is blown up to a size that its camera did not take."""
    return clip != "webcam" or size != "1920x1080"


def filters(clip, size):
    width, height = SIZES[size]
    _, length, is_there_and_back = RECORDED[clip]
    # A picture of the clip is a frame, whatever the clip's rate.
    chain = (f"[0:v]scale={width}:{height}:force_original_aspect_ratio=increase:flags=bicubic,crop={width}:{height},"
             "format=yuv422p,settb=1/30,setpts=N")
    if is_there_and_back:
        chain += (f"[once];[once]split[a][b];[b]reverse[back];[a][back]concat,loop=loop=-1:size={2 * length},"
                  "setpts=N")
    # A sensor's noise, which the recordings' own encoders have smoothed away. The same in every run.
    return chain + ",fps=30,noise=alls=4:allf=t:all_seed=1,format=yuyv422[out]"


def prepare(top, programs, clip, size, frames, say):
    """The path of a clip; makes it when it is not there."""
    folder = top / "build/bench/clips"
    folder.mkdir(parents=True, exist_ok=True)
    path = folder / f"{clip}-{size}-{frames}-{RECIPE}.yuy2"
    width, height = SIZES[size]
    whole = width * height * 2 * frames
    if path.exists() and path.stat().st_size == whole:
        return path
    say(f"making {path.name}")
    for outdated in folder.glob(f"{clip}-{size}-{frames}-*.yuy2"):
        outdated.unlink()
    part = path.with_suffix(".part")
    try:
        _make(top, programs, clip, size, frames, part)
        if part.stat().st_size != whole:
            raise Failed(f"{path.name} would have {part.stat().st_size} bytes instead of {whole}")
        part.rename(path)
    finally:
        with contextlib.suppress(FileNotFoundError):
            part.unlink()
    return path


def _make(top, programs, clip, size, frames, part):
    width, height = SIZES[size]
    if clip == "simulated":
        processes.run([programs / "simulated_clip", width, height, frames, part])
        return
    recording = top / "build/deps/clips" / RECORDED[clip][0]
    if not recording.exists():
        processes.run([top / "scripts/fetch-clips.sh", "--all"], is_shown=True)
    processes.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-noautorotate", "-i", recording, "-filter_complex",
                   filters(clip, size), "-map", "[out]", "-fps_mode", "passthrough", "-frames:v", frames, "-f",
                   "rawvideo", part])
