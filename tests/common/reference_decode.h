// The independent oracle for decoded pictures: FFmpeg's own decode and its own
// BGR24 conversion (fast bilinear, full frame size), with no code of the library.
#pragma once

#include <cstdint>
#include <vector>

#include "common/streams.h"

struct AVCodecContext;

namespace corvane::test {

struct Picture {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> bgr;  // width * 3 bytes a row, no padding
};

// Decodes every packet with libavcodec (send/receive, single thread) and
// converts every picture to BGR24 with swscale. With `drain` the pictures still
// held by the decoder at the end are flushed out too. `configure`, if given,
// sets decoder options on the context before it is opened (after the single
// thread default), e.g. to decode with the same speed trade-offs as a client.
std::vector<Picture> ReferenceDecode(const std::vector<Packet>& packets, int codecId,
                                     bool drain = true,
                                     void (*configure)(AVCodecContext*) = nullptr);

// The first of `rows` BGR24 rows of `width` pixels in which a and b differ, or -1.
int FirstDifferingRow(const uint8_t* a, const uint8_t* b, int width, int rows);

}  // namespace corvane::test
