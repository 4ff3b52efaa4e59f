#!/usr/bin/env bash
# Fetches the kernel that the tests of real drivers boot, once, into build/deps/kernel.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/fetch-kernel.sh

Fetches Debian's kernel (the package that linux-image-amd64 stands for) without installing it, and keeps what
the tests of real drivers boot in a virtual machine, in build/deps/kernel: vmlinux, and in modules/ the
drivers of USB, cameras and shared folders.
USAGE
}

case "${1:-}" in
  '') ;;
  -h | --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac

deps=$(cd "$(dirname "$0")/.." && pwd)/build/deps
kernel=$deps/kernel
# Raise it when what is kept changes: what was fetched for another number is fetched again.
recipe=1
if [ -e "$kernel/.recipe-$recipe" ]; then
  echo "kernel: build/deps/kernel is up to date"
  exit 0
fi
if [ "$(dpkg --print-architecture)" != amd64 ]; then
  echo "kernel: the tests of real drivers are for PCs (amd64); nothing to fetch"
  exit 0
fi
mkdir -p "$deps"
rm -rf "$deps"/kernel.??????
scratch=$(mktemp -d "$deps/kernel.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)

# The package of this release's current kernel.
find_package() {
  apt-cache depends linux-image-amd64 2>/dev/null | sed -n 's/^ *Depends: \(linux-image-[^ ]*\)$/\1/p' | head -n 1
}
download() { (cd "$scratch" && apt-get -qq -o APT::Sandbox::User=root download "$1" </dev/null); }

package=$(find_package)
# A machine that has never fetched its package lists, or not for long, does so now.
if [ -z "$package" ] || ! download "$package" 2>/dev/null; then
  "${as_root[@]}" apt-get -qq update </dev/null
  package=$(find_package)
  [ -n "$package" ] || { echo "kernel: apt knows no linux-image-amd64; is Debian's main archive among its sources?" >&2; exit 1; }
  download "$package"
fi
echo "kernel: unpacking $package"
mkdir "$scratch/unpacked" "$scratch/kept"
folders=()
for folder in drivers/media drivers/usb drivers/virtio fs/9p fs/fscache fs/netfs net/9p; do
  folders+=("./lib/modules/*/kernel/$folder/*")
done
dpkg-deb --fsys-tarfile "$scratch/$package"_*.deb |
  tar -x -C "$scratch/unpacked" --wildcards './boot/vmlinuz-*' "${folders[@]}"
mv "$scratch"/unpacked/lib/modules/*/kernel "$scratch/kept/modules"
# Unpacked: a virtual machine takes longer to unpack it than to boot it.
python3 - "$scratch"/unpacked/boot/vmlinuz-* "$scratch/kept/vmlinux" <<'UNPACK'
import lzma
import sys

packed = open(sys.argv[1], "rb").read()
begin = packed.find(b"\xfd7zXZ\0")
if begin < 0:
    sys.exit("kernel: it is not packed with xz any more; mend scripts/fetch-kernel.sh")
open(sys.argv[2], "wb").write(lzma.LZMADecompressor().decompress(packed[begin:]))
UNPACK
touch "$scratch/kept/.recipe-$recipe"
rm -rf "$kernel"
mv "$scratch/kept" "$kernel"
echo "kernel: done"
