#!/usr/bin/env bash
# Compares the binary interface of the library in build/dev with the one that stands in the tree; docs/abi.md says what
# a difference means.
# usage: abi.sh [--update]   --update: writes the present interface into the tree, and before that the list of what is
#                            exported, which is what the public headers declare
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

baseline=cmake/abi/fwx_nat64.abi.xml
case "${1:-}" in
  --update | "") ;;
  *) echo "usage: $0 [--update]" >&2; exit 2 ;;
esac

need_packages "${build_packages[@]}" libgtest-dev abigail-tools
if [[ "${1:-}" == --update ]]; then
  scripts/exports.sh >cmake/exports.list
fi
cmake --preset dev >/dev/null
cmake --build --preset dev --target fwx_nat64 | tail -n 1

# Types outside the public headers, places in files and names of directories are no part of the interface.
present=$(mktemp)
trap 'rm -f "$present"' EXIT
abidw --headers-dir include/fwx_nat64 --drop-private-types --no-show-locs --no-comp-dir-path --no-corpus-path \
  build/dev/libfwx_nat64.so | sed "s#path='$PWD/#path='#" >"$present"
if [[ "${1:-}" == --update ]]; then
  cp "$present" "$baseline"
  echo "$baseline written"
  exit
fi
if ! abidiff --no-show-locs "$baseline" "$present"; then
  echo "the binary interface differs from $baseline" >&2
  exit 1
fi
echo "the binary interface is that of $baseline"
