#!/usr/bin/env bash
# Runs the library for long over the simulated PC and watches that nothing grows, gets lost or hangs.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/soak.sh [--build FOLDER] [FRAMES [ROUNDS]]

Runs one session of FRAMES frames (default: 1000000), delivered as fast as they are taken, then ROUNDS times query,
open, a few frames, close (default: 10000). Every packet is decoded and the number in its picture read; memory,
threads and descriptors must stay what they are after the first twentieth. Takes about 15 minutes. Builds the preset
native where that is needed. The last line is "soak: ok"; the exit code is 0 when nothing failed.
  --build FOLDER   uses the program in FOLDER/bin as it is, and builds nothing
USAGE
}

folder=
while [ $# -gt 0 ]; do
  case "$1" in
    -h | --help) usage; exit 0 ;;
    --build)
      [ $# -ge 2 ] || { usage >&2; exit 2; }
      # Before this script changes its folder.
      folder=$(cd "$2" && pwd) || exit 2
      shift 2
      ;;
    -*) usage >&2; exit 2 ;;
    *) break ;;
  esac
done
[ $# -le 2 ] || { usage >&2; exit 2; }
for number in "$@"; do
  [[ "$number" =~ ^[0-9]+$ ]] || { usage >&2; exit 2; }
done
cd "$(dirname "$0")/.."

# quietly COMMAND...: what it prints is shown only when it fails.
quietly() {
  local log=build/soak.log
  mkdir -p build
  "$@" >"$log" 2>&1 </dev/null || { tail -n 40 "$log" >&2; echo "soak.sh: $1 failed; see $log" >&2; exit 1; }
}

if [ -z "$folder" ]; then
  folder=build/native
  echo "soak.sh: building"
  quietly scripts/install-packages.sh native
  quietly scripts/bootstrap-deps.sh native
  quietly cmake --preset native
  quietly cmake --build --preset native --target soak
fi
[ -x "$folder/bin/soak" ] || { echo "soak.sh: there is no program $folder/bin/soak; build it first" >&2; exit 1; }
exec "$folder/bin/soak" --frames "${1:-1000000}" --rounds "${2:-10000}"
