#!/usr/bin/env bash
# Instructions that the library itself executes per asynchronous command and per rule, counted by callgrind: the
# difference between two runs of different length, so that start-up cancels out.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

need_packages "${build_packages[@]}" valgrind libbenchmark-dev
cmake --preset release >/dev/null
cmake --build --preset release --target instructions | tail -n 1

# Prints the library's own instructions of a run: the sum over its functions, platform and libc left out.
own_instructions() {
  local out
  out=$(mktemp)
  valgrind --tool=callgrind --callgrind-out-file="$out" build/release/bench/instructions "$@" 2>/dev/null
  callgrind_annotate --threshold=100 --show=Ir "$out" |
    awk '/\[.*libfwx_nat64\.so/ { gsub(",", "", $1); sum += $1 } END { print sum + 0 }'
  rm -f "$out"
}

for way in call command install; do
  short=$(own_instructions "$way" 1000)
  long=$(own_instructions "$way" 3000)
  case $way in
    call) call=$(((long - short) / 2000)); echo "call to hand-over: $call instructions" ;;
    command) echo "reply to callback: $(((long - short) / 2000 - call)) instructions" ;;
    install) echo "rule installed: $(((long - short) / 2000)) instructions" ;;
  esac
done
