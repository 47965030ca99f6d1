#!/usr/bin/env bash
# Counts non-blank lines of the tracked source files (.c .cc .cpp .h .hpp .inc
# .py .sh .cmake .txt): the code under src/, include/ and tools/, the tests under
# tests/, and how large the tests are against the code. The project keeps the
# tests at a quarter to a third of the code, never above 40 %.
set -euo pipefail
cd "$(dirname "$0")/.."
count() {
  git ls-files "$@" | grep -E '\.(c|cc|cpp|h|hpp|inc|py|sh|cmake|txt)$' | xargs -r cat |
    grep -cv '^\s*$' || true
}
code=$(count src include tools)
tests=$(count tests)
echo "code (src, include, tools): $code"
echo "tests:                      $tests"
if ((code > 0)); then
  echo "tests / code:               $((tests * 100 / code)) %"
fi
