#!/usr/bin/env bash
# Runs a Windows program under Wine, in a Wine prefix in the build folder. Creates the prefix if necessary.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/wine.sh [--live] PROGRAM [ARGUMENT...]
       scripts/wine.sh --stop BUILD_FOLDER

Runs PROGRAM, a .exe in BUILD_FOLDER/bin, without a display, in the Wine prefix BUILD_FOLDER/wine. The environment
variable NUVEQ_WINEPREFIX overrides the prefix. Prints the program's output when the program has exited.
  --live   print the output immediately. Do not use this in a pipe: background processes of Wine may keep the output
           open
  --stop   end the Wine processes of the prefix
USAGE
}

fail() {
  echo "wine.sh: $1" >&2
  exit 1
}

live=no
case "${1:-}" in
  '' | -h | --help) usage; exit 0 ;;
  --stop)
    [ $# -eq 2 ] || { usage >&2; exit 2; }
    prefix=${NUVEQ_WINEPREFIX:-$(cd "$2" && pwd)/wine}
    [ ! -d "$prefix" ] || WINEPREFIX=$prefix wineserver -k || true
    exit 0
    ;;
  --live) live=yes; shift ;;
esac
[ $# -gt 0 ] || { usage >&2; exit 2; }
command -v wine >/dev/null || fail "Wine is not installed; run scripts/install-packages.sh windows"

program=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
shift
build=$(dirname "$(dirname "$program")")
export WINEPREFIX=${NUVEQ_WINEPREFIX:-$build/wine}
export WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all}
# No Mono, browser, menus or Wayland, whose driver prints an error without a display. A crash ends the program instead of
# starting a debugger. The tests' cfgmgr32, if there is one, has precedence.
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=;winewayland.drv=;winedbg.exe=;cfgmgr32=n,b"
# Search path for DLLs: the folders of the programs and of the test fixtures.
export WINEPATH="Z:${build//\//\\}\\bin;Z:${build//\//\\}\\fixtures"
unset DISPLAY
# File names and arguments are UTF-8, regardless of the locale.
[ "$(locale charmap 2>/dev/null)" = UTF-8 ] || export LC_ALL=C.UTF-8

# Redirects all output, because Wine's background processes inherit descriptors and would keep pipes open.
quietly() { "$@" </dev/null >>"$WINEPREFIX.log" 2>&1; }

make_prefix() {
  rm -rf "$WINEPREFIX"
  mkdir -p "$WINEPREFIX"
  : >"$WINEPREFIX.log"
  # Without an audio driver, because audio device detection is slow and no test uses sound.
  if ! quietly timeout 200 wine wineboot --init ||
    ! quietly timeout 60 wine reg add 'HKCU\Software\Wine\Drivers' /v Audio /d '' /f; then
    tail -n 20 "$WINEPREFIX.log" >&2
    fail "cannot create the Wine prefix $WINEPREFIX; remove that folder and try again"
  fi
  quietly timeout 60 wineserver -w || true
  touch "$WINEPREFIX/.made"
}

# The lock serializes creating the prefix and starting its server. Child processes do not inherit it.
mkdir -p "$(dirname "$WINEPREFIX")"
(
  flock -w 300 9 || fail "timeout: another process has been creating the Wine prefix for five minutes; see $WINEPREFIX.log"
  [ -e "$WINEPREFIX/.made" ] || make_prefix 9>&-
  # wineserver fails if a server is already running.
  if quietly wineserver -p600 9>&-; then
    quietly timeout 60 wine cmd /c exit 9>&- || true
  fi
) 9>"$WINEPREFIX.lock"

if [ "$live" = yes ]; then
  exec wine "$program" "$@" </dev/null
fi

# Ends the program together with this script, and prints its output in any case.
output=$(mktemp "$WINEPREFIX.output.XXXXXX")
child=
finish() {
  [ -z "$child" ] || kill -KILL "$child" 2>/dev/null || true
  cat "$output" || true
  rm -f "$output"
}
trap finish EXIT
trap 'exit 143' TERM
trap 'exit 130' INT

run_program() {
  setpriv --pdeathsig KILL wine "$program" "$@" </dev/null >"$output" 2>&1 &
  child=$!
  status=0
  wait "$child" || status=$?
  child=
}
run_program "$@"
if [ "$status" -eq 1 ] && [ ! -s "$output" ]; then
  # On a busy machine, Wine 8 rarely exits with 1 before it starts the program, without a message.
  echo "wine.sh: $program did not start; trying again" >>"$WINEPREFIX.log"
  run_program "$@"
fi
exit "$status"
