import tempfile
from pathlib import Path

import pytest

pytest.register_assert_rewrite("nuveqcam_tool", "pictures", "probe_reports", "view_browser", "view_client")

from nuveqcam_tool import IS_WINDOWS, Tool, use_pc  # noqa: E402
from view_browser import Browser, Chromium  # noqa: E402
from view_client import View  # noqa: E402


@pytest.fixture
def tool(scratch):
    """The program in a new folder. On Windows the PC is a laptop with a plug-in camera."""
    if IS_WINDOWS:
        use_pc("laptop")
    tool = Tool(scratch)
    yield tool
    tool.end()


@pytest.fixture(scope="module")
def shared_server():
    """nuveqcam view for all tests of a script that do not change its camera. Use it through `view`."""
    if IS_WINDOWS:
        use_pc("laptop")
    with tempfile.TemporaryDirectory(prefix="nuveq-test-", ignore_cleanup_errors=True) as folder:
        tool = Tool(Path(folder))
        try:
            yield View(tool)
        finally:
            tool.end()


@pytest.fixture
def view(shared_server):
    """The shared program, without connections of other tests. Its camera may still be open."""
    yield shared_server
    shared_server.close()


@pytest.fixture
def start_server(tool):
    """A function that starts nuveqcam view and returns once it is reachable."""
    views = []

    def start(*arguments, **options):
        views.append(View(tool, *arguments, **options))
        return views[-1]
    yield start
    for view in views:
        view.close()


@pytest.fixture(scope="module")
def chromium():
    """The browser program, which runs on the build machine."""
    with tempfile.TemporaryDirectory(prefix="nuveq-test-", ignore_cleanup_errors=True) as downloads:
        chromium = Chromium(Path(downloads))
        yield chromium
        chromium.quit()


@pytest.fixture
def make_browser(chromium):
    """A function that opens a window, or a tab, of the browser."""
    yield lambda kind="window": Browser(chromium, kind)
    chromium.clear()


@pytest.fixture
def browser(make_browser):
    return make_browser()
