"""The page of nuveqcam view in a browser.

Environment, optional:
  VIEW_SCREENSHOTS  folder in which screenshots are kept (default: the folder of the test)
"""

import os
import re
import signal
from pathlib import Path

import pytest

from nuveqcam_tool import FAKE_LIBRARY, fake_camera, wait_until
from pictures import check_corners, frame_number, pictures, size_of
from view_browser import number_in
from view_client import PACKET, make_noise

# A library that removes the simulated PC's camera while a file exists.
CAMERA_SWITCH = os.environ["CAMERA_SWITCH"]

# Replaces the decoder with one that is slow, or fails, on demand.
SCRIPTED_DECODER = """
const RealDecoder = VideoDecoder;
window.VideoDecoder = class extends RealDecoder {
  #init;
  constructor(init) {
    const held = [];
    super({...init, output: (frame) => {
      held.push(frame);
      if (!window.isSlow) {
        held.splice(0).forEach(init.output);
      }
    }});
    this.#init = init;
  }
  get decodeQueueSize() {
    return window.isSlow ? 1000 : super.decodeQueueSize;
  }
  decode(chunk) {
    if (window.isFailing) {
      window.isFailing = false;
      this.close();
      this.#init.error(new DOMException('test', 'EncodingError'));
      return;
    }
    super.decode(chunk);
  }
};
"""

# Replaces what the program has measured by window.measured.
SCRIPTED_MEASUREMENT = """
const {parse} = JSON;
JSON.parse = (text) => {
  const value = parse(text);
  return window.measured && value.measured ? {...value, measured: window.measured} : value;
};
"""

# Lets the page's clock run five times as fast, so that it takes a connection for broken after two seconds.
FAST_CLOCK = """
const {now} = performance;
performance.now = () => 5 * now.call(performance);
"""


@pytest.fixture
def screenshots(scratch):
    folder = Path(os.environ.get("VIEW_SCREENSHOTS", scratch))
    folder.mkdir(parents=True, exist_ok=True)
    return folder


@pytest.fixture
def camera_switch(scratch):
    """The environment of a program whose camera is absent while the switch's file exists, and the file."""
    file = scratch / "camera is absent"
    return {**os.environ, "LD_PRELOAD": CAMERA_SWITCH, "NUVEQ_TEST_CAMERA_ABSENT": str(file)}, file


def wait_until_recorded(browser):
    """Waits until a recording has a second of frames more than it began with."""
    frames = lambda: int(re.search(r"(\d+) frames?", browser.text("recording-status"))[1])
    browser.wait_for_text("recording-status", "Recording: ")
    begin = frames()
    wait_until(lambda: frames() >= begin + 30)


def test_pictures_are_those_of_the_packets_in_order_upright_and_in_color(view, browser, scratch):
    browser.open(view.address)
    browser.check_pictures(60)
    file = browser.picture(scratch / "canvas.png")
    assert size_of(file) == (320, 240)
    [rgb] = pictures(file, (320, 240), "rgb24")
    check_corners(rgb, (320, 240))
    # Nothing is loaded from elsewhere, and no policy is violated.
    loaded = browser.run("return performance.getEntriesByType('resource').map((entry) => entry.name)")
    assert {name.rsplit("/", 1)[1] for name in loaded} >= {"view.js", "view.css"}
    assert [name for name in loaded if not name.startswith(view.address)] == []
    assert browser.errors() == []


