#!/usr/bin/env bash
# Builds the Debian packages in one minimal Debian, and installs, uses, upgrades and removes them in another.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/package-check.sh [--release RELEASE] [--output FOLDER]

Builds the packages of HEAD in a minimal Debian and checks them with lintian. In another minimal Debian, without build
tools, it then
  - installs the library and nuveqcam with apt, uses the simulated camera, and opens the library by its name
  - installs the development package, and builds and runs hosts with pkg-config and with CMake
  - installs packages of a higher version over these
  - removes everything, and fails if a file is left or missing
Requires root and about 5 GB of disk space.
  --release RELEASE   bookworm (Debian 12) or trixie (Debian 13); the default is this machine's release
  --output FOLDER     keep the packages in this folder
USAGE
}

# step TEXT: announces what follows.
step() { echo "package-check: $*"; }

fail() {
  echo "package-check: $*" >&2
  exit 1
}

apt_get() { apt-get -q -y --no-install-recommends -o Dpkg::Use-Pty=0 "$@" </dev/null >>"$log" 2>&1 || { tail -n 30 "$log"; fail "apt-get $* failed"; }; }

# build_packages: runs in the first root. Leaves the packages in /share/packages, and those of a higher version in
# /share/upgrade.
build_packages() {
  local package version next
  step "building"
  scripts/install-packages.sh demo
  scripts/bootstrap-deps.sh native
  cmake --preset demo >>"$log"
  cmake --build --preset demo >>"$log"
  step "packing"
  cpack --config build/demo/CPackConfig.cmake -B /share/packages >>"$log"
  version=$(dpkg-deb -f /share/packages/nuveqcam_*.deb Version)
  version=${version%%-*}
  next=${version%.*}.$((${version##*.} + 1))
  cpack --config build/demo/CPackConfig.cmake -G DEB -D CPACK_PACKAGE_VERSION="$next" -B /share/upgrade >>"$log"
  rm -rf /share/*/_CPack_Packages
  tar -C build/demo -czf "/share/packages/nuveqcamerahandler-$version-linux-$(uname -m)-unstripped.tar.gz" bin
  for package in /share/packages/*.deb; do
    echo "$(basename "$package"): $(dpkg-deb -f "$package" Depends)"
  done
  step "checking with lintian"
  export DEBIAN_FRONTEND=noninteractive
  apt_get install lintian
  lintian --allow-root --fail-on error --display-info --pedantic --show-overrides /share/packages/*.deb
}

# list_files: every path of the root file system, except what apt, dpkg and ldconfig keep for themselves, logs, and
# folders of this check.
list_files() {
  find / -xdev \( -path /project -o -path /share -o -path /tmp -o -path /run -o -path /root -o -path /var/log \
    -o -path /var/lib/apt -o -path /var/lib/dpkg -o -path /var/cache/apt -o -path /var/cache/ldconfig \
    -o -path /var/cache/debconf -o -path /etc/ld.so.cache \) -prune -o -print | sort
}

# expect TEXT COMMAND...: fails unless the output of the command contains the text.
expect() {
  local text=$1 output
  shift
  output=$("$@" 2>&1) || fail "$* exited with $?: $output"
  [[ $output == *"$text"* ]] || fail "$* printed: $output"
}

# use_tool: nuveqcam with the simulated camera, and the library by its name, as a host opens it.
use_tool() {
  expect "640 x   480" nuveqcam list --simulated
  rm -f /tmp/camera.mp4
  expect "recorded /tmp/camera.mp4" nuveqcam record -o /tmp/camera.mp4 --size 320x240 --seconds 1 --simulated
  # The boxes of a complete MP4 file.
  { grep -q ftyp /tmp/camera.mp4 && grep -q moov /tmp/camera.mp4; } || fail "the recording is not an MP4 file"
  perl -MDynaLoader -e '
    my $library = DynaLoader::dl_load_file("libnuveqcamerahandler.so") or die DynaLoader::dl_error();
    DynaLoader::dl_find_symbol($library, "NUVEQGetCameraHandler") or die "no function table";' ||
    fail "libnuveqcamerahandler.so cannot be loaded by its name"
}

# run_example PROGRAM: the example finds no camera in this root (exit code 3), or the camera of this PC.
run_example() {
  local status=0
  (cd /tmp && "$@") >/tmp/example.log 2>&1 || status=$?
  case $status in
    0 | 3 | 4) ;;
    *) fail "$* exited with $status: $(cat /tmp/example.log)" ;;
  esac
}

build_hosts() {
  local example=/usr/share/doc/libnuveqcamerahandler-dev/examples/packets.c
  local consumer=/project/tests/integration/packaging/consumer flags
  read -ra flags <<<"$(pkg-config --cflags --libs nuveqcamerahandler)"
  cc -std=c99 "$consumer/consumer.c" -o /tmp/consumer "${flags[@]}"
  expect "table 0, null -2" /tmp/consumer
  cc "$example" -o /tmp/packets "${flags[@]}"
  run_example /tmp/packets
  # CMake searches the prefixes of PATH; here it finds the package through /lib, a link to /usr/lib.
  PATH=/bin:$PATH cmake -S "$consumer" -B /tmp/consumer-build -DEXAMPLE="$example" >>"$log"
  cmake --build /tmp/consumer-build >>"$log"
  expect "table 0, null -2" /tmp/consumer-build/bin/consumer_c
  expect "table 0, null -2" /tmp/consumer-build/bin/consumer_cxx
  run_example /tmp/consumer-build/bin/example
}

# use_packages: runs in the second root.
use_packages() {
  local packages=(libnuveqcamerahandler1 nuveqcam libnuveqcamerahandler-dev) tools=(cmake g++ make pkg-config) version
  export DEBIAN_FRONTEND=noninteractive
  apt-get -q update >>"$log"
  list_files >/tmp/files-before
  step "installing the library and the tool"
  apt_get install /share/packages/libnuveqcamerahandler1_*.deb /share/packages/nuveqcam_*.deb
  nuveqcam --version
  use_tool
  zcat /usr/share/man/man1/nuveqcam.1.gz | grep -q '^\.Dt NUVEQCAM 1' || fail "there is no man page"

  step "building hosts"
  apt_get install /share/packages/libnuveqcamerahandler-dev_*.deb "${tools[@]}"
  build_hosts

  step "installing a higher version"
  apt_get install /share/upgrade/*.deb
  version=$(dpkg-deb -f /share/upgrade/nuveqcam_*.deb Version)
  for package in "${packages[@]}"; do
    [ "$(dpkg-query -W -f '${Version}' "$package")" = "$version" ] || fail "$package was not upgraded"
  done
  use_tool
  run_example /tmp/packets

  step "removing"
  apt_get purge "${packages[@]}" "${tools[@]}"
  # Also those dependencies that another package recommends, as libc6 does libidn2-0 on Debian 13.
  apt_get autoremove --purge -o APT::AutoRemove::RecommendsImportant=false -o APT::AutoRemove::SuggestsImportant=false
  list_files >/tmp/files-after
  diff /tmp/files-before /tmp/files-after || fail "removing the packages left or removed the files above"
  step "installed, used, upgraded and removed $version; no file is left"
}

# check_packages OPTION...: creates the roots.
check_packages() {
  local release=() output=
  while [ $# -gt 0 ]; do
    case $1 in
      -h | --help) usage; return ;;
      --release) release=(--release "${2:-}"); shift 2 ;;
      --output) output=$(realpath -m "${2:?$(usage)}"); shift 2 ;;
      *) usage >&2; exit 2 ;;
    esac
  done
  cd "$(dirname "$0")/.."
  share=$(mktemp -d "${TMPDIR:-/tmp}/package-check.XXXXXX")
  trap 'rm -rf "$share"' EXIT
  scripts/fresh-check.sh "${release[@]}" --share "$share" scripts/package-check.sh --build
  scripts/fresh-check.sh "${release[@]}" --share "$share" scripts/package-check.sh --use
  if [ -n "$output" ]; then
    mkdir -p "$output"
    cp "$share"/packages/* "$output"
  fi
}

log=/tmp/package-check.log
case "${1:-}" in
  # These run inside the roots.
  --build) build_packages ;;
  --use) use_packages ;;
  *) check_packages "$@" ;;
esac
