#!/usr/bin/env bash
# Runs ./check --all of the committed tree on a minimal Debian, created with debootstrap in a scratch folder.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/fresh-check.sh [--keep] [--release RELEASE] [--share FOLDER] [COMMAND...]

Creates a minimal Debian in a scratch folder in ${TMPDIR:-/tmp}, clones HEAD into it and runs COMMAND there
(default: ./check --all). Requires root and about 9 GB of disk space. Installs debootstrap if it is missing.
  --keep              keep the scratch folder and print its path
  --release RELEASE   bookworm (Debian 12) or trixie (Debian 13); the default is this machine's release
  --share FOLDER      make the folder available as /share
USAGE
}

keep=no
share=
host=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
codename=$host
while [ $# -gt 0 ]; do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --keep) keep=yes; shift ;;
    --release)
      codename=${2:-}
      case $codename in
        bookworm | trixie) shift 2 ;;
        *) echo "fresh-check: unknown release: ${codename:-(none)}" >&2; usage >&2; exit 2 ;;
      esac
      ;;
    --share)
      [ -d "${2:-}" ] || { echo "fresh-check: not a folder: ${2:-(none)}" >&2; exit 2; }
      share=$2
      shift 2
      ;;
    -*) usage >&2; exit 2 ;;
    *) break ;;
  esac
done
command=("$@")
[ "${#command[@]}" -gt 0 ] || command=(./check --all)

[ "$(id -u)" -eq 0 ] || { echo "fresh-check: must run as root; use sudo" >&2; exit 1; }
top=$(cd "$(dirname "$0")/.." && pwd)
if ! command -v debootstrap >/dev/null; then
  apt-get -qq update </dev/null
  apt-get -qq -y --no-install-recommends install debootstrap </dev/null >/dev/null
fi

root=$(mktemp -d "${TMPDIR:-/tmp}/fresh-check.XXXXXX")
child=
finish() {
  # Ends the processes of the root, and with them its mounts.
  [ -z "$child" ] || { kill -KILL "$child" 2>/dev/null && wait "$child" 2>/dev/null; } || true
  if [ "$keep" = yes ]; then
    echo "fresh-check: kept $root"
  else
    rm -rf --one-file-system "$root" "$root.log"
  fi
}
trap finish EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# The mirror from which this machine installs its own release has the others, too.
mirror=$(apt-get indextargets --format '$(REPO_URI) $(RELEASE)' 'Created-By: Packages' </dev/null |
  awk -v codename="$host" '$2 == codename { print $1; exit }')
[ -n "$mirror" ] || { echo "fresh-check: no mirror found: this machine has no apt entry for $host" >&2; exit 1; }

echo "fresh-check: creating a minimal Debian $codename in $root"
debootstrap --variant=minbase "$codename" "$root" "$mirror" >"$root.log" 2>&1 </dev/null ||
  { tail -n 20 "$root.log" >&2; exit 1; }
mv "$root.log" "$root/debootstrap.log"
cp /etc/resolv.conf "$root/etc/resolv.conf"
# Each installation has it, but debootstrap does not create it.
printf '127.0.0.1 localhost\n::1 localhost\n' >"$root/etc/hosts"
# The settings for reaching the mirror, such as proxies. Not those of packages, which would conflict with these packages'
# own files if they are installed there, too.
for settings in /etc/apt/apt.conf.d/*; do
  dpkg-query -S "$settings" >/dev/null 2>&1 || cp -n "$settings" "$root/etc/apt/apt.conf.d/"
done
git clone -q --no-hardlinks "$top" "$root/project"

# Runs in the namespaces of the root.
enter_root='
  set -e
  root=$1 share=$2
  shift 2
  mount -t proc proc "$root/proc"
  for folder in sys dev; do
    mount --rbind "/$folder" "$root/$folder"
  done
  if [ -n "$share" ]; then
    mkdir -p "$root/share"
    mount --bind "$share" "$root/share"
  fi
  # A clean environment, because the settings of the machine do not apply in the root.
  exec chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    bash -c '\''cd /project && exec "$@"'\'' fresh-check "$@"
'
unshare --mount --pid --fork --kill-child bash -c "$enter_root" fresh-check "$root" "$share" "${command[@]}" </dev/null &
child=$!
status=0
wait "$child" || status=$?
child=
exit $status
