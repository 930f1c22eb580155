#!/usr/bin/env bash
# Runs the blocks of a page's first minutes as they stand, in order, in a directory of its own: programs are written to
# the file that the page names, commands are run, and what they say is what stands below them. Building and installing
# the packages is what the test that calls this has done.
# usage: readme.sh README
set -euo pipefail
page=$(realpath "$1")
cd "$(mktemp -d)"
set -m # for %1

failed() { echo "README: $1"; printf 'expected: %s\n' "$2"; printf 'got:      %s\n' "$3"; exit 1; }
run() { # COMMAND EXPECTED
  [[ $1 == sudo\ apt-get* || $1 == dpkg-buildpackage* ]] && return
  eval "$1" >output 2>&1 || failed "$1" "$2" "$(<output)"
  [[ $1 == kill\ * ]] || [[ $(<output) == "$2" ]] || failed "$1" "$2" "$(<output)"
}

block='' file='' command='' expected='' commands=0
while IFS= read -r line; do
  if [[ -z $block ]]; then
    [[ $line =~ as\ \`([a-z.]+)\`:$ ]] && file=${BASH_REMATCH[1]}
    [[ $line == '```'?* ]] && block=${line#\`\`\`}
    continue
  fi
  if [[ $line == '```' || $line == '$ '* ]]; then
    if [[ -n $command ]]; then
      run "$command" "$expected"
      commands=$((commands + 1))
    fi
    command='' expected=''
    [[ $line == '```' ]] && block='' || command=${line#'$ '}
  elif [[ $block == console ]]; then
    expected+=${expected:+$'\n'}$line
  else
    printf '%s\n' "$line" >>"$file"
  fi
done < <(sed -n '/^## Ten minutes/,/^## The interfaces/p' "$page")
[[ $commands -ge 10 ]] || failed "$page" "a page of commands" "$commands commands"
echo "README: $commands commands do what the page says"
