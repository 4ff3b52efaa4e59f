#!/usr/bin/env bash
# Runs a Windows program under Wine, in a Windows installation of the build's own that is made when it is missing.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/wine.sh PROGRAM [ARGUMENT...]
       scripts/wine.sh --stop BUILD_FOLDER

Runs PROGRAM, a .exe in BUILD_FOLDER/bin, without a display, in the Wine prefix BUILD_FOLDER/wine. What it
prints appears when it has ended.
  --live   before PROGRAM: shows what it prints at once. Only where nothing waits for the end of the output:
           processes that Wine starts in the background may hold it open
  --stop   ends what Wine keeps running for that prefix
USAGE
}

live=no
case "${1:-}" in
  '' | -h | --help) usage; exit 0 ;;
  --stop)
    prefix=$(cd "${2:?$(usage)}" && pwd)/wine
    [ ! -d "$prefix" ] || WINEPREFIX=$prefix wineserver -k || true
    exit 0
    ;;
  --live) live=yes; shift ;;
esac

# Debian's package keeps the server's program out of the way.
command -v wine >/dev/null || { echo "wine.sh: Wine is not installed; run scripts/install-packages.sh windows" >&2; exit 1; }

program=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
shift
export WINEPREFIX=${NUVEQ_WINEPREFIX:-$(dirname "$(dirname "$program")")/wine}
export WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all}
# No Mono, no browser, no menus; a crash ends the program instead of waiting for a debugger.
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=;winedbg.exe=;cfgmgr32=n,b"
# Test programs and the fixtures that they load are in two folders; DLLs are looked for in both.
build=$(dirname "$(dirname "$program")")
export WINEPATH="Z:${build//\//\\}\\bin;Z:${build//\//\\}\\fixtures"
unset DISPLAY

# Wine's own processes inherit whatever is open here, and would hold pipes open for as long as they run.
quietly() { "$@" </dev/null >/dev/null 2>&1; }

make_prefix() {
  rm -rf "$WINEPREFIX"
  mkdir -p "$WINEPREFIX"
  quietly wine wineboot --init
  # Nothing here plays sound; looking for devices takes time.
  quietly wine reg add 'HKCU\Software\Wine\Drivers' /v Audio /d '' /f
  quietly wineserver -w || true
  touch "$WINEPREFIX/.made"
}

# One at a time makes or warms the prefix; the lock is closed in everything that is started.
mkdir -p "$(dirname "$WINEPREFIX")"
(
  flock 9
  [ -e "$WINEPREFIX/.made" ] || make_prefix 9>&-
  # A server that is there already answers with a failure.
  if quietly wineserver -p600 9>&-; then
    quietly wine cmd /c exit 9>&- || true
  fi
) 9>"$WINEPREFIX.lock"

if [ "$live" = yes ]; then
  exec wine "$program" "$@" </dev/null
fi
output=$(mktemp)
trap 'rm -f "$output"' EXIT
status=0
wine "$program" "$@" </dev/null >"$output" 2>&1 || status=$?
cat "$output"
exit "$status"
