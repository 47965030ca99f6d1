#!/usr/bin/env bash
# Makes samples/sample.h264: 10 s of FFmpeg's synthetic test pattern, 640x360 at
# 25 fps, H.264 main profile without B-frames, as a raw Annex B stream.
set -euo pipefail
cd "$(dirname "$0")"
ffmpeg -nostdin -y -loglevel error \
  -f lavfi -i testsrc2=size=640x360:rate=25 -frames:v 250 \
  -c:v libx264 -profile:v main -bf 0 -g 50 -crf 28 -pix_fmt yuv420p \
  sample.h264
ls -l sample.h264
