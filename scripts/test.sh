#!/usr/bin/env bash
# Sets everything up, builds, and runs the tests.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/test.sh [fast] [PRESET [CTEST ARGUMENTS...]]

fast runs the tests labelled fast alone, which take less than a minute on two cores.
PRESET is release (the default), debug, asan, tsan or fuzz. ORVO_TEST_DATA names a folder of
real pictures; without it the tests that need them are skipped. fuzz builds only the targets
of fuzz/, with clang, and runs each over its seeds.

  scripts/test.sh fast                 what to run after every edit
  scripts/test.sh asan -L bracket      only the tests labelled bracket, with the address sanitizer
TEXT
}

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
label=()
if [ "${1:-}" = fast ]; then
  label=(-L fast)
  shift
fi
preset=${1:-release}
case $preset in
  --help|-h) usage; exit 0 ;;
  release|debug|asan|tsan) "$here/bootstrap.sh" ;;
  fuzz) "$here/bootstrap.sh" --tools ;;
  *) usage >&2; exit 2 ;;
esac
[ $# -eq 0 ] || shift
cd "$here/.."
cmake --preset "$preset"
cmake --build --preset "$preset" --parallel "$(nproc)"
rm -rf "build/$preset/Testing/reports"
status=0
ctest --preset "$preset" --parallel "$(nproc)" ${label[@]+"${label[@]}"} "$@" || status=$?
python3 scripts/slowest_tests.py "build/$preset/Testing/reports"
exit $status
