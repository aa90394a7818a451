#!/usr/bin/env bash
# Makes the Debian package and tries it on an empty Debian 12 in a folder: the program on a system without a compiler, as
# a user without rights, then an outside project that builds against it.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/try_package.sh [BUILD [FOLDER]]

Makes the Debian package of the build folder BUILD (default build/release), installs it on an empty Debian 12 in
FOLDER (default: a new one below /tmp, removed at the end), and tries it there.

Needs root (for chroot), mmdebstrap (scripts/bootstrap.sh --tools), dpkg-dev, a Debian mirror, and 2 GB of disk.
Takes five minutes, most of it for downloads.
TEXT
}
case ${1:-} in -h|--help) usage; exit 0 ;; esac

here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-$here/build/release}
say() { printf 'try_package: %s\n' "$*"; }
die() { printf 'try_package: %s\n' "$*" >&2; exit 1; }

[ "$(id -u)" -eq 0 ] || die "root is needed to change into another root folder"
for tool in mmdebstrap dpkg-shlibdeps cpack; do
  command -v "$tool" >/dev/null || die "$tool is missing; run scripts/bootstrap.sh --tools, and install dpkg-dev"
done
[ -x "$build/bin/orvo" ] || die "$build holds no built program; run cmake --preset release && cmake --build --preset release"
if [ $# -gt 1 ]; then
  work=$2
  mkdir -p "$work"
else
  work=$(mktemp -d /tmp/orvo-package-XXXXXX)
  trap 'rm -rf "$work"' EXIT
fi
root=$work/root

say "making the package"
cpack --config "$build/CPackConfig.cmake" >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log" >&2; die "cpack failed"; }
package=$(find "$build/package" -maxdepth 1 -name 'orvo-extensions_*.deb')
dpkg-deb --field "$package" Package Version Depends

say "making an empty Debian 12 in $root"
rm -rf "$root"
mmdebstrap --variant=minbase bookworm "$root" >"$work/mmdebstrap.log" 2>&1 ||
  { tail -n 20 "$work/mmdebstrap.log" >&2; die "mmdebstrap failed; see $work/mmdebstrap.log"; }
cp /etc/resolv.conf "$root/etc/resolv.conf"

# Runs a command as root of the empty system, in mounts and processes of its own.
in_root() {
  # shellcheck disable=SC2016 # expanded by the inner shell
  unshare --mount --pid --fork --kill-child bash -c 'mount -t proc proc "$1/proc"; root=$1; shift; exec chroot "$root" "$@"' \
    bash "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive HOME=/root "$@"
}
as_user() { in_root runuser -u editor -- env HOME=/home/editor sh -euc "cd; $1"; }
install() {
  in_root apt-get install -y --no-install-recommends "$@" >"$work/apt.log" 2>&1 ||
    { tail -n 20 "$work/apt.log" >&2; die "apt-get could not install $*; see $work/apt.log"; }
}

say "installing the package"
cp "$package" "$root/tmp/package.deb"
in_root apt-get update -qq
install /tmp/package.deb
in_root useradd --create-home editor
for tool in cc c++ gcc g++ clang cmake make ninja pkg-config python3; do
  ! in_root sh -c "command -v $tool" >/dev/null || die "the system has $tool already, which was to be empty"
done
if in_root ldd /usr/bin/orvo /usr/lib/liborvo_extensions.so | grep -F 'not found'; then
  die "libraries are missing, so Depends is incomplete"
fi

say "running the program as a user, without any build tool"
as_user 'orvo --version; orvo demo --size 300 demo >demo.log 2>&1 || { cat demo.log >&2; exit 1; }
  for result in handheld-merged.jpg focus-stacked.jpg around-stitched.jpg small-enlarged.jpg raw-merged.tif; do
    test -s "demo/$result"
  done
  orvo hdr --align demo/handheld/*.jpg -o merged.tif
  test -s /usr/share/man/man1/orvo.1 && test -s /usr/share/bash-completion/completions/orvo
  test -s /usr/share/zsh/vendor-completions/_orvo && test -s /usr/share/fish/vendor_completions.d/orvo.fish'

say "building outside projects against it, by CMake and by pkg-config"
install g++ cmake ninja-build pkg-config libtbb-dev
mkdir -p "$root/home/editor/sources/tests" "$root/home/editor/sources/examples"
cp -r "$here/tests/consumer" "$root/home/editor/sources/tests"
cp -r "$here/examples/guide" "$root/home/editor/sources/examples"
in_root chown -R editor: /home/editor
as_user 'sources/tests/consumer/build.sh /usr sources demo projects; ls -l projects/merged.png'

say "removing the package"
in_root dpkg --purge orvo-extensions >"$work/purge.log" 2>&1 || { cat "$work/purge.log" >&2; die "the package cannot be removed"; }
left=$(in_root find /usr -path '*orvo*')
[ -z "$left" ] || die "these files are left: $left"
say "the package works"
