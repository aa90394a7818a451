#!/usr/bin/env bash
# Builds outside projects against an installed package, found by CMake and by pkg-config, and runs them.
#   build.sh PREFIX SOURCES PICTURES SCRATCH
# PREFIX: where the package is; SOURCES: this repository, of which only examples/guide and tests/consumer are read;
# PICTURES: the folder that `orvo demo` made.
set -euo pipefail
mkdir -p "$4"
prefix=$(realpath "$1") sources=$(realpath "$2") pictures=$(realpath "$3") scratch=$(realpath "$4")
quietly() { "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }; }

# The programs of the guide.
quietly cmake -S "$sources/examples/guide" -B "$scratch/guide" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
quietly cmake --build "$scratch/guide"
frames=("$pictures"/handheld/*.jpg)
# A program's output goes to the log. The library writes nothing to standard error in any of them.
run() {
  "$scratch/guide/$1" "${@:2}" >"$scratch/log" 2>"$scratch/errors" || { cat "$scratch/log" "$scratch/errors" >&2; exit 1; }
  [ ! -s "$scratch/errors" ] || { echo "$1 wrote to standard error:" >&2; cat "$scratch/errors" >&2; exit 1; }
}
run merge "${frames[@]}" "$scratch/merged.png"
test -s "$scratch/merged.png"
run functions "${frames[@]}"
run ghost_reference "${frames[@]}"
run failures "${frames[@]}" "$pictures/missing.jpg"
grep -q "choose another file than $pictures/missing.jpg" "$scratch/log"
run progress "$pictures"/focus/*.jpg
run memory "$scratch/memory.png"
run others "$pictures"
run joining

# Every exported header, by CMake.
(cd "$prefix/include" && find orvo_extensions -name '*.hpp' | sort) | sed 's/.*/#include <&>/' >"$scratch/all_headers.hpp"
quietly cmake -S "$sources/tests/consumer" -B "$scratch/headers" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DORVO_ALL_HEADERS="$scratch"
quietly cmake --build "$scratch/headers"
quietly "$scratch/headers/all_headers"

# By pkg-config.
PKG_CONFIG_PATH=$prefix/lib/pkgconfig
export PKG_CONFIG_PATH
read -ra flags <<<"$(pkg-config --cflags --libs orvo_extensions)"
quietly c++ -std=c++20 "$sources/examples/guide/merge.cpp" "${flags[@]}" -o "$scratch/merge"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir orvo_extensions) quietly "$scratch/merge" "${frames[@]}" "$scratch/again.png"
cmp "$scratch/merged.png" "$scratch/again.png"
[ -d "$prefix/lib/orvo_extensions" ] || exit 0 # it does not bring an OpenCV
read -ra flags <<<"$(pkg-config --cflags --libs orvo_extensions-opencv)"
quietly c++ -std=c++20 "$sources/examples/guide/joining.cpp" "${flags[@]}" -o "$scratch/joining"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir orvo_extensions) quietly "$scratch/joining"
