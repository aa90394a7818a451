#!/usr/bin/env bash
# Lays out all sources, or with --check only says which are not laid out.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
tool=$(command -v clang-format-14 || command -v clang-format || true)
[ -n "$tool" ] || { echo "format: clang-format 14 is missing; run scripts/bootstrap.sh --tools" >&2; exit 1; }
"$tool" --version | grep -q 'version 14\.' || { echo "format: clang-format 14 is needed, found $("$tool" --version)" >&2; exit 1; }
mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run -Werror)
git ls-files -z '*.cpp' '*.hpp' | xargs -0 "$tool" "${mode[@]}"
