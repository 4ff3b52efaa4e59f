#!/usr/bin/env bash
# Installs the missing Debian packages for building and testing. Requires root (or sudo) only if a package is missing.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/install-packages.sh [native | demo | clang | qemu | bench | browser | windows]...

Installs the packages of Debian 12 or 13 that are missing on this machine.
  native    compilers, build tools, test tools and libraries of the Linux build (default)
  demo      build dependencies of the library and of nuveqcam
  clang     clang with its sanitizers and tools, for the preset asan, clang-tidy, fuzzing and mutants; requires native too
  qemu      the virtual machine of the tests with real drivers, and what its guest consists of; requires native too
  bench     programs and libraries that the comparisons in bench/ use; requires native too
  browser   Chromium and its driver, for the tests of the page of 'nuveqcam view'
  windows   cross compiler, Wine, and other tools for building and testing the Windows library
USAGE
}

# The version of clang in this release; the package of its sanitizer runtime has no name without it.
case $(. /etc/os-release && echo "${ID:-}-${VERSION_ID:-}") in
  debian-12) clang_version=14 ;;
  debian-13) clang_version=19 ;;
  *) echo "packages: this script supports Debian 12 and 13 only" >&2; exit 1 ;;
esac

demo=(
  binutils ca-certificates cmake dpkg-dev file g++ libavcodec-dev libavformat-dev libavutil-dev libboost-dev libcli11-dev
  libjpeg62-turbo-dev libopenh264-dev libstb-dev libswscale-dev libturbojpeg0-dev libutfcpp-dev libyuv-dev ninja-build
  nlohmann-json3-dev pkg-config
)
native=(
  "${demo[@]}" clang-format ffmpeg git libbenchmark-dev libgmock-dev libgtest-dev libusbredirparser-dev mandoc python3
  python3-pytest valgrind
)
clang=(clang clang-tidy "libclang-rt-$clang_version-dev" llvm python3-clang python3-yaml)
qemu=(acpica-tools busybox-static cpio qemu-system-x86 v4l-utils zstd)
bench=(
  ca-certificates dpkg-dev ffmpeg gcc gstreamer1.0-plugins-bad gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-ugly gstreamer1.0-tools libopenh264-dev libx264-dev make nasm pkg-config python3 xvfb
)
browser=(chromium chromium-driver fonts-dejavu-core python3-pytest python3-selenium)
windows=(
  ca-certificates cmake dpkg-dev ffmpeg g++ g++-mingw-w64-x86-64-posix googletest libboost-dev libcli11-dev libstb-dev
  libutfcpp-dev make nasm ninja-build nlohmann-json3-dev python3 python3-pytest wine wine64
)

packages=()
[ $# -gt 0 ] || set -- native
for set in "$@"; do
  case "$set" in
    native) packages+=("${native[@]}") ;;
    demo) packages+=("${demo[@]}") ;;
    clang) packages+=("${clang[@]}") ;;
    qemu) packages+=("${qemu[@]}") ;;
    bench) packages+=("${bench[@]}") ;;
    browser) packages+=("${browser[@]}") ;;
    windows) packages+=("${windows[@]}") ;;
    -h | --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
done
mapfile -t packages < <(printf '%s\n' "${packages[@]}" | sort -u)

missing=()
for package in "${packages[@]}"; do
  state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) || state=absent
  [ "$state" = installed ] || missing+=("$package")
done
if [ "${#missing[@]}" -eq 0 ]; then
  echo "packages: all ${#packages[@]} are installed"
  exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "packages: missing: ${missing[*]}; install them as root, then rerun this script" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "packages: installing ${missing[*]}"
# An interrupted installation would leave packages half installed.
trap '' TERM
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get -qq update </dev/null
"${as_root[@]}" apt-get -qq -y --no-install-recommends -o Dpkg::Use-Pty=0 install "${missing[@]}" </dev/null >/dev/null
echo "packages: done"
