import pytest

pytest.register_assert_rewrite("nuveqcam_tool", "pictures")

from nuveqcam_tool import IS_WINDOWS, Tool, use_pc  # noqa: E402


@pytest.fixture
def tool(scratch):
    """The program in a new folder. On Windows the PC is a laptop with a plug-in camera."""
    if IS_WINDOWS:
        use_pc("laptop")
    tool = Tool(scratch)
    yield tool
    tool.end()
