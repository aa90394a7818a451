#!/usr/bin/env bash
# Runs the examples $1 (expand) and $2 (restore) on a picture below $3, with results below $4.
set -euo pipefail
expand=$1 restore=$2 pictures=$3 scratch=$4
picture=$(find "$pictures" -name '*.jpg' | sort | head -n 1)
rm -f "$scratch"/expanded.png "$scratch"/restored.png
"$expand" "$picture" "$scratch/expanded.png" 30 | grep -q 'expanded.png: '
"$restore" "$picture" "$scratch/restored.png" | grep -q 'request of'
test -s "$scratch/expanded.png" && test -s "$scratch/restored.png"
test ! -e "$scratch/restored.png.answer.png"
# A file that is not there is reported by its name, and nothing is written.
for example in "$expand $pictures/missing.jpg $scratch/missing.png 30" "$restore $pictures/missing.jpg $scratch/missing.png"; do
  if $example 2>"$scratch/missing.txt"; then
    exit 1
  fi
  grep -q missing.jpg "$scratch/missing.txt"
  test ! -e "$scratch/missing.png"
done
