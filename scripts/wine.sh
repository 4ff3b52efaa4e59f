#!/usr/bin/env bash
# Runs a Windows program under Wine, in a Windows installation of the build's own that is made when it is missing.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/wine.sh [--live] PROGRAM [ARGUMENT...]
       scripts/wine.sh --stop BUILD_FOLDER

Runs PROGRAM, a .exe in BUILD_FOLDER/bin, without a display, in the Wine prefix BUILD_FOLDER/wine, or in the one that
NUVEQ_WINEPREFIX names. What it prints appears when it has ended.
  --live   shows what it prints at once. Only where nothing waits for the end of the output: processes that Wine
           starts in the background may hold it open
  --stop   ends what Wine keeps running for that prefix
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
# No Mono, no browser, no menus; a crash ends the program instead of waiting for a debugger. The tests' configuration
# manager counts where there is one.
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=;winedbg.exe=;cfgmgr32=n,b"
# Test programs and the fixtures that they load are in two folders; DLLs are looked for in both.
export WINEPATH="Z:${build//\//\\}\\bin;Z:${build//\//\\}\\fixtures"
unset DISPLAY
# File names and arguments are UTF-8, whatever the locale.
[ "$(locale charmap 2>/dev/null)" = UTF-8 ] || export LC_ALL=C.UTF-8

# Wine's own processes inherit whatever is open here, and would hold pipes open for as long as they run.
quietly() { "$@" </dev/null >>"$WINEPREFIX.log" 2>&1; }

make_prefix() {
  rm -rf "$WINEPREFIX"
  mkdir -p "$WINEPREFIX"
  : >"$WINEPREFIX.log"
  # Nothing here plays sound; looking for devices takes time.
  if ! quietly timeout 200 wine wineboot --init ||
    ! quietly timeout 60 wine reg add 'HKCU\Software\Wine\Drivers' /v Audio /d '' /f; then
    tail -n 20 "$WINEPREFIX.log" >&2
    fail "the Wine prefix $WINEPREFIX could not be made; remove that folder and try again"
  fi
  quietly timeout 60 wineserver -w || true
  touch "$WINEPREFIX/.made"
}

# One at a time makes or warms the prefix; the lock is closed in everything that is started.
mkdir -p "$(dirname "$WINEPREFIX")"
(
  flock -w 300 9 || fail "somebody else has been making the Wine prefix for five minutes; see $WINEPREFIX.log"
  [ -e "$WINEPREFIX/.made" ] || make_prefix 9>&-
  # A server that is there already answers with a failure.
  if quietly wineserver -p600 9>&-; then
    quietly timeout 60 wine cmd /c exit 9>&- || true
  fi
) 9>"$WINEPREFIX.lock"

if [ "$live" = yes ]; then
  exec wine "$program" "$@" </dev/null
fi

# The program ends with this script, however that ends, and what it has printed is shown.
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
setpriv --pdeathsig KILL wine "$program" "$@" </dev/null >"$output" 2>&1 &
child=$!
status=0
wait "$child" || status=$?
child=
exit "$status"
