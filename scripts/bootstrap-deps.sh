#!/usr/bin/env bash
# Builds the libraries that Debian does not ship in the form this project needs, once, into
# build/deps/<target>, where the CMake presets look for them. Sources come through apt-get source,
# with a private apt configuration, so that the machine's own is not touched.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/bootstrap-deps.sh native

Builds into build/deps/<target>, and does nothing when that is up to date.
  native   log4cplus with wide characters, shared (Debian's own build is narrow only)
USAGE
}

case "${1:-}" in
  native) target=native ;;
  -h | --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac

top=$(cd "$(dirname "$0")/.." && pwd)
deps=$top/build/deps
prefix=$deps/$target
sources=$deps/sources
log=$deps/$target.log
# Raise it when a recipe below changes: a prefix with another number is built again.
recipe=1
stamp=$prefix/.recipe-$recipe

if [ -e "$stamp" ]; then
  echo "dependencies: build/deps/$target is up to date"
  exit 0
fi
rm -rf "$prefix"
mkdir -p "$prefix" "$sources"
: >"$log"
trap 'status=$?; [ $status -eq 0 ] || { echo "dependencies: failed; the end of build/deps/$target.log:" >&2; tail -n 25 "$log" >&2; }' EXIT

# deb-src entries for this release, derived from the machine's own deb entries.
write_apt_sources() {
  local codename parts=$1/parts list=$1/sources.list file
  codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
  mkdir -p "$parts"
  : >"$list"
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -e "$file" ] || continue
    sed -E -n "s/^deb( +\[[^]]*\])?( +[^ ]+ +$codename +.*)$/deb-src\1\2/p" "$file" >>"$list"
  done
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -e "$file" ] || continue
    # A stanza counts when one of its suites is this release by its plain name.
    awk -v RS= -v codename="$codename" '
      $0 ~ "(^|\n)Suites:[^\n]*[ \t]" codename "([ \t\n]|$)" { sub(/(^|\n)Types:[^\n]*/, "\nTypes: deb-src"); print; print "" }
    ' "$file" >"$parts/$(basename "$file")"
    [ -s "$parts/$(basename "$file")" ] || rm "$parts/$(basename "$file")"
  done
  if [ ! -s "$list" ] && [ -z "$(ls "$parts")" ]; then
    echo "dependencies: no apt entry for $codename found on this machine to derive a source entry from" >&2
    exit 1
  fi
}

private_apt() {
  apt-get -q -o "Dir::Etc::sourcelist=$deps/apt/sources.list" -o "Dir::Etc::sourceparts=$deps/apt/parts" \
    -o "Dir::State::Lists=$deps/apt/lists" -o "Dir::Cache=$deps/apt/cache" -o APT::Sandbox::User=root "$@" </dev/null
}

# fetch_source PACKAGE: the unpacked source of PACKAGE in $sources/PACKAGE.
fetch_source() {
  [ ! -d "$sources/$1" ] || return 0
  rm -rf "$deps/apt" "$sources/$1.tmp"
  mkdir -p "$deps/apt/lists/partial" "$deps/apt/cache/archives/partial" "$sources/$1.tmp"
  write_apt_sources "$deps/apt"
  echo "dependencies: fetching the source of $1"
  private_apt update >>"$log" 2>&1
  (cd "$sources/$1.tmp" && private_apt source "$1" >>"$log" 2>&1)
  mv "$sources/$1.tmp/$1"-*/ "$sources/$1"
  rm -rf "$sources/$1.tmp" "$deps/apt"
}

build_log4cplus() {
  fetch_source log4cplus
  echo "dependencies: building log4cplus (wide)"
  local build=$deps/build-$target-log4cplus
  rm -rf "$build"
  # No thread pool: fewer threads in somebody else's process, and a clean process exit.
  cmake -S "$sources/log4cplus" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DCMAKE_INSTALL_LIBDIR=lib -DBUILD_SHARED_LIBS=ON -DUNICODE=ON -DLOG4CPLUS_BUILD_TESTING=OFF \
    -DLOG4CPLUS_BUILD_LOGGINGSERVER=OFF -DWITH_UNIT_TESTS=OFF -DLOG4CPLUS_ENABLE_DECORATED_LIBRARY_NAME=OFF \
    -DLOG4CPLUS_ENABLE_THREAD_POOL=OFF >>"$log" 2>&1
  cmake --build "$build" >>"$log" 2>&1
  cmake --install "$build" >>"$log" 2>&1
  rm -rf "$build"
}

build_log4cplus
touch "$stamp"
echo "dependencies: build/deps/$target is ready"
