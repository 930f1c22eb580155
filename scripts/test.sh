#!/usr/bin/env bash
# Everything that is checked before a change lands: who includes whom, format, both compilers without a warning, all tests
# plain (g++) and under ASan+UBSan (clang++), what two processes share under TSan, static analysis, the fuzzers, the library
# without a platform, what is delivered, the demo.
# usage: test.sh [--quick | --full]   --quick: includes, g++ and its tests alone, in 90 seconds
#                                     --full: long runs as well, in an hour
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

tier=${1:---default}
case "$tier" in
  --quick | --default | --full) ;;
  *) echo "usage: $0 [--quick | --full]" >&2; exit 2 ;;
esac

need_packages "${build_packages[@]}" "${gateway_packages[@]}" libgtest-dev libasio-dev libuv1-dev ccache \
  "${python_packages[@]}" python3-pytest
[[ $tier == --quick ]] || need_packages clang clang-format clang-tidy cppcheck libclang-rt-14-dev pkgconf tshark doxygen \
  abigail-tools debhelper dh-python lintian systemd mypy etcd-server etcd-client prometheus curl tmux zsh fish ansible-core

# What is compiled here is there for the packages, which are built from a copy of the tree.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=locale,pch_defines,time_macros
export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache

build_and_test() {
  say "$1: build"
  build "$1"
  say "$1: tests" # that mostly wait for each other's processes
  ctest --preset "$1" --parallel $((2 * $(nproc))) --label-exclude delivery | tail -n 4
}

say "includes"
scripts/includes.sh

if [[ $tier != --quick ]]; then
  say "format"
  git ls-files '*.c' '*.cpp' '*.h' '*.hpp' | xargs clang-format --dry-run --Werror
fi

build_and_test dev
if [[ $tier != --quick ]]; then
  build_and_test asan
  build_and_test tsan

  say "static analysis"
  git ls-files '*.cpp' | grep -vE '^(bench|fuzz|tests/delivery)/' | xargs scripts/tidy.py build/asan
  # Its own errors, coroutines that return nothing, and what it makes of new (std::nothrow) and of an anonymous mapping's
  # -1, are no faults of the code; readdir reads a directory of its own, and getpwuid a program of one thread. Coroutines
  # keep what they are given.
  git ls-files '*.cpp' | grep -vE '^(bench|fuzz|tests)/' |
    xargs cppcheck -j "$(nproc)" --quiet --error-exitcode=1 --enable=warning,performance,portability --std=c++20 --library=posix \
      --suppress=missingReturn --suppress=cppcheckError --suppress=legacyUninitvar --suppress=invalidFunctionArg \
      --suppress=readdirCalled --suppress=getpwuidCalled '--suppress=passedByValue:fleet/*' '--suppress=passedByValue:tools/nat64d/store_follower.cpp' -I. -Iinclude -Ihost/include

  say "types of the Python module"
  (cd bindings/python && mypy --cache-dir ../../build/mypy ../../build/dev/bindings/python/lib/fwx_nat64) # with its printed part

  say "the library without a platform"
  cmake -S . -B build/external -G Ninja -DCMAKE_BUILD_TYPE=Release -DFWX_NAT64_PLATFORM=external \
    -DFWX_NAT64_WERROR=ON >/dev/null
  cmake --build build/external | tail -n 1
  tests/library/export_test.sh build/external/libfwx_nat64.so cmake/exports.list

  say "delivery: installed tree, packages, binary interface, pages"
  ctest --preset dev --label-regex delivery | tail -n 4
  scripts/abi.sh | tail -n 1
  scripts/docs.sh | tail -n 1

  scripts/fuzz.sh 5

  say "demo"
  scripts/demo.sh build/dev/tools/natctl >/dev/null
fi

if [[ $tier == --full ]]; then
  say "packages as they are delivered, in a root with nothing else"
  need_packages mmdebstrap
  tests/delivery/package_test.sh "$PWD" "$PWD/build/packages"
  tests/delivery/root_test.sh "$PWD" "$PWD/build/packages" clean
  scripts/fuzz.sh 600
  for drill in servers journal daemon operators answers; do
    scripts/drill.sh $drill
  done
fi
say "all checks passed in $SECONDS s"