def test_camera_and_figures_are_shown(view, browser):
    browser.open(view.address, before="""
        const {clearRect} = CanvasRenderingContext2D.prototype;
        window.plotted = [];
        CanvasRenderingContext2D.prototype.clearRect = function (...box) {
          plotted.push(performance.now());
          clearRect.apply(this, box);
        };""")
    browser.emulate(prefers_color_scheme="light")
    browser.wait_for_text("name", "Integrated Camera")
    assert "Integrated Camera" in browser.driver.title
    wait_until(lambda: browser.text("conclusion") == view.state()["camera"]["conclusion"] != "")
    wait_until(lambda: re.fullmatch(r"\d+\.\d", browser.text("frame-rate")))
    # The clocks are compared: no picture is shown before it has arrived.
    wait_until(lambda: re.fullmatch(r"\d+\.\d ms", browser.text("delay")))
    assert re.fullmatch(r"\d+\.\d\d Mbit/s", browser.text("bit-rate"))
    wait_until(lambda: browser.text("viewers") == "1")
    wait_until(lambda: int(browser.text("left-out")) ==
               sum(browser.figures()[name] for name in ("skipped", "undecoded", "replaced")))
    wait_until(lambda: re.match(r"\d+ packets in the last 30 seconds; \d+ key frames?: median \d",
                                browser.text("plot-text")))
    # Colors of key frames and of other packets in the plot.
    for color in ([0xB3, 0x26, 0x1E], [0x5A, 0x6B, 0x82]):
        browser.wait("""(() => {
            const canvas = document.getElementById('plot');
            const {data} = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
            for (let i = 0; i < data.length; i += 4) {
              if (data[i + 3] === 255 && arguments[0].every((value, j) => data[i + j] === value)) { return true; }
            }
            return false;
          })()""", color)
    # Reduced motion slows the plot down. The interval that has begun is a short one.
    browser.emulate(prefers_reduced_motion="reduce")
    browser.run("plotted.length = 0")
    browser.wait("plotted.length > 2")
    times = browser.run("return plotted")
    assert times[2] - times[1] > 1500


def test_size_and_rate_can_be_changed(start_server, browser):
    view = start_server()
    browser.open(view.address)
    browser.check_pictures()
    # The options on the way, as with the arrow keys, do not open the camera.
    browser.run("""
        window.posted = [];
        const {fetch} = window;
        window.fetch = (path, options) => {
          if (path === 'camera') { posted.push(JSON.parse(options.body).width); }
          return fetch(path, options);
        };
        const size = document.getElementById('size');
        for (const value of ['1280x720', '640x480']) {
          size.value = value;
          size.dispatchEvent(new Event('change', {bubbles: true}));
        }
        document.getElementById('snapshot').focus();""")
    wait_until(lambda: browser.picture_size() == [640, 480])
    browser.check_pictures()
    assert browser.run("return posted") == [640]
    # A button that cannot be used while the camera is reopened keeps the focus.
    assert browser.run("return document.activeElement.id") == "snapshot"
    browser.choose("rate", "15")
    view.wait_for_state(lambda state: (state["camera"]["fps"], state["camera"]["phase"]) == (15, "open"))
    browser.skip_pictures()
    browser.check_pictures()
    wait_until(lambda: (browser.value("size"), browser.value("rate")) == ("640x480", "15"))
    assert not browser.element("camera-error").is_displayed()


def test_refused_size_is_explained_and_the_earlier_picture_returns(start_server, browser, screenshots):
    view = start_server()
    browser.open(view.address)
    browser.check_pictures()
    # The page offers only sizes of the camera.
    browser.run("document.getElementById('size').add(new Option('334 × 222', '334x222'))")
    browser.choose("size", "334x222")
    wait_until(lambda: "choose" in browser.text("errors"))
    browser.screenshot(screenshots / "error.png")
    assert browser.low_contrasts() == []
    browser.skip_pictures()
    browser.check_pictures()
    assert browser.picture_size() == [320, 240]
    wait_until(lambda: browser.value("size") == "320x240")


def test_snapshots_by_button_and_key_are_the_current_pictures(view, browser):
    browser.open(view.address)
    offset = browser.check_pictures()
    for take in (lambda: browser.element("snapshot").click(), lambda: browser.press("s")):
        before = browser.figures()["lastPacket"] + offset
        take()
        file = browser.downloaded(".png")
        assert re.fullmatch(r"camera-\d{8}-\d{6}\.png", file.name)
        browser.wait_for_text("action-notice", f"Downloading {file.name}.")
        assert size_of(file) == (320, 240)
        [gray] = pictures(file, (320, 240))
        number = frame_number(gray, (320, 240))
        assert before <= number
        # It is not from the future, either, but this page may lag behind the program.
        browser.wait_for_frame(number, offset)
        [rgb] = pictures(file, (320, 240), "rgb24")
        check_corners(rgb, (320, 240))
        file.unlink()


