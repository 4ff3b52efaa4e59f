#!/usr/bin/env python3
"""Tests the Linux library against real kernel drivers: boots a virtual machine and runs the tests in the guest."""

import argparse
import json
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from virtual_machine import BootTimeout, Machine, MachineError, QemuUnavailable, require_qemu
from topologies import METADATA_REASON, TOPOLOGIES

# The exit code that ctest reports as "skipped".
DID_NOT_RUN = 77
SHARE = "/run/share"
CONTROL_LINE = "/dev/ttyS1"
CONSOLE_LINES = 25
# Number of frames that v4l2-ctl captures. The streaming tests of v4l2-compliance (-s) do not pass with uvcvideo: they
# expect EINVAL from a start without buffers, and the driver returns EBUSY.
STREAMED = 10

GUEST_FUNCTIONS = """\
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


def scene_script(scene, options):
    """The guest's commands for a scene: waits for its cameras, then runs nuveqcam, v4l2-ctl and the tests."""
    lines = [f"S={SHARE}/{scene.name}", "export NUVEQ_KERNEL_SHARE=$S"]
    nodes = [(camera, function, camera.node_name(function)) for camera in scene.cameras
             for function in camera.functions]
    lines += [f"wait_until node_of {shlex.quote(node)}" for _, _, node in nodes]
    lines += ["step list ./nuveqcam list --json", "step doctor ./nuveqcam doctor",
              "step doctor_json ./nuveqcam doctor --json"]
    for camera, function, node in nodes:
        name = function_id(camera, function)
        lines += [f"node=$(node_of {shlex.quote(node)})", f"step formats_{name} v4l2-ctl -d $node --list-formats-ext"]
        if camera.name in scene.checked:
            lines.append(f"step compliance_{name} v4l2-compliance -d $node")
        if camera.name in scene.checked + scene.streamed:
            lines.append(f"step stream_{name} v4l2-ctl -d $node --stream-mmap --stream-count={STREAMED}")
    return lines + [f"./kernel_tests --gtest_color=no --gtest_filter={shlex.quote(options.filter or scene.tests)}",
                    "echo $? >$S/tests.code"]


def change_script(before, after):
    """The guest's commands that replace the cameras of a scene with those of the next one."""
    lines = [f"ask unplug {camera.name}" for camera in before.cameras]
    lines += [f"wait_until is_gone {camera.name}" for camera in before.cameras]
    return lines + [f"ask scene {after.name}"]


def guest_script(topology, binaries, options):
    """The guest's script, which runs all scenes of the topology."""
    lines = [f"cd {shlex.quote(str(binaries))} || exit 1"]
    lines.append(f"TIMEOUT={10 * options.camera_timeout}  # in tenths of a second")
    variables = {"NUVEQ_KERNEL_CONTROL": CONTROL_LINE, "NUVEQ_KERNEL_TOPOLOGY": topology.name}
    lines += [f"export {name}={shlex.quote(value)}" for name, value in variables.items()]
    lines += [GUEST_FUNCTIONS, f"exec 3<>{CONTROL_LINE}"]
    # Loads the tool's libraries over 9p while the cameras are being enumerated.
    lines.append("./nuveqcam --version >/dev/null &")
    for before, scene in zip((None,) + topology.scenes, topology.scenes):
        lines += change_script(before, scene) if before else []
        lines += scene_script(scene, options)
    return "\n".join(lines) + "\n"


def function_id(camera, function):
    """Identifies a function of a camera in file names."""
    return f"{camera.name}_{camera.functions.index(function)}"


