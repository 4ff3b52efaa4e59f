"""The shell script that the guest runs: it waits for the cameras of each scene and runs programs and tests on them."""

import shlex

SHARE = "/run/share"
CONTROL_LINE = "/dev/ttyS1"
# Number of frames that v4l2-ctl captures. The streaming tests of v4l2-compliance (-s) do not pass with uvcvideo: they
# expect EINVAL from a start without buffers, and the driver returns EBUSY.
STREAMED = 10

# The duration of each measurement of nuveqcam probe, and the frames of the one of v4l2-ctl with which it is compared.
PROBE_SECONDS = 2
PROBE_FRAMES = 61

FUNCTIONS = """\
step() { name=$1; shift; "$@" >$S/$name.out 2>$S/$name.err; echo $? >$S/$name.code; }
node_of() {
  for place in /sys/class/video4linux/video*; do
    { read -r name <$place/name && read -r index <$place/index; } 2>/dev/null || continue
    case "$index $name" in "0 $1"*) echo /dev/${place##*/}; return ;; esac
  done
  return 1
}
is_gone() {
  for place in /sys/bus/usb/devices/*/serial; do
    read -r serial 2>/dev/null <$place && [ "$serial" = "$1" ] && return 1
  done
  return 0
}
wait_until() {
  left=$TIMEOUT
  until "$@" >/dev/null; do
    left=$((left - 1))
    [ $left -gt 0 ] || { echo "timeout: $*"; return; }
    sleep 0.1
  done
}
# Sends a request to the host and waits for the reply.
ask() { echo "$*" >&3; read -r answer <&3; [ "$answer" = ok ] || echo "$*: $answer"; }
"""


def guest_script(topology, binaries, test_filter, camera_timeout):
    """Returns the script, which runs all scenes of the topology.

    test_filter: GoogleTest filter that replaces those of the scenes, if it is not empty. camera_timeout: in seconds.
    """
    lines = [f"cd {shlex.quote(str(binaries))} || exit 1", f"TIMEOUT={10 * camera_timeout}  # in tenths of a second",
             f"export NUVEQ_KERNEL_CONTROL={CONTROL_LINE} NUVEQ_KERNEL_TOPOLOGY={topology.name}",
             FUNCTIONS, f"exec 3<>{CONTROL_LINE}",
             # Loads the tool's libraries over 9p while the cameras are being enumerated.
             "./nuveqcam --version >/dev/null &"]
    for before, scene in zip((None,) + topology.scenes, topology.scenes):
        lines += _change(before, scene) if before else []
        lines += _run(scene, test_filter or scene.tests)
    return "\n".join(lines) + "\n"


def _run(scene, test_filter):
    """The commands for a scene: wait for its cameras, then run nuveqcam, v4l2-ctl and the tests."""
    lines = [f"S={SHARE}/{scene.name}", "export NUVEQ_KERNEL_SHARE=$S"]
    nodes = [(camera, function, camera.node_name(function)) for camera in scene.cameras
             for function in camera.functions]
    lines += [f"wait_until node_of {shlex.quote(node)}" for _, _, node in nodes]
    if scene.is_probed:
        [(_, function, node)] = nodes
        return lines + _probe(function, node)
    lines += ["step list ./nuveqcam list --json", "step doctor ./nuveqcam doctor",
              "step doctor_json ./nuveqcam doctor --json"]
    for camera, function, node in nodes:
        name = function_id(camera, function)
        lines += [f"node=$(node_of {shlex.quote(node)})", f"step formats_{name} v4l2-ctl -d $node --list-formats-ext"]
        if camera.name in scene.checked:
            lines.append(f"step compliance_{name} v4l2-compliance -d $node")
        if camera.name in scene.checked + scene.streamed:
            lines.append(f"step stream_{name} v4l2-ctl -d $node --stream-mmap --stream-count={STREAMED}")
    return lines + [f"./kernel_tests --gtest_color=no --gtest_filter={shlex.quote(test_filter)}",
                    "echo $? >$S/tests.code"]


def _probe(function, node):
    """The commands that measure a camera with v4l2-ctl and nuveqcam probe."""
    layout, rest = function.formats[0].split(":")
    size, rate = rest.split("@")
    width, height = size.split("x")
    return [f"step stream v4l2-ctl -d $(node_of {shlex.quote(node)}) --stream-mmap --verbose "
            f"--set-fmt-video=width={width},height={height},pixelformat={layout} --set-parm={rate} "
            f"--stream-count={PROBE_FRAMES}",
            f"step probe ./nuveqcam probe --json --seconds {PROBE_SECONDS}"]


def _change(before, after):
    """The commands that replace the cameras of a scene with those of the next one."""
    lines = [f"ask unplug {camera.name}" for camera in before.cameras]
    lines += [f"wait_until is_gone {camera.name}" for camera in before.cameras]
    return lines + [f"ask scene {after.name}"]


def function_id(camera, function):
    """Identifies a function of a camera in file names."""
    return f"{camera.name}_{camera.functions.index(function)}"
