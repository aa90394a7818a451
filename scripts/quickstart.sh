#!/usr/bin/env bash
# From a fresh machine to a merged picture in one command.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/quickstart.sh [FILES...]

Sets everything up, builds, and merges the given exposure bracket. Without files it renders a
bracket of a room with a bright window and merges that. The result goes to the folder
orvo-results in the current folder, or to the one in ORVO_RESULTS.
TEXT
}

case ${1:-} in --help|-h) usage; exit 0 ;; esac
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
results=${ORVO_RESULTS:-orvo-results}

"$here/bootstrap.sh"
(cd "$root" && cmake --preset release -DORVO_TESTS=OFF -DORVO_BENCHMARKS=OFF -B build/quickstart >/dev/null) ||
  { echo "quickstart: configuring failed; run 'cmake --preset release' in $root to see why" >&2; exit 1; }
echo "quickstart: building (a few minutes the first time)"
cmake --build "$root/build/quickstart" --parallel "$(nproc)"
mkdir -p "$results"
if [ $# -eq 0 ]; then
  "$root/build/quickstart/bin/orvo" demo "$results"
else
  "$root/build/quickstart/bin/orvo" hdr --align --deghost 2 "$@" -o "$results/merged.jpg"
fi
echo "quickstart: the result is in $(cd "$results" && pwd)"