class Results:
    """Checks the files that the guest wrote in a scene. Prints each check and counts the failures."""

    def __init__(self, scene, share):
        self._scene = scene
        self._share = share
        self.failures = 0

    def read(self, name):
        path = self._share / name
        return path.read_text(errors="replace") if path.exists() else ""

    def check(self, description, is_met, detail=""):
        print(("ok      " if is_met else "FAILED  ") + description, flush=True)
        if not is_met:
            self.failures += 1
            print("\n".join("        " + line for line in str(detail).splitlines()))

    def exit_code(self, step):
        text = self.read(f"{step}.code").strip()
        return int(text) if text else None

    def check_step(self, step, expected=0):
        code = self.exit_code(step)
        self.check(f"{step} exits with {expected}", code == expected,
                   f"it exited with {code}\n" + self.read(f"{step}.out") + self.read(f"{step}.err"))
        return code == expected

    def check_json(self, step, expected):
        """Returns the parsed output of a step, or None if the step failed or did not print JSON."""
        if not self.check_step(step, expected):
            return None
        try:
            return json.loads(self.read(f"{step}.out"))
        except json.JSONDecodeError as error:
            self.check(f"{step} prints JSON", False, f"{error}\n" + self.read(f"{step}.out"))
            return None

    def check_all(self):
        code = self.exit_code("tests")
        self.check("the tests in the guest pass", code == 0, f"they exited with {code}")
        self.check_list()
        self.check_doctor()
        for camera in self._scene.cameras:
            for function in camera.functions:
                self.check_function(camera, function)

    def check_function(self, camera, function):
        name = function_id(camera, function)
        self.check_formats(name, camera.node_name(function), function.formats)
        if camera.name in self._scene.checked:
            self.check_compliance(name)
        if camera.name in self._scene.checked + self._scene.streamed:
            self.check_stream(name)

    def check_list(self):
        offered = self._scene.expected.offered
        output = self.check_json("list", 0 if offered else 3)
        if output:
            built_in = [device["name"] for device in output["devices"] if device["builtIn"]]
            self.check("nuveqcam list offers " + (offered or "no camera"),
                       len(output["cameras"]) == len(built_in) == (1 if offered else 0) and
                       all(name.startswith(offered) for name in built_in), self.read("list.out"))

    def check_doctor(self):
        """nuveqcam doctor reports every device with the data on which the library's decision is based."""
        expected = self._scene.expected
        self.check_step("doctor", 0 if expected.offered else 3)
        output = self.check_json("doctor_json", 0 if expected.offered else 3)
        if not output:
            return
        text, raw = self.read("doctor.out"), self.read("doctor_json.out")
        self.check("doctor reports whether a camera is offered", output["offered"] == bool(expected.offered), raw)
        usb = {device["name"]: device for device in output["usbDevices"]}
        self.check("doctor lists every USB device", set(usb) == set(expected.verdicts), raw)
        for name, verdict in expected.verdicts.items():
            device = usb.get(name, {})
            self.check(f"doctor on {name}: {verdict.text}",
                       device.get("verdictFrom") == verdict.source and
                       device.get("removable") == verdict.is_removable and device.get("verdict") == verdict.text and
                       re.search(re.escape(name) + r" .*" + re.escape(verdict.text) + "$", text, re.M), raw + text)
        reasons = {name: "" for name in ([expected.offered] if expected.offered else [])} | expected.reasons
        self.check("doctor lists every capture device", len(output["captureDevices"]) == len(reasons), raw)
        for name, reason in reasons.items():
            device = next((device for device in output["captureDevices"] if device["name"].startswith(name)), {})
            self.check(f"doctor on {name}: {reason or 'offered'}",
                       device.get("taken") == (not reason) and (device.get("reason") or "") == reason, raw)
        others = {node["name"]: node["reason"] for node in output["otherNodes"] if node["reason"] != METADATA_REASON}
        self.check("doctor gives the reasons why other nodes are not capture devices",
                   others == expected.other_nodes and
                   all(re.search(re.escape(name) + " .*not a capture device: " + re.escape(reason) + "$", text, re.M)
                       for name, reason in others.items()),
                   f"expected {expected.other_nodes}\nactual {others}\n" + text)

    def check_formats(self, name, node, formats):
        """v4l2-ctl lists the formats of the function's descriptors."""
        if not self.check_step(f"formats_{name}"):
            return
        expected = set()
        for text in formats:
            layout, rest = text.split(":")
            size, rates = rest.split("@")
            expected |= {(layout, size, float(rate)) for rate in rates.split(",")}
        actual, layout, size = set(), "", ""
        for line in self.read(f"formats_{name}.out").splitlines():
            if found := re.search(r"\[\d+\]: '(\w+)'", line):
                layout = found.group(1)
            elif found := re.search(r"Size: Discrete (\d+x\d+)", line):
                size = found.group(1)
            elif found := re.search(r"\(([\d.]+) fps\)", line):
                actual.add((layout, size, float(found.group(1))))
        self.check(f"v4l2-ctl lists the formats of {node}", actual == expected, f"expected {expected}\nactual {actual}")

    def check_compliance(self, name):
        if self.check_step(f"compliance_{name}"):
            total = self.read(f"compliance_{name}.out").strip().splitlines()[-1]
            self.check(f"v4l2-compliance of {name}: {total}", re.search(r", Failed: 0,", total) is not None, total)

    def check_stream(self, name):
        if self.check_step(f"stream_{name}"):
            # v4l2-ctl prints a "<" for each captured frame.
            frames = (self.read(f"stream_{name}.out") + self.read(f"stream_{name}.err")).count("<")
            self.check(f"v4l2-ctl captures {STREAMED} frames from {name}", frames == STREAMED, f"it captured {frames}")


