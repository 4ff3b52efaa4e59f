#!/usr/bin/env bash
# Fetches the recorded clips that tests play, once, into build/deps/clips.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/fetch-clips.sh

Fetches recordings of real cameras out of Debian packages, without installing these, into build/deps/clips:
  cockatoo.mp4   a webcam's picture, 1280x720, 14 s (from python3-imageio)
USAGE
}

case "${1:-}" in
  '') ;;
  -h | --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac

clips=$(cd "$(dirname "$0")/.." && pwd)/build/deps/clips
if [ -e "$clips/cockatoo.mp4" ]; then
  echo "clips: build/deps/clips is up to date"
  exit 0
fi
mkdir -p "$clips"
scratch=$(mktemp -d "$clips/fetch.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
echo "clips: fetching python3-imageio"
download() { (cd "$scratch" && apt-get -qq -o APT::Sandbox::User=root download python3-imageio </dev/null); }
# A machine that has never fetched its package lists does so now.
download 2>/dev/null || { apt-get -qq update </dev/null && download; }
dpkg-deb -x "$scratch"/python3-imageio_*.deb "$scratch/unpacked"
found=$(find "$scratch/unpacked" -name cockatoo.mp4 | head -n 1)
[ -n "$found" ] || { echo "clips: python3-imageio has no cockatoo.mp4 any more; choose another clip" >&2; exit 1; }
mv "$found" "$clips/cockatoo.mp4"
echo "clips: done"
