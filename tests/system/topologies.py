"""The PCs of the virtual machine: what is plugged in where and when, and what the firmware says."""

from dataclasses import dataclass, field
from enum import Enum


class Port(Enum):
    """What the firmware (ACPI's _UPC and _PLD) says of a port."""

    HARD_WIRED = "connectable, not visible to the user: something is built in there"
    USER_VISIBLE = "connectable and visible to the user: for plugging in"
    UNDECLARED = "nothing"


@dataclass(frozen=True)
class Function:
    """A video function of a camera, of which the kernel makes a capture device."""

    name: str
    formats: tuple  # the arguments --format of the camera


@dataclass(frozen=True)
class Camera:
    name: str
    port: str  # "5"; behind the hub at port 5: "5.2"
    declared: Port
    usb_id: str
    product: str
    functions: tuple
    has_end_of_image: bool = True  # in MJPG frames

    @property
    def speed(self):
        # The machine's hubs are full-speed ones.
        return "full" if "." in self.port else "high"

    @property
    def arguments(self):
        """The camera program's arguments that say what camera it is."""
        arguments = ["--speed", self.speed, "--id", self.usb_id, "--product", self.product, "--serial", self.name]
        for function in self.functions:
            arguments += ["--function", function.name]
            arguments += [part for text in function.formats for part in ("--format", text)]
        return arguments + ([] if self.has_end_of_image else ["--no-eoi"])

    @property
    def formats(self):
        return tuple(text for function in self.functions for text in function.formats)

    def node_name(self, function):
        """The kernel's name for the capture device of a function."""
        max_length = 31
        return f"{self.product}: {function.name}"[:max_length]


@dataclass(frozen=True)
class Hub:
    port: str
    declared: Port


@dataclass(frozen=True)
class Verdict:
    """What nuveqcam doctor says of a USB device."""

    come_from: str
    is_removable: bool
    text: str


BUILT_IN = Verdict("firmware", False, "built in: the firmware (ACPI) says that its port is hard-wired")
FOR_PLUGGING_IN = Verdict("firmware", True, "can be removed: the firmware (ACPI) says that its port is one for plugging in")
NOBODY_SAYS = Verdict("nobody", True, "counts as removable: neither the firmware nor its hub says whether it can be removed")
PLUGGED_IN_REASON = "it is plugged in: its USB device can be removed"
NOBODY_SAYS_REASON = "the PC's firmware does not say that its USB port is an internal one"
NO_USB_REASON = "it is not a USB device"
METADATA_REASON = "it carries a camera's metadata, not its pictures"


def no_format_reason(*formats):
    """Why a node that offers nothing but these formats is not a capture device."""
    return f"it delivers no format that the library can use ({', '.join(formats)})"


@dataclass(frozen=True)
class Expected:
    """What nuveqcam says."""

    taken: str  # the product that is offered; empty: none
    verdicts: dict  # of the USB devices, by product
    reasons: dict  # why capture devices are not taken, by name
    other_nodes: dict = field(default_factory=dict)  # why nodes that carry pictures are not capture devices, by name


@dataclass(frozen=True)
class Scene:
    """What is plugged in at a time, and what is tested then."""

    name: str
    cameras: tuple
    tests: str  # a filter of the guest's tests
    expected: Expected
    checked: tuple = ()  # names of cameras to run v4l2-compliance on
    streamed: tuple = ()  # names of cameras to take frames of with v4l2-ctl, from each function


@dataclass(frozen=True)
class Topology:
    """A PC: its scenes follow each other in one boot."""

    name: str
    scenes: tuple
    hubs: tuple = ()
    has_vivid: bool = False  # the kernel's own test camera, which is no USB device

    @property
    def cameras(self):
        """One camera per port; cameras of several scenes that share a port differ in their functions alone."""
        return tuple({camera.name: camera for scene in self.scenes for camera in scene.cameras}.values())


# Sizes that software emulation encodes at these rates. Of the two layouts the one with the higher rate is taken.
YUYV_FIRST = ("YUYV:640x480@30,15", "YUYV:320x240@60,15", "YUYV:160x120@60,15",
              "MJPG:640x480@15", "MJPG:320x240@15", "MJPG:160x120@15")
MJPG_FIRST = ("MJPG:640x480@25", "MJPG:320x240@60,30", "MJPG:160x120@60,30",
              "YUYV:640x480@5", "YUYV:320x240@15", "YUYV:160x120@30")


# Cameras of real laptops offer these next to their main format. The sizes and rates of formats that the library cannot
# use occur in no other format, so that it shows if they are offered.
COLOUR_FORMATS = ("MJPG:320x240@30", "YUYV:160x120@60,15")
INFRARED_FORMATS = ("GREY:340x340@15", "GREY:64x64@20")
MJPG_AND_NV12 = ("MJPG:320x240@30", "MJPG:160x120@60", "NV12:320x240@30", "NV12:160x120@60")
H264_AND_UYVY = ("H264:1280x720@24", "MJPG:320x240@30", "UYVY:320x240@30", "UYVY:160x120@60", "YUYV:160x120@60")
NV12_ONLY = ("NV12:320x240@30", "NV12:160x120@60,15")
MJPG_ONLY = ("MJPG:320x240@30", "MJPG:160x120@60,15")


def built_in(port, *functions, **details):
    return Camera("built_in", port, Port.HARD_WIRED, "04f2:b6be", "Integrated Camera", functions, **details)


