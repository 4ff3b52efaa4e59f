#!/usr/bin/env bash
# Builds the zip archive for Windows.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/make-windows-package.sh FOLDER

Installs missing packages, builds, and writes the zip archive for Windows, its checksum and an archive of the binaries
with debug information to FOLDER.
USAGE
}

case "${1:-}" in
  -h | --help) usage; exit 0 ;;
  '' | -*) usage >&2; exit 2 ;;
esac
folder=$(realpath "$1")
cd "$(dirname "$0")/.."
scripts/install-packages.sh windows
scripts/bootstrap-deps.sh windows
cmake --preset windows -DBUILD_TESTING=OFF
cmake --build --preset windows
cpack --config build/windows/CPackConfig.cmake -B "$folder"
rm -rf "$folder/_CPack_Packages"
archive=$(basename "$folder"/nuveqcamerahandler-*-windows-x86_64.zip .zip)
tar -C build/windows -czf "$folder/$archive-unstripped.tar.gz" bin
