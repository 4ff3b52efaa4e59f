"""The ways to watch the camera that bench/compare_viewers compares. Each fills the screen with the picture."""

import contextlib
import os
import shutil
import socket

import processes
from processes import BenchError

# For a program or a page to start, in seconds.
TIMEOUT = 60

VIDEO_PAGE = """<!doctype html>
<style>* { margin: 0; background: black; } video { display: block; width: 100vw; height: 100vh; }</style>
<video autoplay muted playsinline></video>
<script>
const video = document.querySelector('video');
const address = decodeURIComponent(location.hash.slice(1));
SCRIPT
</script>
"""
# The browser decides how much it buffers.
PLAY = "video.src = address;"
# Follows what is received at a distance of 100 ms. Plays faster instead of seeking, after which all pictures since the
# last key frame would be decoded again.
FOLLOW = """
const source = new MediaSource();
video.src = URL.createObjectURL(source);
source.addEventListener('sourceopen', async () => {
  const buffer = source.addSourceBuffer('video/mp4; codecs="avc1.640028"');
  const reader = (await fetch(address)).body.getReader();
  for (;;) {
    const {done, value} = await reader.read();
    if (done) {
      return;
    }
    buffer.appendBuffer(value);
    await new Promise((resolve) => buffer.addEventListener('updateend', resolve, {once: true}));
    const end = video.buffered.length === 0 ? 0 : video.buffered.end(video.buffered.length - 1);
    const delay = end - video.currentTime;
    if (delay > 1) {
      video.currentTime = end - 0.1;
    }
    video.playbackRate = delay > 0.1 ? 1.1 : 1;
  }
}, {once: true});
"""


class Viewer:
    """A way to watch. Its context begins on a screen and ends after the measurement."""

    def __init__(self, name, note, show):
        self.name = name
        self.note = note
        self.show = show  # a context manager with the parameters address, screen and scratch


def in_display(screen):
    # The variable of Wayland would have precedence.
    return {**{name: value for name, value in os.environ.items() if name != "WAYLAND_DISPLAY"},
            "DISPLAY": screen.display}


@contextlib.contextmanager
def chromium(screen, scratch, *arguments):
    """A browser window that fills the screen, as Selenium's driver."""
    try:
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
    except ImportError:
        raise BenchError("python3-selenium is missing: scripts/install-packages.sh native bench browser") from None
    program, driver = shutil.which("chromium"), shutil.which("chromedriver")
    if program is None or driver is None:
        raise BenchError("chromium is missing: scripts/install-packages.sh native bench browser")
    options = webdriver.ChromeOptions()
    options.binary_location = program
    # Without a window manager, nothing else enlarges the window.
    for argument in ("--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--kiosk", "--window-position=0,0",
                     f"--window-size={screen.width},{screen.height}", f"--user-data-dir={scratch}/profile",
                     "--autoplay-policy=no-user-gesture-required", *arguments):
        options.add_argument(argument)
    # Otherwise it shows a bar that says so.
    options.add_experimental_option("excludeSwitches", ["enable-automation"])
    browser = webdriver.Chrome(service=Service(driver, env=in_display(screen)), options=options)
    try:
        browser.set_script_timeout(TIMEOUT)
        browser.set_page_load_timeout(TIMEOUT)
        yield browser
    finally:
        browser.quit()


@contextlib.contextmanager
def show_page(address, screen, scratch):
    """Our page, with its picture in full screen."""
    with chromium(screen, scratch) as browser:
        browser.get(address)
        browser.find_element("id", "full-screen").click()
        yield {"page_ms": lambda: page_delay(browser)}


def page_delay(browser):
    """What the page itself shows as the delay, in ms."""
    return float(browser.find_element("id", "delay").get_property("textContent").removesuffix(" ms"))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def show_video(script):
    """A page with a video, for which ffmpeg packs the packets into fragmented MP4 as they arrive."""
    @contextlib.contextmanager
    def show(address, screen, scratch):
        video = f"http://127.0.0.1:{free_port()}/video.mp4"
        command = ["ffmpeg", "-nostdin", "-v", "warning", "-fflags", "nobuffer", "-flags", "low_delay",
                   "-probesize", "32", "-framerate", "30", "-f", "h264", "-i", f"{address}stream.h264", "-c", "copy",
                   "-f", "mp4", "-movflags", "empty_moov+default_base_moof+frag_every_frame", "-flush_packets", "1",
                   "-content_type", "video/mp4", "-listen", "1", video]
        page = scratch / "video.html"
        page.write_text(VIDEO_PAGE.replace("SCRIPT", script), encoding="ascii")
        # The page is a file, which may otherwise not fetch from an address.
        with processes.background(command, log=scratch / "ffmpeg.log"), \
                chromium(screen, scratch, "--disable-web-security") as browser:
            browser.get(f"{page.as_uri()}#{video}")
            yield {}
    return show


def show_in_ffplay(*options):
    @contextlib.contextmanager
    def show(address, screen, scratch):
        command = ["ffplay", "-v", "warning", "-fflags", "nobuffer", "-flags", "low_delay", *options, "-an", "-fs",
                   f"{address}stream.h264"]
        # Without a graphics processor, drawing in software costs least.
        with processes.background(command, log=scratch / "ffplay.log",
                                  env={**in_display(screen), "SDL_RENDER_DRIVER": "software"}):
            yield {}
    return show


VIEWERS = (
    Viewer("page", "nuveqcam's page in Chromium (WebCodecs, canvas)", show_page),
    Viewer("ffplay", "ffplay -fflags nobuffer -flags low_delay -framerate 30", show_in_ffplay("-framerate", "30")),
    Viewer("ffplay tuned", "the same with -probesize 32 -vf setpts=0: shows each picture at once",
           show_in_ffplay("-framerate", "30", "-probesize", "32", "-vf", "setpts=0")),
    Viewer("video", "fragmented MP4 by ffmpeg in a <video> in Chromium", show_video(PLAY)),
    Viewer("video tuned", "the same through Media Source Extensions, played faster while it is more than 100 ms late",
           show_video(FOLLOW)),
)
