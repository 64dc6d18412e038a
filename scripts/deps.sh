#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the tools need, if any is missing.
set -euo pipefail

packages=(
  cmake make g++ clang libclang-rt-14-dev googletest libgtest-dev libbenchmark-dev libsimde-dev
  g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user
  libyuv-dev libpng-dev libjpeg-dev ffmpeg python3 python3-numpy
  # The GStreamer element; gst-check comes with libgstreamer1.0-dev, videotestsrc with -base.
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools gstreamer1.0-plugins-base
  python3-pip python3-setuptools python3-wheel
  pkg-config dpkg-dev file android-liblog-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q
  apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
