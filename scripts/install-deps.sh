#!/usr/bin/env bash
# Installs what building, testing and benchmarking need, from Debian's packages.
# Does nothing when everything is there already.
set -euo pipefail
packages=(
  build-essential cmake ninja-build pkg-config clang libclang-rt-dev python3
  libavcodec-dev libavformat-dev libavutil-dev libswscale-dev ffmpeg
  libxcb1-dev libxcb-shm0-dev xvfb
  libgtest-dev libgmock-dev libbenchmark-dev binutils
  dpkg-dev file
  python3-dev python3-numpy pybind11-dev python3-pytest
)
# The benchmarks' peers: OpenCV in C++, and in Python OpenCV and PyAV.
if [[ "${1:-}" == "--bench" ]]; then packages+=(libopencv-dev python3-opencv python3-av); fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  SUDO=""; [[ $(id -u) -ne 0 ]] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