COLOUR = Function("Colour", COLOUR_FORMATS)
INFRARED = Function("Infrared", INFRARED_FORMATS)
INFRARED_IN_FRONT = Camera("infrared", "4", Port.HARD_WIRED, "04f2:b615", "IR Camera", (INFRARED,))
PLUG_IN = Camera("plug_in", "6", Port.USER_VISIBLE, "0c45:6366", "USB Camera", (Function("USB Camera", YUYV_FIRST),))
UNDECLARED = Camera("undeclared", "7", Port.UNDECLARED, "05a3:9230", "Inspection Camera",
                    (Function("Inspection Camera", YUYV_FIRST),))

# What the built-in camera is found to offer, and that its pictures arrive.
PICTURES = "BuiltInCamera.IsTheOnlyOneOffered:BuiltInCamera.Offers*:StreamOfBuiltInCamera.*"
ONLY_BUILT_IN = {"Integrated Camera": BUILT_IN}
INFRARED_REASON = no_format_reason("GREY")


def only_scene(cameras, tests, expected, checked=()):
    return (Scene("only", cameras, tests, expected, checked=checked),)


def pixel_formats(name, formats, **details):
    """A scene with a built-in camera of one function that offers these formats."""
    return Scene(name, (built_in("5", Function("Integrated Camera", formats), **details),), PICTURES,
                 Expected(taken="Integrated Camera", verdicts=ONLY_BUILT_IN, reasons={}))


TOPOLOGIES = {topology.name: topology for topology in (
    Topology(
        "own_port", has_vivid=True, scenes=only_scene(
            (UNDECLARED, PLUG_IN, built_in("5", Function("Integrated Camera", YUYV_FIRST))),
            "*BuiltInCamera.*-NoBuiltInCamera.*",
            Expected(
                taken="Integrated Camera",
                verdicts={"Integrated Camera": BUILT_IN, "USB Camera": FOR_PLUGGING_IN,
                          "Inspection Camera": NOBODY_SAYS},
                reasons={"USB Camera": PLUGGED_IN_REASON, "Inspection Camera": NOBODY_SAYS_REASON,
                         "vivid": NO_USB_REASON}))),
    Topology(
        "internal_hub", hubs=(Hub("5", Port.HARD_WIRED),), scenes=only_scene(
            (PLUG_IN, built_in("5.2", Function("Integrated Camera", MJPG_FIRST))),
            "*BuiltInCamera.*-NoBuiltInCamera.*",
            Expected(
                taken="Integrated Camera",
                verdicts={"Integrated Camera": BUILT_IN, "USB Camera": FOR_PLUGGING_IN, "QEMU USB Hub": BUILT_IN},
                reasons={"USB Camera": PLUGGED_IN_REASON}),
            checked=("built_in",))),
    Topology(
        "no_built_in", has_vivid=True, scenes=only_scene(
            (PLUG_IN, UNDECLARED), "NoBuiltInCamera.*",
            Expected(
                taken="",
                verdicts={"USB Camera": FOR_PLUGGING_IN, "Inspection Camera": NOBODY_SAYS},
                reasons={"USB Camera": PLUGGED_IN_REASON, "Inspection Camera": NOBODY_SAYS_REASON,
                         "vivid": NO_USB_REASON}),
            checked=("plug_in",))),
    Topology(
        "undeclared", scenes=only_scene(
            (Camera("first", "1", Port.UNDECLARED, "05a3:9230", "Inspection Camera",
                    (Function("Inspection Camera", YUYV_FIRST),)),
             Camera("second", "7", Port.UNDECLARED, "04f2:b6be", "Integrated Camera",
                    (Function("Integrated Camera", MJPG_FIRST),))),
            "NoBuiltInCamera.*",
            Expected(
                taken="",
                verdicts={"Inspection Camera": NOBODY_SAYS, "Integrated Camera": NOBODY_SAYS},
                reasons={"Inspection Camera": NOBODY_SAYS_REASON, "Integrated Camera": NOBODY_SAYS_REASON}))),
    Topology(
        "infrared", scenes=(
            Scene("colour_then_infrared", (built_in("5", COLOUR, INFRARED),), PICTURES,
                  Expected(taken="Integrated Camera: Colour", verdicts=ONLY_BUILT_IN, reasons={},
                           other_nodes={"Integrated Camera: Infrared": INFRARED_REASON}), streamed=("built_in",)),
            Scene("infrared_then_colour", (built_in("5", INFRARED, COLOUR),), PICTURES,
                  Expected(taken="Integrated Camera: Colour", verdicts=ONLY_BUILT_IN, reasons={},
                           other_nodes={"Integrated Camera: Infrared": INFRARED_REASON})),
            Scene("infrared_only", (INFRARED_IN_FRONT,), "NoBuiltInCamera.*",
                  Expected(taken="", verdicts={"IR Camera": BUILT_IN}, reasons={},
                           other_nodes={"IR Camera: Infrared": INFRARED_REASON})),
            Scene("infrared_in_front", (INFRARED_IN_FRONT, built_in("5", COLOUR)), PICTURES,
                  Expected(taken="Integrated Camera: Colour",
                           verdicts={"Integrated Camera": BUILT_IN, "IR Camera": BUILT_IN}, reasons={},
                           other_nodes={"IR Camera: Infrared": INFRARED_REASON})))),
    Topology(
        "pixel_formats", scenes=(
            pixel_formats("mjpg_and_nv12", MJPG_AND_NV12),
            pixel_formats("h264_and_uyvy", H264_AND_UYVY),
            pixel_formats("nv12_only", NV12_ONLY),
            pixel_formats("mjpg_without_end_of_image", MJPG_ONLY, has_end_of_image=False))),
)}
