#!/usr/bin/env bash
# Builds the libraries that Debian does not ship in the form this project needs, once, into
# build/deps/<target>, where the CMake presets look for them. Sources come through apt-get source,
# with a private apt configuration, so that the machine's own is not touched.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/bootstrap-deps.sh native | windows

Builds into build/deps/<target>, and does nothing when that is up to date.
  native    log4cplus with wide characters, shared (Debian's own build is narrow only)
  windows   the same for Windows x86-64, and what Debian ships for Linux only: OpenH264, libyuv, and for the
            tests GoogleTest and libjpeg-turbo, all of them static
USAGE
}

case "${1:-}" in
  native | windows) target=$1 ;;
  -h | --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac

top=$(cd "$(dirname "$0")/.." && pwd)
deps=$top/build/deps
prefix=$deps/$target
sources=$deps/sources
log=$deps/$target.log
# Raise it when a recipe below changes: a prefix with another number is built again.
recipe=4
stamp=$prefix/.recipe-$recipe

if [ -e "$stamp" ]; then
  echo "dependencies: build/deps/$target is up to date"
  exit 0
fi
rm -rf "$prefix"
mkdir -p "$prefix" "$sources"
: >"$log"
trap 'status=$?; [ $status -eq 0 ] || { echo "dependencies: failed; the end of build/deps/$target.log:" >&2; tail -n 25 "$log" >&2; }' EXIT

apt_folder=$deps/apt
topic=dependencies
. "$top/scripts/apt-source.sh"

# configure NAME SOURCE_FOLDER OPTION...: sets up a build in $deps/build-$target-NAME.
configure() {
  local name=$1 source=$2 build=$deps/build-$target-$1 toolchain=()
  shift 2
  echo "dependencies: building $name for $target"
  [ "$target" = native ] || toolchain=(-DCMAKE_TOOLCHAIN_FILE="$top/cmake/toolchains/windows-x86_64.cmake")
  rm -rf "$build"
  # Where this machine keeps the sources is nobody's business.
  local flags="'-ffile-prefix-map=$deps/sources/='" link_flags
  # The packages carry some of it: some of what the project's own binaries have against hostile data (cmake/Hardening.cmake).
  if [ "$target" = native ]; then
    flags+=" -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2"
    link_flags=-Wl,-z,relro,-z,now,-z,noexecstack
  else
    link_flags=-Wl,--dynamicbase,--nxcompat,--high-entropy-va
  fi
  cmake -S "$source" -B "$build" -G Ninja "${toolchain[@]}" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$link_flags" \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib "$@" >>"$log" 2>&1
}

# build_with_cmake NAME SOURCE_FOLDER OPTION...: builds and installs into the prefix.
build_with_cmake() {
  local build=$deps/build-$target-$1
  configure "$@"
  cmake --build "$build" >>"$log" 2>&1
  cmake --install "$build" >>"$log" 2>&1
  rm -rf "$build"
}

build_log4cplus() {
  # No thread pool: fewer threads in somebody else's process, and a clean process exit.
  build_with_cmake log4cplus "$sources/log4cplus" -DBUILD_SHARED_LIBS=ON -DUNICODE=ON \
    -DLOG4CPLUS_BUILD_TESTING=OFF -DLOG4CPLUS_BUILD_LOGGINGSERVER=OFF -DWITH_UNIT_TESTS=OFF \
    -DLOG4CPLUS_ENABLE_DECORATED_LIBRARY_NAME=OFF -DLOG4CPLUS_ENABLE_THREAD_POOL=OFF
}

# In a copy of its sources, where its own makefile wants to build.
build_openh264() {
  echo "dependencies: building openh264 for $target"
  local build=$deps/build-$target-openh264 cross=x86_64-w64-mingw32
  rm -rf "$build"
  cp -r "$sources/openh264" "$build"
  make -C "$build" -j"$(nproc)" OS=mingw_nt ARCH=x86_64 CC=$cross-gcc-posix CXX=$cross-g++-posix AR=$cross-gcc-ar-posix \
    PREFIX="$prefix" libopenh264.a >>"$log" 2>&1
  make -C "$build" OS=mingw_nt ARCH=x86_64 CC=$cross-gcc-posix CXX=$cross-g++-posix AR=$cross-gcc-ar-posix \
    PREFIX="$prefix" install-headers install-static-lib >>"$log" 2>&1
  rm -rf "$build"
}

# One library of it.
build_turbojpeg() {
  local build=$deps/build-$target-libjpeg-turbo
  configure libjpeg-turbo "$sources/libjpeg-turbo" -DENABLE_SHARED=OFF -DWITH_JAVA=OFF
  cmake --build "$build" --target turbojpeg-static >>"$log" 2>&1
  cp "$build/libturbojpeg.a" "$prefix/lib"
  cp "$sources/libjpeg-turbo/turbojpeg.h" "$prefix/include"
  rm -rf "$build"
}

build_for_windows() {
  fetch_sources log4cplus openh264 libyuv libjpeg-turbo
  build_log4cplus
  build_openh264
  # Debian's own recipe of libyuv builds its tools and cannot install for Windows.
  build_with_cmake libyuv "$top/cmake/libyuv" -DLIBYUV_SOURCE_DIR="$sources/libyuv"
  build_turbojpeg
  build_with_cmake googletest /usr/src/googletest
  keep_licences log4cplus openh264 libyuv
}

# keep_licences PACKAGE...: the licences of what the packages of this project carry.
keep_licences() {
  local package
  mkdir -p "$prefix/share/licences"
  for package in "$@"; do
    cp "$sources/$package/LICENSE" "$prefix/share/licences/$package.txt"
    # What comes with the licence, where there is such a thing.
    [ ! -e "$sources/$package/PATENTS" ] || cat "$sources/$package/PATENTS" >>"$prefix/share/licences/$package.txt"
  done
}

case "$target" in
  native)
    fetch_sources log4cplus
    build_log4cplus
    keep_licences log4cplus
    ;;
  windows) build_for_windows ;;
esac
touch "$stamp"
echo "dependencies: build/deps/$target is ready"
