"""The virtual machine: Debian's kernel in QEMU, with cameras that are programs of ours.

The host's files are the guest's, so programs run there as they were built here. A folder is shared; over a
serial line the guest says how far it is and asks for cameras to be plugged in and pulled out.
"""

import ctypes
import os
import platform
import select
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time

import firmware
import initramfs

QEMU = "qemu-system-x86_64"
# In software the instructions of newer ones take longer than those that they replace.
CPU = "Nehalem"
# Longer than anything that works takes.
START_PATIENCE = 120
RUN_PATIENCE = 240
FURTHER_SCENE_PATIENCE = 60


class MachineFailure(Exception):
    """The machine did not do what it is for."""


class BootTimeOut(MachineFailure):
    """Nothing has been heard of the kernel."""


class CannotRun(Exception):
    """There can be no virtual machine on this computer."""


def require_qemu():
    """Throws CannotRun where QEMU is missing or cannot run at all."""
    if platform.machine() != "x86_64":
        raise CannotRun(f"the kernel is one for PCs, and this is a {platform.machine()}")
    if not shutil.which(QEMU):
        raise CannotRun(f"{QEMU} is not installed; scripts/install-packages.sh native installs it")
    try:
        result = subprocess.run([QEMU, "-M", "none", "-accel", "tcg", "-nodefaults", "-display", "none",
                                 "-monitor", "stdio"], input=b"quit\n", stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, timeout=START_PATIENCE)
    except subprocess.TimeoutExpired:
        raise MachineFailure(f"{QEMU} hangs when it starts") from None
    if result.returncode != 0:
        raise CannotRun(f"{QEMU} cannot run here: " + result.stdout.decode(errors="replace").strip())


def wait_for(condition, patience, what):
    deadline = time.monotonic() + patience
    while not condition():
        if time.monotonic() > deadline:
            raise MachineFailure(f"{what} (waited {patience} s)")
        time.sleep(0.01)


def end_with_parent():
    """What QEMU does first: it must not outlive a runner that is killed."""
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, signal.SIGKILL)


def path_option(path):
    """A path as QEMU's options take it."""
    return str(path).replace(",", ",,")


class CameraProcess:
    """A camera's program, while it is plugged in."""

    def __init__(self, camera, program, folder):
        self.camera = camera
        self.log = None  # where the camera logs; each scene has its own folder
        self._program = program
        self._socket = folder / f"{camera.name}.sock"
        self._process = None

    def plug_in(self):
        if self._process is not None and self._process.poll() is None:
            raise MachineFailure(f"{self.camera.name} is plugged in already")
        self._process = subprocess.Popen(
            [str(self._program), "--socket", str(self._socket), "--log", str(self.log), *self.camera.arguments],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=sys.stderr)
        readable, _, _ = select.select([self._process.stdout], [], [], START_PATIENCE)
        if not readable:
            raise MachineFailure(f"the camera {self.camera.name} did not start (waited {START_PATIENCE} s)")
        if self._process.stdout.readline().strip() != b"ready":
            code = self._process.wait(START_PATIENCE)
            raise MachineFailure(f"the camera {self.camera.name} did not start; it ended with {code}")

    def pull_out(self):
        if self._process is None or self._process.poll() is not None:
            raise MachineFailure(f"{self.camera.name} is not plugged in")
        self._process.terminate()
        self.expect_good_end()

    def expect_good_end(self):
        """Waits for the program, which ends when it is told to and with the machine. Sanitizers tell by its code."""
        if self._process is not None:
            code = self._process.wait(START_PATIENCE)
            if code != 0:
                raise MachineFailure(f"the camera {self.camera.name} ended with {code}")

    def end(self):
        if self._process is not None and self._process.poll() is None:
            self._process.kill()
        if self._process is not None:
            self._process.wait(START_PATIENCE)
            self._process.stdout.close()


