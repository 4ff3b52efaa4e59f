"""The page of nuveqcam view in a headless Chromium, and the frame numbers of the pictures that it shows."""

import base64
import shutil

import pytest

from nuveqcam_tool import TIMEOUT, wait_until

BLOCKS = 32

# Notes every picture that the page draws: the number of its packet, and the mean brightness of each of its blocks. At
# most one picture is drawn per animation frame, so none is missed.
OBSERVE = """
const canvas = document.getElementById('picture');
let drawn = nuveqView.drawn;
window.observed = [];
window.blocksOf = (context, width, height) => {
  const pixels = context.getImageData(0, 0, width, Math.ceil(height / 6)).data;
  return Array.from({length: 32}, (_, bit) => {
    const [column, row] = [bit % 16, Math.floor(bit / 16)];
    const left = Math.floor(column * width / 16), right = Math.floor((column + 1) * width / 16);
    const top = Math.floor(row * height / 12), bottom = Math.floor((row + 1) * height / 12);
    // The inner half in both directions, away from edges that compression blurs.
    const [x, y] = [Math.floor((right - left) / 4), Math.floor((bottom - top) / 4)];
    let sum = 0, count = 0;
    for (let line = top + y; line < bottom - y; ++line) {
      for (let pixel = left + x; pixel < right - x; ++pixel, ++count) {
        sum += pixels[4 * (line * width + pixel)];
      }
    }
    return sum / count;
  });
};
const look = () => {
  if (nuveqView.drawn !== drawn && !canvas.hidden) {
    drawn = nuveqView.drawn;
    observed.push({packet: nuveqView.lastDrawn, size: [canvas.width, canvas.height],
                   blocks: blocksOf(canvas.getContext('2d'), canvas.width, canvas.height)});
  }
  requestAnimationFrame(look);
};
requestAnimationFrame(look);
"""

# Texts with a contrast below that of WCAG's level AA, as pairs of text and contrast.
LOW_CONTRASTS = """
const luminance = (color) => {
  const [r, g, b] = color.map((value) => value / 255).map(
      (value) => value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4);
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const parse = (text) => text.match(/[\\d.]+/g).map(Number);
const backgroundOf = (element) => {
  for (; element; element = element.parentElement) {
    const color = parse(getComputedStyle(element).backgroundColor);
    if (color.length === 3 || color[3] === 1) {
      return color.slice(0, 3);
    }
  }
  return [255, 255, 255];
};
const low = [];
for (const element of document.querySelectorAll('body *')) {
  const text = [...element.childNodes].filter((node) => node.nodeType === Node.TEXT_NODE)
      .map((node) => node.textContent.trim()).join('');
  const exceptions = 'option, :disabled, [aria-disabled="true"]';
  // Texts for screen readers alone have one pixel.
  if (text && element.getBoundingClientRect().width > 1 && !element.matches(exceptions)) {
    const [a, b] = [parse(getComputedStyle(element).color), backgroundOf(element)].map(luminance);
    const contrast = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
    if (contrast < 4.5) {
      low.push([text, contrast]);
    }
  }
}
return low;
"""


def with_checksum(number):
    """The bits that the blocks show: the 24-bit frame number and its CRC-8."""
    crc = 0xFF
    for byte in number.to_bytes(3, "little"):
        crc ^= byte
        for _ in range(8):
            crc = (crc << 1 ^ (0x07 if crc & 0x80 else 0)) & 0xFF
    return number | crc << 24


def number_in(blocks):
    """The frame number that the blocks of a picture show, from their brightness."""
    assert len(blocks) == BLOCKS
    contrast = max(blocks) - min(blocks)
    threshold = min(blocks) + contrast / 2
    assert contrast >= 48, blocks
    assert all(abs(block - threshold) >= contrast / 10 for block in blocks), blocks
    bits = sum((block > threshold) << bit for bit, block in enumerate(blocks))
    number = bits & 0xFFFFFF
    assert with_checksum(number) == bits, blocks
    return number


class Chromium:
    """The browser program. It takes about a second to start, so the tests of a script share it."""

    def __init__(self, downloads):
        try:
            from selenium import webdriver
            from selenium.webdriver.chrome.service import Service
        except ImportError:
            pytest.skip("python3-selenium is not installed")
        chromium, driver = shutil.which("chromium"), shutil.which("chromedriver")
        if chromium is None or driver is None:
            pytest.skip("chromium or chromium-driver is not installed")
        options = webdriver.ChromeOptions()
        options.binary_location = chromium
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                         "--disable-renderer-backgrounding", "--disable-backgrounding-occluded-windows"):
            options.add_argument(argument)
        options.add_experimental_option("prefs", {"download.default_directory": str(downloads)})
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.downloads = downloads
        self.driver = webdriver.Chrome(service=Service(driver), options=options)
        self.driver.set_script_timeout(TIMEOUT)
        self.driver.set_page_load_timeout(TIMEOUT)
        # Stays open, since the program would end with its last window.
        self._first = self.selected = self.driver.current_window_handle

    def select(self, window):
        """Lets the driver use a window."""
        if self.selected != window:
            self.driver.switch_to.window(window)
            self.selected = window

    def open(self, kind):
        """Opens a "window", or a "tab" in the selected window, and returns its handle."""
        self.driver.switch_to.new_window(kind)
        self.selected = self.driver.current_window_handle
        return self.selected

    def clear(self):
        """Removes what a test has left: windows, downloads and log entries."""
        for window in self.driver.window_handles:
            if window != self._first:
                self.select(window)
                self.driver.close()
        self.driver.switch_to.window(self._first)
        self.selected = self._first
        self.driver.get_log("browser")
        for file in self.downloads.iterdir():
            file.unlink(missing_ok=True)

    def quit(self):
        self.driver.quit()


