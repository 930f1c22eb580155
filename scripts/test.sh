#!/usr/bin/env bash
# Runs all checks that a change must pass: includes, format, both compilers without a warning, all tests plain (g++) and
# under ASan+UBSan (clang++), tests of memory that processes share under TSan, static analysis, the fuzzers, the library
# without a platform, packages and installation, the demo.
# usage: test.sh [--quick | --full]   --quick: includes; g++ and the tests of the library, the host and the modules under
#                                              the programs. Neither the programs nor their tests are compiled
#                                     --full: also long runs
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
[[ $tier == --quick ]] || need_packages "${clang_packages[@]}" clang-format clang-tidy cppcheck pkgconf tshark doxygen \
  abigail-tools debhelper dh-python lintian systemd mypy etcd-server etcd-client prometheus curl tmux zsh fish ansible-core

# The packages are built from a copy of the tree; with these settings ccache reuses the objects that are compiled here.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=locale
export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache

build_and_test() { # PRESET [TARGET...]
  say "$1: build"
  build "$@"
  say "$1: tests" # twice as many jobs as cores, because most tests wait for other processes
  ctest --preset "$1" --parallel $((2 * $(nproc))) "${tests[@]}" --no-label-summary | tail -n 4
}

say "includes"
scripts/includes.sh

if [[ $tier == --quick ]]; then
  tests=(--label-regex foundation)
  build_and_test dev foundation_tests
else
  say "format"
  git ls-files '*.c' '*.cpp' '*.h' '*.hpp' | xargs clang-format --dry-run --Werror

  tests=(--label-exclude delivery)
  build_and_test dev all drills # the static analysis compiles the drills with clang++
  build_and_test asan
  build_and_test tsan

  say "static analysis, beside the tests of what is delivered: installed tree, packages"
  ctest --preset dev --label-regex delivery --no-label-summary >build/delivery.log 2>&1 &
  delivery=$!
  trap 'kill "$delivery" 2>/dev/null || true' EXIT
  cmake --preset asan -B build/tidy -DCMAKE_UNITY_BUILD=OFF >/dev/null # only for its list of commands, one for each source
  git ls-files '*.cpp' | grep -vE '^(bench|fuzz|tests/delivery)/' | xargs scripts/tidy.py build/tidy
  # In parts of its own for each processor, because cppcheck's option -j leaves one idle. It checks one configuration.
  # Suppressed: cppcheck's own errors; missingReturn in coroutines that return nothing; its misreading of new (std::nothrow)
  # and of the -1 of an anonymous mapping; readdir, used on a directory of its own, and getpwuid, in a program of one
  # thread; parameters that coroutines take by value because they keep them.
  git ls-files '*.cpp' | grep -vE '^(bench|fuzz|tests)/' |
    xargs -n 8 -P "$(nproc)" cppcheck --quiet --error-exitcode=1 --enable=warning,performance,portability --std=c++20 \
      --library=posix --max-configs=1 --suppress=toomanyconfigs \
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
  wait "$delivery" || { cat build/delivery.log; exit 1; }
  tail -n 4 build/delivery.log
  scripts/abi.sh | tail -n 1
  scripts/docs.sh | tail -n 1

  scripts/fuzz.sh 3

  say "demo"
  scripts/demo.sh build/dev/tools/natctl >/dev/null
fi

if [[ $tier == --full ]]; then
  say "packages as they are delivered, in a root with nothing else"
  need_packages mmdebstrap
  tests/delivery/package_test.sh "$PWD" "$PWD/build/packages"
  tests/delivery/root_test.sh "$PWD" "$PWD/build/packages" clean
  scripts/ports.sh
  scripts/fuzz.sh 600
  for drill in servers journal daemon operators gateway store answers; do
    scripts/drill.sh $drill
  done
fi
say "all checks passed in $SECONDS s"
