#!/usr/bin/env bash
# Builds the Debian packages from a copy of the tree and checks them. The packages stay in WORK_DIR.
# usage: package_test.sh SOURCE_DIR WORK_DIR [as-dev]   as-dev: with the options of the preset dev, which ccache has cached
set -euo pipefail # grep must not use -q here: it would close the pipe early, and the writer would fail
work=$2
export LC_ALL=C
fail() { echo "$*" >&2; exit 1; }

rm -rf "$work"
mkdir -p "$work/source"
tar --directory="$1" --exclude=./build --exclude=./.git --exclude=./.cache --create . | tar --directory="$work/source" --extract
cd "$work/source"

if [[ ${3:-} == as-dev ]]; then
  export DEB_BUILD_OPTIONS=noautodbgsym DEB_CPPFLAGS_SET='' DEB_CFLAGS_SET='' DEB_CXXFLAGS_SET=''
  export CMAKE_ARGS='-DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Debug -DCMAKE_UNITY_BUILD=ON -DFWX_NAT64_WERROR=ON'
fi
if command -v ccache >/dev/null; then # debhelper builds with another HOME and another locale
  CCACHE_DIR=$(ccache --get-config cache_dir)
  export CCACHE_DIR CCACHE_BASEDIR=$1 CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=locale
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
dpkg-buildpackage --build=binary --unsigned-source --unsigned-changes >"$work/build.log" 2>&1 || fail "$(tail -n 40 "$work/build.log")"
cd "$work"
lintian --fail-on error,warning --allow-root ./*.changes

deb_of() { echo "$work/$1"_*.deb; }
version=$(dpkg-deb --field "$(deb_of libfwx-nat64-1)" Version)
grep -F "project(fwx_nat64 VERSION $version " source/CMakeLists.txt >/dev/null || fail "the packages have another version: $version"
expect_depends() { # PACKAGE PATTERN
  dpkg-deb --field "$(deb_of "$1")" Depends | grep -E "(^|, )$2(, |\$)" >/dev/null || fail "$1 does not depend on $2"
}
expect_depends libfwx-nat64-1 'libc6 \(>= [^)]*\)'
expect_depends libfwx-nat64-dev "libfwx-nat64-1 \(= $version\)"
expect_depends libfwx-nat64-tools "libfwx-nat64-1 \(= $version\)"
expect_depends libfwx-nat64-tools 'libedit2 \(>= [^)]*\)'
expect_depends nat64-gateway tayga
expect_depends nat64-gateway 'libnftables1 \(>= [^)]*\)'
expect_depends python3-fwx-nat64 "libfwx-nat64-1 \(>= $version\)"
expect_depends python3-fwx-nat64 'python3-cffi-backend-[^,]*'
for library in libfwx_{nat64,host,nat64_model}; do
  dpkg-deb --info "$(deb_of libfwx-nat64-1)" shlibs | grep "^$library 1 libfwx-nat64-1 (>= $version)\$" >/dev/null ||
    fail "other packages cannot depend on $library"
done
for package in libfwx-nat64-dev libfwx-nat64-tools nat64-gateway; do # no maintainer script may start a service
  dpkg-deb --ctrl-tarfile "$(deb_of $package)" | tar --extract --to-stdout --wildcards './p*' 2>/dev/null |
    grep -E 'systemctl|invoke-rc|deb-systemd-invoke' && fail "$package starts a service"
done
echo "version $version"
