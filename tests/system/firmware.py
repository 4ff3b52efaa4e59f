"""What the machine's firmware says of its USB ports: an ACPI table beside those that QEMU brings."""

import subprocess

from topologies import Port

# Where QEMU's own tables have the USB controller, by its place on the PCI bus: slot 5, function 0.
CONTROLLER_SLOT = "05.0"
CONTROLLER = r"\_SB.PCI0.S28"
# The controller numbers its SuperSpeed ports first.
SUPER_SPEED_PORTS = 1
HIGH_SPEED_PORTS = 8


def port_object(number, declared, offset=0, inner=""):
    """A port and what is below it. offset: of the port's number in the eyes of what it belongs to."""
    said = ""
    if declared is not Port.UNDECLARED:
        visible = 1 if declared is Port.USER_VISIBLE else 0
        said = (f"Name (_UPC, Package () {{ 0xFF, 0xFF, 0, 0 }})\n"
                f"Name (_PLD, Package () {{ ToPLD (PLD_Revision = 2, PLD_UserVisible = {visible}) }})\n")
    return f"Device (PRT{number}) {{\nName (_ADR, {int(number) + offset})\n{said}{inner}}}\n"


def source(topology):
    """The table in ASL; empty where there is nothing to say."""
    places = list(topology.hubs) + list(topology.cameras)
    if all(place.declared is Port.UNDECLARED for place in places):
        return ""
    ports = ""
    for place in places:
        if "." in place.port:
            continue
        below = "".join(port_object(camera.port.split(".")[1], camera.declared) for camera in topology.cameras
                        if camera.port.startswith(place.port + "."))
        ports += port_object(place.port, place.declared, SUPER_SPEED_PORTS, below)
    return (f'DefinitionBlock ("", "SSDT", 2, "NUVEQ", "USBPORTS", 1) {{\n'
            f"External ({CONTROLLER}, DeviceObj)\nScope ({CONTROLLER}) {{\n"
            f"Device (RHUB) {{\nName (_ADR, 0)\n{ports}}}\n}}\n}}\n")


def compile_table(topology, folder):
    """The table as QEMU takes it; None where there is nothing to say."""
    text = source(topology)
    if not text:
        return None
    asl = folder / "usb_ports.asl"
    asl.write_text(text)
    result = subprocess.run(["iasl", "-p", str(folder / "usb_ports"), str(asl)], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
    if result.returncode != 0:
        raise RuntimeError("iasl refuses the ACPI table:\n" + result.stdout.decode(errors="replace"))
    return folder / "usb_ports.aml"
