#!/usr/bin/env bash
# Kills processes many times. The tests do the same a few times.
# usage: drill.sh NAME [KILLS]
#   servers  kills servers under load, plain and under ASan+UBSan; each time every command is accounted for
#   journal  kills the process that writes a journal, plain and under ASan+UBSan, with four writers and random failures
#            of its writes, syncs and renames; no acknowledged change is missing or incomplete
#   daemon   kills the server under nat64d, with a document of ten thousand items that is edited once a second; nat64d finds
#            each new server, with its state or without, within two seconds, has it in sync within two more, and does not
#            grow
#   operators  kills only natctl: two operators, nat64d and another client change one server in KILLS rounds, and the
#            last one to get "ok" finds its change in force
#   gateway  kills the gateway KILLS times while commands are in flight; the kernel has every acknowledged change, and no
#            change by half. Without kills: many clients, packets of many sizes, long transfers, large configurations.
#            Needs root
#   store    kills, stops and cuts off members of a store of three that five gateways follow; all gateways hold the last
#            pushed version within 15 s of a majority being there. Needs root
#   answers  kills nothing; measures how long other clients wait while nat64d gives a server KILLS rules
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

mode=
case "${1:-}" in
  servers) presets="dev asan" kills=1000 target=kill_drill command=("tests/drill/kill_drill" "tests/drill/drill_server") more= ;;
  journal) presets="dev asan" kills=1000 target=journal_drill command=("tests/state/journal_drill") more= ;;
  operators) presets=dev kills=1000 target=operators_drill command=("tests/drill/operators_drill") more= ;;
  gateway) presets=dev kills=100 target=gateway_drill command=("tests/gateway/gateway_drill") more= ;;
  store) presets=dev kills= target=store_drill command=("tests/fleet/store_drill") more= ;;
  answers) presets=dev kills=200000 target=daemon_drill command=("tests/nat64d/daemon_drill") mode=answers more= ;;
  daemon) presets=dev kills=200 target=daemon_drill command=("tests/nat64d/daemon_drill") more=10000 ;;
  *) echo "usage: $0 servers|journal|daemon|operators|gateway|store|answers [KILLS]" >&2; exit 2 ;;
esac
kills=${2:-$kills}

need_packages "${build_packages[@]}" "${clang_packages[@]}" "${gateway_packages[@]}" libgtest-dev etcd-server etcd-client
for preset in $presets; do
  say "$preset: $1 $kills"
  build "$preset" "$target"
  "${command[@]/#/build/$preset/}" $mode $kills $more
done
