"""The JSON reports of nuveqcam probe."""

import json

from nuveqcam_tool import OK

CHECKS = ["closeWithoutOpen", *(f"closeAfter{count}" for count in (1, 2, 3, 5, 8, 13, 21, 34, 55, 89)), "threeOpens",
          "openAtOnce", "secondOpen", "queryWhileOpen", "keyFrames"]


def probe(tool, camera, *arguments, code=OK):
    """Measures a fake camera. Returns the report."""
    out, _ = tool.run_with_fake_camera(camera, "probe", "--json", "--seconds", 1, *arguments, code=code)
    assert out.count("\n") == 1
    return json.loads(out)


def by_size(report):
    """The results by picture width: each size of a fake camera has its own."""
    return {size["width"]: size for size in report["sizes"]}


def findings(size):
    """The findings other than jitter, which a busy machine causes, too."""
    return [word for word in size["findings"] if word != "jitter"]


def faults(report):
    return {check["check"]: check["fault"] for check in report["checks"] if check["fault"]}
