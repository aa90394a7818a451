#!/usr/bin/env bash
# Compares whole panoramas: orvo pano, the programs of Hugin with enblend, OpenCV. Prints a Markdown table.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/bench_pano.sh [FOLDER]

Renders a row of 8 pictures of 12 megapixels and prints for each program the wall time, the CPU time of all cores
together, the peak memory and the size of its result. On a shared machine, compare CPU times.

Pictures and results are kept in FOLDER (by default build/bench). Needs the release preset built and
scripts/bootstrap.sh --bench.
TEXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=${ORVO_BIN:-$root/build/release/bin}
case ${1:-} in --help|-h) usage; exit 0 ;; -*) usage >&2; exit 2 ;; esac
work=${1:-$root/build/bench}
. "$root/scripts/bench_measure.sh"
need bench_pano "$bin/orvo" "$bin/bench_render_pano" "$bin/bench_opencv_stitcher" pto_gen nona enblend exiftool
folder=$work/pano_8
mkdir -p "$work"

# Hugin's steps from pictures to a panorama, as in its manual for scripts.
hugin_chain() {
  set -euo pipefail
  local project=$1/hugin.pto output=$2
  shift 2
  rm -f "${project%.pto}"_*.tif
  pto_gen --output="$project" "$@"
  cpfind --multirow --output="$project" "$project"
  cpclean --output="$project" "$project"
  autooptimiser -a -m -l -s --output="$project" "$project"
  pano_modify --projection=2 --canvas=AUTO --fov=AUTO --output="$project" "$project"
  nona -m TIFF_m -o "${project%.pto}_" "$project"
  enblend --output="$output" "${project%.pto}"_*.tif
  rm -f "${project%.pto}"_*.tif
}
export -f hugin_chain

# One line of the table: pano_row NAME OUTPUT COMMAND...
pano_row() {
  local name=$1 output=$2
  shift 2
  read -r seconds megabytes cpu < <(measure "$@")
  echo "| $name | $seconds | $cpu | $megabytes | $(exiftool -s3 -ImageSize "$output") |"
}

[ -d "$folder" ] || "$bin/bench_render_pano" "$folder" 8 4000 3000
echo "8 pictures of 12 megapixels, JPEG in, JPEG out:"
echo
echo "| program | seconds | CPU seconds | peak MB | pixels |"
echo "|---|---|---|---|---|"
files=("$folder"/pano_?.jpg)
pano_row "orvo pano" "$folder/out_orvo.jpg" "$bin/orvo" pano "${files[@]}" -o "$folder/out_orvo.jpg" --quiet
pano_row "OpenCV stitcher" "$folder/out_opencv.jpg" "$bin/bench_opencv_stitcher" "$folder/out_opencv.jpg" "${files[@]}"
pano_row "Hugin and enblend" "$folder/out_hugin.jpg" bash -c 'hugin_chain "$@"' hugin "$folder" "$folder/out_hugin.jpg" \
  "${files[@]}"
