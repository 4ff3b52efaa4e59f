"""The virtual machine: Debian's kernel in QEMU, with USB cameras emulated by the program uvc_camera.

The guest mounts the host's file system read-only, so it runs the programs of the build unchanged. It writes its results
to a shared folder. Over a serial line it reports its progress and asks the host to plug cameras in and to unplug them.
"""

import ctypes
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
# Software emulation of the vector instructions of newer models is slower than the code that they replace.
CPU = "Nehalem"
# Timeouts in seconds, generous enough for a loaded machine.
START_TIMEOUT = 120
RUN_TIMEOUT = 240
FURTHER_SCENE_TIMEOUT = 60


class MachineError(Exception):
    """The virtual machine failed."""


class BootTimeout(MachineError):
    """The kernel did not boot in time."""


class QemuUnavailable(Exception):
    """QEMU cannot run on this computer."""


def require_qemu():
    """Raises QemuUnavailable if QEMU is missing or cannot run."""
    if platform.machine() != "x86_64":
        raise QemuUnavailable(f"the kernel is built for x86_64, but this machine is {platform.machine()}")
    if not shutil.which(QEMU):
        raise QemuUnavailable(f"{QEMU} is not installed; scripts/install-packages.sh qemu installs it")
    try:
        result = subprocess.run([QEMU, "-M", "none", "-accel", "tcg", "-nodefaults", "-display", "none",
                                 "-monitor", "stdio"], input=b"quit\n", stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, timeout=START_TIMEOUT)
    except subprocess.TimeoutExpired:
        raise MachineError(f"{QEMU} hangs when it starts") from None
    if result.returncode != 0:
        raise QemuUnavailable(f"{QEMU} cannot run here: " + result.stdout.decode(errors="replace").strip())


def wait_for(condition, timeout, error):
    """Polls the condition; raises MachineError with the text error after timeout seconds."""
    deadline = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > deadline:
            raise MachineError(f"{error} (waited {timeout} s)")
        time.sleep(0.01)


def end_with_parent():
    """Runs in QEMU's process before exec, so that QEMU does not outlive a killed runner."""
    set_parent_death_signal = 1
    ctypes.CDLL(None).prctl(set_parent_death_signal, signal.SIGKILL)


def path_option(path):
    """A path, escaped for QEMU's options."""
    return str(path).replace(",", ",,")


class CameraProcess:
    """The process that emulates a camera. It runs while the camera is plugged in."""

    def __init__(self, camera, program, folder):
        self.camera = camera
        self.log = None  # path of the camera's log, in the folder of the scene
        self._program = program
        self._socket = folder / f"{camera.name}.sock"
        self._process = None

    def plug_in(self):
        if self._process is not None and self._process.poll() is None:
            raise MachineError(f"{self.camera.name} is plugged in already")
        self._process = subprocess.Popen(
            [str(self._program), "--socket", str(self._socket), "--log", str(self.log), *self.camera.arguments],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=sys.stderr)
        readable, _, _ = select.select([self._process.stdout], [], [], START_TIMEOUT)
        if not readable:
            raise MachineError(f"the camera {self.camera.name} did not start (waited {START_TIMEOUT} s)")
        if self._process.stdout.readline().strip() != b"ready":
            code = self._process.wait(START_TIMEOUT)
            raise MachineError(f"the camera {self.camera.name} did not start; it exited with {code}")

    def unplug(self):
        if self._process is None or self._process.poll() is not None:
            raise MachineError(f"{self.camera.name} is not plugged in")
        self._process.terminate()
        self.expect_success()

    def expect_success(self):
        """Waits for the process, which exits on SIGTERM and at power-off."""
        if self._process is not None:
            code = self._process.wait(START_TIMEOUT)
            if code != 0:
                raise MachineError(f"the camera {self.camera.name} exited with {code}")

    def kill(self):
        if self._process is not None and self._process.poll() is None:
            self._process.kill()
        if self._process is not None:
            self._process.wait(START_TIMEOUT)
            self._process.stdout.close()


