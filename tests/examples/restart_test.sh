#!/usr/bin/env bash
# An example PAL accounts for each of its 10,000 commands although the server is killed meanwhile and started again.
# usage: restart_test.sh DRILL_SERVER NATCTL COMMAND...   COMMAND gets the server's name as its last argument
set -euo pipefail
drill_server=$1 natctl=$2
shift 2
XDG_RUNTIME_DIR=$(mktemp -d)
export XDG_RUNTIME_DIR
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$XDG_RUNTIME_DIR"' EXIT

coproc doomed { exec "$drill_server" alpha 700; }
doomed_pid=$!
read -r -u "${doomed[0]}"
"$@" alpha >"$XDG_RUNTIME_DIR/said" &
pal=$!
status=0
wait -n "$doomed_pid" "$pal" || status=$?
[[ $status -eq 137 ]] # the server, before the PAL
"$natctl" serve alpha >/dev/null 2>&1 &
wait "$pal"

# A dying server may still accept a client, whose commands are then lost or sent again too.
cat "$XDG_RUNTIME_DIR/said"
said='^10000 commands: ([0-9]+) ok, ([0-9]+) refused \(the server has no such entry\), ([0-9]+) lost, 0 unanswered; [1-9] reconnections$'
[[ $(<"$XDG_RUNTIME_DIR/said") =~ $said ]]
[[ $((BASH_REMATCH[1] + BASH_REMATCH[2] + BASH_REMATCH[3])) -eq 10000 ]]
[[ ${BASH_REMATCH[1]} -ge 6000 && ${BASH_REMATCH[2]} -ge 1500 ]]
