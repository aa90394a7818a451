#!/usr/bin/env bash
# Compares whole focus stacks: orvo stack and Debian's enfuse. Prints Markdown tables.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/bench_stack.sh speed|quality|truth [FOLDER]

  speed    renders a series of 8 frames of 12 megapixels and prints wall time and peak memory
  quality  stacks every series below $ORVO_TEST_DATA/focus and prints its sharpness: as a share of the
           best of the aligned inputs, pixel by pixel, and relative to the other program's stack if the
           data has one
  truth    renders a series of 8 frames of 3 megapixels, textured down to the pixel, that breathes by 0.2 percent
           a frame, and compares the stacks with what they should show. align_image_stack joins in if installed

Results are kept in FOLDER (by default build/bench). Needs the release preset built and
scripts/bootstrap.sh --bench.
TEXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=${ORVO_BIN:-$root/build/release/bin}
mode=${1:-}
work=${2:-$root/build/bench}
case $mode in speed|quality|truth) ;; --help|-h) usage; exit 0 ;; *) usage >&2; exit 2 ;; esac
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
  row "orvo stack --fast" "$bin/orvo" stack "$folder"/*.jpg -o "$folder/out_orvo_fast.tif" --bits 8 --fast --quiet
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

truth() {
  local folder=$work/focus_fine
  need bench_stack "$bin/bench_render_focus" "$bin/bench_truth_score"
  [ -f "$folder/inputs.tif" ] || "$bin/bench_render_focus" "$folder" 8 2048 1536 fine
  local names=("orvo stack --no-align" "orvo stack --fast" "orvo stack") results=()
  local frames=("$folder"/focus_*.tif) to=(--reference 1 --quiet)
  "$bin/orvo" stack "${frames[@]}" -o "$folder/out_unaligned.tif" --no-align --quiet >&2
  "$bin/orvo" stack "${frames[@]}" -o "$folder/out_fast.tif" --fast "${to[@]}" >&2
  "$bin/orvo" stack "${frames[@]}" -o "$folder/out_fine.tif" "${to[@]}" >&2
  results=("$folder/out_unaligned.tif" "$folder/out_fast.tif" "$folder/out_fine.tif")
  if command -v align_image_stack >/dev/null; then
    align_image_stack -m -C --use-given-order -a "$folder/peer_" "${frames[@]}" >&2
    enfuse --exposure-weight=0 --saturation-weight=0 --contrast-weight=1 --hard-mask -o "$folder/out_peer.tif" \
      "$folder"/peer_*.tif >&2
    rm -f "$folder"/peer_*.tif
    names+=("align_image_stack and enfuse")
    results+=("$folder/out_peer.tif")
  fi
  names+=("the sharpest frames, without breathing")
  results+=("$folder/inputs.tif")
  echo "| program | PSNR in dB | sharpness in % | noise in % |"
  echo "|---|---|---|---|"
  local index=0 decibels sharpness noise
  while read -r decibels sharpness noise; do
    echo "| ${names[index]} | $decibels | $sharpness | $noise |"
    index=$((index + 1))
  done < <("$bin/bench_truth_score" "$folder/truth.tif" "$folder/inputs.tif" "${results[@]}")
}

"$mode"
