#!/usr/bin/env bash
# Installs every Debian package Verdantglass needs to build, test, fuzz and
# benchmark. This is the one list of system dependencies: add new ones here.
# Idempotent and non-interactive; uses sudo only when not already root.
set -euo pipefail

packages=(
  # toolchain
  build-essential
  cmake
  ninja-build
  pkg-config
  ccache
  clang
  libclang-rt-14-dev
  # testing and benchmarking
  libgtest-dev
  libgmock-dev
  libbenchmark-dev
  # model and store
  nlohmann-json3-dev
  libssl-dev
  # render engine
  libhwy-dev
  libtbb-dev
  liblcms2-dev
  # image input/output
  zlib1g-dev
  libjpeg62-turbo-dev
  libjpeg-turbo-progs
  libpng-dev
  libtiff-dev
  libheif-dev
  libraw-dev
  libexiv2-dev
  exiv2
  libimage-exiftool-perl
  # analyses: horizon, subject masks (OpenCV), faces and landmarks (dlib)
  libopencv-core-dev
  libopencv-imgproc-dev
  libopencv-dnn-dev
  libdlib-dev
  libdlib-data
  # library backup archives
  libarchive-dev
  # desktop application, its Chinese text and its screenshots
  qt6-base-dev
  qt6-base-dev-tools
  libxcb1-dev
  libgl-dev
  fonts-wqy-microhei
  xvfb
  xauth
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

if [ "$(id -u)" -eq 0 ]; then
  SUDO=()
else
  SUDO=(sudo)
fi

echo "install-deps: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
"${SUDO[@]}" apt-get update -qq
"${SUDO[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
