#!/usr/bin/env bash
# Installs the build folder $1 below $2, moves the tree, and builds outside projects of the repository $3 against it.
set -euo pipefail
build=$1 scratch=$2 sources=$3
rm -rf "$scratch"
mkdir -p "$scratch"
fail() { printf 'consumer: %s\n' "$*" >&2; exit 1; }
cmake --install "$build" --prefix "$scratch/first" >"$scratch/install.log"
mv "$scratch/first" "$scratch/moved"
prefix=$scratch/moved

# Nothing names a place on this machine. README and CHANGELOG speak of the cache folder, and debugging information of
# sources is no path that anything follows.
find "$prefix" -type f \( -name '*.so*' -o -path '*/bin/*' \) | while read -r file; do
  readelf -d "$file" 2>/dev/null | sed -n 's/.*R\(UN\)\?PATH.*\[\(.*\)\]/\2/p' | tr ':' '\n' | while read -r folder; do
    case $folder in
      \$ORIGIN*) ;;
      *) fail "$file looks for libraries in $folder" ;;
    esac
  done
done
if grep -rIlF -e "$scratch/first" -e "$(dirname "$build")" -e "${HOME:-/root}" "$prefix/lib" "$prefix/include"; then
  fail "these files name a folder of this machine"
fi
for file in "$prefix/bin/orvo" "$prefix/lib/liborvo_extensions.so"; do
  if ldd "$file" | grep -F 'not found'; then fail "$file misses libraries"; fi
  # With an OpenCV that the machine has there is no such folder.
  if [ -d "$prefix/lib/orvo_extensions" ] && ldd "$file" | grep libopencv | grep -vF "$prefix/"; then
    fail "$file takes an OpenCV from elsewhere"
  fi
done

"$prefix/bin/orvo" demo --size 300 "$scratch/demo" >"$scratch/demo.log" 2>&1 || { cat "$scratch/demo.log" >&2; exit 1; }
"$(dirname "${BASH_SOURCE[0]}")/build.sh" "$prefix" "$sources" "$scratch/demo" "$scratch/projects"

test -s "$prefix/share/man/man1/orvo.1"
# What is not exported stays hidden: none of the third-party libraries' names come out of the shared library.
if nm -DC --defined-only "$prefix/lib/liborvo_extensions.so" | grep -E ' T (cv|Exiv2|nlohmann|spdlog|LibRaw)'; then
  fail "these names of other libraries are exported"
fi
