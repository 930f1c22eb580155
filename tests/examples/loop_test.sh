#!/usr/bin/env bash
# An example with another library's event loop receives every answer. It would hang if it missed one.
# usage: loop_test.sh NATCTL COMMAND...   COMMAND gets the server's name as its last argument
set -euo pipefail
natctl=$1
shift
XDG_RUNTIME_DIR=$(mktemp -d)
export XDG_RUNTIME_DIR
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$XDG_RUNTIME_DIR"' EXIT

coproc server { exec "$natctl" serve alpha; }
read -r -u "${server[0]}"
[[ $("$@" alpha) == "40 commands: ok" ]]
