#!/usr/bin/env bash
# Makes the pictures of this folder again, from rendered scenes: docs/images/make.sh [PROGRAM]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
orvo=$(realpath "${1:-$here/../../build/release/bin/orvo}")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$orvo" demo "$folder" --size 960 --sheets > "$folder/log"
cp "$folder"/sheets/*.jpg "$here/"