class Machine:
    """One boot. A context manager that ends all its processes."""

    def __init__(self, topology, kernel, binaries, folder, kernel_arguments="", boot_timeout=60):
        self._topology = topology
        self._kernel = kernel
        self._folder = folder
        self._kernel_arguments = kernel_arguments
        self._boot_timeout = boot_timeout
        self.share = folder / "share"
        self.share.mkdir()
        self._scenes = {scene.name: scene for scene in topology.scenes}
        for name in self._scenes:
            (self.share / name).mkdir()
        self.cameras = {camera.name: CameraProcess(camera, binaries / "uvc_camera", folder)
                        for camera in topology.cameras}
        self.console = []  # lines
        self.progress = []  # words that the guest has reported: "booted", "finished"
        self.error = ""  # of the latest request of the guest that failed
        self.boot_time = 0  # seconds
        self._qemu = None
        self._control = None
        self._threads = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self._qemu is not None and self._qemu.poll() is None:
            self._qemu.kill()
        for camera in self.cameras.values():
            camera.kill()
        if self._qemu is not None:
            self._qemu.wait(START_TIMEOUT)
        for thread in self._threads:
            thread.join(START_TIMEOUT)
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
            command += ["-chardev", f"socket,id={camera.name},path={socket_path},server=on,wait=off",
                        "-device", f"usb-redir,chardev={camera.name},bus=xhci.0,port={camera.port}"]
        table = firmware.compile_table(self._topology, self._folder)
        return command + (["-acpitable", f"file={path_option(table)}"] if table else [])

    def start(self):
        """Boots the machine and plugs in the cameras of the first scene."""
        begin = time.monotonic()
        self._qemu = subprocess.Popen(self._command(), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, preexec_fn=end_with_parent)
        self._begin(self._read_console)
        self._control = socket.socket(socket.AF_UNIX)
        wait_for(lambda: self._is_connected() or self._qemu.poll() is not None, START_TIMEOUT, "QEMU does not start")
        self._fail_if_ended("QEMU did not start")
        self._begin(self._serve)
        try:
            wait_for(lambda: "booted" in self.progress or self._qemu.poll() is not None, self._boot_timeout,
                     "the kernel does not boot")
        except MachineError as failure:
            raise BootTimeout(str(failure)) from None
        self.boot_time = time.monotonic() - begin
        # After the boot, because the BIOS has USB drivers too.
        self._fail_if_ended("the kernel did not boot")
        self._begin_scene(self._topology.scenes[0])

    def _begin_scene(self, scene):
        """Plugs in the cameras of a scene."""
        for camera in scene.cameras:
            process = self.cameras[camera.name]
            process.camera = camera
            process.log = self.share / scene.name / f"{camera.name}.log"
            process.plug_in()

    def run(self):
        """Waits until the guest has finished its work and powered off."""
        timeout = RUN_TIMEOUT + FURTHER_SCENE_TIMEOUT * (len(self._topology.scenes) - 1)
        wait_for(lambda: self._qemu.poll() is not None, timeout, "the guest does not power off")
        for thread in self._threads:
            thread.join(START_TIMEOUT)
        if "finished" not in self.progress:
            raise MachineError("the guest powered off before it had finished; "
                               f"QEMU exited with {self._qemu.returncode}")
        if self.error:
            raise MachineError(self.error)
        for camera in self.cameras.values():
            camera.expect_success()

    def _begin(self, work):
        self._threads.append(threading.Thread(target=work, daemon=True))
        self._threads[-1].start()

    def _fail_if_ended(self, error):
        if self._qemu.poll() is not None:
            self._threads[0].join(START_TIMEOUT)  # reads the rest of the console
            raise MachineError(f"{error}; QEMU exited with {self._qemu.returncode}")

    def _is_connected(self):
        # The socket may exist before QEMU listens on it.
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
        """Reads progress reports and requests from the guest and executes the requests."""
        with self._control.makefile("rw", encoding="utf-8", errors="replace", newline="\n") as line_to_guest:
            try:
                for line in line_to_guest:
                    words = line.split()
                    if len(words) == 1:
                        self.progress.append(words[0])
                    elif words:
                        line_to_guest.write(self._execute(words) + "\n")
                        line_to_guest.flush()
            except OSError:
                pass  # the machine has powered off

    def _execute(self, words):
        actions = {"plug": lambda name: self.cameras[name].plug_in(),
                   "unplug": lambda name: self.cameras[name].unplug(),
                   "scene": lambda name: self._begin_scene(self._scenes[name])}
        try:
            actions[words[0]](words[1])
            return "ok"
        except KeyError:
            self.error = "unknown request of the guest: " + " ".join(words)
        except (MachineError, OSError, subprocess.TimeoutExpired) as error:
            self.error = str(error)
        return "error " + self.error
