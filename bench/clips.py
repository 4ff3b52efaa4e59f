"""The clips that bench/run encodes: files in build/bench/clips, generated once."""

import contextlib
from pathlib import Path

import processes
from processes import BenchError

SIZES = {"320x240": (320, 240), "640x480": (640, 480), "1280x720": (1280, 720), "1920x1080": (1920, 1080)}

# Recordings in build/deps/clips: file, number of frames, whether to play the clip forwards and backwards. The phone clip
# is short; playing it this way avoids a scene cut.
RECORDED = {
    "webcam": ("cockatoo.mp4", 280, False),
    "phone": ("VID_20191220_170832.mp4", 41, True),
}
# Part of the file names. Increment when the generation or the picture of the simulated camera changes.
RECIPE = 1
# The same for the JPEG pictures.
JPEG_RECIPE = 1
CLIPS = ("webcam", "phone", "simulated")
MAX_FRAMES = 280


def is_offered(clip, size):
    """Recordings are not scaled up."""
    return clip != "webcam" or size != "1920x1080"


def filters(clip, size):
    width, height = SIZES[size]
    _, length, plays_back = RECORDED[clip]
    # Each picture is one frame, regardless of the frame rate of the clip.
    chain = (f"[0:v]scale={width}:{height}:force_original_aspect_ratio=increase:flags=bicubic,crop={width}:{height},"
             "format=yuv422p,settb=1/30,setpts=N")
    if plays_back:
        chain += (f"[once];[once]split[a][b];[b]reverse[back];[a][back]concat,loop=loop=-1:size={2 * length},"
                  "setpts=N")
    # Adds sensor noise, which the encoder of the recording removed. Deterministic.
    return chain + ",fps=30,noise=alls=4:allf=t:all_seed=1,format=yuyv422[out]"


def prepare(top, programs, clip, size, frames, log):
    """Returns the path of a clip and generates the clip if it does not exist."""
    folder = top / "build/bench/clips"
    folder.mkdir(parents=True, exist_ok=True)
    path = folder / f"{clip}-{size}-{frames}-{RECIPE}.yuy2"
    width, height = SIZES[size]
    size_in_bytes = width * height * 2 * frames
    if path.exists() and path.stat().st_size == size_in_bytes:
        return path
    log(f"generating {path.name}")
    for outdated in folder.glob(f"{clip}-{size}-{frames}-*.yuy2"):
        outdated.unlink()
    part = path.with_suffix(".part")
    try:
        _generate(top, programs, clip, size, frames, part)
        if part.stat().st_size != size_in_bytes:
            raise BenchError(f"{path.name} has {part.stat().st_size} bytes instead of {size_in_bytes}")
        part.rename(path)
    finally:
        with contextlib.suppress(FileNotFoundError):
            part.unlink()
    return path


def _generate(top, programs, clip, size, frames, part):
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


def multipart(jpeg):
    """Returns a JPEG picture as a part of a multipart stream."""
    return b"--frame\r\nContent-type: image/jpeg\r\nContent-length: %d\r\n\r\n%s\r\n" % (len(jpeg), jpeg)


class PacedClip:
    """A clip in all forms in which its frames arrive one by one. yuy2: the file of prepare."""

    def __init__(self, yuy2):
        self.yuy2 = Path(yuy2)

    def input(self, form):
        """form: YUY2, MJPG or mpjpeg (multipart). Returns the file with the frames and the file with their sizes in
        bytes."""
        path = self.yuy2 if form == "YUY2" else self.yuy2.with_suffix(f".{JPEG_RECIPE}.{form.lower()}")
        return path, path.with_name(path.name + ".sizes")

    def sizes(self, path):
        return [int(line) for line in path.with_name(path.name + ".sizes").read_text().split()]


def prepare_paced(top, programs, clip, size, frames, log):
    """Returns the PacedClip of a clip and generates its files if they do not exist."""
    paced = PacedClip(prepare(top, programs, clip, size, frames, log))
    width, height = SIZES[size]
    paced.input("YUY2")[1].write_text(f"{width * height * 2}\n" * frames)
    multipart_path, multipart_sizes = paced.input("mpjpeg")
    # Written last.
    if multipart_sizes.exists():
        return paced
    log(f"generating JPEG pictures of {paced.yuy2.name}")
    jpegs, sizes = paced.input("MJPG")
    processes.run([programs / "jpeg_clip", width, height, paced.yuy2, jpegs, sizes])
    with open(jpegs, "rb") as file:
        parts = [multipart(file.read(length)) for length in paced.sizes(jpegs)]
    multipart_path.write_bytes(b"".join(parts))
    multipart_sizes.write_text("".join(f"{len(part)}\n" for part in parts))
    return paced
