#!/usr/bin/env bash
# The export list is what the public headers declare; the library's dynamic symbols are exactly that list, under one
# version node, and it needs no C++ runtime.
# usage: export_test.sh LIBRARY EXPORT_LIST
set -euo pipefail
"$(dirname "$0")/../../scripts/exports.sh" | diff - "$2"
nm -D --defined-only "$1" | awk '$2 != "A" { print $3 }' | sort | diff <(sed 's/$/@@FWX_NAT64_1/' "$2" | sort) -
needed=$(readelf -d "$1" | awk '/NEEDED/ { gsub(/[][]/, "", $NF); print $NF }' | grep -vE '^(libc|libfwx_host|libasan|libubsan)\.so' || true)
if [[ -n "$needed" ]]; then
  echo "needs more than libc and the platform: $needed"
  exit 1
fi
readelf -d "$1" | grep 'SONAME.*\[libfwx_nat64\.so\.1\]' >/dev/null
echo "$(wc -l <"$2") exports"