def check_consecutive(file):
    """Checks that a recording has every frame. Returns the first and the last number, and the count."""
    assert size_of(file) == (320, 240)
    numbers = [frame_number(picture, (320, 240)) for picture in pictures(file, (320, 240))]
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers)))
    return numbers[0], numbers[-1], len(numbers)


def test_recordings_by_button_and_key_have_every_frame_from_a_key_frame_to_the_end(start_server, browser):
    view = start_server()
    browser.open(view.address)
    offset = browser.check_pictures()
    for toggle in (lambda: browser.element("record").click(), lambda: browser.press("r")):
        before = browser.figures()["lastPacket"] + offset
        toggle()
        wait_until_recorded(browser)
        assert browser.text("record") == "Stop recording"
        assert browser.run("return document.getElementById('recording-change').textContent") == (
            "The recording has begun.")
        wanted = browser.figures()["lastPacket"] + offset
        toggle()
        browser.wait("document.getElementById('recording-change').textContent === 'The recording has ended.'")
        browser.wait_for_text("action-notice", "Recorded ")
        frames = int(re.match(r"Recorded (\d+) frames in \d+\.\d s", browser.text("action-notice"))[1])
        file = browser.downloaded(".mp4")
        assert re.fullmatch(r"camera-\d{8}-\d{6}\.mp4", file.name)
        first, last, count = check_consecutive(file)
        assert count == frames
        assert first <= before
        assert wanted <= last
        browser.wait_for_frame(last, offset)
        wait_until(lambda: browser.element("recording-link").is_displayed())
        file.unlink()


def check_nothing_is_downloaded(browser):
    """Checks that the tab does not download the recording that it has not stopped."""
    # Another action is done after the end of the recording.
    browser.wait_for_text("record", "Record")
    browser.press("s")
    browser.downloaded(".png").unlink()
    assert [*browser.downloads.iterdir()] == []


def test_recording_is_downloaded_once_by_who_stops_it_or_when_it_ends_by_itself(start_server, make_browser):
    view = start_server()
    starter, other = make_browser(), make_browser()
    for browser in (starter, other):
        browser.open(view.address)
        browser.check_pictures()
    starter.press("r")
    wait_until_recorded(starter)
    other.wait_for_text("record", "Stop recording")
    other.press("r")
    other.wait_for_text("action-notice", "Recorded ")
    other.downloaded(".mp4").unlink()
    other.close()
    check_nothing_is_downloaded(starter)

    starter.press("r")
    wait_until_recorded(starter)
    # Another program, which downloads it.
    assert view.post("record", {"record": False}).status == 200
    check_nothing_is_downloaded(starter)

    starter.press("r")
    wait_until_recorded(starter)
    starter.choose("size", "640x480")
    check_consecutive(starter.downloaded(".mp4"))


def test_page_says_why_the_size_is_not_the_default_one(start_server, browser):
    view = start_server("--library", FAKE_LIBRARY, size=[],
                        env=fake_camera("rates=30 160x120@30 320x240@30 480x360@10"))
    browser.open(view.address)
    browser.wait_for_text("camera-notice", "480x360 delivers only about")
    browser.choose("size", "160x120")
    wait_until(lambda: browser.value("size") == "160x120" and not browser.element("camera-notice").is_displayed())


