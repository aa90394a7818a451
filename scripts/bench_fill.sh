#!/usr/bin/env bash
# Holes in photographs, filled by orvo, by OpenCV's inpainting and by PyPatchMatch. Prints Markdown tables.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/bench_fill.sh quality|random|sheet|large [FOLDER]

  quality  fills holes with known content (bench/jobs/fill_holes.txt): PSNR inside, mean gradient inside and
           across the rim relative to the truth, seconds
  random   fills holes at random places with known content by orvo (bench/jobs/fill_random.txt): the same figures
  sheet    removes objects from photographs and adds borders (bench/jobs/fill_removals.txt), and puts the results
           next to the originals: FOLDER/sheet_holes.png and FOLDER/sheet_removals.png
  large    fills a hole of 2 megapixels in 24: wall time and peak memory of orvo fill, and the figures of quality

Results are kept in FOLDER (by default build/bench/fill). Needs ORVO_TEST_DATA and the release preset built.
PyPatchMatch (MIT) is installed from PyPI into /tmp/orvo_bench_fill if possible, else skipped.
TEXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=${ORVO_BIN:-$root/build/release/bin}
mode=${1:-}
work=${2:-$root/build/bench/fill}
case $mode in quality|random|sheet|large) ;; --help|-h) usage; exit 0 ;; *) usage >&2; exit 2 ;; esac
. "$root/scripts/bench_measure.sh"
need bench_fill "$bin/orvo" "$bin/orvo_fill_bench"
: "${ORVO_TEST_DATA:?bench_fill: set ORVO_TEST_DATA to the folder of real pictures}"
bench=$bin/orvo_fill_bench
venv=/tmp/orvo_bench_fill

# Creates the cases of a list once.
cases() {
  [ -d "$work/$1" ] || "$bench" cases "$root/bench/jobs/fill_$1.txt" "$ORVO_TEST_DATA" "$work/$1"
}

install_pypatchmatch() {
  [ -x "$venv/bin/python" ] || python3 -m venv "$venv"
  "$venv/bin/python" -c 'import patchmatch' 2>/dev/null ||
    timeout 600 "$venv/bin/pip" install --quiet pypatchmatch==2.2.0 numpy pillow
}

# Fills every case of a folder; the seconds are those of the call alone.
run_pypatchmatch() {
  "$venv/bin/python" - "$1" <<'PYTHON'
import glob, sys, time
import numpy
from PIL import Image
from patchmatch import patch_match
for mask_file in sorted(glob.glob(sys.argv[1] + "/*_mask.png")):
    name = mask_file[: -len("_mask.png")]
    picture = numpy.array(Image.open(name + ".png").convert("RGB"))
    mask = (numpy.array(Image.open(mask_file).convert("L")) > 127).astype("uint8") * 255
    start = time.monotonic()
    result = patch_match.inpaint(picture, mask, patch_size=5)
    seconds = time.monotonic() - start
    Image.fromarray(result).save(name + "_pypatchmatch.png")
    with open(name + "_pypatchmatch.seconds", "w") as file:
        file.write(f"{seconds}\n")
PYTHON
}

quality() {
  cases holes
  local method methods=(orvo navier-stokes telea)
  for method in "${methods[@]}"; do "$bench" run "$method" "$work/holes"; done
  if install_pypatchmatch && run_pypatchmatch "$work/holes"; then
    methods+=(pypatchmatch)
  else
    echo "bench_fill: PyPatchMatch cannot be installed and is left out" >&2
  fi
  for method in "${methods[@]}"; do
    "$bench" score "$method" "$work/holes"
    echo
  done
}

random() {
  cases random
  "$bench" run orvo "$work/random"
  "$bench" score orvo "$work/random"
}

sheet() {
  local list
  for list in holes removals; do
    cases "$list"
    "$bench" run orvo "$work/$list"
    "$bench" sheet "$work/sheet_$list.png" "$work/$list" orvo
    echo "$work/sheet_$list.png"
  done
}

large() {
  cases large
  echo "| hole of 2 megapixels in 24, PNG in, PNG out | seconds | peak MB |"
  echo "|---|---|---|"
  row "orvo fill" "$bin/orvo" fill "$work/large/facade.png" --mask "$work/large/facade_mask.png" \
    -o "$work/large/facade_orvo.png" --bits 8 --quiet
  echo
  "$bench" score orvo "$work/large"
}

mkdir -p "$work"
"$mode"
