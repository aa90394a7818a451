#!/usr/bin/env bash
# Erases, expands and restores photographs, and puts the results next to the originals, to be looked at.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/look_generative.sh erase|expand|restore [FOLDER]

  erase    removes objects from photographs of 0.2 to 21 megapixels; `again` erases once more over the first result
  expand   adds 5, 15 and 25 percent on one side and on all sides
  restore  noisy and soft photographs

Each result is a PNG in FOLDER (by default build/bench/look), with a sheet next to it: both whole pictures on top, and
below them, pixel for pixel, parts of both along the edge of what changed. For erase and expand the largest change of an
8-bit sample outside of mask and feather is printed. Needs ORVO_TEST_DATA, the release preset built, and Pillow, numpy
and pillow-heif, which are installed from PyPI into /tmp/orvo_look if missing.
TEXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=${ORVO_BIN:-$root/build/release/bin}
mode=${1:-}
work=${2:-$root/build/bench/look}
case $mode in erase|expand|restore) ;; --help|-h) usage; exit 0 ;; *) usage >&2; exit 2 ;; esac
. "$root/scripts/bench_measure.sh"
need look_generative "$bin/orvo"
: "${ORVO_TEST_DATA:?look_generative: set ORVO_TEST_DATA to the folder of real pictures}"
data=$ORVO_TEST_DATA
venv=/tmp/orvo_look
python=$venv/bin/python

[ -x "$python" ] || python3 -m venv "$venv"
"$python" -c 'import PIL, numpy, pillow_heif' 2>/dev/null ||
  timeout 600 "$venv/bin/pip" install --quiet pillow numpy pillow-heif

