#!/usr/bin/env bash
# Compares the binary interfaces of the libraries in build/dev with those stored in the tree; docs/abi.md says what a
# difference means.
# usage: abi.sh [--update]   --update: stores the present interfaces in the tree, and before that the export lists, which
#                            are the declarations of the public headers
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

# For each library: target, file in build/dev, folder of its public headers, export list, options of abidw. The model's
# internals are not part of its interface.
libraries=(
  "fwx_nat64 libfwx_nat64.so include/fwx_nat64 cmake/exports.list"
  "fwx_nat64_model model/libfwx_nat64_model.so model/include/fwx_nat64_model cmake/model_exports.list --exported-interfaces-only"
)
case "${1:-}" in
  --update | "") ;;
  *) echo "usage: $0 [--update]" >&2; exit 2 ;;
esac

need_packages "${build_packages[@]}" libgtest-dev abigail-tools
for library in "${libraries[@]}"; do
  read -r target file headers exports options <<<"$library"
  if [[ "${1:-}" == --update ]]; then
    scripts/exports.sh "$headers" >"$exports"
  fi
  build dev "$target"

  # Types outside the public headers, source positions and directory names are not part of the interface.
  baseline=cmake/abi/$target.abi.xml
  present=build/dev/$target.abi.xml
  # shellcheck disable=SC2086 # none, or one
  abidw $options --headers-dir "$headers" --drop-private-types --no-show-locs --no-comp-dir-path --no-corpus-path \
    "build/dev/$file" | sed -E "s#path='($PWD/|(\.\./)+)#path='#" >"$present"
  if [[ "${1:-}" == --update ]]; then
    cp "$present" "$baseline"
    echo "$baseline written"
  elif abidiff --no-show-locs "$baseline" "$present"; then
    echo "the binary interface is that of $baseline"
  else
    echo "the binary interface differs from $baseline" >&2
    exit 1
  fi
done
