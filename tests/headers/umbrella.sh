#!/usr/bin/env bash
# orvo_extensions.hpp includes every exported header but the one with OpenCV in it. $1: the compiler; $2: the exported
# headers' folder; $3: all include folders, with colons between them.
set -euo pipefail
compiler=$1 headers=$2 ours=$3
flags=(-std=c++20)
IFS=: read -ra folders <<<"$ours"
for folder in "${folders[@]}"; do
  flags+=("-I$folder")
done
included=$(echo '#include <orvo_extensions/orvo_extensions.hpp>' | "$compiler" "${flags[@]}" -x c++ -M - | tr ' \\' '\n\n')
status=0
for header in $(cd "$headers" && find orvo_extensions -name '*.hpp' | sort); do
  if [ "$header" = orvo_extensions/panorama_mblender.hpp ]; then continue; fi
  grep -qF "/$header" <<<"$included" || { echo "orvo_extensions.hpp does not include $header" >&2; status=1; }
done
exit $status