# sheet BEFORE AFTER OUT SHIFT_X SHIFT_Y CHANGED...: CHANGED are the rectangles X,Y,W,H of AFTER that are new, or "-" for
# all of it. Prints the largest difference outside of them and of a margin of 64 pixels.
sheet() {
  "$python" - "$@" <<'PYTHON'
import sys
import numpy
import pillow_heif
from PIL import Image, ImageOps

pillow_heif.register_heif_opener()
Image.MAX_IMAGE_PIXELS = None
before, after, out, dx, dy = *sys.argv[1:4], *map(int, sys.argv[4:6])
WHOLE, PART = 900, 600
MARGIN = 64
a = ImageOps.exif_transpose(Image.open(before)).convert("RGB")
b = Image.open(after).convert("RGB")
base = Image.new("RGB", b.size, (128, 128, 128))
whole = "-" in sys.argv[6:]
base.paste(a.resize(b.size) if whole else a, (dx, dy))
rects = [] if whole else [tuple(map(int, r.split(","))) for r in sys.argv[6:]]

# Parts in the middle of the sides of each rectangle, and its centre.
places = []
for x, y, w, h in rects:
    places += [(x + w // 2, y), (x, y + h // 2), (x + w, y + h // 2), (x + w // 2, y + h), (x + w // 2, y + h // 2)]
if whole:
    places = [(b.width * i // 4, b.height * j // 4) for j in (1, 2, 3) for i in (1, 2, 3)]
tops = [im.copy() for im in (base, b)]
for im in tops:
    im.thumbnail((WHOLE, WHOLE))
width = 2 * max(WHOLE, PART) + 10
result = Image.new("RGB", (width, tops[0].height + 10 + len(places) * (PART + 10)), (255, 0, 255))
for k, im in enumerate(tops):
    result.paste(im, (k * (WHOLE + 10), 0))
for i, (x, y) in enumerate(places):
    left = min(max(x - PART // 2, 0), max(b.width - PART, 0))
    top = min(max(y - PART // 2, 0), max(b.height - PART, 0))
    for k, im in enumerate((base, b)):
        result.paste(im.crop((left, top, min(left + PART, b.width), min(top + PART, b.height))),
                     (k * (WHOLE + 10), tops[0].height + 10 + i * (PART + 10)))
result.save(out)

if not whole:
    outside = numpy.ones((b.height, b.width), bool)
    for x, y, w, h in rects:
        margin = max(MARGIN, int(0.06 * max(w, h)))
        outside[max(0, y - margin) : y + h + margin, max(0, x - margin) : x + w + margin] = False
    difference = numpy.abs(numpy.asarray(base, int) - numpy.asarray(b, int)).max(axis=2)
    worst = difference[outside].max() if outside.any() else 0
    print(f"{out}: {b.width}x{b.height}, largest change outside {worst}")
PYTHON
}

# erased NAME PICTURE BOX...
erased() {
  local name=$1 picture=$2 boxes=() box
  shift 2
  for box in "$@"; do boxes+=(--box "$box"); done
  "$bin/orvo" erase "$picture" "${boxes[@]}" -o "$work/$name.png" --bits 8 --quiet
  sheet "$picture" "$work/$name.png" "$work/${name}_sheet.png" 0 0 "$@"
}

erase() {
  erased sunset_p3 "$data/single/p3_vs_srgb/iceland_p3.jpg" 150,250,60,50
  erased wall "$data/panorama/weir/weir_1.jpg" 215,415,65,50
  erased skier "$data/single/skiers/skiers.jpg" 1265,465,350,850
  erased skier_again "$work/skier.png" 1180,860,420,240
  erased cup "$data/single/faces_cafe/faces_cafe.jpg" 1190,1960,480,344
  erased island "$data/single/lake_horizon/lake_horizon.jpg" 1700,820,680,240
  erased tree "$data/brackets/building_iso/20240401_175720.JPG" 1250,330,600,480
  erased sign_p3 "$data/single/sign_heic_p3/sign_heic_p3.heic" 1200,1500,700,700
  [ -f "$work/tower.tif" ] || "$bin/orvo" pano "$data"/panorama/tower_library/*.JPG -o "$work/tower.tif" --quiet
  erased hedge "$work/tower.tif" 2800,1950,450,300 600,2700,60,60
}

# expanded NAME PICTURE LEFT TOP RIGHT BOTTOM, in percent
expanded() {
  local name=$1 picture=$2 size width height left top right bottom
  shift 2
  "$bin/orvo" expand "$picture" --add "$1%,$2%,$3%,$4%" -o "$work/$name.png" --bits 8 --quiet
  size=$("$python" -c "
import sys
from PIL import Image, ImageOps
print(*ImageOps.exif_transpose(Image.open(sys.argv[1])).size, *Image.open(sys.argv[2]).size)" "$picture" "$work/$name.png")
  read -r width height outWidth outHeight <<<"$size"
  left=$(("$1" > 0 ? (outWidth - width) * $1 / ($1 + $3) : 0))
  top=$(("$2" > 0 ? (outHeight - height) * $2 / ($2 + $4) : 0))
  right=$((outWidth - width - left)) bottom=$((outHeight - height - top))
  local rects=()
  if [ "$left" -gt 0 ]; then rects+=("0,0,$left,$outHeight"); fi
  if [ "$right" -gt 0 ]; then rects+=("$((outWidth - right)),0,$right,$outHeight"); fi
  if [ "$top" -gt 0 ]; then rects+=("0,0,$outWidth,$top"); fi
  if [ "$bottom" -gt 0 ]; then rects+=("0,$((outHeight - bottom)),$outWidth,$bottom"); fi
  sheet "$picture" "$work/$name.png" "$work/${name}_sheet.png" "$left" "$top" "${rects[@]}"
}

expand() {
  expanded skiers_5 "$data/single/skiers/skiers.jpg" 5 5 5 5
  expanded lake_15 "$data/single/lake_horizon/lake_horizon.jpg" 15 15 15 15
  expanded weir_25 "$data/panorama/weir/weir_1.jpg" 25 25 25 25
  expanded roof_left "$data/panorama/roof_exposure/roof_1.jpg" 15 0 0 0
  expanded cafe_top "$data/single/faces_cafe/faces_cafe.jpg" 0 15 0 0
  expanded deck_right "$data/panorama/deck_360/DSC_0182.jpg" 0 0 25 0
  expanded building_bottom "$data/brackets/building_iso/20240401_175720.JPG" 0 0 0 5
}

# restored NAME PICTURE
restored() {
  "$bin/orvo" restore "$2" -o "$work/$1.png" --bits 8 --quiet
  sheet "$2" "$work/$1.png" "$work/$1_sheet.png" 0 0 -
}

restore() {
  restored cafe "$data/single/faces_cafe/faces_cafe.jpg"
  restored yard "$data/brackets/yard_night_orientation8/yard_3.jpg"
  restored arch "$data/brackets/arch_night/arch_2.jpg"
  restored ledge "$data/panorama/ledge_vertical/ledge_2.jpg"
  restored skiers "$data/single/skiers/skiers.jpg"
}

mkdir -p "$work"
"$mode"
