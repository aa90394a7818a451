#!/usr/bin/env bash
# Compares whole focus stacks: orvo stack and Debian's enfuse. Prints Markdown tables.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/bench_stack.sh speed|quality [FOLDER]

  speed    renders a series of 8 frames of 12 megapixels and prints wall time and peak memory
  quality  stacks every series below $ORVO_TEST_DATA/focus and prints its sharpness: as a share of the
           best of the aligned inputs, pixel by pixel, and relative to the other program's stack if the
           data has one

Results are kept in FOLDER (by default build/bench). Needs the release preset built and
scripts/bootstrap.sh --bench.
TEXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=${ORVO_BIN:-$root/build/release/bin}
mode=${1:-}
work=${2:-$root/build/bench}
case $mode in speed|quality) ;; --help|-h) usage; exit 0 ;; *) usage >&2; exit 2 ;; esac
. "$root/scripts/bench_measure.sh"
need bench_stack "$bin/orvo" "$bin/bench_focus_score" enfuse
mkdir -p "$work"

speed() {
  local folder=$work/focus_8
  [ -d "$folder" ] || "$bin/bench_render_focus" "$folder" 8 4000 3000
  echo "8 frames of 12 megapixels, JPEG in, 8-bit TIFF out:"
  echo
  echo "| program | seconds | peak MB |"
  echo "|---|---|---|"
  row "orvo stack --no-align" "$bin/orvo" stack "$folder"/*.jpg -o "$folder/out_orvo.tif" --bits 8 --no-align --quiet
  row "orvo stack" "$bin/orvo" stack "$folder"/*.jpg -o "$folder/out_orvo_aligned.tif" --bits 8 --quiet
  row "enfuse (hard mask, contrast alone)" enfuse --exposure-weight=0 --saturation-weight=0 --contrast-weight=1 \
    --hard-mask -o "$folder/out_enfuse.tif" "$folder"/*.jpg
}

quality() {
  : "${ORVO_TEST_DATA:?bench_stack: set ORVO_TEST_DATA to the folder of real pictures}"
  echo "| series | share of the best input | against the other program |"
  echo "|---|---|---|"
  for series in "$ORVO_TEST_DATA"/focus/*/; do
    local files against=() scores
    mapfile -t files < <(find "$series" -maxdepth 1 -iname '*.jpg' -o -maxdepth 1 -iname '*.png' | sort)
    [ -f "$series/reference/expected.jpg" ] && against=(--against "$series/reference/expected.jpg")
    read -ra scores < <("$bin/bench_focus_score" "${against[@]}" "${files[@]}")
    echo "| $(basename "$series") | ${scores[0]} | ${scores[1]:--} |"
  done
}

"$mode"
