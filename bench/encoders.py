"""The encoders that bench/run compares: the product, ffmpeg and GStreamer. All get the same clip, bit rate, frame rate
(30 per second) and key-frame interval (150 frames), and write H.264 in Annex B format."""

FPS = 30
KEY_INTERVAL = 150
# The bit rate that opening a camera requests, in kbit/s.
PRODUCT_BIT_RATE = 1536


class Encoder:
    def __init__(self, name, command, note):
        self.name = name
        self.command = command  # (job) -> arguments
        self.note = note


class Job:
    """One file at one bit rate into one file."""

    def __init__(self, clip, width, height, kilobits, out, threads):
        self.clip = str(clip)
        self.width = width
        self.height = height
        self.kilobits = kilobits
        self.out = str(out)
        self.threads = threads


def slice_threads(width, height, cores):
    """The product's rule (encoder/EncoderSettings.cpp); the other encoders use the same number. cores includes those that
    this process may not use."""
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
    """Returns all encoders, the product first."""
    ffmpeg = top / "build/bench/ffmpeg/ffmpeg"
    stream = "video/x-h264,stream-format=byte-stream,alignment=au"
    return [
        Encoder("product", _product(programs),
                "the whole library; the encoder library only at bit rates other than its own"),
        Encoder("ffmpeg openh264", _ffmpeg(ffmpeg, _openh264_options),
                "the product's settings, except those that ffmpeg fixes: background detection, adaptive quantisation and "
                "scene-change detection on, maximum bit rate equal to the target"),
        Encoder("ffmpeg openh264 same", _ffmpeg(top / "build/bench/ffmpeg/ffmpeg-same", _openh264_options),
                "all settings of the product: ffmpeg's wrapper is modified where it has no option for them"),
        Encoder("ffmpeg x264", _ffmpeg(ffmpeg, _x264_options("-tune", "zerolatency")),
                "superfast, zerolatency: no delay, like the product"),
        Encoder("ffmpeg x264 delay", _ffmpeg(ffmpeg, _x264_options()),
                "superfast, look-ahead and B pictures: a delay of tens of frames (same number of threads)"),
        Encoder("gst openh264", _gstreamer(_gst_openh264, stream + ",profile=high"),
                "the product's settings, but CAVLC, which costs less and compresses worse: the element has no CABAC option"),
        Encoder("gst x264", _gstreamer(_gst_x264, stream),
                "superfast, zerolatency; constant bit rate with a buffer of 600 ms, the default of the element"),
    ]


class PacedJob:
    """One clip whose frames arrive at a camera's pace on standard input; packets go to standard output."""

    kilobits = PRODUCT_BIT_RATE

    def __init__(self, clip, format, width, height, threads, tree, times):
        self.clip = clip  # clips.PacedClip
        self.format = format  # YUY2 or MJPG
        self.width = width
        self.height = height
        self.threads = threads
        self.tree = str(tree)  # the product's camera
        self.times = str(times)  # output of the product


def _paced_product(programs):
    def command(job):
        return [str(programs / "camera_host"), job.tree, str(job.width), str(job.height), job.format,
                str(job.clip.input(job.format)[1]), job.times]
    return command


def paced_ffmpeg(binary, options, source="pipe:0", out="pipe:1", kilobits=PRODUCT_BIT_RATE):
    """Returns a function from a job to a command line. ffmpeg neither probes its input nor buffers its output."""
    def command(job):
        if job.format == "YUY2":
            form = ["-f", "rawvideo", "-pix_fmt", "yuyv422", "-s", f"{job.width}x{job.height}"]
        else:
            # Each part has its length. ffmpeg's reader of bare pictures would wait for the next one.
            form = ["-f", "mpjpeg"]
        return [str(binary), "-nostdin", "-v", "error", "-y", "-probesize", "32",
                "-analyzeduration", "0", "-fpsprobesize", "0", "-threads", "1", *form, "-r", str(FPS), "-i", str(source),
                "-fps_mode", "passthrough", "-threads", str(job.threads), "-pix_fmt", "yuv420p", "-g",
                str(KEY_INTERVAL), "-b:v", f"{kilobits}k", *options(job), "-flush_packets", "1", "-f", "h264", str(out)]
    return command


def _paced_gstreamer(element, caps):
    def command(job):
        frames, _ = job.clip.input(job.format)
        if job.format == "YUY2":
            # One matrix at both ends, so that only the layout is converted.
            source = [f"blocksize={job.width * job.height * 2}", "!", "rawvideoparse", "format=yuy2", "colorimetry=bt601",
                      f"width={job.width}", f"height={job.height}", f"framerate={FPS}/1"]
        else:
            # A block holds any picture. videoconvert ignores JPEG's full range unless it converts through RGB.
            source = [f"blocksize={max(job.clip.sizes(frames))}", "!", f"image/jpeg,framerate={FPS}/1", "!", "jpegparse",
                      "!", "jpegdec", "!", "videoconvert", "!", "video/x-raw,format=BGRx"]
        return ["gst-launch-1.0", "-q", "fdsrc", "fd=0", *source, "!", "videoconvert", "!",
                "video/x-raw,format=I420,colorimetry=bt601", "!", *element(job), "!", caps, "!", "fdsink", "fd=1",
                "sync=false"]
    return command


def x264_options(job):
    return _x264_options("-tune", "zerolatency")(job)


class PacedEncoder(Encoder):
    def __init__(self, name, command, note, mjpg="MJPG"):
        super().__init__(name, command, note)
        self._mjpg = mjpg

    def input(self, job):
        """Returns the file with the job's frames in the form that this encoder reads, and the file with their sizes."""
        return job.clip.input("YUY2" if job.format == "YUY2" else self._mjpg)


def product_before(programs):
    """Returns the product of another build, for a paired run of before and after a change."""
    return PacedEncoder("product before", _paced_product(programs), "the build given by --before")


def paced_encoders(top, programs):
    """Returns the encoders for frames that arrive at a camera's pace, the product first."""
    ffmpeg = top / "build/bench/ffmpeg"
    stream = "video/x-h264,stream-format=byte-stream,alignment=au"
    return [
        PacedEncoder("product", _paced_product(programs), "the library through its table, on a V4L2 camera"),
        PacedEncoder("ffmpeg openh264 same", paced_ffmpeg(ffmpeg / "ffmpeg-same", _openh264_options),
                     "the same encoder with all settings of the product", "mpjpeg"),
        PacedEncoder("ffmpeg x264", paced_ffmpeg(ffmpeg / "ffmpeg", x264_options), "superfast, zerolatency", "mpjpeg"),
        PacedEncoder("gst openh264", _paced_gstreamer(_gst_openh264, stream + ",profile=high"),
                     "the same encoder, but CAVLC: the element has no CABAC option"),
    ]