def boot(topology, options, binaries, kernel, folder):
    """Boots the guest, runs its script, checks the results and returns the number of failures."""
    folder.mkdir()
    with Machine(topology, kernel, binaries, folder, options.append, options.boot_timeout) as machine:
        for scene in topology.scenes:
            for camera in scene.cameras:
                formats = machine.share / scene.name / f"{camera.name}.formats"
                formats.write_text("\n".join(camera.formats) + "\n")
        (machine.share / "commands").write_text(guest_script(topology, binaries, options))
        try:
            machine.start()
            print(f"  | (booted after {machine.boot_time:.1f} s)", flush=True)
            machine.run()
        except MachineError as failure:
            end = "\n".join("  | " + line for line in machine.console[-CONSOLE_LINES:])
            raise type(failure)(f"{failure}; the end of the console:\n{end}") from None
        failures = 0
        for scene in topology.scenes:
            if len(topology.scenes) > 1:
                print(f"{scene.name}:", flush=True)
            results = Results(scene, machine.share / scene.name)
            results.check_all()
            failures += results.failures
        return failures


def run(topology, options, folder):
    """Runs a topology, prints its results and returns the number of failures."""
    binaries, kernel = options.bin.resolve(), options.kernel.resolve()
    for required in (binaries / "uvc_camera", binaries / "kernel_tests", binaries / "nuveqcam", kernel / "vmlinux"):
        if not required.exists():
            raise MachineError(f"{required} is missing; build it, or fetch the kernel with scripts/fetch-kernel.sh")
    hidden = [path for path in ("/dev", "/proc", "/run", "/sys") if str(binaries).startswith(path + "/")]
    if hidden:
        raise MachineError(f"the guest cannot see {binaries}, because it has its own {hidden[0]}; build elsewhere")
    begin = time.monotonic()
    try:
        failures = boot(topology, options, binaries, kernel, folder / "first")
    except BootTimeout as failure:
        # Rarely (once in several hundred boots) the kernel hangs before its first output. The cause is unknown.
        print(f"{failure}\nretrying:", flush=True)
        failures = boot(topology, options, binaries, kernel, folder / "second")
    print(f"{topology.name}: {time.monotonic() - begin:.1f} s from power-on to power-off")
    return failures


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("topology", choices=sorted(TOPOLOGIES))
    parser.add_argument("--bin", type=Path, required=True, help="folder with the programs and libraries of a build")
    parser.add_argument("--kernel", type=Path, required=True, help="output folder of scripts/fetch-kernel.sh")
    parser.add_argument("--filter", default="", help="GoogleTest filter that replaces those of the topology")
    parser.add_argument("--append", default="", help="additional kernel arguments")
    parser.add_argument("--boot-timeout", type=float, default=60, help="timeout for booting, in seconds (default: 60)")
    parser.add_argument("--camera-timeout", type=int, default=60,
                        help="timeout of the guest for a camera to appear, in seconds (default: 60); the guest "
                        "continues after it")
    parser.add_argument("--keep", action="store_true", help="keep the folder that the guest shares")
    options = parser.parse_args()
    # Exit through the clean-up code on these signals.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    signal.signal(signal.SIGHUP, lambda *_: sys.exit(1))
    folder = Path(tempfile.mkdtemp(prefix="nuveq-kernel-"))
    try:
        require_qemu()
        failures = run(TOPOLOGIES[options.topology], options, folder)
    except QemuUnavailable as reason:
        print(f"DID NOT RUN: {reason}")
        return DID_NOT_RUN
    except (MachineError, OSError, RuntimeError, subprocess.SubprocessError) as failure:
        print(f"FAILED  {failure}")
        return 1
    finally:
        if options.keep:
            print(f"kept {folder}")
        else:
            shutil.rmtree(folder, ignore_errors=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