def test_recording_that_cannot_be_written_is_explained_once(start_server, browser, scratch):
    folder = scratch / "temporary"
    folder.mkdir()
    view = start_server(env={**os.environ, "TMPDIR": str(folder)})
    browser.open(view.address)
    browser.check_pictures()
    folder.rmdir()
    browser.press("r")
    wait_until(lambda: browser.text("errors") != "" and browser.is_enabled("record"))
    # The state has told it by then, too.
    view.wait_for_state(lambda state: state["recording"]["error"] != "")
    browser.skip_pictures()
    error = view.state()["recording"]["error"]
    assert browser.text("errors").lower() == error.lower()
    assert browser.text("record") == "Record"


def test_viewers_see_the_same_stream_and_further_tabs_wait(view, make_browser):
    viewers = [make_browser(), make_browser()]
    for viewer in viewers:
        viewer.open(view.address)
    assert viewers[0].check_pictures() == viewers[1].check_pictures()
    for viewer in viewers:
        viewer.wait_for_text("viewers", "2")
    # Tabs leave connections of the browser for requests.
    for _ in range(2):
        viewers.append(make_browser("tab"))
        viewers[-1].open(view.address)
        viewers[-1].wait("nuveqView.drawn > 0")
    waiting = make_browser("tab")
    waiting.open(view.address)
    waiting.wait_for_text("problem-title", "Too many tabs show the camera")
    viewers[0].close()
    waiting.check_pictures()


def test_page_loses_no_frame_while_another_viewer_does_not_read_for_ten_seconds(start_server, browser, scratch):
    make_noise(scratch / "noise.avi")
    view = start_server("--simulated", scratch / "noise.avi")
    browser.open(view.address)
    browser.wait("nuveqView.drawn > 15")
    begin = browser.figures()
    stalled = view.open("stream", receive_buffer=4096)
    # Ten seconds at 30 frames per second.
    browser.wait("nuveqView.packets >= arguments[0]", begin["packets"] + 300)
    end = browser.figures()
    assert end["lastPacket"] - begin["lastPacket"] == end["packets"] - begin["packets"]
    assert (end["missing"], end["skipped"], end["undecoded"]) == (0, 0, 0)
    stalled.next_record(lambda record: record.kind == PACKET and record.number >= end["lastPacket"])
    assert stalled.next_state()["skipped"] > 0
    browser.wait("nuveqView.lastDrawn > arguments[0]", end["lastPacket"])


def test_pages_that_cannot_or_need_not_decode_continue_at_a_key_frame(start_server, make_browser, screenshots):
    view = start_server()
    slow, failing, hidden = (make_browser() for _ in range(3))
    for browser in (slow, failing, hidden):
        browser.open(view.address, before=SCRIPTED_DECODER)
        browser.check_pictures()
    hidden.run("Object.defineProperty(document, 'hidden', {configurable: true, get: () => true});"
               "document.dispatchEvent(new Event('visibilitychange'));")
    slow.run("window.isSlow = true")
    failing.run("window.isFailing = true")

    failing.wait_for_text("decoder-notice", "could not decode")
    slow.wait("nuveqView.undecoded > 0")
    slow.run("window.isSlow = false")
    wait_until(lambda: re.fullmatch(r"This page was too slow and skipped \d+ frames?\.", slow.text("slow-notice")))
    slow.screenshot(screenshots / "too-slow.png")
    undecoded = slow.figures()["undecoded"]
    # The packets that were in the decoder have been decoded by now.
    before = hidden.figures()

    for browser in (slow, failing):
        browser.wait("nuveqView.lastDrawn > arguments[0]", browser.figures()["lastPacket"])
        browser.check_pictures()
    assert undecoded <= slow.figures()["undecoded"] < 150
    wait_until(lambda: int(slow.text("left-out")) >= undecoded)

    # A key frame has arrived in this time, which is the first packet that the hidden page decodes.
    last = hidden.figures()
    assert last["packets"] > before["packets"]
    assert (last["decoded"], last["drawn"]) == (before["decoded"], before["drawn"])
    hidden.run("observed.length = 0; delete document.hidden; document.dispatchEvent(new Event('visibilitychange'));")
    hidden.wait("observed.length >= 15")
    observed = [(picture["packet"], number_in(picture["blocks"])) for picture in hidden.run("return observed")]
    assert observed[0][0] >= last["lastPacket"]
    assert len({number - packet for packet, number in observed}) == 1


