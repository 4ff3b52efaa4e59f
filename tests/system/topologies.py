"""The PCs that the virtual machine emulates: USB ports, cameras, ACPI declarations and the expected results."""

from dataclasses import dataclass, field
from enum import Enum


class Port(Enum):
    """How the firmware declares a port (ACPI _UPC and _PLD)."""

    HARD_WIRED = "connectable, not visible to the user: a built-in device"
    USER_VISIBLE = "connectable and visible to the user: an external port"
    UNDECLARED = "no declaration"


@dataclass(frozen=True)
class Function:
    """A video function of a camera. The kernel creates one capture device for each."""

    name: str
    formats: tuple  # values of the camera program's --format options


@dataclass(frozen=True)
class Camera:
    name: str
    port: str  # "5"; behind the hub at port 5: "5.2"
    declared: Port
    usb_id: str
    product: str
    functions: tuple
    has_end_of_image: bool = True  # whether MJPG frames end with the EOI marker
    # Number of the stream in which the camera unplugs itself, in the last scene; 0: none.
    unplugged_stream: int = 0

    @property
    def speed(self):
        # QEMU's hubs are full-speed hubs.
        return "full" if "." in self.port else "high"

    @property
    def arguments(self):
        """The camera program's arguments that define the camera."""
        arguments = ["--speed", self.speed, "--id", self.usb_id, "--product", self.product, "--serial", self.name]
        for function in self.functions:
            arguments += ["--function", function.name]
            arguments += [part for text in function.formats for part in ("--format", text)]
        arguments += [] if self.has_end_of_image else ["--no-eoi"]
        return arguments + (["--unplug", str(self.unplugged_stream)] if self.unplugged_stream else [])

    @property
    def formats(self):
        return tuple(text for function in self.functions for text in function.formats)

    def node_name(self, function):
        """The kernel's name of the capture device of a function."""
        max_length = 31
        return f"{self.product}: {function.name}"[:max_length]


@dataclass(frozen=True)
class Hub:
    port: str
    declared: Port


@dataclass(frozen=True)
class Verdict:
    """The expected output of nuveqcam doctor for a USB device."""

    source: str  # "verdictFrom"
    is_removable: bool
    text: str


BUILT_IN = Verdict("firmware", False, "built in: the firmware (ACPI) declares its port hard-wired")
REMOVABLE = Verdict("firmware", True, "removable: the firmware (ACPI) declares its port hot-pluggable")
UNKNOWN = Verdict("nobody", True,
                  "treated as removable: neither the firmware nor its hub declares whether it can be removed")
REMOVABLE_REASON = "its USB device is removable"
UNKNOWN_REASON = "the firmware does not declare its USB port internal"
NO_USB_REASON = "it is not a USB device"
METADATA_REASON = "it carries a camera's metadata, not its pictures"


def no_format_reason(*formats):
    """The reason why a node that offers only these formats is not a capture device."""
    return f"it delivers no format that the library can use ({', '.join(formats)})"


@dataclass(frozen=True)
class Expected:
    """The expected output of nuveqcam list and doctor."""

    offered: str  # product name of the offered camera; empty: none
    verdicts: dict  # Verdict of each USB device, by product name
    reasons: dict  # reasons why capture devices are not offered, by name
    other_nodes: dict = field(default_factory=dict)  # reasons why video nodes are not capture devices, by name


@dataclass(frozen=True)
class Scene:
    """A set of plugged-in cameras and the tests that run with it."""

    name: str
    cameras: tuple
    tests: str  # GoogleTest filter for the guest's tests
    expected: Expected
    checked: tuple = ()  # names of the cameras on which v4l2-compliance runs
    streamed: tuple = ()  # names of the cameras from whose functions v4l2-ctl captures frames
    is_probed: bool = False  # runs only v4l2-ctl and nuveqcam probe


@dataclass(frozen=True)
class Topology:
    """A PC. Its scenes run one after another in one boot."""

    name: str
    scenes: tuple
    hubs: tuple = ()
    has_vivid: bool = False  # loads the kernel's test camera, which is not a USB device

    @property
    def cameras(self):
        """One camera per port. Cameras of different scenes that share a port have the same identity."""
        return tuple({camera.name: camera for scene in self.scenes for camera in scene.cameras}.values())


