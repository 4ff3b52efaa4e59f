#!/usr/bin/env bash
# Fetches the recorded clips that tests and benchmarks play, once, into build/deps/clips.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/fetch-clips.sh [--all]

Fetches recordings of real cameras out of Debian packages, without installing these, into build/deps/clips:
  cockatoo.mp4              a webcam's picture, 1280x720, 14 s (from python3-imageio)
With --all, also what only the benchmarks play:
  VID_20191220_170832.mp4   a phone's (from forensics-samples-files)
USAGE
}

wanted=(python3-imageio:cockatoo.mp4)
case "${1:-}" in
  '') ;;
  --all) wanted+=(forensics-samples-files:VID_20191220_170832.mp4) ;;
  -h | --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac

clips=$(cd "$(dirname "$0")/.." && pwd)/build/deps/clips
mkdir -p "$clips"
scratch=$(mktemp -d "$clips/fetch.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

# fetch PACKAGE FILE: that file out of that package.
fetch() {
  local package=$1 file=$2 found
  echo "clips: fetching $package"
  download() { (cd "$scratch" && apt-get -qq -o APT::Sandbox::User=root download "$package" </dev/null); }
  # A machine that has never fetched its package lists does so now.
  download 2>/dev/null || { apt-get -qq update </dev/null && download; }
  dpkg-deb -x "$scratch/$package"_*.deb "$scratch/$package"
  found=$(find "$scratch/$package" -name "$file" | head -n 1)
  [ -n "$found" ] || { echo "clips: $package has no $file any more; choose another clip" >&2; exit 1; }
  mv "$found" "$clips/$file"
}

fetched=no
for clip in "${wanted[@]}"; do
  [ ! -e "$clips/${clip#*:}" ] || continue
  fetch "${clip%%:*}" "${clip#*:}"
  fetched=yes
done
if [ "$fetched" = yes ]; then
  echo "clips: done"
else
  echo "clips: build/deps/clips is up to date"
fi
