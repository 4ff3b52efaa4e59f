#!/usr/bin/env bash
# Fetches the video clips for tests and benchmarks into build/deps/clips.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/fetch-clips.sh [--all]

Extracts recordings of real cameras from Debian packages into build/deps/clips, without installing the packages:
  cockatoo.mp4              webcam, 1280x720, 14 s (from python3-imageio)
  --all   also fetches the clips for the benchmarks:
  VID_20191220_170832.mp4   phone (from forensics-samples-files)
USAGE
}

clips=(python3-imageio:cockatoo.mp4)
case "${1:-}" in
  '') ;;
  --all) clips+=(forensics-samples-files:VID_20191220_170832.mp4) ;;
  -h | --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac

folder=$(cd "$(dirname "$0")/.." && pwd)/build/deps/clips
mkdir -p "$folder"
scratch=$(mktemp -d "$folder/fetch.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

apt_folder=$scratch/apt
topic=clips
log=$scratch/log
: >"$log"
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
. "$(dirname "$0")/apt-source.sh"
# The release whose packages contain the clips.
release=bookworm
codename=$(. /etc/os-release && echo "$VERSION_CODENAME")

# download PACKAGE: downloads the package of that release into $scratch.
download() {
  if [ "$codename" = "$release" ]; then
    # The machine may not have fetched package lists yet.
    (cd "$scratch" && apt-get -qq -o APT::Sandbox::User=root download "$1" </dev/null >>"$log" 2>&1) && return
    "${as_root[@]}" apt-get -qq update </dev/null
    (cd "$scratch" && apt-get -qq -o APT::Sandbox::User=root download "$1" </dev/null >>"$log" 2>&1)
  else
    [ -d "$apt_folder" ] || update_private_apt deb "$release"
    (cd "$scratch" && private_apt download "$1" >>"$log" 2>&1)
  fi
}

# fetch PACKAGE FILE: extracts the file from the package.
fetch() {
  local package=$1 file=$2 found
  echo "clips: fetching $package"
  download "$package" ||
    { echo "clips: cannot fetch $package of Debian $release from this machine's mirror" >&2; cat "$log" >&2; exit 1; }
  dpkg-deb -x "$scratch/$package"_*.deb "$scratch/$package"
  found=$(find "$scratch/$package" -name "$file" | head -n 1)
  [ -n "$found" ] || { echo "clips: $package no longer contains $file; choose another clip" >&2; exit 1; }
  mv "$found" "$folder/$file"
}

fetched=no
for clip in "${clips[@]}"; do
  [ ! -e "$folder/${clip#*:}" ] || continue
  fetch "${clip%%:*}" "${clip#*:}"
  fetched=yes
done
if [ "$fetched" = yes ]; then
  echo "clips: done"
else
  echo "clips: build/deps/clips is up to date"
fi
