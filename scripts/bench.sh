#!/usr/bin/env bash
# Runs all benchmarks and prints their results as one table: group, name, value. Run it on an idle machine. Draws
# cost against outstanding commands and against rules as DIR/outstanding.png and DIR/rules.png.
# usage: bench.sh [DIR]   DIR is docs/bench by default
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

dir=${1:-docs/bench}
need_packages "${build_packages[@]}" libbenchmark-dev valgrind gnuplot-nox jq "${python_packages[@]}"
say "building (preset release)"
build release
mkdir -p "$dir"

work=$(mktemp -d)
processes=()
finish() {
  [[ ${#processes[@]} -eq 0 ]] || kill "${processes[@]}" 2>/dev/null || true
  wait "${processes[@]}" 2>/dev/null || true # they use the directory
  rm -rf "$work"
}
trap finish EXIT
natctl=build/release/tools/natctl
export XDG_RUNTIME_DIR=$work XDG_STATE_HOME=$work

row() { printf '%-10s  %-46s  %s\n' "$1" "$2" "$3"; }

# Runs a Google Benchmark program; prints `NAME ARGUMENT NANOSECONDS` for each unit of work.
measure() { # PROGRAM FILTER
  "build/release/bench/$1" --benchmark_filter="$2" --benchmark_format=json 2>/dev/null |
    jq -r '.benchmarks[] | [(.name | sub("/manual_time"; "") | sub("/[0-9]+$"; "")),
      (.name | sub("/manual_time"; "") | capture("/(?<n>[0-9]+)$").n),
      ((.per_command // .per_rule // empty | . * 1e9) // .real_time)] | @tsv'
}

rows_of() { # GROUP FILE UNIT
  local name count ns
  while IFS=$'\t' read -r name count ns; do
    row "$1" "${name#one_way/}, $count $3" "$(printf '%.0f ns' "$ns")"
  done <"$2"
}

serve() { # NAME
  local ready
  exec {ready}< <(exec "$natctl" serve "$1" 2>/dev/null)
  processes+=($!)
  read -r _ <&"$ready" # `serving NAME`
}

# Processor seconds, peak memory in KiB and elapsed seconds of a command.
used() {
  /usr/bin/python3 -c '
import resource, subprocess, sys, time
start = time.monotonic()
subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
used = resource.getrusage(resource.RUSAGE_CHILDREN)
print(used.ru_utime + used.ru_stime, used.ru_maxrss, time.monotonic() - start)' "$@"
}

# The same of a process that goes on, without the time.
used_by() { # PROCESS
  awk -v hz="$(getconf CLK_TCK)" 'NR == 1 { seconds = ($14 + $15) / hz } /^VmHWM/ { print seconds, $2 }' "/proc/$1/stat" "/proc/$1/status"
}

# Processor seconds of a server and a command while the command works.
used_together() { # SERVER COMMAND...
  local before
  before=$(used_by "$1")
  echo "$before $(used "${@:2}") $(used_by "$1")" | awk '{ printf "%.2f s", $6 - $1 + $3 }'
}

wait_for() { # EVENT LOG: until nat64d has logged that
  until grep -q "event=$1 " "$2"; do sleep 0.005; done
}

say "instructions"
scripts/instructions.sh | sed -n 's/^\(the library.*\|all, .*\): \([0-9]*\)$/\1\t\2/p' >"$work/instructions"
say "commands"
measure command_bench . >"$work/commands"
say "channels"
build/release/bench/channel_bench >"$work/channels"
say "documents"
build/release/bench/document_bench >"$work/documents"
say "rules"
measure rule_bench . >"$work/rules"
say "python"
PYTHONPATH=build/release/bindings/python/lib /usr/bin/python3 bench/python_bench.py >"$work/python"
say "natctl"
awk 'BEGIN { for (i = 1; i <= 1000000; ++i) printf "mapt bmr add --rule %d --domain 1 --v6 2001:%x:%x::/48 --v4 %d.%d.%d.%d/28\n",
  i, int(i / 65536) + 1, i % 65536, int(i / 1048576) + 16, int(i / 4096) % 256, int(i / 16) % 256, i % 16 * 16 }' \
  >"$work/lines"
serve bench
batch=$(used_together "${processes[0]}" "$natctl" --connect bench --quiet --pipeline 512 batch "$work/lines")
printf 'dev server sessions generate 1000000\nsessions walk --count 1000\n' >"$work/walk"
walk=$({ TIMEFORMAT='%R'; time "$natctl" --jsonl batch "$work/walk" >"$work/rows"; } 2>&1)
say "large documents"
large_rules=200000
head -n 1 "$work/lines" >"$work/small"
head -n "$large_rules" "$work/lines" >"$work/large"
sed '100000s/$/ --ea-len 4/' "$work/large" >"$work/changed"
serve large
for document in small large changed; do
  echo "natctl $document $(used "$natctl" --connect large config apply "$work/$document")"
done >"$work/used"
for document in small large; do
  serve "daemon-$document"
  cp "$work/$document" "$work/watched-$document"
  : >"$work/log-$document"
  build/release/tools/nat64d "daemon-$document" --config "$work/watched-$document" --listen none 2>"$work/log-$document" &
  processes+=($!)
  wait_for in_step "$work/log-$document"
  echo "nat64d $document $(used_by $!) 0"
done >>"$work/used"
cp "$work/changed" "$work/next"
start=${EPOCHREALTIME/./}
mv "$work/next" "$work/watched-large"
wait_for applied "$work/log-large"
echo "nat64d changed 0 0 $(awk -v us="$((${EPOCHREALTIME/./} - start))" 'BEGIN { print us / 1e6 }')" >>"$work/used"

say "measured $(date -u +%F) on $(nproc) processors, $(sed -n 's/^model name.*: //p' /proc/cpuinfo | head -n 1)"
for cache in /sys/devices/system/cpu/cpu0/cache/index*; do
  echo "level $(cat "$cache/level") $(cat "$cache/type") $(cat "$cache/size"), shared by processors $(cat "$cache/shared_cpu_list")"
done
row group what measured
while IFS=$'\t' read -r what count; do row counted "$what" "$count"; done <"$work/instructions"
rows_of command "$work/commands" outstanding
awk 'NR > 1 { printf "%-10s  %-46s  %s us one at a time, %s k/s with 64\n", "channel", $1 ", " $2 " processors, " $3, $(NF - 1), $NF }' \
  "$work/channels"
# The channel beside the bare ring: `CPUS WAITING AIM COLUMN UNIT`. Times are to be at most the aim, rates at least.
awk '{ if ($1 == "between") { one[$2 $3] = $4; many[$2 $3] = $5 } else if ($1 == "bare-ring") { ring[$2 $3] = $4; rings[$2 $3] = $5 } }
  END {
    form = "aim         %-46s  %.2f %s, aim %s\n"
    printf form, "one core, one at a time", one["1sleeps"] / ring["1sleeps"], "rings", "1.2 at most"
    printf form, "one core, 64 outstanding", many["1sleeps"] / rings["1sleeps"], "of the ring", "0.5 at least"
    if ("2spins" in one) {
      printf form, "two cores that poll, one at a time", one["2spins"] / ring["2spins"], "rings", "2 at most"
      printf form, "two cores that poll, 64 outstanding", many["2spins"] / 1000, "million/s", "16 at least"
    }
  }' "$work/channels"
awk -F '\t' '/^all, a command with 64/ { printf "aim         %-46s  %d instructions, aim 600 at most\n", "a command and its answer, 64 outstanding", $2 }' \
  "$work/instructions"
awk -F '\t' '$1 ~ /^rule_install/ { aim = $2 <= 1000 ? 250 : $2 <= 100000 ? 450 : 900
  printf "aim         %-46s  %.0f ns, aim %d at most\n", "a rule installed, " $2 " rules", $3, aim }' "$work/rules"
awk -v rules="$large_rules" '{ seconds[$1 $2] = $3; kibibytes[$1 $2] = $4; elapsed[$1 $2] = $5 }
  END {
    form = "aim         %-46s  %.1f %s, aim %d at most\n"
    for (i = split("natctl nat64d", programs); i > 0; --i) {
      one = programs[i]
      printf form, "200,000 rules applied by " one, 1e6 * (seconds[one "large"] - seconds[one "small"]) / rules, "us of its processor a rule", 4
      printf form, "200,000 rules applied by " one, 1024 * (kibibytes[one "large"] - kibibytes[one "small"]) / rules, "bytes a rule", 250
      printf form, "one of 200,000 rules changed by " one, 1e3 * elapsed[one "changed"], "ms", 300
    }
  }' "$work/used"
rows_of rule "$work/rules" rules
while IFS=$'\t' read -r what measured; do row python "$what" "$measured"; done <"$work/python"
while IFS= read -r line; do
  read -r _ _ work_seconds _ mebibytes _ <<<"${line:24}"
  name=${line:0:24}
  row document "1,000,000 rules: ${name%%  *}" "$work_seconds s of processor, $mebibytes MiB"
done <"$work/documents"
row natctl "1,000,000 rules, 512 outstanding, both ends" "$batch of processor"
row natctl "a walk of 1,000,000 sessions as lines of JSON" "$(awk -v s="$walk" 'BEGIN { printf "%.0f k/s", 1000 / s }')"

gnuplot <<END
set terminal pngcairo size 800,480
set logscale x
set yrange [0:]
set key left top
set ylabel "nanoseconds"
set datafile separator "\t"
set output "$dir/outstanding.png"
set xlabel "commands outstanding"
plot "< grep call_to $work/commands" using 2:3 with linespoints title "a call, to the hand-over of its message", \
     "< grep reply_to $work/commands" using 2:3 with linespoints title "a reply, to its callback"
set output "$dir/rules.png"
set xlabel "rules"
plot "< grep ^rule_install $work/rules" using 2:3 with linespoints title "a rule installed", \
     "< grep ^rule_delete $work/rules" using 2:3 with linespoints title "a rule deleted", \
     "< grep ^rule_longest $work/rules" using 2:3 with linespoints title "a longest match"
END
say "done in $SECONDS s"
