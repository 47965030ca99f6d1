#!/usr/bin/env bash
# The library as an installed client meets it. Installs a build into a scratch
# prefix, builds client.c against it with pkg-config (shared, then static) and
# with find_package (CMakeLists.txt here), runs each on the sample stream, then
# makes the Debian packages and unpacks them into a scratch root. Each step is
# a case of <build>/test-results/install.xml, which scripts/test-summary.py adds up.
#   tests/install/consumer_test.sh BUILD_DIR
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: consumer_test.sh BUILD_DIR}" && pwd)
sample=$here/../../samples/sample.h264
work=$build/install-test
prefix=$work/prefix
rm -rf "$work" && mkdir -p "$work" "$build/test-results"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
cases="" status=0

# step NAME: runs the function NAME with errexit in a subshell, its output kept
# in $work/NAME.log, as one case.
step() {
  local log=$work/$1.log
  (set -e && "$1") >"$log" 2>&1
  if (($? == 0)); then
    echo "  ok    $1"
    cases+="<testcase classname=\"install\" name=\"$1\"/>"
  else
    echo "  FAIL  $1 ($log)"
    tail -n 15 "$log" | sed 's/^/        /'
    cases+="<testcase classname=\"install\" name=\"$1\"><failure message=\"see $log\"/></testcase>"
    status=1
  fi
}
fail() { echo "$*" && return 1; }
# needs BINARY: whether BINARY links libcorvane's shared object.
needs_shared() { readelf -d "$1" | grep -q 'NEEDED.*libcorvane\.so'; }
# pictures DECODE: what corvane-decode says of the sample.
pictures() { "$1" "$sample" | awk '/^pictures:/ { print $2 }'; }

# Every client prints the installed corvane-decode's count, through the plain
# export and the median one alike.
counts_match() {
  local expected got
  expected=$(cat "$work/expected")
  got=$("$1" "$sample")
  [[ $got == "pictures $expected median $expected" ]] || fail "$1 printed '$got'"
}

installed() {
  cmake --install "$build" --prefix "$prefix"
  local lib f
  lib=$(pkg-config --variable=libdir corvane)
  for f in "$here"/../../include/*.h; do [[ -f $prefix/include/${f##*/} ]] || fail "no ${f##*/}"; done
  for f in "$lib"/{libcorvane.so.0,libcorvane.a,cmake/corvane/corvaneConfig{,Version}.cmake} \
    "$prefix"/bin/corvane-{decode,play} "$prefix"/share/man/man1/corvane-{decode,play}.1.gz; do
    [[ -e $f ]] || fail "no $f"
  done
  [[ $(readlink "$lib/libcorvane.so") == libcorvane.so.0 ]] || fail "no soname link"
  # The installed tool finds the library beside it.
  pictures "$prefix/bin/corvane-decode" >"$work/expected"
  (($(cat "$work/expected") > 0)) || fail "corvane-decode decoded nothing"
}

pkgconfig_shared() {
  # shellcheck disable=SC2046
  cc -std=c99 -Wall -Wextra -Werror "$here/client.c" -o "$work/client-pc" \
    $(pkg-config --cflags --libs corvane)
  needs_shared "$work/client-pc" || fail "libcorvane.so.0 not needed"
  LD_LIBRARY_PATH=$(pkg-config --variable=libdir corvane) counts_match "$work/client-pc"
}

# link_static OUT [PKG-CONFIG OPTIONS...]: client.c linked with libcorvane.a
# and what corvane.pc gives a static link: its Libs.private, and the modules
# it requires, linked shared here (FFmpeg's own static closure wants libraries
# that Debian's libavcodec-dev leaves out).
link_static() {
  local out=$1 own modules
  shift
  own=$(pkg-config "$@" --static --libs --maximum-traverse-depth=2 corvane)
  modules=$(pkg-config "$@" --print-requires-private corvane)
  [[ $own == *-lstdc++* && -n $modules ]] || fail "no static link in corvane.pc: $own / $modules"
  # shellcheck disable=SC2046,SC2086
  cc -std=c99 -Wall -Wextra -Werror "$here/client.c" -o "$out" \
    $(pkg-config "$@" --cflags --static corvane) -Wl,-Bstatic -lcorvane -Wl,-Bdynamic \
    ${own//-lcorvane/} $(pkg-config --libs $modules)
  if needs_shared "$out"; then fail "$out links the shared object"; fi
}

pkgconfig_static() {
  link_static "$work/client-pc-static"
  counts_match "$work/client-pc-static"
}

cmake_package() {
  cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
  cmake --build "$work/cmake"
  if needs_shared "$work/cmake/client_static"; then fail "static linked the shared object"; fi
  counts_match "$work/cmake/client_shared"
  counts_match "$work/cmake/client_static"
}

debian_packages() {
  (cd "$build" && cpack -G DEB -B "$work/deb")
  local deb root=$work/root
  for deb in "$work"/deb/*.deb; do
    echo "$(dpkg-deb -f "$deb" Package) depends on $(dpkg-deb -f "$deb" Depends)"
    dpkg -x "$deb" "$root"
  done
  cd "$work/deb"
  [[ $(dpkg-deb -f libcorvane0_*.deb Depends) == *libavcodec*libxcb* ]] ||
    fail "libcorvane0 misses FFmpeg or XCB"
  dpkg-deb -I libcorvane0_*.deb shlibs | grep '^libcorvane 0 libcorvane0' || fail "no shlibs"
  [[ $(dpkg-deb -f libcorvane-dev_*.deb Depends) == *"libcorvane0 (= "*libavcodec-dev* ]] ||
    fail "libcorvane-dev misses its library or FFmpeg's headers"
  local tools pc
  tools=$(dpkg-deb -f corvane-tools_*.deb Depends)
  [[ $tools == *libavformat* && $tools == *"libcorvane0 (= "* ]] || fail "corvane-tools misses libraries"
  (cd "$root" && find . ! -type d | sort)
  pc=$(find "$root/usr/lib" -name corvane.pc)
  grep -qx 'prefix=/usr' "$pc" || fail "$pc does not say prefix=/usr"
  [[ -e $root/usr/include/corvane.h && -L ${pc%/pkgconfig/*}/libcorvane.so ]] || fail "files missing"
  [[ $(pictures "$root/usr/bin/corvane-decode") == "$(cat "$work/expected")" ]] ||
    fail "the packaged corvane-decode decodes otherwise"
  # The packaged archive, stripped of its debug information, still links.
  PKG_CONFIG_PATH=${pc%/*} link_static "$work/client-deb" --define-variable=prefix="$root/usr"
  counts_match "$work/client-deb"
}

echo "=== installed library ($work)"
for name in installed pkgconfig_shared pkgconfig_static cmake_package debian_packages; do
  step $name
done
echo "<testsuites><testsuite name=\"install\">$cases</testsuite></testsuites>" \
  >"$build/test-results/install.xml"
exit $status