class Machine:
    """One boot. Use as a context, so that nothing is left running."""

    def __init__(self, topology, kernel, binaries, folder, kernel_arguments="", boot_patience=60):
        self._topology = topology
        self._kernel = kernel
        self._folder = folder
        self._kernel_arguments = kernel_arguments
        self._boot_patience = boot_patience
        self.share = folder / "share"
        self.share.mkdir()
        self._scenes = {scene.name: scene for scene in topology.scenes}
        for name in self._scenes:
            (self.share / name).mkdir()
        self.cameras = {camera.name: CameraProcess(camera, binaries / "uvc_camera", folder)
                        for camera in topology.cameras}
        self.console = []  # lines
        self.reached = []  # what the guest has said of itself
        self.trouble = ""
        self.boot_time = 0
        self._qemu = None
        self._control = None
        self._threads = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self._qemu is not None and self._qemu.poll() is None:
            self._qemu.kill()
        for camera in self.cameras.values():
            camera.end()
        if self._qemu is not None:
            self._qemu.wait(START_PATIENCE)
        for thread in self._threads:
            thread.join(START_PATIENCE)
        if self._qemu is not None:
            self._qemu.stdout.close()
        if self._control is not None:
            self._control.close()

    def _command(self):
        command = [QEMU, "-accel", "tcg,thread=multi", "-cpu", CPU, "-smp", "2", "-m", "1024", "-M", "q35",
                   "-nodefaults", "-display", "none", "-no-reboot", "-kernel", str(self._kernel / "vmlinux"),
                   "-initrd", str(initramfs.build(self._kernel, self._topology, self._folder)), "-append",
                   f"console=ttyS0 quiet panic=-1 mitigations=off {self._kernel_arguments}".strip()]
        command += ["-chardev", "stdio,id=console,signal=off", "-device", "isa-serial,chardev=console", "-chardev",
                    f"socket,id=control,path={path_option(self._folder)}/control.sock,server=on,wait=off",
                    "-device", "isa-serial,chardev=control"]
        command += ["-fsdev", "local,id=host,path=/,security_model=none,readonly=on,multidevs=remap",
                    "-device", "virtio-9p-pci,fsdev=host,mount_tag=host",
                    "-fsdev", f"local,id=share,path={path_option(self.share)},security_model=none",
                    "-device", "virtio-9p-pci,fsdev=share,mount_tag=share"]
        command += ["-device", f"qemu-xhci,id=xhci,addr={firmware.CONTROLLER_SLOT},"
                    f"p2={firmware.HIGH_SPEED_PORTS},p3={firmware.SUPER_SPEED_PORTS}"]
        for hub in self._topology.hubs:
            command += ["-device", f"usb-hub,bus=xhci.0,port={hub.port}"]
        for camera in self._topology.cameras:
            socket_path = path_option(self._folder / f"{camera.name}.sock")
            command += ["-chardev", f"socket,id={camera.name},path={socket_path},server=on,wait=off", "-device", f"usb-redir,chardev={camera.name},bus=xhci.0,port={camera.port}"]
        table = firmware.compile_table(self._topology, self._folder)
        return command + (["-acpitable", f"file={path_option(table)}"] if table else [])

    def start(self):
        """Switches the machine on and plugs all its cameras in."""
        begin = time.monotonic()
        self._qemu = subprocess.Popen(self._command(), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, preexec_fn=end_with_parent)
        self._begin(self._read_console)
        self._control = socket.socket(socket.AF_UNIX)
        wait_for(lambda: self._is_connected() or self._qemu.poll() is not None, START_PATIENCE, "QEMU does not start")
        self._fail_if_ended("QEMU did not start")
        self._begin(self._serve)
        try:
            wait_for(lambda: "booted" in self.reached or self._qemu.poll() is not None, self._boot_patience,
                     "the kernel does not boot")
        except MachineFailure as failure:
            raise BootTimeOut(str(failure)) from None
        self.boot_time = time.monotonic() - begin
        # Not before: the machine's BIOS has USB drivers of its own, which are none of the tests' business.
        self._fail_if_ended("the kernel did not boot")
        self._begin_scene(self._topology.scenes[0])

    def _begin_scene(self, scene):
        """Plugs the cameras of a scene in."""
        for camera in scene.cameras:
            process = self.cameras[camera.name]
            process.camera = camera
            process.log = self.share / scene.name / f"{camera.name}.log"
            process.plug_in()

    def run(self):
        """Waits until the guest has done its work and switched itself off."""
        patience = RUN_PATIENCE + FURTHER_SCENE_PATIENCE * (len(self._topology.scenes) - 1)
        wait_for(lambda: self._qemu.poll() is not None, patience, "the guest does not come to an end")
        for thread in self._threads:
            thread.join(START_PATIENCE)
        if "finished" not in self.reached:
            raise MachineFailure(f"the guest went down before it had finished, and QEMU ended with {self._qemu.returncode}")
        if self.trouble:
            raise MachineFailure(self.trouble)
        for camera in self.cameras.values():
            camera.expect_good_end()

    def _begin(self, work):
        self._threads.append(threading.Thread(target=work, daemon=True))
        self._threads[-1].start()

    def _fail_if_ended(self, what):
        if self._qemu.poll() is not None:
            self._threads[0].join(START_PATIENCE)  # for its last words
            raise MachineFailure(f"{what}; QEMU ended with {self._qemu.returncode}")

    def _is_connected(self):
        # QEMU may have the socket and not listen yet.
        try:
            self._control.connect(str(self._folder / "control.sock"))
            return True
        except (FileNotFoundError, ConnectionRefusedError):
            return False

    def _read_console(self):
        for raw in self._qemu.stdout:
            line = raw.decode(errors="replace").rstrip()
            self.console.append(line)
            print("  | " + line, flush=True)

    def _serve(self):
        """Hears what the guest says, and does what it asks for."""
        with self._control.makefile("rw", encoding="utf-8", errors="replace", newline="\n") as line_to_guest:
            try:
                for line in line_to_guest:
                    words = line.split()
                    if len(words) == 1:
                        self.reached.append(words[0])
                    elif words:
                        line_to_guest.write(self._answer(words) + "\n")
                        line_to_guest.flush()
            except OSError:
                pass  # the machine is off

    def _answer(self, words):
        actions = {"plug": lambda name: self.cameras[name].plug_in(),
                   "unplug": lambda name: self.cameras[name].pull_out(),
                   "scene": lambda name: self._begin_scene(self._scenes[name])}
        try:
            actions[words[0]](words[1])
            return "ok"
        except KeyError:
            self.trouble = "the guest asked for " + " ".join(words) + ", which nobody knows"
        except (MachineFailure, OSError, subprocess.TimeoutExpired) as error:
            self.trouble = str(error)
        return "error " + self.trouble


def environment_for_guest():
    """What the host's programs go by and the guest's have to, too."""
    return {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