# Software emulation can encode these sizes at these rates. The library uses the layout with the higher rate.
YUYV_FIRST = ("YUYV:640x480@30,15", "YUYV:320x240@60,15", "YUYV:160x120@60,15",
              "MJPG:640x480@15", "MJPG:320x240@15", "MJPG:160x120@15")
MJPG_FIRST = ("MJPG:640x480@25", "MJPG:320x240@60,30", "MJPG:160x120@60,30",
              "YUYV:640x480@5", "YUYV:320x240@15", "YUYV:160x120@30")


# Cameras of real laptops offer these next to their main format. Formats that the library cannot use have sizes and
# rates of their own, so that a test detects it if the library offers them.
COLOUR_FORMATS = ("MJPG:320x240@30", "YUYV:160x120@60,15")
INFRARED_FORMATS = ("GREY:340x340@15", "GREY:64x64@20")
MJPG_AND_NV12 = ("MJPG:320x240@30", "MJPG:160x120@60", "NV12:320x240@30", "NV12:160x120@60")
H264_AND_UYVY = ("H264:1280x720@24", "MJPG:320x240@30", "UYVY:320x240@30", "UYVY:160x120@60", "YUYV:160x120@60")
NV12_ONLY = ("NV12:320x240@30", "NV12:160x120@60,15")
MJPG_ONLY = ("MJPG:320x240@30", "MJPG:160x120@60,15")
# Without a fault; refused; damaged; and one during which the camera is unplugged. In the order of the measurements.
PROBED_FORMATS = ("YUYV:160x120@30", "YUYV:176x144@30:refuse", "MJPG:192x144@30:damage=3", "MJPG:208x160@30")
# v4l2-ctl starts the first stream, and nuveqcam probe three of each size that can be opened; it measures the last one.
CAPTURED_STREAM, FAULTLESS_STREAM, DAMAGED_STREAM, UNPLUGGED_STREAM = 1, 4, 7, 10


def built_in(port, *functions, **details):
    return Camera("built_in", port, Port.HARD_WIRED, "04f2:b6be", "Integrated Camera", functions, **details)


COLOUR = Function("Colour", COLOUR_FORMATS)
INFRARED = Function("Infrared", INFRARED_FORMATS)
INFRARED_IN_FRONT = Camera("infrared", "4", Port.HARD_WIRED, "04f2:b615", "IR Camera", (INFRARED,))
PLUG_IN = Camera("plug_in", "6", Port.USER_VISIBLE, "0c45:6366", "USB Camera", (Function("USB Camera", YUYV_FIRST),))
UNDECLARED = Camera("undeclared", "7", Port.UNDECLARED, "05a3:9230", "Inspection Camera",
                    (Function("Inspection Camera", YUYV_FIRST),))

# Tests of the formats that the library offers and of the pictures that it delivers.
PICTURES = "BuiltInCamera.IsTheOnlyCameraOffered:BuiltInCamera.Offers*:StreamOfBuiltInCamera.*"
ONLY_BUILT_IN = {"Integrated Camera": BUILT_IN}
INFRARED_REASON = no_format_reason("GREY")


NO_BUILT_IN = Scene("no_built_in", (PLUG_IN, UNDECLARED), "NoBuiltInCamera.*",
                    Expected(offered="", verdicts={"USB Camera": REMOVABLE, "Inspection Camera": UNKNOWN},
                             reasons={"USB Camera": REMOVABLE_REASON, "Inspection Camera": UNKNOWN_REASON,
                                      "vivid": NO_USB_REASON}), checked=("plug_in",))
PROBED = Scene("probed", (built_in("5", Function("Integrated Camera", PROBED_FORMATS),
                                   unplugged_stream=UNPLUGGED_STREAM),), "",
               Expected(offered="Integrated Camera", verdicts=ONLY_BUILT_IN, reasons={}), is_probed=True)


def single_scene(cameras, tests, expected, checked=()):
    return (Scene("only", cameras, tests, expected, checked=checked),)


