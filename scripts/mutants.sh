#!/usr/bin/env bash
# Measures the power of the test suite: applies a fixed list of realistic
# faults one at a time to a scratch copy of the tree, rebuilds, runs the plain
# suite, and counts the faults some test catches. Ends with `caught N of M`.
#
#   scripts/mutants.sh [--only REGEX] [LIST...]     default lists: scripts/mutants/*.tsv
#
# A list holds one fault a line, five fields separated by tabs:
#   name  file  search  replacement  what-the-fault-is
# `search` must occur exactly once in `file` (a stale line stops the run, so a
# fault can never silently become a no-op); `\t` and `\n` may be written in
# both texts. Lines starting with # are comments. A fault that does not
# compile is reported as invalid and fails the run, but the others still run.
#
# The scratch tree lives in build/mutants (MUTANTS_DIR), and its build is kept
# between runs; only files that differ are copied in.
set -uo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
only=""
lists=()
while (($#)); do
  case "$1" in
    --only) only=$2; shift 2 ;;
    *) lists+=("$1"); shift ;;
  esac
done
((${#lists[@]})) || lists=(scripts/mutants/*.tsv)

work=${MUTANTS_DIR:-$root/build/mutants}
tree=$work/tree build=$work/build
mkdir -p "$tree"

# Mirror the tracked files (with their uncommitted changes) into the scratch
# tree, touching only those that differ so the kept build stays incremental.
git ls-files -z --cached --others --exclude-standard | while IFS= read -r -d '' f; do
  [[ -f "$f" ]] || continue
  if ! cmp -s "$f" "$tree/$f"; then mkdir -p "$tree/$(dirname "$f")"; cp -p "$f" "$tree/$f"; fi
done

source scripts/lib/xvfb.sh
start_xvfb

cmake -S "$tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >"$work/configure.log" 2>&1 ||
  { cat "$work/configure.log"; exit 2; }
run_suite() { (cd "$build" && ctest -j "$(nproc)" --timeout 600 --stop-on-failure "$@" >"$work/ctest.log" 2>&1 </dev/null); }
cmake --build "$build" -j "$(nproc)" >"$work/build.log" 2>&1 || { tail -n 40 "$work/build.log"; exit 2; }
run_suite || { echo "the unmutated suite fails; see $work/ctest.log"; exit 2; }

# apply <file> <search> <replacement>: replaces the one occurrence in place.
apply() {
  python3 - "$@" <<'EOF'
import sys
path, search, repl = sys.argv[1:4]
unescape = lambda t: t.replace("\\t", "\t").replace("\\n", "\n")
search, repl = unescape(search), unescape(repl)
text = open(path).read()
n = text.count(search)
if n != 1:
    sys.exit(f"{path}: the search text occurs {n} times")
open(path, "w").write(text.replace(search, repl))
EOF
}

caught=0 total=0 escaped=() invalid=()
while IFS=$'\x1f' read -r -d '' name file search repl what; do
  [[ -n "$only" && ! "$name" =~ $only ]] && continue
  total=$((total + 1))
  cp -p "$tree/$file" "$work/original" 2>/dev/null || { echo "$name: no file $file"; exit 2; }
  apply "$tree/$file" "$search" "$repl" || { echo "$name: stale fault"; exit 2; }
  if ! cmake --build "$build" -j "$(nproc)" >"$work/build.log" 2>&1 </dev/null; then
    cp "$work/original" "$tree/$file"
    touch "$tree/$file"
    invalid+=("$name")
    printf 'INVALID  %-28s does not compile\n' "$name"
    continue
  fi
  if run_suite; then
    escaped+=("$name")
    printf 'ESCAPED  %-28s %s\n' "$name" "$what"
  else
    caught=$((caught + 1))
    by=$(grep -m1 -E 'Test +#[0-9]+: .*(\*\*\*|Failed|Exception|Timeout)' "$work/ctest.log" |
      sed -E 's/.*#[0-9]+: ([^ ]+).*/\1/')
    printf 'caught   %-28s %s  [%s]\n' "$name" "$what" "${by:-?}"
  fi
  # Put the original back with a fresh time stamp so the next build sees it.
  cp "$work/original" "$tree/$file"
  touch "$tree/$file"
done < <(python3 - "${lists[@]}" <<'EOF'
# One record a fault, fields split by 0x1f and records by NUL, so that an
# empty replacement survives the shell's reading.
import sys
for path in sys.argv[1:]:
    for number, line in enumerate(open(path), 1):
        if not line.strip() or line.startswith("#"):
            continue
        fields = line.rstrip("\n").split("\t")
        if len(fields) != 5:
            sys.exit(f"{path}:{number}: {len(fields)} fields, not 5")
        sys.stdout.write("\x1f".join(fields) + "\0")
EOF
)

cmake --build "$build" -j "$(nproc)" >"$work/build.log" 2>&1
echo "caught $caught of $total"
((${#escaped[@]})) && echo "escaped: ${escaped[*]}"
# A fault that does not compile measures the compiler, not the tests: mend the list.
((${#invalid[@]})) && { echo "invalid (mend these lines): ${invalid[*]}"; exit 2; }
exit 0
