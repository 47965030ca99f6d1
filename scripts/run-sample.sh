#!/usr/bin/env bash
# Builds the library and its tools (installing what is missing) and decodes the
# bundled sample with corvane-decode, writing every 25th picture as PNG.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/main -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/main -j "$(nproc)" --target corvane-decode
mkdir -p build/sample-out
build/main/tools/corvane-decode samples/sample.h264 --every 25 --out build/sample-out "$@"
