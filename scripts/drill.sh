#!/usr/bin/env bash
# Kills processes again and again at length, where the tests do so briefly.
# usage: drill.sh NAME [KILLS]
#   servers  servers under load, plain and under ASan+UBSan: every command is accounted for each time
#   journal  the keeper of a journal under concurrent writers while its writes, syncs and renames fail at random, plain
#            and under ASan+UBSan: no acknowledged change is missing and none is there by half
#   daemon   the server under nat64d, with a document of ten thousand items that is edited once a second: each new server,
#            with its state or without, is found within two seconds, holds the document within two more, and nat64d does not
#            grow
#   operators  nobody but natctl: two operators, nat64d and another client change one server in so many rounds, and the last
#            one to be told "ok" finds what it asked for
#   answers  nothing: how long others wait while nat64d gives a server so many rules
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

mode=
case "${1:-}" in
  servers) presets="dev asan" kills=1000 target=kill_drill command=("tests/drill/kill_drill" "tests/drill/drill_server") more= ;;
  journal) presets="dev asan" kills=1000 target=journal_drill command=("tests/state/journal_drill") more= ;;
  operators) presets=dev kills=1000 target=operators_drill command=("tests/drill/operators_drill") more= ;;
  answers) presets=release kills=200000 target=daemon_drill command=("tests/nat64d/daemon_drill") mode=answers more= ;;
  daemon) presets=dev kills=200 target=daemon_drill command=("tests/nat64d/daemon_drill") more=10000 ;;
  *) echo "usage: $0 servers|journal|daemon|operators|answers [KILLS]" >&2; exit 2 ;;
esac
kills=${2:-$kills}

need_packages "${build_packages[@]}" libgtest-dev
for preset in $presets; do
  say "$preset: $1 $kills"
  build "$preset" "$target"
  "${command[@]/#/build/$preset/}" $mode "$kills" $more
done
