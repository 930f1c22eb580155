#!/usr/bin/env bash
# Prints what public headers declare, and so what their library exports.
# usage: exports.sh [FOLDER]   include/fwx_nat64 without it
set -euo pipefail
cd "$(dirname "$0")/.."
grep -ohE '^(uint32_t|void|fwx_nat64_client_info_t) \*?fwx_[a-z0-9_]+\(|^extern const [a-z0-9_]+ fwx_[a-z0-9_]+;' \
  "${1:-include/fwx_nat64}"/*.h | sed -E 's/[(;]$//; s/.*[ *]//' | LC_ALL=C sort
