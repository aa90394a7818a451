#!/usr/bin/env bash
# Compares whole merges: orvo hdr, Debian's enfuse, OpenCV's exposure fusion. Prints Markdown tables.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/bench_merge.sh speed|quality|ghosts [FOLDER]

  speed    renders brackets of 3 and 5 frames of 24 megapixels and prints wall time and peak memory
  quality  merges every set below $ORVO_TEST_DATA/brackets and prints MEF-SSIM and clipped pixels
  ghosts   merges every set there, a raw one and one without EXIF, without and with --deghost 0, 2 and 4, and prints
           MEF-SSIM, the mean CIEDE2000 between the two merges and the pixels that differ visibly, which says what
           deghosting costs a still scene; sets of a camera that moved with --align in a table of their own

Results are kept in FOLDER (by default build/bench). Needs the release preset built and
scripts/bootstrap.sh --bench.
TEXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=${ORVO_BIN:-$root/build/release/bin}
mode=${1:-}
work=${2:-$root/build/bench}
case $mode in speed|quality|ghosts) ;; --help|-h) usage; exit 0 ;; *) usage >&2; exit 2 ;; esac
. "$root/scripts/bench_measure.sh"
if [ "$mode" = ghosts ]; then
  need bench_merge "$bin/orvo" "$bin/bench_score" "$bin/bench_difference"
else
  need bench_merge "$bin/orvo" "$bin/bench_score" enfuse
fi
mkdir -p "$work"

speed() {
  for count in 3 5; do
    local folder=$work/speed_$count
    [ -d "$folder" ] || "$bin/bench_render" "$folder" "$count" 6000 4000
    echo
    echo "$count frames of 24 megapixels, JPEG in, 8-bit TIFF out:"
    echo
    echo "| program | seconds | peak MB |"
    echo "|---|---|---|"
    row "orvo hdr" "$bin/orvo" hdr "$folder"/*.jpg -o "$folder/out_orvo.tif" --bits 8 --quiet
    row "orvo hdr --align --deghost 2" "$bin/orvo" hdr "$folder"/*.jpg -o "$folder/out_orvo_all.tif" --bits 8 --align --deghost 2 --quiet
    row "enfuse" enfuse -o "$folder/out_enfuse.tif" "$folder"/*.jpg
    row "OpenCV exposure fusion" "$bin/bench_opencv_fusion" "$folder/out_opencv.tif" "$folder"/*.jpg
  done
}

quality() {
  : "${ORVO_TEST_DATA:?bench_merge: set ORVO_TEST_DATA to the folder of real pictures}"
  echo "| set | orvo | enfuse | OpenCV | clipped % orvo | enfuse | OpenCV |"
  echo "|---|---|---|---|---|---|---|"
  for set in "$ORVO_TEST_DATA"/brackets/*/; do
    local name files
    name=$(basename "$set")
    mapfile -t files < <(find "$set" -maxdepth 1 -iname '*.jpg' | sort)
    local out=$work/quality_$name
    mkdir -p "$out"
    "$bin/orvo" hdr "${files[@]}" -o "$out/orvo.png" --bits 8 --quiet
    [ -s "$out/enfuse.tif" ] || enfuse -o "$out/enfuse.tif" "${files[@]}" >/dev/null 2>&1
    [ -s "$out/opencv.png" ] || "$bin/bench_opencv_fusion" "$out/opencv.png" "${files[@]}"
    local scores=() clips=() score clip
    for fused in orvo.png enfuse.tif opencv.png; do
      read -r score clip < <("$bin/bench_score" "$out/$fused" "${files[@]}" || echo "failed -")
      scores+=("$score")
      clips+=("$clip")
    done
    echo "| $name | ${scores[0]} | ${scores[1]} | ${scores[2]} | ${clips[0]} | ${clips[1]} | ${clips[2]} |"
  done
}

