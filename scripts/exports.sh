#!/usr/bin/env bash
# Prints what the public headers declare, and so what the library exports.
set -euo pipefail
cd "$(dirname "$0")/.."
grep -ohE '^(uint32_t|void|fwx_nat64_client_info_t) \*?fwx_[a-z0-9_]+\(|^extern const [a-z0-9_]+ fwx_[a-z0-9_]+;' \
  include/fwx_nat64/*.h | sed -E 's/[(;]$//; s/.*[ *]//' | LC_ALL=C sort
