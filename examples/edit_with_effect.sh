#!/usr/bin/env bash
# Runs the example $1 on a picture below $2, with the result below $3, and looks for what it says it does.
set -euo pipefail
example=$1 pictures=$2 scratch=$3
picture=$(find "$pictures" -name '*.jpg' | sort | head -n 1)
result=$scratch/brightened.png
rm -f "$result"
"$example" "$picture" "$result" 1.0
test -s "$result"
# A file that is not there is reported, and nothing is written.
if "$example" "$pictures/missing.jpg" "$scratch/missing.png" 1.0 2>"$scratch/missing.txt"; then exit 1; fi
grep -q missing.jpg "$scratch/missing.txt"
test ! -e "$scratch/missing.png"
