#!/usr/bin/env bash
# Builds the benchmarks (installing OpenCV for the peers if missing) and runs
# each one, against its peer in the same run, on a private Xvfb for the renderer.
# Output goes to build/bench-results/<name>.txt as well as the terminal.
# Usage: scripts/bench.sh [name-filter]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --bench
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DCORVANE_TESTS=OFF \
  -DCORVANE_BENCH=ON >/dev/null
cmake --build build/bench -j "$(nproc)" >/dev/null
mkdir -p build/bench-results

n=$(( 150 + RANDOM % 50 ))
Xvfb :$n -screen 0 1920x1080x24 -nolisten tcp -noreset >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null' EXIT
for _ in $(seq 50); do [[ -e /tmp/.X11-unix/X$n ]] && break; sleep 0.1; done
export DISPLAY=:$n

echo "load: $(uptime)"
for bin in build/bench/bench/*/bench_* build/bench/bench/render/timer_accuracy; do
  name=$(basename "$bin")
  [[ -x "$bin" && "$name" == *"${1:-}"* ]] || continue
  echo "=== $name"
  "$bin" 2>&1 | tee "build/bench-results/$name.txt"
done
