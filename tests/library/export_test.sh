#!/usr/bin/env bash
# Checks that an export list equals the declarations in the headers of a folder, that the dynamic symbols of the library
# are exactly this list under one version node, and that the library needs only libc and the libraries given. The client
# library needs only the platform, and no C++ runtime.
# usage: export_test.sh LIBRARY EXPORT_LIST [NODE HEADERS NEEDED]
set -euo pipefail
node=${3:-FWX_NAT64_1} headers=${4:-include/fwx_nat64} may_need=${5:-libfwx_host|libasan|libubsan}
"$(dirname "$0")/../../scripts/exports.sh" "$headers" | diff - "$2"
nm -D --defined-only "$1" | awk '$2 != "A" { print $3 }' | sort | diff <(sed "s/\$/@@$node/" "$2" | sort) -
needed=$(readelf -d "$1" | awk '/NEEDED/ { gsub(/[][]/, "", $NF); print $NF }' | grep -vE "^(libc|$may_need)\.so" || true)
if [[ -n "$needed" ]]; then
  echo "needs more than it may: $needed"
  exit 1
fi
name=$(basename "$1")
readelf -d "$1" | grep "SONAME.*\[${name%.so*}\.so\.1\]" >/dev/null
echo "$(wc -l <"$2") exports"
