"""The PCs that are put together in the virtual machine: what is plugged in where, and what the firmware says."""

from dataclasses import dataclass
from enum import Enum


class Port(Enum):
    """What the firmware (ACPI's _UPC and _PLD) says of a port."""

    HARD_WIRED = "connectable, not visible to the user: something is built in there"
    USER_VISIBLE = "connectable and visible to the user: for plugging in"
    UNDECLARED = "nothing"


@dataclass(frozen=True)
class Camera:
    name: str
    port: str  # "5"; behind the hub at port 5: "5.2"
    declared: Port
    usb_id: str
    product: str
    formats: tuple  # the arguments --format of the camera

    @property
    def speed(self):
        # The machine's hubs are full-speed ones.
        return "full" if "." in self.port else "high"


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


@dataclass(frozen=True)
class Expected:
    """What nuveqcam says."""

    taken: str  # the product that is offered; empty: none
    verdicts: dict  # of the USB devices, by product
    reasons: dict  # why capture devices are not taken, by name


@dataclass(frozen=True)
class Topology:
    name: str
    tests: str  # a filter of the guest's tests
    cameras: tuple
    hubs: tuple
    has_vivid: bool  # the kernel's own test camera, which is no USB device
    checked: tuple  # the cameras that v4l2-compliance looks at
    expected: Expected


# Sizes that software emulation encodes at these rates. Of the two layouts the one with the higher rate is taken.
YUYV_FIRST = ("YUYV:640x480@30,15", "YUYV:320x240@60,15", "YUYV:160x120@60,15",
              "MJPG:640x480@15", "MJPG:320x240@15", "MJPG:160x120@15")
MJPG_FIRST = ("MJPG:640x480@25", "MJPG:320x240@60,30", "MJPG:160x120@60,30",
              "YUYV:640x480@5", "YUYV:320x240@15", "YUYV:160x120@30")


def built_in(port, formats):
    return Camera("built_in", port, Port.HARD_WIRED, "04f2:b6be", "Integrated Camera", formats)


PLUG_IN = Camera("plug_in", "6", Port.USER_VISIBLE, "0c45:6366", "USB Camera", YUYV_FIRST)
UNDECLARED = Camera("undeclared", "7", Port.UNDECLARED, "05a3:9230", "Inspection Camera", YUYV_FIRST)

TOPOLOGIES = {topology.name: topology for topology in (
    Topology(
        "own_port", "*BuiltInCamera.*-NoBuiltInCamera.*", (UNDECLARED, PLUG_IN, built_in("5", YUYV_FIRST)), hubs=(), has_vivid=True,
        checked=(),
        expected=Expected(
            taken="Integrated Camera",
            verdicts={"Integrated Camera": BUILT_IN, "USB Camera": FOR_PLUGGING_IN, "Inspection Camera": NOBODY_SAYS},
            reasons={"USB Camera": PLUGGED_IN_REASON, "Inspection Camera": NOBODY_SAYS_REASON,
                     "vivid": NO_USB_REASON})),
    Topology(
        "internal_hub", "*BuiltInCamera.*-NoBuiltInCamera.*", (PLUG_IN, built_in("5.2", MJPG_FIRST)),
        hubs=(Hub("5", Port.HARD_WIRED),), has_vivid=False, checked=("built_in",),
        expected=Expected(
            taken="Integrated Camera",
            verdicts={"Integrated Camera": BUILT_IN, "USB Camera": FOR_PLUGGING_IN, "QEMU USB Hub": BUILT_IN},
            reasons={"USB Camera": PLUGGED_IN_REASON})),
    Topology(
        "no_built_in", "NoBuiltInCamera.*", (PLUG_IN, UNDECLARED), hubs=(), has_vivid=True, checked=("plug_in",),
        expected=Expected(
            taken="",
            verdicts={"USB Camera": FOR_PLUGGING_IN, "Inspection Camera": NOBODY_SAYS},
            reasons={"USB Camera": PLUGGED_IN_REASON, "Inspection Camera": NOBODY_SAYS_REASON,
                     "vivid": NO_USB_REASON})),
    Topology(
        "undeclared", "NoBuiltInCamera.*",
        (Camera("first", "1", Port.UNDECLARED, "05a3:9230", "Inspection Camera", YUYV_FIRST),
         Camera("second", "7", Port.UNDECLARED, "04f2:b6be", "Integrated Camera", MJPG_FIRST)),
        hubs=(), has_vivid=False, checked=(),
        expected=Expected(
            taken="",
            verdicts={"Inspection Camera": NOBODY_SAYS, "Integrated Camera": NOBODY_SAYS},
            reasons={"Inspection Camera": NOBODY_SAYS_REASON, "Integrated Camera": NOBODY_SAYS_REASON})),
)}
