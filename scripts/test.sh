#!/usr/bin/env bash
# Builds and runs every test of the project, on a machine that may never have
# seen it: installs what is missing, then runs four stages
#   1. the whole suite (RelWithDebInfo, GCC), the Python package's pytest suite
#      included, and that build installed, packaged and used as clients would
#      (tests/install/consumer_test.sh)
#   2. the whole suite under AddressSanitizer + UndefinedBehaviorSanitizer (the
#      Python package's with their runtimes preloaded into the interpreter)
#   3. the threaded tests (ctest label "threads") under ThreadSanitizer
#   4. each libFuzzer target for FUZZ_SECONDS (default 60) under ASan + UBSan
# and closes with one line `N passed, N failed, N skipped` over all of them.
# Options: --quick runs stage 1 only.
set -uo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
quick=0
[[ "${1:-}" == "--quick" ]] && quick=1
jobs=$(nproc)

scripts/install-deps.sh || { echo "dependency install failed"; exit 1; }

# A private X server for the renderer's tests.
source scripts/lib/xvfb.sh
start_xvfb

result_dirs=()
status=0

# stage <name> <build dir> <ctest args> -- <cmake args...>
stage() {
  local name=$1 dir=$2 ctest_args=$3; shift 4
  echo "=== $name"
  cmake -S "$root" -B "$dir" -G Ninja "$@" >"$dir.configure.log" 2>&1 \
    || { cat "$dir.configure.log"; status=1; return; }
  cmake --build "$dir" -j "$jobs" >"$dir.build.log" 2>&1 \
    || { tail -n 60 "$dir.build.log"; status=1; return; }
  rm -f "$dir"/test-results/*.xml
  (cd "$dir" && ctest -j "$jobs" --timeout 900 --output-on-failure $ctest_args) || status=1
  result_dirs+=("$dir/test-results")
}

mkdir -p build
stage "suite" build/main "" -- -DCMAKE_BUILD_TYPE=RelWithDebInfo
# The suite's build installed and packaged, and used as a client would.
tests/install/consumer_test.sh build/main || status=1
if ((quick == 0)); then
  stage "suite under ASan+UBSan" build/asan "" -- -DCMAKE_BUILD_TYPE=Debug \
    -DCORVANE_SANITIZE=address,undefined
  stage "threaded tests under TSan" build/tsan "-L threads" -- -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCORVANE_SANITIZE=thread
  if [[ -f fuzz/CMakeLists.txt ]]; then
    echo "=== fuzzing, ${FUZZ_SECONDS:-60} s a target"
    if scripts/fuzz.sh build/fuzz "${FUZZ_SECONDS:-60}"; then :; else status=1; fi
    result_dirs+=("build/fuzz/test-results")
  fi
fi

echo "=== summary"
python3 scripts/test-summary.py "${result_dirs[@]}" || status=1
exit $status
