#!/usr/bin/env bash
# Compiles the files of folder $2, one for each exported header, with the compiler $1 and every warning of Clang but
# those below. $3, $4: include folders of ours and of OpenCV, with colons between them.
set -euo pipefail
compiler=$1 sources=$2 ours=$3 opencv=$4

without=(
  c++98-compat c++98-compat-pedantic # C++20 it is
  padded                             # layouts are part of the interface, holes included
  reserved-identifier                # _ImageData, _Size and __orvolog are the family's names
)
flags=(-std=c++20 -fsyntax-only -Weverything -Werror)
for warning in "${without[@]}"; do
  flags+=("-Wno-$warning")
done
IFS=: read -ra folders <<<"$ours"
for folder in "${folders[@]}"; do
  # A target's folders for the build; those of the installed package name none that is here.
  [ ! -d "$folder" ] || flags+=("-I$folder")
done
IFS=: read -ra folders <<<"$opencv"
for folder in "${folders[@]}"; do
  [ -z "$folder" ] || flags+=("-isystem" "$folder")
done
find "$sources" -maxdepth 1 -name 'orvo_extensions_*.cpp' -print0 | sort -z |
  xargs -0 -P "$(nproc)" -n 1 "$compiler" "${flags[@]}"
echo "$(find "$sources" -maxdepth 1 -name 'orvo_extensions_*.cpp' | wc -l) headers"
