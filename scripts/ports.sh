#!/usr/bin/env bash
# Builds for another C library and another processor: the library for musl, and the library, natctl, nat64d and those tests
# for arm64 that start no other program, which then run under qemu-user.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

need_packages "${build_packages[@]}" musl-tools
say "musl: the library without a platform"
cmake -S . -B build/musl -G Ninja -DCMAKE_BUILD_TYPE=Release -DFWX_NAT64_PLATFORM=external -DFWX_NAT64_WERROR=ON \
  -DCMAKE_TOOLCHAIN_FILE=cmake/musl.cmake >/dev/null
cmake --build build/musl | tail -n 1
tests/library/export_test.sh build/musl/libfwx_nat64.so cmake/exports.list

dpkg --print-foreign-architectures | grep -q arm64 || $([[ $EUID -eq 0 ]] || echo sudo) dpkg --add-architecture arm64
need_packages crossbuild-essential-arm64 qemu-user libgtest-dev:arm64 libcurl4-openssl-dev:arm64 libmicrohttpd-dev:arm64 \
  libedit-dev:arm64 libssl-dev:arm64 zlib1g-dev:arm64 libprometheus-cpp-core1.0:arm64
say "arm64: build"
cmake -S . -B build/arm64 -G Ninja -DCMAKE_BUILD_TYPE=Debug -DFWX_NAT64_WERROR=ON -DFWX_NAT64_PYTHON=OFF \
  -DCMAKE_TOOLCHAIN_FILE=cmake/arm64.cmake >/dev/null
tests=(library guard records host config state reconcile model sweep cxx)
cmake --build build/arm64 --target natctl nat64d "${tests[@]/%/_tests}" | tail -n 1
say "arm64: tests"
# Left out: the emulator ignores MADV_WIPEONFORK, runs vfork as fork, has no seccomp, and a program cannot start itself again.
export GTEST_FILTER='-*forked_child*:*a_program_that_its_holder_started*:*too_many_descriptors_wait*:exhausted_memory_t.*' GTEST_BRIEF=1
for each in "${tests[@]}"; do
  qemu-aarch64 "$(find build/arm64/tests -name "${each}_tests" -type f)"
done
