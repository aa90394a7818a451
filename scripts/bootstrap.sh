#!/usr/bin/env bash
# Prepares a Debian 12 machine for building orvo_extensions: packages, then an OpenCV with SURF.
# Running it again takes a second or two and changes nothing.
set -euo pipefail

usage() {
  cat <<'TEXT'
usage: scripts/bootstrap.sh [--bench] [--tools]

Installs the dependencies for building, testing and running orvo_extensions, and builds
OpenCV 4.7.0 with SURF into a cache folder unless the machine already has a usable OpenCV.

  --bench   also install the programs that the benchmarks compare with (enfuse, Hugin, enblend)
  --tools   also install clang, its tools, doxygen and mmdebstrap, for development
  --help    this text

ORVO_DEPS sets the cache folder; the default is orvo below $XDG_CACHE_HOME or ~/.cache.
TEXT
}

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$here/opencv-recipe.sh"

say() { printf 'bootstrap: %s\n' "$*"; }
die() { printf 'bootstrap: %s\n' "$*" >&2; exit 1; }

packages=(
  ca-certificates g++ g++-mingw-w64-x86-64-posix cmake ninja-build ccache pkg-config git python3 python3-venv
  libtbb-dev libeigen3-dev libprotobuf-dev protobuf-compiler zlib1g-dev libisal-dev
  libraw-dev libexiv2-dev liblensfun-dev libglib2.0-dev liblcms2-dev libheif-dev
  libjpeg-dev libpng-dev libtiff-dev libwebp-dev libopenexr-dev
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev
  opencv-data
  libspdlog-dev nlohmann-json3-dev libcli11-dev libcpp-httplib-dev uuid-dev
  libgtest-dev libgmock-dev libbenchmark-dev pocl-opencl-icd
)
for argument in "$@"; do
  case $argument in
    --bench) packages+=(enfuse hugin-tools enblend libimage-exiftool-perl python3) ;;
    --tools) packages+=(clang-14 clang-format-14 clang-tidy-14 libclang-rt-14-dev doxygen mmdebstrap) ;;
    --help|-h) usage; exit 0 ;;
    *) usage >&2; die "unknown argument '$argument'" ;;
  esac
done

install_packages() {
  command -v dpkg-query >/dev/null || die "this script only supports Debian's package manager; install these yourself: ${packages[*]}"
  local missing=() package
  for package in "${packages[@]}"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
  done
  if [ ${#missing[@]} -eq 0 ]; then
    say "all Debian packages are installed"
    return
  fi
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || die "root is needed to install packages; run as root: apt-get install ${missing[*]}"
    as_root=(sudo)
  fi
  say "installing ${#missing[@]} Debian packages: ${missing[*]}"
  "${as_root[@]}" apt-get update -qq || die "apt-get update failed; is the network up and /etc/apt/sources.list right?"
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null ||
    die "apt-get could not install the packages above; this project supports Debian 12"
}

# Whether the OpenCV that CMake finds (or the one below prefix $1) has all modules and a working SURF.
usable_opencv() {
  local scratch answer=1
  scratch=$(mktemp -d)
  if cmake -S "$here/../cmake/opencv_probe" -B "$scratch" -G Ninja ${1:+-DCMAKE_PREFIX_PATH="$1"} >"$scratch/log" 2>&1 &&
    cmake --build "$scratch" >>"$scratch/log" 2>&1 && "$scratch/opencv_probe" >>"$scratch/log" 2>&1; then
    answer=0
  fi
  rm -rf "$scratch"
  return $answer
}

# Runs the build and prints its progress every half minute; the whole output goes to log file $2.
build_with_progress() {
  local folder=$1 log=$2 pid
  NINJA_STATUS='[%f of %t] ' ninja -C "$folder" install >"$log" 2>&1 &
  pid=$!
  trap 'kill "$pid" 2>/dev/null; exit 130' INT TERM
  local since=$SECONDS printed=$SECONDS
  while kill -0 "$pid" 2>/dev/null; do
    sleep 1
    if [ $((SECONDS - printed)) -ge 30 ]; then
      printed=$SECONDS
      say "  OpenCV: $(grep -o '^\[[0-9]* of [0-9]*\]' "$log" | tail -n 1) after $((SECONDS - since)) s"
    fi
  done
  trap - INT TERM
  wait "$pid"
}

build_opencv() {
  local prefix work log
  prefix=$(opencv_prefix)
  work="$prefix.build"
  log="$prefix.log"
  mkdir -p "$(dirname "$prefix")" || die "cannot create the cache folder $(dirname "$prefix"); set ORVO_DEPS to a writable one"
  exec 9>"$prefix.lock"
  flock 9  # two bootstraps at once: the second waits, then finds OpenCV built
  [ ! -f "$prefix/complete" ] || return 0
  local free
  free=$(df -Pm "$(dirname "$prefix")" | awk 'NR == 2 {print $4}')
  [ "$free" -ge 2500 ] || die "building OpenCV needs 2500 MB below $(dirname "$prefix"), only $free MB are free; set ORVO_DEPS to another disk"
  say "building OpenCV $opencv_version once, into $prefix (about ten minutes on two cores)"
  rm -rf "$work" "$prefix"
  mkdir -p "$work"
  say "  fetching its source from PyPI"
  { python3 -m venv "$work/venv" && "$work/venv/bin/pip" install -q "setuptools<66" wheel scikit-build &&
    "$work/venv/bin/pip" download -q --no-deps --no-build-isolation --no-binary :all: -d "$work" "$opencv_python_package"; } \
    >"$log" 2>&1 || die "could not fetch $opencv_python_package from PyPI; see $log"
  mkdir "$work/source"
  tar -xf "$work"/opencv-contrib-python-*.tar.gz -C "$work/source" --strip-components=1 || die "the fetched source is damaged; run this script again"
  leave_out_sources "$work/source" || die "the fetched source is not the expected one; see scripts/opencv-recipe.sh"
  say "  configuring"
  cmake -S "$work/source/opencv" -B "$work/build" -G Ninja -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DOPENCV_EXTRA_MODULES_PATH="$work/source/opencv_contrib/modules" "${opencv_options[@]}" >>"$log" 2>&1 ||
    die "configuring OpenCV failed; see $log"
  build_with_progress "$work/build" "$log" || die "building OpenCV failed; see $log"
  usable_opencv "$prefix" || die "the new OpenCV in $prefix finds no SURF key points; see $log"
  rm -rf "$work"
  touch "$prefix/complete"  # last, so that an interrupted build never counts as complete
  say "OpenCV is ready"
}

install_packages
if [ -f "$(opencv_prefix)/complete" ]; then
  say "found OpenCV $opencv_version: $(opencv_prefix)"
elif usable_opencv ""; then
  say "using the machine's own OpenCV"
else
  build_opencv
fi
