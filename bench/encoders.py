"""The programs that bench/run measures: the product and what else a user would encode with. Each is asked for the same
clip, bit rate, 30 frames per second, key frames 150 frames apart, and a file of H.264 in Annex B form."""

FPS = 30
KEY_INTERVAL = 150
# What opening a camera asks of the encoder, kbit/s.
PRODUCT_BIT_RATE = 1536


class Encoder:
    def __init__(self, name, command, note):
        self.name = name
        self.command = command  # (job) -> arguments
        self.note = note


class Job:
    """One clip at one bit rate into one file."""

    def __init__(self, clip, width, height, kilobits, out, threads):
        self.clip = str(clip)
        self.width = width
        self.height = height
        self.kilobits = kilobits
        self.out = str(out)
        self.threads = threads


def slice_threads(width, height, cores):
    """The product's own rule (encoder/EncoderSettings.cpp): the others get as many. It counts the machine's
    cores, also those that this process may not use."""
    return 2 if width * height >= 1280 * 720 and cores >= 4 else 1


def _product(programs, *options):
    def command(job):
        arguments = [str(programs / "encode_clip"), str(job.width), str(job.height), job.clip, job.out, *options]
        return arguments if job.kilobits == PRODUCT_BIT_RATE else arguments + ["--direct", str(job.kilobits)]
    return command


def _ffmpeg(binary, options, *input_options):
    def command(job):
        return [str(binary), "-nostdin", "-v", "error", "-y", *input_options, "-f", "rawvideo", "-pix_fmt", "yuyv422", "-s",
                f"{job.width}x{job.height}", "-r", str(FPS), "-i", job.clip, "-threads", str(job.threads), "-pix_fmt",
                "yuv420p", "-g", str(KEY_INTERVAL), "-b:v", f"{job.kilobits}k", *options(job), "-f", "h264", job.out]
    return command


def _openh264_options(job):
    return ["-c:v", "libopenh264", "-profile:v", "high", "-coder", "cabac", "-rc_mode", "quality", "-loopfilter", "1",
            "-allow_skip_frames", "0", "-slices", str(job.threads)]


def _x264_options(*tune):
    return lambda job: ["-c:v", "libx264", "-preset", "superfast", *tune]


def _gstreamer(element, caps):
    def command(job):
        return ["gst-launch-1.0", "-q", "filesrc", f"location={job.clip}", f"blocksize={job.width * job.height * 2}",
                "!", "rawvideoparse", "format=yuy2", f"width={job.width}", f"height={job.height}",
                f"framerate={FPS}/1", "!", "videoconvert", "!", "video/x-raw,format=I420", "!", *element(job), "!",
                caps, "!", "filesink", f"location={job.out}"]
    return command


def _gst_openh264(job):
    return ["openh264enc", f"bitrate={job.kilobits * 1000}", f"gop-size={KEY_INTERVAL}", "rate-control=quality",
            "complexity=low", "deblocking=on", "background-detection=false", "adaptive-quantization=false",
            "scene-change-detection=false", "enable-frame-skip=false", f"multi-thread={job.threads}",
            "slice-mode=n-slices", f"num-slices={job.threads}"]


def _gst_x264(job):
    return ["x264enc", f"bitrate={job.kilobits}", f"key-int-max={KEY_INTERVAL}", "speed-preset=superfast",
            "tune=zerolatency", f"threads={job.threads}"]


def encoders(top, programs):
    """All of them, the product first."""
    ffmpeg = top / "build/bench/ffmpeg/ffmpeg"
    stream = "video/x-h264,stream-format=byte-stream,alignment=au"
    return [
        Encoder("product", _product(programs),
                "the whole library; at other bit rates than the one it opens with the encoder library alone"),
        Encoder("ffmpeg openh264", _ffmpeg(ffmpeg, _openh264_options),
                "the product's settings, but for what ffmpeg decides itself: background detection, adaptive quantisation "
                "and scene-change detection on, the greatest bit rate that of the target"),
        Encoder("ffmpeg openh264 same", _ffmpeg(top / "build/bench/ffmpeg/ffmpeg-same", _openh264_options),
                "with all of the product's settings: ffmpeg's adapter changed where it has no option for them"),
        Encoder("ffmpeg x264", _ffmpeg(ffmpeg, _x264_options("-tune", "zerolatency")),
                "superfast, zerolatency: as without delay as the product is"),
        Encoder("ffmpeg x264 delay", _ffmpeg(ffmpeg, _x264_options()),
                "superfast, look-ahead and B pictures: tens of frames late (one thread, as all here)"),
        Encoder("gst openh264", _gstreamer(_gst_openh264, stream + ",profile=high"),
                "the product's settings, but CAVLC, which is cheaper and worse: the element has no option for CABAC"),
        Encoder("gst x264", _gstreamer(_gst_x264, stream),
                "superfast, zerolatency; a constant bit rate with a buffer of 600 ms, which is the element's default"),
    ]


def paced_encoders(top, programs):
    """What encodes a clip as a camera delivers it, the product first; by the names of the above."""
    ffmpeg = top / "build/bench/ffmpeg"
    return [
        Encoder("product", _product(programs, "--paced"), "frames come at their times"),
        Encoder("ffmpeg openh264 same", _ffmpeg(ffmpeg / "ffmpeg-same", _openh264_options, "-re"),
                "with -re: ffmpeg looks every 10 ms whether it is time"),
        Encoder("ffmpeg x264", _ffmpeg(ffmpeg / "ffmpeg", _x264_options("-tune", "zerolatency"), "-re"),
                "with -re as well"),
    ]
