#!/usr/bin/env bash
# The example playbook shows what it would change, changes it, and then has nothing to change.
# usage: playbook_test.sh SITE NATCTL
set -euo pipefail
site=$1 natctl=$2
HOME=$(mktemp -d)
export HOME XDG_STATE_HOME=$HOME/state FWX_HOST_DIR=$HOME/sockets PATH=${natctl%/*}:$PATH LC_ALL=C.UTF-8
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$HOME"' EXIT
mkdir --mode=700 "$FWX_HOST_DIR"
printf '[nat64]\nlocalhost ansible_connection=local\n' >"$HOME/hosts"
natctl serve alpha >"$HOME/ready" &
until [[ -s $HOME/ready ]]; do kill -0 $!; done

play() { # CHANGED OPTION...
  ansible-playbook -i "$HOME/hosts" "${@:2}" "$site" >"$HOME/said" || { cat "$HOME/said"; exit 1; }
  grep -E "^localhost +: ok=[0-9]+ +changed=$1 +unreachable=0 +failed=0 " "$HOME/said" >/dev/null || { cat "$HOME/said"; exit 1; }
}
play 1 --check --diff
grep -F '"pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.254"' "$HOME/said" >/dev/null
[[ $(natctl --connect alpha --json stats pools | grep -c '"id"') -eq 0 ]]
play 1
play 0
[[ $(natctl --connect alpha config diff "${site%/*}/edge.conf") == "config diff: ok, no difference" ]]
