#!/usr/bin/env bash
# Seeds for fuzz_decompress: one byte of flags (see fuzz_decompress.cpp) and a
# tiny stream of a few pictures, with and without B-frames, field coding,
# delimiters and an SPS of id 1, and one H.265 stream.
# Usage: make_decompress_seeds.sh <seed dir>
set -euo pipefail
out=$1
mkdir -p "$out"
seed() {
  local name=$1 flags=$2; shift 2
  local tmp="$out/$name.tmp"
  ffmpeg -nostdin -y -loglevel error -f lavfi -i testsrc2=size=64x48:rate=25 -frames:v 4 \
    "$@" "$tmp.raw"
  printf "\\x$flags" >"$tmp"
  head -c 6000 "$tmp.raw" >>"$tmp"
  mv "$tmp" "$out/$name.bin"
  rm -f "$tmp.raw"
}
seed baseline 00 -c:v libx264 -profile:v baseline -f h264
seed bframes 00 -c:v libx264 -bf 3 -x264-params b-pyramid=normal -f h264
seed bframes_median 02 -c:v libx264 -bf 2 -f h264
seed mbaff_small_buffer 04 -c:v libx264 -bf 2 -x264-params interlaced=1 -f h264
seed aud_reset 08 -c:v libx264 -bf 2 -x264-params aud=1 -f h264
seed sps_id1_negative 10 -c:v libx264 -bf 2 -x264-params sps-id=1 -f h264
seed high444 00 -c:v libx264 -pix_fmt yuv444p -f h264
seed hevc 01 -c:v libx265 -x265-params bframes=2:log-level=error -f hevc
