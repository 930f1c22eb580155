#!/usr/bin/env bash
# Checks that each public and platform header compiles on its own, as C11 and as C++17; those of the C++ interface as C++20.
# usage: header_test.sh SOURCE_DIR CC CXX
set -euo pipefail
cd "$1"
for header in include/fwx_nat64/*.h platform/*.h host/include/fwx_host/*.h model/include/fwx_nat64_model/*.h; do
  name=${header#include/}
  name=${name#host/include/}
  name=${name#model/include/}
  flags="-Wall -Wextra -Wpedantic -Werror -fsyntax-only -Iinclude -Ihost/include -Imodel/include -I."
  printf '#include "%s"\ntypedef int not_empty_t;\n' "$name" | "$2" -std=c11 $flags -x c -
  printf '#include "%s"\n' "$name" | "$3" -std=c++17 $flags -x c++ -
done
for header in include/fwx_nat64/*.hpp include/fwx_nat64/cxx/*.hpp host/include/fwx_host/*.hpp; do
  name=${header#include/}
  printf '#include "%s"\n' "${name#host/include/}" |
    "$3" -std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only -Iinclude -Ihost/include -x c++ -
done
echo "all headers stand alone"
