#!/usr/bin/env bash
# Kills processes again and again at length, where the tests do so briefly.
# usage: drill.sh NAME [KILLS]
#   servers  servers under load, plain and under ASan+UBSan: every command is accounted for each time
#   journal  the keeper of a journal under concurrent writers while its writes, syncs and renames fail at random, plain
#            and under ASan+UBSan: no acknowledged change is missing and none is there by half
#   daemon   the server under nat64d, with a document of ten thousand items that is edited once a second: each new server
#            is found within two seconds and gets every item exactly once, and nat64d does not grow
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

case "${1:-}" in
  servers) presets="dev asan" kills=1000 target=kill_drill command=("tests/drill/kill_drill" "tests/drill/drill_server") more= ;;
  journal) presets="dev asan" kills=1000 target=journal_drill command=("tests/state/journal_drill") more= ;;
  daemon) presets=dev kills=200 target=daemon_drill command=("tests/nat64d/daemon_drill") more=10000 ;;
  *) echo "usage: $0 servers|journal|daemon [KILLS]" >&2; exit 2 ;;
esac
kills=${2:-$kills}

need_packages "${build_packages[@]}" libgtest-dev
for preset in $presets; do
  say "$preset: $kills kills"
  build "$preset" "$target"
  "${command[@]/#/build/$preset/}" "$kills" $more
done
