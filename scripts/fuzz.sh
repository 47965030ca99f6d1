#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) and runs each for a fixed
# time from its seed corpus. Records one test case per target in
# <build dir>/test-results/fuzz.xml: a crash is a failure.
# Usage: scripts/fuzz.sh <build dir> <seconds per target>
set -uo pipefail
cd "$(dirname "$0")/.."
dir=$1 seconds=$2
cmake -S . -B "$dir" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_TESTS=OFF -DCORVANE_FUZZ=ON \
  -DCORVANE_SANITIZE=address,undefined >"$dir.configure.log" 2>&1 || { cat "$dir.configure.log"; exit 1; }
cmake --build "$dir" -j "$(nproc)" >"$dir.build.log" 2>&1 || { tail -n 60 "$dir.build.log"; exit 1; }
mkdir -p "$dir/test-results"
xml="$dir/test-results/fuzz.xml"
echo '<testsuites><testsuite name="fuzz">' >"$xml"
status=0
for bin in "$dir"/fuzz/fuzz_*; do
  [[ -x "$bin" ]] || continue
  name=$(basename "$bin")
  corpus="$dir/corpus/$name"
  mkdir -p "$corpus"
  # Each target's seeds are committed in fuzz/corpus/<name>; finds go to the build's corpus.
  seeds="fuzz/corpus/$name"
  log="$dir/$name.log"
  if LSAN_OPTIONS=suppressions=$(pwd)/fuzz/lsan.supp "$bin" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$dir/$name-" \
      "$corpus" $( [[ -d "$seeds" ]] && echo "$seeds") >"$log" 2>&1; then
    execs=$(grep -m1 'stat::number_of_executed_units' "$log" | awk '{print $2}')
    echo "$name: ${execs:-?} executions, no crash"
    echo "<testcase classname=\"fuzz\" name=\"$name\"/>" >>"$xml"
  else
    echo "$name: CRASH"; tail -n 40 "$log"
    echo "<testcase classname=\"fuzz\" name=\"$name\"><failure message=\"crash\"/></testcase>" >>"$xml"
    status=1
  fi
done
echo '</testsuite></testsuites>' >>"$xml"
exit $status
