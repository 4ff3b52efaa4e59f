#!/usr/bin/env bash
# Runs the library, or nuveqcam view, for a long time with the simulated PC and checks for leaks, lost frames and hangs.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/soak.sh [--build FOLDER] [FRAMES [ROUNDS]]
       scripts/soak.sh [--build FOLDER] --view [SECONDS]

Runs one session of FRAMES frames (default: 1000000) at the maximum rate, then ROUNDS rounds (default: 10000) of query,
open, a few frames and close. Decodes every packet and reads the number in its picture. Memory, threads and descriptors
must not grow after the first 5 %. Takes about 15 minutes.

With --view, lets viewers of nuveqcam view connect, read, stall and disconnect for SECONDS (default: 600) while sizes
change, snapshots are taken and recordings are made. Memory, threads and descriptors must not grow after the first 20 %.

Builds the preset native if necessary. On success the last line is "soak: ok" and the exit code is 0.
  --build FOLDER   use the programs in FOLDER/bin; do not build
USAGE
}

folder=
program=soak
while [ $# -gt 0 ]; do
  case "$1" in
    -h | --help) usage; exit 0 ;;
    --build)
      [ $# -ge 2 ] || { usage >&2; exit 2; }
      # Resolved here, because the script changes its working directory below.
      folder=$(cd "$2" && pwd) || exit 2
      shift 2
      ;;
    --view) program=nuveqcam; shift ;;
    -*) usage >&2; exit 2 ;;
    *) break ;;
  esac
done
[ $# -le 2 ] && { [ "$program" = soak ] || [ $# -le 1 ]; } || { usage >&2; exit 2; }
for number in "$@"; do
  [[ "$number" =~ ^[0-9]+$ ]] || { usage >&2; exit 2; }
done
cd "$(dirname "$0")/.."

# quietly COMMAND...: shows the output only if the command fails.
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
  quietly cmake --build --preset native --target "$program" nuveqcamerahandler
fi
[ -x "$folder/bin/$program" ] || { echo "soak.sh: $folder/bin/$program does not exist; build it first" >&2; exit 1; }
if [ "$program" = nuveqcam ]; then
  options=()
  if grep -qs '^NUVEQ_INSTRUMENTATION:.*=.' "$folder/CMakeCache.txt"; then
    # Sanitizers keep freed memory.
    options=(--max-growth 100)
  fi
  exec tests/robustness/soak/view_soak.py "$folder/bin/nuveqcam" "${1:-600}" "${options[@]}"
fi
exec "$folder/bin/soak" "${1:-1000000}" "${2:-10000}"
