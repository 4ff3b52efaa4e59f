"""The page of nuveqcam.exe view in a browser of the build machine."""

from nuveqcam_tool import wait_until


def test_pictures_of_the_windows_camera_are_shown_and_counted(view, browser):
    browser.open(view.address)
    browser.check_pictures(30)
    wait_until(lambda: browser.text("frame-rate") != "-")
