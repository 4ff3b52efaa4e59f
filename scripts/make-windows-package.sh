#!/usr/bin/env bash
# Builds the zip archive for Windows.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/make-windows-package.sh FOLDER

Installs missing packages, builds, and writes to FOLDER: the zip archive for Windows, its checksum, the source of FFmpeg,
whose licence requires it to be offered together with the archive, and an archive of the binaries with debug information.
USAGE
}

case "${1:-}" in
  -h | --help) usage; exit 0 ;;
  '' | -*) usage >&2; exit 2 ;;
esac
folder=$(realpath -m "$1")
cd "$(dirname "$0")/.."
# A folder of its own, because the preset's is configured with tests.
build=build/windows-package
scripts/install-packages.sh windows
scripts/bootstrap-deps.sh windows
rm -rf "$build"
cmake --preset windows -B "$build" -DBUILD_TESTING=OFF
cmake --build "$build"
mkdir -p "$folder"
cpack --config "$build/CPackConfig.cmake" -B "$folder"
rm -rf "$folder/_CPack_Packages"
archive=$(sed -n 's/^set(CPACK_PACKAGE_FILE_NAME "\(.*\)")$/\1/p' "$build/CPackConfig.cmake")
tar -C build/deps/sources -czf "$folder/$archive-ffmpeg-source.tar.gz" ffmpeg
tar -C "$build" -czf "$folder/$archive-unstripped.tar.gz" bin