def test_lost_camera_is_explained_and_its_picture_returns(start_server, browser, screenshots, camera_switch):
    environment, is_absent = camera_switch
    view = start_server(env=environment)
    browser.open(view.address)
    browser.check_pictures()
    is_absent.touch()
    browser.wait_for_text("problem-title", "The camera cannot be shown")
    # The words of doctor.
    browser.wait_for_text("problem-reason", "No camera is offered")
    assert "as soon as" in browser.text("problem-text")
    assert "built-in camera" in browser.text("problem-advice")
    assert not browser.element("picture").is_displayed()
    assert not browser.is_enabled("snapshot")
    browser.screenshot(screenshots / "no-camera.png")
    is_absent.unlink()
    browser.wait("!document.getElementById('picture').hidden")
    browser.wait("document.getElementById('problem').hidden")
    browser.check_pictures()


def test_interrupted_connection_is_made_again_and_the_end_of_the_program_is_explained(
        start_server, browser, screenshots):
    view = start_server()
    browser.open(view.address, before=FAST_CLOCK)
    browser.check_pictures()
    view.process.send_signal(signal.SIGSTOP)
    browser.wait_for_text("problem-text", "The connection was interrupted.")
    last = browser.figures()["lastPacket"]
    view.process.send_signal(signal.SIGCONT)
    browser.wait("nuveqView.lastDrawn > arguments[0]", last + 15)
    browser.wait("document.getElementById('problem').hidden")

    view.stop()
    browser.wait_for_text("problem-title", "nuveqcam has ended")
    assert "nuveqcam view" in browser.text("problem-text")
    assert not browser.is_enabled("record")
    browser.screenshot(screenshots / "ended.png")
    assert browser.low_contrasts() == []
    # The address of another run is another one.
    start_server("--port", view.port)
    browser.wait_for_text("problem-title", "This address is no longer valid")


def test_browser_without_a_packet_decoder_plays_the_video(start_server, browser, screenshots):
    view = start_server()
    browser.open(view.address, before="delete window.VideoDecoder")
    browser.wait("nuveqView.drawn > 15")
    assert browser.element("video").is_displayed()
    assert "a second or more late" in browser.text("fallback-notice")
    number = lambda: number_in(browser.run("""
        const video = document.getElementById('video');
        const canvas = new OffscreenCanvas(video.videoWidth, video.videoHeight);
        const context = canvas.getContext('2d');
        context.drawImage(video, 0, 0);
        return blocksOf(context, canvas.width, canvas.height);"""))
    first = number()
    wait_until(lambda: number() > first)
    browser.screenshot(screenshots / "without-webcodecs.png")
    # A late video catches up by playing faster.
    for delay, rate in ((4, 1.25), (2, 1)):
        browser.run("""
            const video = document.getElementById('video');
            const end = () => video.currentTime + arguments[0];
            Object.defineProperty(video, 'buffered', { get: () => ({ length: 1, end }), configurable: true });""", delay)
        browser.wait("document.getElementById('video').playbackRate === arguments[0]", rate)
    browser.choose("size", "640x480")
    browser.wait("document.getElementById('video').videoWidth === 640")


