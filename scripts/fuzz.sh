#!/usr/bin/env bash
# Runs the fuzz programs for as long as one likes and says what they reached.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  cat <<'USAGE'
usage: scripts/fuzz.sh MINUTES [TARGET...]

Sets the machine up, builds the fuzz programs (preset asan) and runs each target for that many minutes, two at a
time. What they find worth keeping stays in build/fuzz/TARGET and is where the next run goes on.

targets: all, unless some are named
  media_types   media types of a camera, up to the capability records
  session       calls, answers of the platform, and frames
  v4l2          answers of a camera's driver, through the Linux platform
  mjpeg         pictures, through the MJPEG decoder
  arguments     command lines of nuveqcam

The exit code is 0 when no input broke a rule. Those that did are in build/fuzz/found; run one again with
  build/asan/bin/TARGET_fuzz build/fuzz/found/TARGET-crash-...
FUZZ_BUILD names another build folder than build/asan.
USAGE
}

all=(media_types session v4l2 mjpeg arguments)
# What of the sources each target is about.
declare -A sources=(
  [media_types]='/src/'
  [session]='/src/'
  [v4l2]='/platform/linux/'
  [mjpeg]='/platform/linux/mjpeg/'
  [arguments]='/tools/nuveqcam/(cli/Arguments|recording/OutputKind)[.]'
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
  [ -n "$target" ] && [ -n "${sources[$target]:-}" ] || { echo "fuzz: there is no target $target; they are: ${all[*]}" >&2; exit 2; }
done

# Another build folder than that of the preset, for those who have one.
build=${FUZZ_BUILD:-build/asan}
kept=build/fuzz
found=$kept/found
mkdir -p "$kept/logs" "$found"

set_up() {
  # Joined, since nothing else ends a function that is asked for its result.
  scripts/install-packages.sh native && scripts/bootstrap-deps.sh native && cmake --preset asan -B "$build" &&
    cmake --build "$build" --target "${targets[@]/%/_fuzz}"
}
echo "fuzz: building (log: $kept/logs/build.log)"
if ! set_up >"$kept/logs/build.log" 2>&1; then
  tail -n 30 "$kept/logs/build.log" >&2
  echo "fuzz: the build failed" >&2
  exit 1
fi

# Who allocated what matters when an input is run again, not here, where it takes a quarter of the time.
export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:malloc_context_size=3:quarantine_size_mb=32
export UBSAN_OPTIONS=print_stacktrace=1

# Nothing goes on when the script ends early.
trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
trap 'exit 130' INT TERM

run() {
  local target=$1
  mkdir -p "$kept/$target"
  # In place of the shell that was started for it, so that a signal reaches it.
  exec "$build/bin/${target}_fuzz" -max_total_time=$((minutes * 60)) -timeout=25 -rss_limit_mb=2048 -print_final_stats=1 \
    "-artifact_prefix=$found/$target-" "$kept/$target" "tests/robustness/fuzz/corpus/$target" >"$kept/logs/$target.log" 2>&1
}

echo "fuzz: ${#targets[@]} targets, $minutes min each, two at a time"
declare -A result
running=()
# The target that was started first ends first.
finish_one() {
  local target=${running[0]%%:*} process=${running[0]#*:} status=0
  running=("${running[@]:1}")
  wait "$process" || status=$?
  result[$target]=$status
  echo "fuzz: $target: $(grep -E '^#[0-9]+' "$kept/logs/$target.log" | tail -n 1 | tr '\t' ' ')$([ "$status" -eq 0 ] || echo ' FOUND SOMETHING')"
}
for target in "${targets[@]}"; do
  [ "${#running[@]}" -lt 2 ] || finish_one
  run "$target" &
  running+=("$target:$!")
done
while [ "${#running[@]}" -gt 0 ]; do
  finish_one
done

# edges TARGET: "reached of all" in the sources that the target is about, by its corpus.
edges() {
  local target=$1
  "$build/bin/${target}_fuzz" -runs=0 -print_coverage=1 "$kept/$target" "tests/robustness/fuzz/corpus/$target" 2>&1 |
    awk -v pattern="${sources[$target]}" '
      /COVERED_FUNC: / && $NF ~ pattern { split($5, edges, "/"); reached += edges[1]; all += edges[2] }
      END { printf "%d of %d (%d%%)", reached, all, all ? 100 * reached / all : 0 }'
}

statistic() { sed -n "s/^stat::$2: *//p" "$kept/logs/$1.log" | tail -n 1; }
latest() { sed -n "s/^#[0-9].* $2: \([0-9]*\).*/\1/p" "$kept/logs/$1.log" | tail -n 1; }

echo
printf '%-12s %12s %8s %22s %9s %7s %s\n' target executions per_s edges features corpus result
status=0
for target in "${targets[@]}"; do
  said=ok
  [ "${result[$target]}" -eq 0 ] || { said=FOUND; status=1; }
  printf '%-12s %12s %8s %22s %9s %7s %s\n' "$target" "$(statistic "$target" number_of_executed_units)" \
    "$(statistic "$target" average_exec_per_sec)" "$(edges "$target")" "$(latest "$target" ft)" \
    "$(find "$kept/$target" -type f | wc -l)" "$said"
done

if [ "$status" -ne 0 ]; then
  echo
  echo "Inputs that broke a rule, and how to run them again (what went wrong is in $kept/logs):"
  for target in "${targets[@]}"; do
    if [ "${result[$target]}" -ne 0 ]; then
      input=$(sed -n 's/.*Test unit written to //p' "$kept/logs/$target.log" | tail -n 1)
      echo "  $build/bin/${target}_fuzz ${input:-(none was kept; see $kept/logs/$target.log)}"
    fi
  done
fi
exit "$status"