class Browser:
    """A window, or a tab, of the browser with the page."""

    def __init__(self, chromium, kind="window"):
        self._chromium = chromium
        self._window = chromium.open(kind)
        self.downloads = chromium.downloads
        if kind == "window":
            self.driver.set_window_size(1280, 900)

    @property
    def driver(self):
        self._chromium.select(self._window)
        return self._chromium.driver

    def close(self):
        self.driver.close()
        self._chromium.selected = None

    def open(self, address, before=None):
        """Opens the page. before: script that runs before those of the page."""
        if before:
            self.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": before})
        self.driver.get(address)
        # On a busy computer, the driver may return while the new window still shows an empty page.
        self.wait("window.nuveqView")
        self.run(OBSERVE)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def wait(self, script, *arguments):
        """Waits until a JavaScript expression is true."""
        wait_until(lambda: self.run(f"return Boolean({script})", *arguments))

    def figures(self):
        return self.run("return nuveqView")

    def element(self, name):
        return self.driver.find_element("id", name)

    def text(self, name):
        """The visible text of an element."""
        return self.element(name).text

    def is_enabled(self, name):
        """Whether a control can be used. Buttons that cannot are only marked, so that they keep the focus."""
        element = self.element(name)
        return element.is_enabled() and element.get_attribute("aria-disabled") != "true"

    def value(self, name):
        return self.element(name).get_attribute("value")

    def picture_size(self):
        return self.run("const {width, height} = document.getElementById('picture'); return [width, height];")

    def wait_for_text(self, name, part):
        wait_until(lambda: part in self.text(name))

    def press(self, *keys):
        from selenium.webdriver import ActionChains
        ActionChains(self.driver).send_keys(*keys).perform()

    def choose(self, name, value):
        from selenium.webdriver.support.select import Select
        wait_until(lambda: self.is_enabled(name))
        Select(self.element(name)).select_by_value(value)

    def observed(self, count):
        """The next pictures that the page draws, at least count, as pairs of packet number and frame number."""
        self.run("observed.length = 0")
        self.wait("observed.length >= arguments[0]", count)
        return [(picture["packet"], number_in(picture["blocks"])) for picture in self.run("return observed")]

    def wait_for_frame(self, number, offset):
        """Waits until the packet with a frame number has arrived. offset: as of check_pictures."""
        self.wait("nuveqView.lastPacket + arguments[1] >= arguments[0]", number, offset)

    def skip_pictures(self):
        """Waits until the pictures of packets that are on their way have been drawn."""
        self.wait("nuveqView.lastDrawn > arguments[0]", self.figures()["lastPacket"] + 15)

    def check_pictures(self, count=15):
        """Checks that the next pictures are those of their packets, in order and without repetition. Returns the
        difference between frame numbers and packet numbers."""
        pictures = self.observed(count)
        packets = [packet for packet, _ in pictures]
        assert all(a < b for a, b in zip(packets, packets[1:])), packets
        [offset] = {number - packet for packet, number in pictures}
        return offset

    def picture(self, file):
        """Saves the canvas as PNG."""
        data = self.run("return document.getElementById('picture').toDataURL('image/png')")
        file.write_bytes(base64.b64decode(data.split(",")[1]))
        return file

    def screenshot(self, file):
        """Saves the whole page as PNG."""
        # Otherwise the page is as wide as with a scroll bar, and the picture as without.
        self.driver.execute_cdp_cmd("Emulation.setScrollbarsHidden", {"hidden": True})
        shot = self.driver.execute_cdp_cmd("Page.captureScreenshot", {"captureBeyondViewport": True})
        file.write_bytes(base64.b64decode(shot["data"]))

    def downloaded(self, suffix):
        """Waits for a downloaded file and returns it."""
        wait_until(lambda: [*self.downloads.glob("*" + suffix)] and not [*self.downloads.glob("*.crdownload")])
        [file] = self.downloads.glob("*" + suffix)
        return file

    def emulate(self, **features):
        """Emulates media features: prefers_color_scheme="dark"."""
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": name.replace("_", "-"), "value": value} for name, value in features.items()]})

    def set_width(self, width, height=900):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def low_contrasts(self):
        return self.run(LOW_CONTRASTS)

    def errors(self):
        """Errors in the browser's console, for example violations of the Content-Security-Policy."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]
