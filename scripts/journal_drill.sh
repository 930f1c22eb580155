#!/usr/bin/env bash
# Kills the keeper of a journal under concurrent writers while its writes, syncs and renames fail at random, plain and
# under ASan+UBSan, and checks each time that no acknowledged change is missing and none is there by half.
# usage: journal_drill.sh [KILLS]
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

kills=${1:-1000}
need_packages "${build_packages[@]}" libgtest-dev
for preset in dev asan; do
  say "$preset: $kills kills"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" --target journal_drill | tail -n 1
  "build/$preset/tests/state/journal_drill" "$kills"
done
