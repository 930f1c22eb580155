#!/usr/bin/env bash
# Kills servers a thousand times under load, plain and under ASan+UBSan, and checks that every command is
# accounted for each time.
# usage: kill_drill.sh [KILLS]
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

kills=${1:-1000}
need_packages "${build_packages[@]}" libgtest-dev
for preset in dev asan; do
  say "$preset: $kills kills"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" --target kill_drill | tail -n 1
  drill=build/$preset/tests/drill
  "$drill/kill_drill" "$drill/drill_server" "$kills"
done
