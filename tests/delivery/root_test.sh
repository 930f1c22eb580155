#!/usr/bin/env bash
# Installs, tests and removes the packages in a separate root. With `overlay` the root is an overlay of this machine's,
# which stays unchanged. With `clean` it is a minimal system without anything that the packages do not depend on; it is
# made once and kept beside WORK_DIR.
# usage: root_test.sh SOURCE_DIR WORK_DIR overlay | clean
set -euo pipefail
source=$1 work=$2 kind=$3

skip() { echo "not tried: $*"; exit 77; }
if [[ $EUID -ne 0 ]]; then
  sudo --non-interactive true || skip "it takes root"
  exec sudo "$0" "$@"
fi
if [[ -z ${IS_APART:-} ]]; then # in a mount namespace, so that all mounts end with the process
  unshare --mount true || skip "no mounts of its own for a process"
  IS_APART=1 exec unshare --mount "$0" "$@"
fi

below=/
if [[ $kind == clean ]]; then
  below=$work/../clean_root
  if [[ ! -e $below ]]; then
    mmdebstrap --variant=apt --include=gcc,g++,libc6-dev,cmake,make,pkgconf,systemd bookworm "$below.new"
    mv "$below.new" "$below"
  fi
fi
mkdir -p "$work/root"
mount -t tmpfs none "$work/root"
root=$work/root/root
mkdir "$work/root/"{above,scratch,root}
mount -t overlay none -o "lowerdir=$below,upperdir=$work/root/above,workdir=$work/root/scratch" "$root" || skip "no overlay"
mount -t tmpfs none "$root/run"
mount --bind /proc "$root/proc"
mount --rbind /dev "$root/dev"
mount -t tmpfs none "$root/tmp"
chmod 1777 "$root/tmp"
mkdir "$root/tmp/packages"
cp "$work"/*.deb "$root/tmp/packages"
cp "$source/README.md" "$source/docs/"{natctl,operating}.md "$source/tests/delivery/installed.sh" "$source/tests/pages/page.sh" "$root/tmp"
cp -r "$source/bindings/python" "$root/tmp"
[[ $kind == overlay ]] || chroot "$root" apt-get update -qq
chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C DEBIAN_FRONTEND=noninteractive bash /tmp/installed.sh
