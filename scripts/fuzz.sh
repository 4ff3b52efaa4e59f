#!/usr/bin/env bash
# Runs the fuzz targets for a given time and reports their coverage.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  cat <<'USAGE'
usage: scripts/fuzz.sh MINUTES [TARGET...]

Installs missing packages, builds the fuzz targets (preset asan) and runs each target for MINUTES minutes, two at a
time. The corpus of each target is kept in build/fuzz/TARGET and extended by the next run.

targets (default: all):
  media_types   media types of a camera, up to the capability records
  session       sequences of calls, results of the platform, and frames
  v4l2          responses of a camera's driver, through the Linux platform
  mjpeg         images, through the MJPEG decoder
  arguments     command lines of nuveqcam
  view          requests to nuveqcam view

The exit code is 0 if no input failed. Failing inputs are in build/fuzz/found; reproduce a failure with
  build/asan/bin/TARGET_fuzz build/fuzz/found/TARGET-crash-...
The environment variable FUZZ_BUILD overrides the build folder (default: build/asan).
USAGE
}

all=(media_types session v4l2 mjpeg arguments view)
# The sources that each target exercises.
declare -A sources=(
  [media_types]='/src/'
  [session]='/src/'
  [v4l2]='/platform/linux/'
  [mjpeg]='/platform/linux/mjpeg/'
  [view]='/tools/nuveqcam/view/(AccessControl|Http|HttpParser|StreamBodies|ViewApi|ViewRecording|ViewService)[.]'
  [arguments]='/tools/nuveqcam/(cli/(Arguments|CommandLine)|recording/OutputKind)[.]'
)

case "${1:-}" in
  -h | --help) usage; exit 0 ;;
  '' | *[!0-9]*) usage >&2; exit 2 ;;
esac
[ "$((10#$1))" -gt 0 ] || { usage >&2; exit 2; }
minutes=$((10#$1))
shift
targets=("$@")
[ $# -gt 0 ] || targets=("${all[@]}")
for target in "${targets[@]}"; do
  [ -n "$target" ] && [ -n "${sources[$target]:-}" ] || { echo "fuzz: unknown target $target; valid targets: ${all[*]}" >&2; exit 2; }
done

build=${FUZZ_BUILD:-build/asan}
kept=build/fuzz
found=$kept/found
mkdir -p "$kept/logs" "$found"

set_up() {
  # Joined with &&, because set -e has no effect in a function whose result is tested.
  scripts/install-packages.sh native clang && scripts/bootstrap-deps.sh native && cmake --preset asan -B "$build" &&
    cmake --build "$build" --target "${targets[@]/%/_fuzz}"
}
echo "fuzz: building (log: $kept/logs/build.log)"
if ! set_up >"$kept/logs/build.log" 2>&1; then
  tail -n 30 "$kept/logs/build.log" >&2
  echo "fuzz: the build failed" >&2
  exit 1
fi

# Short allocation stacks, which save a quarter of the run time.
export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:malloc_context_size=3:quarantine_size_mb=32
export UBSAN_OPTIONS=print_stacktrace=1

# Ends the targets if the script exits early.
trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
trap 'exit 130' INT TERM

run() {
  local target=$1
  mkdir -p "$kept/$target"
  # exec, so that the signal of the trap reaches the target.
  exec "$build/bin/${target}_fuzz" -max_total_time=$((minutes * 60)) -timeout=25 -rss_limit_mb=2048 -print_final_stats=1 \
    "-artifact_prefix=$found/$target-" "$kept/$target" "tests/robustness/fuzz/corpus/$target" >"$kept/logs/$target.log" 2>&1
}

echo "fuzz: ${#targets[@]} targets, $minutes min each, two at a time"
declare -A result
running=()
# Waits for the oldest target; all run for the same time.
finish_one() {
  local target=${running[0]%%:*} process=${running[0]#*:} status=0
  running=("${running[@]:1}")
  wait "$process" || status=$?
  result[$target]=$status
  echo "fuzz: $target: $(grep -E '^#[0-9]+' "$kept/logs/$target.log" | tail -n 1 | tr '\t' ' ')$([ "$status" -eq 0 ] || echo ' FAILED')"
}
for target in "${targets[@]}"; do
  [ "${#running[@]}" -lt 2 ] || finish_one
  run "$target" &
  running+=("$target:$!")
done
while [ "${#running[@]}" -gt 0 ]; do
  finish_one
done

# edges TARGET: prints the edges that the corpus covers in the target's sources, and their total.
edges() {
  local target=$1
  "$build/bin/${target}_fuzz" -runs=0 -print_coverage=1 "$kept/$target" "tests/robustness/fuzz/corpus/$target" 2>&1 |
    awk -v pattern="${sources[$target]}" '
      /COVERED_FUNC: / && $NF ~ pattern { split($5, edges, "/"); covered += edges[1]; all += edges[2] }
      END { printf "%d of %d (%d%%)", covered, all, all ? 100 * covered / all : 0 }'
}

statistic() { sed -n "s/^stat::$2: *//p" "$kept/logs/$1.log" | tail -n 1; }
latest() { sed -n "s/^#[0-9].* $2: \([0-9]*\).*/\1/p" "$kept/logs/$1.log" | tail -n 1; }

echo
printf '%-12s %12s %8s %22s %9s %7s %s\n' target executions per_s edges features corpus result
status=0
for target in "${targets[@]}"; do
  outcome=ok
  [ "${result[$target]}" -eq 0 ] || { outcome=FAILED; status=1; }
  printf '%-12s %12s %8s %22s %9s %7s %s\n' "$target" "$(statistic "$target" number_of_executed_units)" \
    "$(statistic "$target" average_exec_per_sec)" "$(edges "$target")" "$(latest "$target" ft)" \
    "$(find "$kept/$target" -type f | wc -l)" "$outcome"
done

if [ "$status" -ne 0 ]; then
  echo
  echo "Commands that reproduce the failures (logs: $kept/logs):"
  for target in "${targets[@]}"; do
    if [ "${result[$target]}" -ne 0 ]; then
      input=$(sed -n 's/.*Test unit written to //p' "$kept/logs/$target.log" | tail -n 1)
      echo "  $build/bin/${target}_fuzz ${input:-(no input was saved; see $kept/logs/$target.log)}"
    fi
  done
fi
exit "$status"
