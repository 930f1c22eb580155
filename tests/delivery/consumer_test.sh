#!/usr/bin/env bash
# Builds and runs a program of client and server in C and C++, by pkg-config and by CMake, with libraries that were
# installed and then moved. The installed natctl must find the library too.
# usage: consumer_test.sh SOURCE_DIR BUILD_DIR CC CXX
set -euo pipefail # grep must not use -q here: it would close the pipe early, and the writer would fail
here=$1/tests/delivery build=$2 cc=$3 cxx=$4
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/first" >/dev/null
mv "$scratch/first" "$scratch/prefix"
lib=$(dirname "$(find "$scratch/prefix" -name libfwx_nat64.so)")
[[ $(readlink "$lib/libfwx_nat64.so") == libfwx_nat64.so.1 ]]
[[ $(readlink "$lib/libfwx_nat64.so.1") == libfwx_nat64.so.1.* ]]
cmp "$lib/wireshark/plugins/fwx_nat64.lua" "$build/wire/fwx_nat64.lua"

export PKG_CONFIG_PATH=$lib/pkgconfig
read -ra flags <<<"$(pkg-config --cflags --libs fwx_nat64 fwx_nat64_model) -Wl,-rpath,$lib"
"$cc" -std=c11 -Wall -Wextra -Werror "$here/../model/interface_test.c" -o "$scratch/by_pkgconfig_c" "${flags[@]}"
"$cxx" -std=c++17 -Wall -Wextra -Werror "$here/consumer.cpp" -o "$scratch/by_pkgconfig_cpp" "${flags[@]}"

cmake -S "$here/project" -B "$scratch/project" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/project" >/dev/null
if cmake -S "$here/project" -B "$scratch/other" -DCMAKE_PREFIX_PATH="$scratch/nowhere" >/dev/null 2>&1; then
  echo "a package was found where none is installed"
  exit 1
fi

for consumer in "$scratch"/by_pkgconfig_{c,cpp} "$scratch"/project/consumer_{c,cpp}; do
  "$consumer" 2>/dev/null
  ldd "$consumer" | grep "libfwx_nat64.so.1 => $lib/" >/dev/null
done

ldd "$scratch/prefix/bin/natctl" | grep "libfwx_nat64.so.1 => $scratch/prefix/" >/dev/null
"$scratch/prefix/bin/natctl" timeout set --type 2 --value 60
cmp "$scratch/prefix/share/bash-completion/completions/natctl" <("$scratch/prefix/bin/natctl" completion bash)
