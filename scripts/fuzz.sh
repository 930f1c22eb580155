#!/usr/bin/env bash
# Runs every fuzzer, starting from the seeds in fuzz/seeds. The corpora stay in build/asan/corpus.
# usage: fuzz.sh [SECONDS]   time for each fuzzer, 20 by default
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

seconds=${1:-20}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || { echo "usage: $0 [SECONDS]" >&2; exit 2; }

need_packages "${build_packages[@]}" "${clang_packages[@]}"
say "building (preset asan)"
build asan {document,handshake,ietf,messages,natctl,ring,state,store,tree}_fuzz

# A binary seed is a line of hexadecimal bytes; blanks, and comments after #, are ignored. A text seed is a whole file.
make_seeds() {
  local corpus=$1 count=0 line
  while IFS= read -r line; do
    line=${line%%#*}
    line=${line//[[:space:]]/}
    [[ -n $line ]] || continue
    printf "$(sed 's/../\\x&/g' <<<"$line")" >"$corpus/seed-$((++count))"
  done
}

# Prints nothing unless a fuzzer finds something, which is then in build/asan. Entropic scheduling is off, because for
# natctl it takes more time than the inputs themselves.
run_fuzzer() {
  local name=$1 corpus=build/asan/corpus/$1 log=build/asan/$1.log text
  mkdir -p "$corpus"
  if [[ -f fuzz/seeds/$name.hex ]]; then make_seeds "$corpus" <fuzz/seeds/$name.hex; fi
  for text in fuzz/seeds/$name-*.txt; do
    if [[ -f $text ]]; then cp "$text" "$corpus/"; fi
  done
  if "build/asan/fuzz/${name}_fuzz" -max_total_time="$seconds" -max_len=1024 -timeout=10 -entropic=0 -print_final_stats=1 \
    -artifact_prefix="build/asan/$name-" "$corpus" >"$log" 2>&1; then
    echo "$name: $(grep -E 'number_of_executed_units' "$log")"
  else
    tail -n 60 "$log"
    return 1
  fi
}

say "$seconds s each"
started=()
for fuzzer in build/asan/fuzz/*_fuzz; do
  if [[ $(jobs -rp | wc -l) -ge $(nproc) ]]; then wait -n || true; fi
  run_fuzzer "$(basename "$fuzzer" _fuzz)" &
  started+=($!)
done
status=0
for pid in "${started[@]}"; do
  wait "$pid" || status=1 # the others run to their end
done
exit $status
