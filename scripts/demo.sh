#!/usr/bin/env bash
# Builds everything and drives the example configurations through the library, the host platform and the server model.
# usage: demo.sh [NATCTL]   with that natctl instead of one built here
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

natctl=${1:-build/demo/tools/natctl}
if [[ $# -eq 0 ]]; then
  need_packages "${build_packages[@]}"
  say "building (preset demo)"
  build demo
fi

say "settings: every command, its messages and its verdict"
"$natctl" --trace batch examples/settings.natctl 2>&1

say "a complete NAT64 configuration and its statistics"
"$natctl" batch examples/nat64.natctl

say "MAP-T rules"
"$natctl" batch examples/mapt.natctl

say "sessions that the embedded server makes up, and lookups as the data plane does them"
"$natctl" batch examples/embedded.natctl

say "a file with an error in line 7: what came before stays accepted"
status=0
"$natctl" batch examples/failing.natctl || status=$?
echo "exit status $status"
[[ $status -eq 2 ]]
