#!/usr/bin/env bash
# Kills the server under nat64d two hundred times, with a document of ten thousand items that is edited once a second, and
# checks that each new server is found within two seconds and gets every item exactly once, and that nat64d does not grow.
# usage: daemon_drill.sh [KILLS [ITEMS]]
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

need_packages "${build_packages[@]}" libgtest-dev
cmake --preset dev >/dev/null
cmake --build --preset dev --target daemon_drill | tail -n 1
build/dev/tests/nat64d/daemon_drill "${1:-200}" "${2:-10000}"
