#!/usr/bin/env bash
# Prints the functions and objects that public headers declare; their library exports exactly these.
# usage: exports.sh [FOLDER]   FOLDER is include/fwx_nat64 by default
set -euo pipefail
cd "$(dirname "$0")/.."
grep -ohE '^(uint32_t|void|fwx_nat64_client_info_t) \*?fwx_[a-z0-9_]+\(|^extern const [a-z0-9_]+ fwx_[a-z0-9_]+;' \
  "${1:-include/fwx_nat64}"/*.h | sed -E 's/[(;]$//; s/.*[ *]//' | LC_ALL=C sort
