#!/usr/bin/env bash
# Fetches the kernel for the tests with real drivers into build/deps/kernel.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/fetch-kernel.sh

Downloads Debian's kernel (the package on which linux-image-amd64 depends) without installing it, and extracts the
files for the virtual machine of the tests into build/deps/kernel: vmlinux, in modules/ the drivers for USB, cameras and
shared folders, and modules.builtin, the list of the drivers that vmlinux contains.
USAGE
}

case "${1:-}" in
  '') ;;
  -h | --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac

deps=$(cd "$(dirname "$0")/.." && pwd)/build/deps
kernel=$deps/kernel
# Increment when the set of files changes: a folder with another number is fetched again.
recipe=3
if [ -e "$kernel/.recipe-$recipe" ]; then
  echo "kernel: build/deps/kernel is up to date"
  exit 0
fi
if [ "$(dpkg --print-architecture)" != amd64 ]; then
  echo "kernel: nothing to fetch; the tests with real drivers require amd64"
  exit 0
fi
mkdir -p "$deps"
rm -rf "$deps"/kernel.??????
scratch=$(mktemp -d "$deps/kernel.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)

# Prints the name of the package with this release's current kernel.
find_package() {
  apt-cache depends linux-image-amd64 2>/dev/null | sed -n 's/^ *Depends: \(linux-image-[^ ]*\)$/\1/p' | head -n 1
}
download() { (cd "$scratch" && apt-get -qq -o APT::Sandbox::User=root download "$1" </dev/null); }

package=$(find_package)
# The package lists may be missing or outdated.
if [ -z "$package" ] || ! download "$package" 2>/dev/null; then
  "${as_root[@]}" apt-get -qq update </dev/null
  package=$(find_package)
  [ -n "$package" ] || { echo "kernel: apt cannot find linux-image-amd64; check that Debian's main archive is among its sources" >&2; exit 1; }
  download "$package"
fi
echo "kernel: unpacking $package"
mkdir "$scratch/unpacked" "$scratch/kept"
folders=()
for folder in drivers/media drivers/usb drivers/virtio fs net/9p; do
  # In ./usr/lib since Debian 13.
  folders+=("./*lib/modules/*/kernel/$folder/*")
done
dpkg-deb --fsys-tarfile "$scratch/$package"_*.deb |
  tar -x -C "$scratch/unpacked" --wildcards './boot/vmlinuz-*' './*lib/modules/*/modules.builtin' "${folders[@]}"
mv "$(find "$scratch/unpacked" -name modules.builtin)" "$scratch/kept"
mv "$(find "$scratch/unpacked" -type d -path '*/modules/*/kernel')" "$scratch/kept/modules"
# Decompresses the kernel and its modules here, because under software emulation that takes longer than booting.
python3 - "$scratch"/unpacked/boot/vmlinuz-* "$scratch/kept" <<'UNPACK'
import lzma
import struct
import subprocess
import sys
from pathlib import Path


def decompressed(packed):
    """The data of an xz or zstd file, which other data may follow."""
    if packed.startswith(b"\xfd7zXZ\0"):
        return lzma.LZMADecompressor().decompress(packed)
    if packed.startswith(b"\x28\xb5\x2f\xfd"):
        return subprocess.run(["zstd", "-dc"], input=packed, stdout=subprocess.PIPE, check=True).stdout
    sys.exit("kernel: unknown compression; update scripts/fetch-kernel.sh")


def payload(image):
    """The compressed kernel in a boot image (Linux/x86 boot protocol 2.08: setup_sects, payload_offset and _length)."""
    offset, length = struct.unpack_from("<II", image, 0x248)
    begin = (image[0x1F1] + 1) * 512 + offset
    # The last four bytes are the size of the decompressed kernel.
    return image[begin:begin + length - 4]


image, kept = map(Path, sys.argv[1:])
(kept / "vmlinux").write_bytes(decompressed(payload(image.read_bytes())))
for module in (kept / "modules").rglob("*.ko.xz"):
    module.with_suffix("").write_bytes(decompressed(module.read_bytes()))
    module.unlink()
UNPACK
touch "$scratch/kept/.recipe-$recipe"
rm -rf "$kernel"
mv "$scratch/kept" "$kernel"
echo "kernel: done"
