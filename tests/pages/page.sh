#!/usr/bin/env bash
# Runs the code blocks of a document, in order, in a temporary directory. A block of another language is written to the
# file that the text before it names. In a console block, each command's output must equal the lines below it; a command
# without output must succeed. Commands that install packages are skipped.
# usage: page.sh PAGE LEAST [FROM TO]   LEAST: minimum number of commands; FROM, TO: patterns of headings
set -eu # no pipefail, because readers run the commands in a shell without it
page=$(realpath "$1") least=$2 from=${3:-^# } to=${4:-'^$never'}
directory=$(mktemp -d)
cd "$directory"
mkdir --mode=700 .sockets
export HOME=$directory XDG_STATE_HOME=$directory/.state FWX_HOST_DIR=${FWX_HOST_DIR-$directory/.sockets}
[[ -n $FWX_HOST_DIR ]] || unset FWX_HOST_DIR
set -m # for %1
end() {
  local left
  left=$(jobs -p)
  [[ -z $left ]] || kill $left 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$directory"
}
trap end EXIT

failed() { echo "$page: $1"; printf 'expected: %s\n' "$2"; printf 'got:      %s\n' "$3"; exit 1; }
run() { # COMMAND EXPECTED
  [[ $1 == *apt-get* || $1 == dpkg-buildpackage* ]] && return
  local status=0
  eval "$1" >.output 2>&1 || status=$?
  [[ $1 == kill\ * || $(<.output) == "$2" ]] || failed "$1" "$2" "$(<.output)"
  [[ $status -eq 0 || -n $2 ]] || failed "$1 ends with $status" "$2" "$(<.output)"
}

block='' file='' command='' expected='' here='' commands=0
while IFS= read -r line; do
  if [[ -z $block ]]; then
    [[ $line =~ as\ \`([a-z.]+)\`:$ ]] && file=${BASH_REMATCH[1]}
    [[ $line == '```'?* ]] && block=${line#\`\`\`}
    continue
  fi
  if [[ -n $here ]]; then
    command+=$'\n'$line
    [[ $line != "$here" ]] || here=''
  elif [[ $line == '```' || $line == '$ '* ]]; then
    if [[ -n $command ]]; then
      run "$command" "$expected"
      commands=$((commands + 1))
    fi
    command='' expected=''
    [[ $line == '```' ]] && block='' || command=${line#'$ '}
    [[ ! $command =~ \<\<\'([A-Z]+)\'$ ]] || here=${BASH_REMATCH[1]}
  elif [[ $block == console ]]; then
    expected+=${expected:+$'\n'}$line
  else
    printf '%s\n' "$line" >>"$file"
  fi
done < <(awk -v from="$from" -v to="$to" '$0 ~ from { on = 1 } on && $0 ~ to { exit } on' "$page")
[[ $commands -ge $least ]] || failed "$page" "at least $least commands" "$commands commands"
echo "$page: $commands commands do what the page says"
