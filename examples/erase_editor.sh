#!/usr/bin/env bash
# Runs the example $1 on a picture below $2, with results below $3.
set -euo pipefail
example=$1 pictures=$2 scratch=$3
picture=$(find "$pictures" -name '*.jpg' | sort | head -n 1)
rm -f "$scratch"/erase_*.png
"$example" "$picture" "$scratch/erase_one.png" 100 80 20 | grep -q 'request of'
"$example" "$picture" "$scratch/erase_other.png" 200 120 20 >"$scratch/erase_log.txt"
if cmp -s "$scratch/erase_one.png" "$scratch/erase_other.png"; then
  echo "nothing was erased" >&2
  exit 1
fi
# A file that is not there is reported by its name, and nothing is written.
if "$example" "$pictures/missing.jpg" "$scratch/erase_missing.png" 100 80 20 2>"$scratch/erase_missing.txt"; then
  exit 1
fi
grep -q missing.jpg "$scratch/erase_missing.txt"
test ! -e "$scratch/erase_missing.png"
