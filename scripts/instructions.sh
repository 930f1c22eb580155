#!/usr/bin/env bash
# Counts instructions per asynchronous command and per rule with callgrind. It takes the difference between two runs of
# different length, so that start-up cancels out.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

need_packages "${build_packages[@]}" valgrind libbenchmark-dev
build release instructions

# Runs a workload at two lengths and prints the additional instructions per unit of work: of all code, or only of the object
# files that match a pattern.
per_unit() { # PATTERN WORK [OUTSTANDING]
  local out counts=() count
  out=$(mktemp)
  for count in 2048 6144; do
    valgrind --tool=callgrind --callgrind-out-file="$out" build/release/bench/instructions "$2" "$count" ${3:-} 2>/dev/null
    counts+=("$(callgrind_annotate --threshold=100 --show=Ir "$out" |
      awk -v pattern="\\[.*$1" '$0 ~ pattern { gsub(",", "", $1); sum += $1 } END { print sum + 0 }')")
  done
  rm -f "$out"
  echo $(((counts[1] - counts[0]) / 4096))
}

call=$(per_unit libfwx_nat64 call)
command=$(per_unit libfwx_nat64 in-order 1)
echo "the library's own, call to hand-over: $call"
echo "the library's own, reply to callback: $((command - call))"
echo "the library's own, rule installed: $(per_unit libfwx_nat64 install)"
echo "all, a command with 64 outstanding, answered in order: $(per_unit '' in-order 64)"
echo "all, a command with 1024 outstanding, answered in reverse: $(per_unit '' reversed 1024)"
one=$(per_unit '' in-order 1)
echo "all, a command with 1 outstanding: $one"
echo "more of it by one coroutine: $(($(per_unit '' awaited) - one)), by a coroutine for each: $(($(per_unit '' framed) - one))"
