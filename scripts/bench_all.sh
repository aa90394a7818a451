#!/usr/bin/env bash
# Measures every job beside the installed programs that do the same. Writes the tables of docs/performance.md.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/bench_all.sh [--quick] [--write] [FOLDER]

Runs each job in turn with its peers (A B A B, three times) and prints Markdown tables of the medians: wall time, CPU
time of all cores, peak memory, and for this program the share of each step. Then it shows how time and memory grow from
1 to 200 megapixels and from 2 to 100 frames, as a table and a drawing. Programs that are not installed are named and
left out.

  --quick   small pictures, one round, a short growth: minutes, to test the script; cannot be written
  --write   replaces the tables between the markers in docs/performance.md, and docs/growth.svg. Only on a machine
            that does nothing else

Pictures and results are kept in FOLDER (by default build/bench). Needs the release preset built.
TEXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
case ${1:-} in --help|-h) usage; exit 0 ;; esac
exec python3 "$root/scripts/bench_all.py" --root "$root" --bin "${ORVO_BIN:-$root/build/release/bin}" "$@"
