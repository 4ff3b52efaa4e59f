#!/usr/bin/env bash
# Runs ./check of the committed tree on a bare Debian 12: a minimal root made with debootstrap in a scratch folder.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/fresh-check.sh [--keep] [COMMAND...]

Makes a minimal Debian 12 in a scratch folder, clones HEAD into it and runs COMMAND there (default: ./check).
Needs root, debootstrap (installed when it is missing) and about 9 GB in the scratch folder, which is made
below ${TMPDIR:-/tmp}.
  --keep   leaves the scratch folder behind and says where it is
USAGE
}

keep=no
case "${1:-}" in
  -h | --help) usage; exit 0 ;;
  --keep) keep=yes; shift ;;
  -*) usage >&2; exit 2 ;;
esac
command=("$@")
[ "${#command[@]}" -gt 0 ] || command=(./check)

[ "$(id -u)" -eq 0 ] || { echo "fresh-check: needs root, for debootstrap and chroot; run it with sudo" >&2; exit 1; }
top=$(cd "$(dirname "$0")/.." && pwd)
if ! command -v debootstrap >/dev/null; then
  apt-get -qq update </dev/null
  apt-get -qq -y --no-install-recommends install debootstrap </dev/null >/dev/null
fi

root=$(mktemp -d "${TMPDIR:-/tmp}/fresh-check.XXXXXX")
finish() {
  local mounted
  for mounted in proc sys dev; do
    ! mountpoint -q "$root/$mounted" || umount -R "$root/$mounted"
  done
  if [ "$keep" = yes ]; then
    echo "fresh-check: left in $root"
  else
    rm -rf --one-file-system "$root"
  fi
}
trap finish EXIT

# The mirror that this machine installs this release from.
codename=bookworm
mirror=$(apt-get indextargets --format '$(REPO_URI) $(RELEASE)' 'Created-By: Packages' </dev/null |
  awk -v codename="$codename" '$2 == codename { print $1; exit }')
[ -n "$mirror" ] || { echo "fresh-check: no apt entry for $codename to take the mirror from" >&2; exit 1; }

echo "fresh-check: making a minimal Debian in $root"
debootstrap --variant=minbase "$codename" "$root" "$mirror" >"$root.log" 2>&1 </dev/null ||
  { tail -n 20 "$root.log" >&2; exit 1; }
mv "$root.log" "$root/debootstrap.log"
cp /etc/resolv.conf "$root/etc/resolv.conf"
# How this machine reaches its mirror (proxies and the like) holds in the root as well.
cp -n /etc/apt/apt.conf.d/* "$root/etc/apt/apt.conf.d/"
mount --bind /proc "$root/proc"
mount --rbind /sys "$root/sys"
mount --make-rslave "$root/sys"
mount --rbind /dev "$root/dev"
mount --make-rslave "$root/dev"

git clone -q --no-hardlinks "$top" "$root/project"
# A clean environment: the locale and the settings of the machine around the root mean nothing in it.
chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
  bash -c 'cd /project && exec "$@"' fresh-check "${command[@]}" </dev/null
