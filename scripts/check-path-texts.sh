#!/usr/bin/env bash
# Checks that no code turns a path into text by path::string(), which on Windows throws for names outside of the code
# page of the system: messages use pathText(). Libraries that open files by narrow names are the exception; such a line
# says so in a comment that begins with "narrow name".
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
found=$(grep -rnE '\.(generic_)?string\(\)' src family apps include scenes examples --include='*.cpp' --include='*.hpp' |
  grep -v '/tests/' | grep -v '// narrow name' || true)
[ -z "$found" ] || { echo "$found"; echo "path::string() throws on Windows: use pathText() of <orvo_common/wide_path.hpp>" >&2; exit 1; }
