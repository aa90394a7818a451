#!/usr/bin/env bash
# Runs the example $1 on a picture below $2, with results below $3.
set -euo pipefail
example=$1 pictures=$2 scratch=$3
picture=$(find "$pictures" -name '*.jpg' | sort | head -n 1)
rm -f "$scratch"/{same,brighter,missing}.png
"$example" "$picture" "$scratch/same.png" 0
"$example" "$picture" "$scratch/brighter.png" 1
test -s "$scratch/brighter.png"
if cmp -s "$scratch/same.png" "$scratch/brighter.png"; then
  echo "the effect changes nothing" >&2
  exit 1
fi
# A file that is not there is reported by its name, and nothing is written.
if "$example" "$pictures/missing.jpg" "$scratch/missing.png" 1 2>"$scratch/missing.txt"; then
  exit 1
fi
grep -q missing.jpg "$scratch/missing.txt"
test ! -e "$scratch/missing.png"
