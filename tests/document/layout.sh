#!/usr/bin/env bash
# Compiles the layout test $2 with the compiler $1 below $3 and runs it. $4: include folders, with colons between them.
set -euo pipefail
compiler=$1 source=$2 scratch=$3
includes=()
IFS=: read -ra folders <<<"$4"
for folder in "${folders[@]}"; do
  [ -z "$folder" ] || includes+=("-I$folder")
done
"$compiler" -std=c++20 -Wall -Wextra -Werror "${includes[@]}" "$source" -o "$scratch/layout_clang" -lgtest -lgtest_main -pthread
"$scratch/layout_clang" --gtest_brief=1
