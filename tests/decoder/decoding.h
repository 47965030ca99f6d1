// What the decoder tests share: the test streams, FFmpeg's pictures as a
// session decodes them, headers compared byte for byte, and a decode of a
// whole stream through one session.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "common/reference_decode.h"
#include "common/streams.h"
#include "corvane.h"

namespace corvane::test {

struct StreamSpec {
  const char* file;
  int width;
  int height;
  int frames;
  const char* args;
  const char* source;
  int codecId;
};

// Streams without picture reordering: every packet gives its picture at once.
extern const StreamSpec kBaseline176;  // H.264 baseline, CAVLC
extern const StreamSpec kHigh320;      // H.264 high, CABAC, 4 slices a picture
extern const StreamSpec kHevc176;      // H.265 main
extern const StreamSpec kOdd175x143;   // H.264 high 4:4:4, odd width and height

inline void PrintTo(const StreamSpec& spec, std::ostream* os) { *os << spec.file; }
std::vector<Packet> LoadPackets(const StreamSpec& spec);
std::string TestName(const StreamSpec& spec);  // the file name, alphanumerics only

// FFmpeg's own pictures decoded as a session decodes: slice threads with the
// fast flag, which leaves slice edges unfiltered in streams of several slices.
// The worker never drains; `drain` gives the pictures a decoder still holds.
std::vector<Picture> ExpectedPictures(const std::vector<Packet>& packets, int codecId,
                                      bool drain = false);

// Per channel, the middle of the nine sorted values around each pixel, with
// coordinates clamped to the picture.
Picture Median3x3(const Picture& p);

using DecompressFn = int32_t (*)(CodecHandle, const uint8_t*, int32_t, BITMAPINFOHEADER*, uint8_t*,
                                 int32_t);
DecompressFn DecompressFor(int codecId);
int32_t Feed(CodecHandle session, int codecId, const Packet& packet, BITMAPINFOHEADER* header,
             uint8_t* out, int32_t outSize);

// Headers as their 40 bytes, for comparisons that name every field.
std::string HeaderText(const BITMAPINFOHEADER& h);
BITMAPINFOHEADER Filled(uint8_t fill);
// A `fill` header after a call that wrote nothing: only the pels-per-meter
// words, cleared on every call, have changed.
BITMAPINFOHEADER Untouched(uint8_t fill);
// What a session that knows only a sequence parameter set reports.
BITMAPINFOHEADER SizeHeader(int width, int height);

struct Delivered {
  std::vector<Picture> pictures;
  std::vector<int32_t> results;
  int lastRowOverwritten = 0;  // pictures whose last row lost the caller's bytes
  int badHeaders = 0;          // calls whose header isn't the picture's or untouched
};

// Feeds every packet with a buffer of exactly one picture, freshly patterned
// for each call, and collects the pictures that come out.
Delivered DecodeAll(CodecHandle session, DecompressFn decompress,
                    const std::vector<Packet>& packets, int width, int height);

// Empty if `got` equals `expected` picture for picture (all rows, or all but
// the last, which the plain path leaves to the caller), else what differs first.
std::string ComparePictures(const std::vector<Picture>& got, const std::vector<Picture>& expected,
                            bool lastRow = false);

}  // namespace corvane::test
