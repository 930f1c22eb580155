#!/usr/bin/env bash
# Compares the binary interfaces of the libraries in build/dev with those that stand in the tree; docs/abi.md says what a
# difference means.
# usage: abi.sh [--update]   --update: writes the present interfaces into the tree, and before that the lists of what is
#                            exported, which is what the public headers declare
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

# A library's target, its file in build/dev, the folder of its public headers, the list of what it exports, and options
# of abidw; what the model is made of is no part of its interface.
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

  # Types outside the public headers, places in files and names of directories are no part of the interface.
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