def pixel_formats(name, formats, **details):
    """A scene with a built-in camera that has one function with these formats."""
    return Scene(name, (built_in("5", Function("Integrated Camera", formats), **details),), PICTURES,
                 Expected(offered="Integrated Camera", verdicts=ONLY_BUILT_IN, reasons={}))


TOPOLOGIES = {topology.name: topology for topology in (
    Topology(
        "own_port", has_vivid=True, scenes=single_scene(
            (UNDECLARED, PLUG_IN, built_in("5", Function("Integrated Camera", YUYV_FIRST))),
            "*BuiltInCamera.*-NoBuiltInCamera.*",
            Expected(
                offered="Integrated Camera",
                verdicts={"Integrated Camera": BUILT_IN, "USB Camera": REMOVABLE,
                          "Inspection Camera": UNKNOWN},
                reasons={"USB Camera": REMOVABLE_REASON, "Inspection Camera": UNKNOWN_REASON,
                         "vivid": NO_USB_REASON})) + (NO_BUILT_IN, PROBED)),
    Topology(
        "internal_hub", hubs=(Hub("5", Port.HARD_WIRED),), scenes=single_scene(
            (PLUG_IN, built_in("5.2", Function("Integrated Camera", MJPG_FIRST))),
            "*BuiltInCamera.*-NoBuiltInCamera.*",
            Expected(
                offered="Integrated Camera",
                verdicts={"Integrated Camera": BUILT_IN, "USB Camera": REMOVABLE, "QEMU USB Hub": BUILT_IN},
                reasons={"USB Camera": REMOVABLE_REASON}),
            checked=("built_in",))),
    Topology(
        "undeclared", scenes=single_scene(
            (Camera("first", "1", Port.UNDECLARED, "05a3:9230", "Inspection Camera",
                    (Function("Inspection Camera", YUYV_FIRST),)),
             Camera("second", "7", Port.UNDECLARED, "04f2:b6be", "Integrated Camera",
                    (Function("Integrated Camera", MJPG_FIRST),))),
            "NoBuiltInCamera.*",
            Expected(
                offered="",
                verdicts={"Inspection Camera": UNKNOWN, "Integrated Camera": UNKNOWN},
                reasons={"Inspection Camera": UNKNOWN_REASON, "Integrated Camera": UNKNOWN_REASON}))),
    Topology(
        "infrared", scenes=(
            Scene("colour_then_infrared", (built_in("5", COLOUR, INFRARED),), PICTURES,
                  Expected(offered="Integrated Camera: Colour", verdicts=ONLY_BUILT_IN, reasons={},
                           other_nodes={"Integrated Camera: Infrared": INFRARED_REASON}), streamed=("built_in",)),
            Scene("infrared_then_colour", (built_in("5", INFRARED, COLOUR),), PICTURES,
                  Expected(offered="Integrated Camera: Colour", verdicts=ONLY_BUILT_IN, reasons={},
                           other_nodes={"Integrated Camera: Infrared": INFRARED_REASON})),
            Scene("infrared_only", (INFRARED_IN_FRONT,), "NoBuiltInCamera.*",
                  Expected(offered="", verdicts={"IR Camera": BUILT_IN}, reasons={},
                           other_nodes={"IR Camera: Infrared": INFRARED_REASON})),
            Scene("infrared_in_front", (INFRARED_IN_FRONT, built_in("5", COLOUR)), PICTURES,
                  Expected(offered="Integrated Camera: Colour",
                           verdicts={"Integrated Camera": BUILT_IN, "IR Camera": BUILT_IN}, reasons={},
                           other_nodes={"IR Camera: Infrared": INFRARED_REASON})))),
    Topology(
        "pixel_formats", scenes=(
            pixel_formats("mjpg_and_nv12", MJPG_AND_NV12),
            pixel_formats("h264_and_uyvy", H264_AND_UYVY),
            pixel_formats("nv12_only", NV12_ONLY),
            pixel_formats("mjpg_without_end_of_image", MJPG_ONLY, has_end_of_image=False))),
)}
