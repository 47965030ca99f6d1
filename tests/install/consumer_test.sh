#!/usr/bin/env bash
# The library as a client meets it: client.c built against an installed prefix
# (pkg-config, shared; find_package, static) and the unpacked Debian packages
# (pkg-config --static) counts the sample's pictures as corvane-decode does.
# Each step is a case of <build>/test-results/install.xml.
#   tests/install/consumer_test.sh BUILD_DIR
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: consumer_test.sh BUILD_DIR}" && pwd)
sample=$here/../../samples/sample.h264
work=$build/install-test prefix=$build/install-test/prefix
rm -rf "$work" && mkdir -p "$work" "$build/test-results"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
cases="" status=0

# step NAME: the function NAME run with errexit in a subshell, as one case.
step() {
  local log=$work/$1.log
  if (set -e && "$1") >"$log" 2>&1; then
    echo "  ok    $1" && cases+="<testcase classname=\"install\" name=\"$1\"/>"
  else
    echo "  FAIL  $1 ($log)" && tail -n 15 "$log" | sed 's/^/        /'
    cases+="<testcase classname=\"install\" name=\"$1\"><failure message=\"see $log\"/></testcase>"
    status=1
  fi
}
fail() { echo "$*" && return 1; }
pictures() { "$1" "$sample" | awk '/^pictures:/ { print $2 }'; }
# check CLIENT shared|static: how it links, and corvane-decode's count printed
# through the plain export and the median one.
check() {
  local needed=static got
  readelf -d "$1" | grep -q 'NEEDED.*libcorvane\.so' && needed=shared
  [[ $needed == "$2" ]] || fail "$1 links libcorvane $needed"
  got=$("$1" "$sample")
  [[ $got == "pictures $(<"$work/expected") median $(<"$work/expected")" ]] || fail "$1: '$got'"
}

installed() {
  cmake --install "$build" --prefix "$prefix"
  local lib f  # what the clients below use is checked by their builds
  lib=$(pkg-config --variable=libdir corvane)
  for f in "$here"/../../include/*.h; do [[ -f $prefix/include/${f##*/} ]] || fail "no ${f##*/}"; done
  for f in bin/corvane-play share/man/man1/corvane-{decode,play}.1.gz; do
    [[ -e $prefix/$f ]] || fail "no $f"
  done
  [[ $(readlink "$lib/libcorvane.so") == libcorvane.so.0 ]] || fail "no soname link"
  pictures "$prefix/bin/corvane-decode" >"$work/expected" # finds the library beside it
  (($(<"$work/expected") > 0)) || fail "corvane-decode decoded nothing"
  # shellcheck disable=SC2046
  cc -std=c99 -Wall -Wextra -Werror "$here/client.c" -o "$work/client-pc" \
    $(pkg-config --cflags --libs corvane)
  LD_LIBRARY_PATH=$lib check "$work/client-pc" shared
}

cmake_package() {
  cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
  cmake --build "$work/cmake"
  check "$work/cmake/client_static" static
}

# The packages' fields and files; the packaged archive linked as corvane.pc
# tells a static link, its required modules shared (FFmpeg's static closure
# wants libraries Debian's libavcodec-dev leaves out).
debian_packages() {
  (cd "$build" && cpack -G DEB -B "$work/deb")
  local deb root=$work/root pc own modules field want
  for deb in "$work"/deb/*.deb; do dpkg -x "$deb" "$root"; done
  while read -r deb field want; do
    [[ $(dpkg-deb -f "$work"/deb/"$deb"_*.deb "$field") == $want ]] || fail "$deb $field: not $want"
  done <<'TABLE'
libcorvane0     Depends *libavcodec*libxcb*
libcorvane-dev  Depends *libcorvane0??=?*libavcodec-dev*
corvane-tools   Depends *libavformat*
corvane-tools   Depends *libcorvane0??=?*
TABLE
  dpkg-deb -I "$work"/deb/libcorvane0_*.deb shlibs | grep '^libcorvane 0 libcorvane0' || fail "no shlibs"
  pc=$(find "$root/usr/lib" -name corvane.pc)
  grep -qx 'prefix=/usr' "$pc" || fail "$pc does not say prefix=/usr"
  [[ -e $root/usr/include/corvane.h && -L ${pc%/pkgconfig/*}/libcorvane.so ]] || fail "files missing"
  [[ $(pictures "$root/usr/bin/corvane-decode") == "$(<"$work/expected")" ]] ||
    fail "the packaged corvane-decode decodes otherwise"
  local -a pcs=(--define-variable=prefix="$root/usr")
  export PKG_CONFIG_PATH=${pc%/*}
  own=$(pkg-config "${pcs[@]}" --static --libs --maximum-traverse-depth=2 corvane)
  modules=$(pkg-config "${pcs[@]}" --print-requires-private corvane)
  [[ $own == *-lstdc++* && -n $modules ]] || fail "no static link in corvane.pc: $own / $modules"
  # shellcheck disable=SC2046,SC2086
  cc -std=c99 -Wall -Wextra -Werror "$here/client.c" -o "$work/client-deb" \
    $(pkg-config "${pcs[@]}" --cflags --static corvane) -Wl,-Bstatic -lcorvane -Wl,-Bdynamic \
    ${own//-lcorvane/} $(pkg-config --libs $modules)
  check "$work/client-deb" static
}

echo "=== installed library ($work)"
for name in installed cmake_package debian_packages; do step $name; done
echo "<testsuites><testsuite name=\"install\">$cases</testsuite></testsuites>" \
  >"$build/test-results/install.xml"
exit $status
