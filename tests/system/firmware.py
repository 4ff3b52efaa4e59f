"""The ACPI table (SSDT) that describes the machine's USB ports, in addition to QEMU's own tables."""

import subprocess

from topologies import Port

# The USB controller on the PCI bus (slot 5, function 0) and its path in QEMU's ACPI namespace.
CONTROLLER_SLOT = "05.0"
CONTROLLER = r"\_SB.PCI0.S28"
# The controller numbers its SuperSpeed ports first.
SUPER_SPEED_PORTS = 1
HIGH_SPEED_PORTS = 8


def port_object(number, declared, offset=0, inner=""):
    """The ASL object of a port with its child objects. offset: difference between _ADR and the port's number."""
    properties = ""
    if declared is not Port.UNDECLARED:
        visible = 1 if declared is Port.USER_VISIBLE else 0
        properties = (f"Name (_UPC, Package () {{ 0xFF, 0xFF, 0, 0 }})\n"
                      f"Name (_PLD, Package () {{ ToPLD (PLD_Revision = 2, PLD_UserVisible = {visible}) }})\n")
    return f"Device (PRT{number}) {{\nName (_ADR, {int(number) + offset})\n{properties}{inner}}}\n"


def source(topology):
    """Returns the table in ASL, or an empty string if the topology declares no port."""
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
    """Compiles the table and returns the path of the AML file, or None if the topology declares no port."""
    text = source(topology)
    if not text:
        return None
    asl = folder / "usb_ports.asl"
    asl.write_text(text)
    result = subprocess.run(["iasl", "-p", str(folder / "usb_ports"), str(asl)], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
    if result.returncode != 0:
        raise RuntimeError("iasl rejects the ACPI table:\n" + result.stdout.decode(errors="replace"))
    return folder / "usb_ports.aml"
