#!/usr/bin/env bash
# Runs Doxygen, $1, with the configuration $2. Without Doxygen the answer is 77, which ctest shows as skipped.
set -euo pipefail
command -v "$1" >/dev/null || { echo "skipped: doxygen is not installed"; exit 77; }
exec "$1" "$2"