# A row of the scores of one bracket: ghost_row NAME FILE... What a raw file shows is compared after its reader.
ghost_row() {
  local name=$1 amount score difference visible
  shift
  local out=$work/ghosts_${name// /_}
  mkdir -p "$out"
  "$bin/orvo" hdr "$@" -o "$out/without.png" --bits 8 --quiet
  read -r score _ < <("$bin/bench_score" "$out/without.png" "$@")
  local scores="$score" differences="" shares=""
  for amount in 0 2 4; do
    "$bin/orvo" hdr "$@" -o "$out/$amount.png" --bits 8 --deghost "$amount" --quiet
    read -r score _ < <("$bin/bench_score" "$out/$amount.png" "$@")
    read -r difference visible < <("$bin/bench_difference" "$out/without.png" "$out/$amount.png")
    scores+=" | $score"
    differences+=" | $difference"
    shares+=" | $visible"
  done
  echo "| $name | $scores$differences$shares |"
}

# The same with alignment, whose results have no frames of their size to be scored against.
moving_row() {
  local name=$1 amount difference visible
  shift
  local out=$work/ghosts_${name}_aligned differences="" shares=""
  mkdir -p "$out"
  "$bin/orvo" hdr "$@" -o "$out/without.png" --bits 8 --align --quiet
  for amount in 0 2 4; do
    "$bin/orvo" hdr "$@" -o "$out/$amount.png" --bits 8 --align --deghost "$amount" --quiet
    read -r difference visible < <("$bin/bench_difference" "$out/without.png" "$out/$amount.png")
    differences+=" | $difference"
    shares+=" | $visible"
  done
  echo "| $name$differences$shares |"
}

# Copies of JPEG files without their metadata, as chat programs send them.
strip_files() {
  python3 - "$@" <<'PYTHON'
import pathlib, sys
folder = pathlib.Path(sys.argv[1])
folder.mkdir(parents=True, exist_ok=True)
for name in sys.argv[2:]:
    data = pathlib.Path(name).read_bytes()
    kept, at = data[:2], 2
    while data[at + 1] != 0xDA:  # the scan, up to which every segment has a length
        end = at + 2 + int.from_bytes(data[at + 2:at + 4], "big")
        if not 0xE1 <= data[at + 1] <= 0xEF:
            kept += data[at:end]
        at = end
    (folder / pathlib.Path(name).name).write_bytes(kept + data[at:])
PYTHON
}

# Sets of a camera that moved: between their frames nothing stands still.
moving=" arch_night knight_handheld temple_handheld window_player "

ghosts() {
  : "${ORVO_TEST_DATA:?bench_merge: set ORVO_TEST_DATA to the folder of real pictures}"
  local set files
  echo "| set | without | 0 | 2 | 4 | difference 0 | 2 | 4 | visible % 0 | 2 | 4 |"
  echo "|---|---|---|---|---|---|---|---|---|---|---|"
  for set in "$ORVO_TEST_DATA"/brackets/*/; do
    [[ $moving == *" $(basename "$set") "* ]] && continue
    mapfile -t files < <(find "$set" -maxdepth 1 -iname '*.jpg' | sort)
    ghost_row "$(basename "$set")" "${files[@]}"
  done
  mapfile -t files < <(find "$ORVO_TEST_DATA/brackets/living_room" -iname '*.jpg' | sort)
  strip_files "$work/living_room_stripped" "${files[@]}"
  ghost_row "living_room without EXIF" "$work"/living_room_stripped/*
  ghost_row "building_ev (raw)" "$ORVO_TEST_DATA"/raw/building_ev/*.dng
  echo
  echo "With --align:"
  echo
  echo "| set | difference 0 | 2 | 4 | visible % 0 | 2 | 4 |"
  echo "|---|---|---|---|---|---|---|"
  for set in $moving; do
    mapfile -t files < <(find "$ORVO_TEST_DATA/brackets/$set" -maxdepth 1 -iname '*.jpg' | sort)
    moving_row "$set" "${files[@]}"
  done
}

"$mode"
