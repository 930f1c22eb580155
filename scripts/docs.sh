#!/usr/bin/env bash
# Builds the pages of the public interface into build/docs/html; a declaration without a comment is an error.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

need_packages doxygen
mkdir -p build
doxygen docs/Doxyfile
echo "build/docs/html/index.html"
