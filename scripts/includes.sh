#!/usr/bin/env bash
# Checks every quoted include against scripts/includes.txt and fails if one is not allowed there.
set -euo pipefail
cd "$(dirname "$0")/.."

git ls-files '*.cpp' '*.h' '*.hpp' | xargs grep -nE '^#include "' | awk '
  BEGIN {
    while ((getline line < "scripts/includes.txt") > 0) {
      if (line ~ /^#/ || split(line, word, /[[:space:]]+/) < 2) continue
      folders[++count] = word[1]
      allowed[count] = line
    }
  }
  {
    split($0, part, ":")
    match($0, /"[^"]+"/)
    path = substr($0, RSTART + 1, RLENGTH - 2)
    for (row = 1; row <= count && index(part[1], folders[row]) != 1; ++row) {}
    if (row > count) next
    words = split(allowed[row], word, /[[:space:]]+/)
    for (i = 2; i <= words; ++i) if (index(path, word[i]) == 1) next
    print part[1] ":" part[2] ": must not include " path
    failed = 1
  }
  END { exit failed }
' >&2
echo "all includes are allowed"
