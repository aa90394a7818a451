#!/usr/bin/env bash
# Installs the build folder $1 below $2, builds the outside project of folder $3 against it, found by CMake and by
# pkg-config, and merges two frames.
set -euo pipefail
build=$1 scratch=$2 source=$3
rm -rf "$scratch"
mkdir -p "$scratch"
cmake --install "$build" --prefix "$scratch/prefix" >"$scratch/install.log"
(cd "$scratch/prefix/include" && find orvo_extensions -name '*.hpp' | sort) | sed 's/.*/#include <&>/' >"$scratch/all_headers.hpp"
opencv=$(sed -n 's/^OpenCV_DIR:[A-Z]*=//p' "$build/CMakeCache.txt")
cmake -S "$source" -B "$scratch/build" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" \
  -DORVO_ALL_HEADERS="$scratch" -DOpenCV_DIR="$opencv" >"$scratch/configure.log"
cmake --build "$scratch/build" >"$scratch/build.log" || { cat "$scratch/build.log" >&2; exit 1; }
"$scratch/prefix/bin/orvo" demo --size 300 "$scratch/demo" >"$scratch/demo.log" 2>&1 || { cat "$scratch/demo.log" >&2; exit 1; }
frames=$(find "$scratch/demo/handheld" -name '*.jpg' | sort)
# shellcheck disable=SC2086 # the demo's names hold no blanks
"$scratch/build/consumer" $frames "$scratch/merged.png"
test -s "$scratch/merged.png"
"$scratch/build/all_headers"
PKG_CONFIG_PATH=$(dirname "$(find "$scratch/prefix" -name orvo_extensions.pc)")
export PKG_CONFIG_PATH
read -ra flags <<<"$(pkg-config --cflags --libs orvo_extensions)"
IFS=';' read -ra folders <"$scratch/opencv_folders.txt" || true # no line end, so read reports the end of the file
for folder in "${folders[@]}"; do
  flags+=("-isystem" "$folder")
done
c++ -std=c++20 "$source/all_headers.cpp" -I"$scratch" "${flags[@]}" -o "$scratch/all_headers"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir orvo_extensions) "$scratch/all_headers"
# The one header with OpenCV in it asks for a component of the package, which the project above does without.
cmake -S "$source/opencv" -B "$scratch/joining" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" >>"$scratch/configure.log"
cmake --build "$scratch/joining" >"$scratch/build.log" || { cat "$scratch/build.log" >&2; exit 1; }
"$scratch/joining/joining"
test -s "$scratch/prefix/share/man/man1/orvo.1"
# What is not exported stays hidden: none of the third-party libraries' names come out of the shared library.
library=$(find "$scratch/prefix" -name 'liborvo_extensions.so' | head -n 1)
if nm -DC --defined-only "$library" | grep -E ' [TW] (cv|Exiv2|nlohmann|spdlog|LibRaw)' | grep -vE 'std::|tbb::' | head; then
  count=$(nm -DC --defined-only "$library" | grep -cE ' T (cv|Exiv2|nlohmann|spdlog|LibRaw)' || true)
  test "$count" -eq 0
fi
