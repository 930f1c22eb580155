#!/usr/bin/env bash
# The Debian packages are built, installed into a scratch root, looked at and removed; nothing of them stays.
# usage: package_test.sh BUILD_DIR
set -euo pipefail # so that no grep may stop early (-q): what writes to it would fail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
root=$scratch/root
export LC_ALL=C
packages=(libfwx-nat64-1 libfwx-nat64-dev libfwx-nat64-tools)

fail() { echo "$*" >&2; exit 1; }

(cd "$scratch" && cpack --config "$1/CPackConfig.cmake" -B "$scratch/debs" >/dev/null)

deb_of() { echo "$scratch"/debs/"$1"_*.deb; }
expect_depends() { # PACKAGE PATTERN
  dpkg-deb --field "$(deb_of "$1")" Depends | grep -E "$2" >/dev/null || fail "$1 does not depend on $2"
}
version=$(dpkg-deb --field "$(deb_of libfwx-nat64-1)" Version)
expect_depends libfwx-nat64-1 '(^|, )libc6 \(>= '
expect_depends libfwx-nat64-dev "^libfwx-nat64-1 \(= $version\)\$"
expect_depends libfwx-nat64-tools "(^|, )libfwx-nat64-1 \(= $version\)"
expect_depends libfwx-nat64-tools '(^|, )libedit2 '
dpkg-deb --ctrl-tarfile "$(deb_of libfwx-nat64-1)" | tar --extract --to-stdout ./shlibs |
  grep '^libfwx_nat64 1 libfwx-nat64-1 (>= ' >/dev/null || fail "other packages cannot depend on the library"

# A root of its own, without the packages that ours depend on; no privileges needed. Scripts of packages run outside
# it, so the linker's cache of this machine is kept from them.
mkdir -p "$root/var/lib/dpkg/"{updates,info,triggers} "$scratch/bin"
printf '#!/bin/sh\necho called >>%s/ldconfig\n' "$scratch" >"$scratch/bin/ldconfig"
chmod +x "$scratch/bin/ldconfig"
export PATH=$scratch/bin:$PATH:/usr/sbin:/sbin
touch "$root/var/lib/dpkg/status"
run_dpkg() {
  dpkg --root="$root" --log=/dev/null --force-not-root --force-script-chrootless --force-depends "$@" >/dev/null 2>"$scratch/log" ||
    fail "dpkg $*: $(cat "$scratch/log")"
}
files() { find "$root" -path "$root/var" -prune -o -printf '%y /%P\n' | sort; }

before=$(files)
run_dpkg --install "$scratch"/debs/*.deb
[[ -e $scratch/ldconfig ]] || fail "the linker's cache is not brought up to date"

find_one() { [[ $(find "$root/usr" -path "*/$1" | wc -l) -eq 1 ]] || fail "$1 is not installed, or twice"; }
for file in libfwx_nat64.so libfwx_nat64.so.1 libfwx_nat64.so.1.0.0 libfwx_host.so.1 pkgconfig/fwx_nat64.pc \
  cmake/fwx_nat64/fwx_nat64Config.cmake include/fwx_nat64/fwx_nat64.h include/fwx_host/fwx_host.h bin/natctl \
  wireshark/plugins/fwx_nat64.lua man1/natctl.1 man3/fwx_nat64.3 completions/natctl libfwx-nat64-1/copyright; do
  find_one "$file"
done
owner_of() { dpkg --root="$root" --search "$(find "$root/usr" -name "$1" -printf '/usr/%P\n')" | cut -d: -f1; }
[[ $(owner_of libfwx_nat64.so) == libfwx-nat64-dev ]] || fail "the link for linking is not in libfwx-nat64-dev"
[[ $(owner_of libfwx_host.so.1) == libfwx-nat64-1 ]] || fail "the host platform is not in libfwx-nat64-1"
"$root/usr/bin/natctl" timeout set --type 2 --value 60

run_dpkg --purge "${packages[@]}"
diff <(echo "$before") <(files) || fail "files stay after the removal"
[[ -z $(dpkg-query --admindir="$root/var/lib/dpkg" --show 2>/dev/null) ]] || fail "packages stay registered"
echo "${packages[*]}: $version"
