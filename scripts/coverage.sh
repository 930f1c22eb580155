#!/usr/bin/env bash
# Reports by file the lines and branches of the library that its own tests (tests/library) reach. build/coverage/report
# shows them in the sources.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

need_packages "${build_packages[@]}" libgtest-dev gcovr
say "coverage: build and tests"
build coverage library_tests guard_tests unload_tests
find build/coverage -name '*.gcda' -delete
ctest --test-dir build/coverage/tests/library --output-on-failure --no-label-summary | tail -n 4

say "coverage: the library"
mkdir -p build/coverage/report
report() {
  gcovr --root . --object-directory build/coverage --exclude '(include|platform)/' "$@" \
    build/coverage/CMakeFiles/fwx_nat64.dir
}
# Omits the branches of log lines: each has one for each of its two channels.
report --exclude-branches-by-pattern '.*NAT64_LOG_.*' --json build/coverage/report/coverage.json
for what in "" --branches; do
  gcovr --root . --add-tracefile build/coverage/report/coverage.json $what
done
gcovr --root . --add-tracefile build/coverage/report/coverage.json --print-summary \
  --html-details build/coverage/report/index.html
