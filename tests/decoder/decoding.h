// What the decoder tests share: the test streams, the export for each codec,
// and a decode of a whole stream through one session.
#pragma once

#include <cstdint>
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
extern const StreamSpec kBaseline176;   // H.264 baseline, CAVLC
extern const StreamSpec kHigh320;       // H.264 high, CABAC, 4 slices a picture
extern const StreamSpec kHevc176;       // H.265 main
extern const StreamSpec kOdd175x143;    // H.264 high 4:4:4, odd width and height

std::vector<Packet> LoadPackets(const StreamSpec& spec);

// FFmpeg's own pictures of a stream decoded as a session decodes it: slice
// threads with the fast flag, which leaves slice edges unfiltered in streams
// of several slices. No drain: the worker never drains either.
std::vector<Picture> ExpectedPictures(const std::vector<Packet>& packets, int codecId);

using DecompressFn = int32_t (*)(CodecHandle, const uint8_t*, int32_t, BITMAPINFOHEADER*,
                                 uint8_t*, int32_t);
DecompressFn DecompressFor(int codecId);

int32_t Feed(CodecHandle session, int codecId, const Packet& packet, BITMAPINFOHEADER* header,
             uint8_t* out, int32_t outSize);

// Byte i of a buffer filled for call `call`: differs from call to call.
uint8_t FillByte(int call, size_t i);

struct Delivered {
    std::vector<Picture> pictures;
    std::vector<int32_t> results;
    int lastRowOverwritten = 0;  // pictures whose last row lost the caller's bytes
};

// Feeds every packet to `session` with a buffer of exactly one picture, freshly
// patterned for each call, and collects the pictures that come out.
Delivered DecodeAll(CodecHandle session, int codecId, const std::vector<Packet>& packets,
                    int width, int height);

// Empty if `got` equals `expected` picture for picture in rows 0..h-2, else
// what differs first.
std::string CompareAllButLastRow(const std::vector<Picture>& got,
                                 const std::vector<Picture>& expected);

}  // namespace corvane::test
