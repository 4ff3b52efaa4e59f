"""The sysfs and /dev of a PC with a built-in USB camera, for camera_host."""

import os

_HUB = "sys/devices/pci0000:00/0000:00:14.0/usb1"
_ATTRIBUTES = {
    _HUB: {"idVendor": "1d6b", "idProduct": "0002", "removable": "unknown", "bDeviceClass": "09"},
    f"{_HUB}/1-5": {"idVendor": "04f2", "idProduct": "b6be", "removable": "fixed", "bDeviceClass": "ef"},
    f"{_HUB}/1-5/1-5:1.0": {"bInterfaceNumber": "00", "bInterfaceClass": "0e"},
    f"{_HUB}/1-5/1-5:1.0/video4linux/video0": {"name": "Integrated Camera", "index": "0", "dev": "81:0"},
}
_LINKS = {"sys/bus/usb/devices": (_HUB, f"{_HUB}/1-5", f"{_HUB}/1-5/1-5:1.0"),
          "sys/class/video4linux": (f"{_HUB}/1-5/1-5:1.0/video4linux/video0",)}


def make(folder):
    """Writes the tree below a folder."""
    for path, attributes in _ATTRIBUTES.items():
        (folder / path).mkdir(parents=True)
        for name, value in attributes.items():
            (folder / path / name).write_text(value + "\n")
    for path, targets in _LINKS.items():
        (folder / path).mkdir(parents=True)
        for target in targets:
            link = folder / path / os.path.basename(target)
            link.symlink_to(os.path.relpath(folder / target, link.parent))
    (folder / list(_ATTRIBUTES)[-1] / "device").symlink_to("../..")
    (folder / "dev").mkdir()
    (folder / "dev/video0").touch()
