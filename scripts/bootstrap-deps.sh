#!/usr/bin/env bash
# Builds the libraries that Debian does not ship in the required form into build/deps/<target>, where the CMake presets
# look for them. Fetches the sources with apt-get source and a private apt configuration.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/bootstrap-deps.sh native | windows-library | windows

Builds the dependencies into build/deps/native or build/deps/windows, unless they are up to date.
  native           log4cplus with wide characters, shared (Debian's package supports only narrow characters)
  windows-library  the dependencies of the library and its tests for Windows x86-64: log4cplus, shared, static libraries
                   that Debian ships only for Linux (OpenH264, libyuv, and for the tests GoogleTest and libjpeg-turbo), and
                   a copy of the headers of utfcpp
  windows          these, and those of nuveqcam: FFmpeg's MP4 muxer, shared, copies of the headers of CLI11,
                   nlohmann-json and stb, and a link to those of Boost
USAGE
}

case "${1:-}" in
  native | windows) target=$1 ;;
  windows-library) target=windows ;;
  -h | --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac

top=$(cd "$(dirname "$0")/.." && pwd)
deps=$top/build/deps
prefix=$deps/$target
sources=$deps/sources
log=$deps/$target.log
# Increment when a recipe below changes: a prefix with another number is rebuilt.
recipe=7
# All dependencies; on Windows, those of the library alone.
stamp=$prefix/.recipe-$recipe
library_stamp=$prefix/.library-$recipe

if [ -e "$stamp" ] || { [ "$1" = windows-library ] && [ -e "$library_stamp" ]; }; then
  echo "dependencies: build/deps/$target is up to date"
  exit 0
fi
[ -e "$library_stamp" ] || rm -rf "$prefix"
mkdir -p "$prefix" "$sources"
: >"$log"
trap 'status=$?; [ $status -eq 0 ] || { echo "dependencies: failed; the end of build/deps/$target.log:" >&2; tail -n 25 "$log" >&2; }' EXIT

apt_folder=$deps/apt
topic=dependencies
. "$top/scripts/apt-source.sh"

# configure NAME SOURCE_FOLDER OPTION...: configures a build in $deps/build-$target-NAME.
configure() {
  local name=$1 source=$2 build=$deps/build-$target-$1 toolchain=()
  shift 2
  echo "dependencies: building $name for $target"
  [ "$target" = native ] || toolchain=(-DCMAKE_TOOLCHAIN_FILE="$top/cmake/toolchains/windows-x86_64.cmake")
  rm -rf "$build"
  # Keeps the paths of this machine out of the binaries.
  local flags="'-ffile-prefix-map=$deps/sources/='" link_flags
  # The packages contain some of these libraries: a subset of the mitigations in cmake/Hardening.cmake.
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
  # Without the thread pool: fewer threads in the host's process and a clean process exit.
  build_with_cmake log4cplus "$sources/log4cplus" -DBUILD_SHARED_LIBS=ON -DUNICODE=ON \
    -DLOG4CPLUS_BUILD_TESTING=OFF -DLOG4CPLUS_BUILD_LOGGINGSERVER=OFF -DWITH_UNIT_TESTS=OFF \
    -DLOG4CPLUS_ENABLE_DECORATED_LIBRARY_NAME=OFF -DLOG4CPLUS_ENABLE_THREAD_POOL=OFF -DCMAKE_UNITY_BUILD=ON
}

# Builds only the TurboJPEG library.
build_turbojpeg() {
  local build=$deps/build-$target-libjpeg-turbo
  configure libjpeg-turbo "$sources/libjpeg-turbo" -DENABLE_SHARED=OFF -DWITH_JAVA=OFF
  cmake --build "$build" --target turbojpeg-static >>"$log" 2>&1
  cp "$build/libturbojpeg.a" "$prefix/lib"
  cp "$sources/libjpeg-turbo/turbojpeg.h" "$prefix/include"
  rm -rf "$build"
}

