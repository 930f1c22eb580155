#!/usr/bin/env bash
# Checks the completions that zsh and fish offer. natctl's own tests check those for bash.
# usage: completion_test.sh NATCTL
set -euo pipefail
PATH=$(dirname "$1"):$PATH
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
export HOME=$scratch

expect() { # WANTED GOT
  [[ "$2" == "$1" ]] || { echo "expected $1, got $2" >&2; exit 1; }
}
types=$(natctl complete timeout set --type '' | sort | xargs)
[[ $types == *udp* ]]

offered_by_fish() { fish --no-config -c 'natctl completion fish | source; complete -C $argv[1]' "$1" | sort | xargs; }
expect pool "$(offered_by_fish 'natctl poo')"
expect "$types" "$(offered_by_fish 'natctl timeout set --type ')"
expect "$scratch/" "$(offered_by_fish "natctl config check ${scratch%?}")"

offered_by_zsh() { # WORD...   prints what the completion system gets
  zsh -fc 'compdef() { } ; compadd() { print -l -- ${(P)2} ; } ; _files() { print files ; }
    source <(natctl completion zsh); words=("$@") CURRENT=$#; _natctl' zsh natctl "$@" | sort | xargs
}
expect pool "$(offered_by_zsh poo)"
expect "$types" "$(offered_by_zsh timeout set --type '')"
expect files "$(offered_by_zsh config check '')"
