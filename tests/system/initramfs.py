"""The guest's initramfs: busybox, the kernel modules and the init script that loads them."""

import re
import shutil
import subprocess
from pathlib import Path

REQUIRED_MODULES = ("virtio_pci", "9pnet_virtio", "9p", "xhci_pci", "uvcvideo")


def module_name(file):
    return Path(file).stem.replace("-", "_")


def module_files(folder):
    return {module_name(path): path for path in folder.rglob("*.ko")}


def dependencies(path):
    found = re.search(rb"\0depends=([^\0]*)\0", path.read_bytes())
    names = found.group(1).decode() if found else ""
    return [name.replace("-", "_") for name in names.split(",") if name]


def load_order(files, built_in, names):
    """The named modules and their dependencies, each after the modules that it depends on, without those built in."""
    order = []

    def add(name):
        if name in order or name in built_in:
            return
        if name not in files:
            raise RuntimeError(f"the kernel has no module {name}; remove build/deps/kernel and fetch it again")
        for dependency in dependencies(files[name]):
            add(dependency)
        order.append(name)

    for name in names:
        add(name)
    return order


def build(kernel, topology, folder):
    """Creates folder/initramfs and returns its path."""
    root = folder / "initramfs-files"
    shutil.rmtree(root, ignore_errors=True)
    for name in ("bin", "dev", "host", "modules", "proc", "sys"):
        (root / name).mkdir(parents=True)
    shutil.copy(shutil.which("busybox") or "/bin/busybox", root / "bin/busybox")
    files = module_files(kernel / "modules")
    built_in = {module_name(line) for line in (kernel / "modules.builtin").read_text().splitlines()}
    names = REQUIRED_MODULES + (("vivid",) if topology.has_vivid else ())
    arguments = {"vivid": " n_devs=1 node_types=0x1"}
    lines = ""
    for name in load_order(files, built_in, names):
        shutil.copy(files[name], root / "modules")
        lines += f"busybox insmod /modules/{files[name].name}{arguments.get(name, '')}\n"
    init = (Path(__file__).parent / "init").read_text()
    (root / "init").write_text(init.replace("@LOAD_MODULES@\n", lines))
    (root / "init").chmod(0o755)
    archive = folder / "initramfs"
    listing = "\n".join(["."] + [str(path.relative_to(root)) for path in sorted(root.rglob("*"))])
    with open(archive, "wb") as out:
        subprocess.run(["cpio", "--quiet", "-o", "-H", "newc"], cwd=root, input=listing.encode(), stdout=out,
                       check=True, timeout=60)
    return archive