def test_controls_have_names_and_are_used_by_keyboard(start_server, browser):
    from selenium.webdriver.common.keys import Keys
    view = start_server()
    browser.open(view.address)
    browser.check_pictures()
    found = {name: (browser.element(name).aria_role, browser.element(name).accessible_name) for name in (
        "picture", "plot", "size", "rate", "full-screen", "snapshot", "record", "shortcuts", "controls")}
    assert found == {
        "picture": ("image", "Live picture of the camera"),
        "plot": ("image", "Packet sizes of the last 30 seconds, a triangle at each key frame"),
        "size": ("combobox", "Size"), "rate": ("combobox", "Rate"), "full-screen": ("button", "Full screen"),
        "snapshot": ("button", "Snapshot"), "record": ("button", "Record"), "shortcuts": ("checkbox", "Keys f s r"),
        "controls": ("group", "Camera controls")}
    # Errors, notices and recordings are announced.
    assert [browser.element(name).aria_role for name in ("errors", "notices", "stage-status", "recording-change")] == [
        "alert", "status", "status", "status"]

    # Each control shows its focus.
    reached = []
    while len(reached) < 20:
        browser.press(Keys.TAB)
        name, outline = browser.run("""
            const element = document.activeElement;
            const {outlineStyle, outlineWidth} = getComputedStyle(element);
            return [element.id || element.localName, outlineStyle === 'none' ? 0 : parseFloat(outlineWidth)];""")
        if name == "body":
            break
        reached.append(name)
        assert outline >= 2, name
    assert reached == ["size", "rate", "full-screen", "snapshot", "record", "shortcuts", "summary"]

    # The keys can be turned off.
    browser.element("shortcuts").click()
    browser.press("f", "s")
    browser.element("shortcuts").click()
    # Handled after the keys above.
    browser.press("r")
    wait_until_recorded(browser)
    assert browser.run("return document.fullscreenElement") is None
    # A snapshot would have been downloaded by now, and announced.
    assert browser.text("action-notice") == ""
    assert [*browser.downloads.iterdir()] == []


def test_full_screen_shows_the_whole_picture_and_messages(start_server, browser, screenshots):
    view = start_server()
    browser.open(view.address)
    browser.check_pictures()
    browser.press("f")
    browser.wait("document.fullscreenElement?.id === 'stage'")
    browser.check_pictures()
    browser.press("r", "s")
    browser.wait_for_text("recording-status", "Recording: ")
    browser.wait_for_text("action-notice", "Downloading ")
    browser.screenshot(screenshots / "full-screen.png")
    # They are in front of the picture.
    for name in ("recording-status", "action-notice"):
        assert browser.run("""
            const element = document.getElementById(arguments[0]);
            const {left, top, width, height} = element.getBoundingClientRect();
            return document.elementFromPoint(left + width / 2, top + height / 2) === element;""", name), name
    assert browser.low_contrasts() == []
    browser.press("f")
    browser.wait("document.fullscreenElement === null")


def test_page_follows_the_color_scheme_and_fits_a_narrow_window(view, browser, screenshots):
    browser.open(view.address, before=SCRIPTED_MEASUREMENT)
    browser.check_pictures()
    wait_until(lambda: browser.text("plot-text") != "")
    for scheme in ("light", "dark"):
        browser.emulate(prefers_color_scheme=scheme)
        browser.wait("nuveqView.drawn > arguments[0]", browser.figures()["drawn"] + 15)
        wait_until(lambda: re.fullmatch(r"\d\d\.\d of 30", browser.text("camera-rate")))
        browser.screenshot(screenshots / f"{scheme}.png")
        assert browser.low_contrasts() == []
        background = browser.run("return getComputedStyle(document.body).backgroundColor")
        assert (sum(map(int, re.findall(r"\d+", background)[:3])) < 384) == (scheme == "dark")
    browser.run("window.measured = arguments[0]", {"delivered": 15.04, "promised": 30, "findings": [
        {"finding": "tooSlow", "text": "15.0 fps", "advice": "more light may help"}]})
    browser.wait_for_text("camera-rate", "15.0 of 30")
    browser.wait_for_text("findings", "15.0 fps; more light may help.")
    browser.set_width(320)
    browser.check_pictures()
    browser.screenshot(screenshots / "narrow.png")
    assert browser.low_contrasts() == []
    assert browser.run("return document.documentElement.scrollWidth") <= 320
    width, height = browser.run("""
        const box = document.getElementById('picture').getBoundingClientRect();
        return [box.width, box.height];""")
    assert 0 < width <= 320
    assert height > 0