# The MP4 muxer as DLLs, for nuveqcam.
build_ffmpeg() {
  echo "dependencies: building ffmpeg for $target"
  local build=$deps/build-$target-ffmpeg cross=x86_64-w64-mingw32
  rm -rf "$build"
  mkdir "$build"
  # The libraries contain the options of configure and paths of sources, so neither may have paths of this machine.
  ln -s "$sources/ffmpeg" "$build/src"
  (
    cd "$build"
    src/configure --prefix=/ --enable-cross-compile --target-os=mingw32 --arch=x86_64 --cross-prefix=$cross- \
      --cc=$cross-gcc-posix --enable-shared --disable-static --disable-everything --enable-muxer=mp4 --disable-autodetect \
      --disable-network --disable-asm --enable-small --disable-debug --disable-programs --disable-doc --disable-avdevice \
      --disable-avfilter --disable-swscale --disable-swresample \
      --extra-ldflags=-Wl,--dynamicbase,--nxcompat,--high-entropy-va
    make -j"$(nproc)" DESTDIR="$prefix" install-libs install-headers
  ) >>"$log" 2>&1
  mkdir -p "$prefix/share/licences"
  cp "$sources/ffmpeg/COPYING.LGPLv2.1" "$prefix/share/licences/ffmpeg.txt"
  rm -rf "$build"
}

# The headers do not depend on the system, but those in their folder do: a cross compiler must not search it.
copy_library_headers() {
  mkdir -p "$prefix/include"
  cp -rL /usr/include/utf8 /usr/include/utf8.h "$prefix/include"
}

copy_tool_headers() {
  echo "dependencies: copying headers for $target"
  mkdir -p "$prefix/include" "$prefix/share/cmake" "$prefix/share/licences"
  cp -rL /usr/include/CLI /usr/include/nlohmann "$prefix/include"
  cp -r /usr/share/cmake/CLI11 /usr/share/cmake/nlohmann_json "$prefix/share/cmake"
  # A link, because they are many.
  ln -sfn /usr/include/boost "$prefix/include/boost"
  cp /usr/include/stb/stb_image.h /usr/include/stb/stb_image_write.h "$prefix/include"
  cp /usr/share/doc/libstb-dev/copyright "$prefix/share/licences/stb.txt"
}

build_library_for_windows() {
  build_log4cplus
  build_with_cmake openh264 "$top/cmake/openh264" -DOPENH264_SOURCE_DIR="$sources/openh264"
  # Debian's build of libyuv includes tools and cannot install for Windows.
  build_with_cmake libyuv "$top/cmake/libyuv" -DLIBYUV_SOURCE_DIR="$sources/libyuv"
  build_turbojpeg
  build_with_cmake googletest /usr/src/googletest
  copy_library_headers
  keep_licences log4cplus openh264 libyuv
  touch "$library_stamp"
}

# keep_licences PACKAGE...: copies the licences of libraries that this project's packages contain.
keep_licences() {
  local package
  mkdir -p "$prefix/share/licences"
  for package in "$@"; do
    cp "$sources/$package/LICENSE" "$prefix/share/licences/$package.txt"
    # Patent grants that accompany the licence.
    [ ! -e "$sources/$package/PATENTS" ] || cat "$sources/$package/PATENTS" >>"$prefix/share/licences/$package.txt"
  done
}

case "$target" in
  native)
    fetch_sources log4cplus
    build_log4cplus
    keep_licences log4cplus
    ;;
  windows)
    packages=(log4cplus openh264 libyuv libjpeg-turbo)
    [ "$1" = windows-library ] || packages+=(ffmpeg)
    fetch_sources "${packages[@]}"
    if [ ! -e "$library_stamp" ]; then
      build_library_for_windows
    fi
    if [ "$1" = windows-library ]; then
      echo "dependencies: build/deps/$target is ready for the library"
      exit 0
    fi
    build_ffmpeg
    copy_tool_headers
    ;;
esac
touch "$stamp"
echo "dependencies: build/deps/$target is ready"
