#!/usr/bin/env bash
# Formats all sources; with --check only reports which are not formatted.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
tool=$(command -v clang-format-14 || command -v clang-format || true)
[ -n "$tool" ] || { echo "format: clang-format 14 is missing; run scripts/bootstrap.sh --tools" >&2; exit 1; }
"$tool" --version | grep -q 'version 14\.' || { echo "format: clang-format 14 is required, found $("$tool" --version)" >&2; exit 1; }
mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run -Werror)
git ls-files -z '*.cpp' '*.hpp' | xargs -0 "$tool" "${mode[@]}"
