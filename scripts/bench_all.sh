#!/usr/bin/env bash
# Measures every job beside the installed programs that do the same. Writes the tables of docs/performance.md.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/bench_all.sh [--quick] [--write] [--json FILE] [--against PROGRAM] [--only NAME,...] [FOLDER]

Runs each job in turn with its peers (A B A B, three times; merges of 200 megapixels once) and prints Markdown tables of
the medians: wall time, CPU time of all cores, peak memory, the ratios of this program's time and memory to those of the
row, and for this program the share of each step in its wall time. A ratio is the median of those of the rounds. Then it
shows how time and memory grow from 1 to 200 megapixels and from 2 to 100 frames, as a table and a drawing. Programs
that are not installed or fail are named and left out. Takes about half an hour on two cores, and 16 GB of memory.

  --quick            small pictures, one round, a short growth: a minute, to test the script; cannot be written
  --write            replaces the tables between the markers in docs/performance.md, and docs/growth.svg. Only on a
                     machine that does nothing else
  --json FILE        writes every run to FILE, as JSON
  --against PROGRAM  runs another build of orvo as a peer of each job, such as one of an earlier commit
  --only NAME,...    only these jobs: merge, merge_16, merge_jpeg, merge_all, single, merge_many, merge_huge,
                     stack_still, stack_fast, stack, panorama, upscale, growth

Pictures and results are kept in FOLDER (by default build/bench). Needs the release preset built.
TEXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
case ${1:-} in --help|-h) usage; exit 0 ;; esac
exec python3 "$root/scripts/bench_all.py" --root "$root" --bin "${ORVO_BIN:-$root/build/release/bin}" "$@"
