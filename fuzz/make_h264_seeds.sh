#!/usr/bin/env bash
# Seeds for fuzz_h264parser: tiny x264 streams of the kinds the parser reads
# (profiles, 4:4:4, interlacing, scaling matrices, HRD and picture timing), each
# cut to its first 3000 bytes: parameter sets, SEI and the first slices.
# Usage: make_h264_seeds.sh <seed dir>
set -euo pipefail
out=$1
mkdir -p "$out"
seed() {
  local name=$1; shift
  local tmp="$out/$name.tmp.h264"
  ffmpeg -nostdin -y -loglevel error -f lavfi -i testsrc2=size=64x48:rate=25 -frames:v 3 \
    -c:v libx264 "$@" -f h264 "$tmp"
  head -c 3000 "$tmp" >"$out/$name.h264"
  rm -f "$tmp"
}
seed baseline -profile:v baseline
seed main -profile:v main
seed high_cqm -profile:v high -x264-params cqm=jvt
seed high444 -pix_fmt yuv444p -profile:v high444
seed mbaff_bff -x264-params interlaced=1:bff=1:slices=2
seed hrd_pic_struct -x264-params nal-hrd=vbr:pic-struct=1 -b:v 100k -maxrate 150k -bufsize 300k
seed odd_size_cropped -vf scale=50:38 -profile:v main
