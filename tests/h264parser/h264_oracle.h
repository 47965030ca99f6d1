// Independent views of an H.264 stream for the parser's tests, all FFmpeg's:
// the syntax elements its own bitstream reader finds (the trace_headers
// filter), and the geometry its decoder reports after decoding one picture.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/streams.h"

namespace corvane::test {

// The syntax elements of one NAL unit, in stream order, as name and value
// (names as FFmpeg spells them, array elements with their index: "x[0]").
struct TracedUnit {
    std::vector<std::pair<std::string, int64_t>> elements;
    int type() const;  // nal_unit_type
    bool has(const std::string& name) const;
    // The last value of `name` in the unit; the test fails if there is none.
    int64_t operator[](const std::string& name) const;
};

// Every NAL unit of the packets, in order, as FFmpeg's reader traces it.
std::vector<TracedUnit> TraceUnits(const std::vector<Packet>& packets);

struct DecodedGeometry {
    int codedWidth = 0;   // whole macroblocks
    int codedHeight = 0;
    int width = 0;        // after cropping
    int height = 0;
    bool interlaced = false;
};

// Opens the file with libavformat and decodes until the first picture.
DecodedGeometry DecodeFirstPicture(const std::string& path);

// The NAL units of an Annex B buffer, each without its start code.
std::vector<Packet> SplitNalUnits(const std::vector<uint8_t>& bytes);

// A unit behind the four-byte start code, as one buffer.
Packet WithStartCode(const Packet& unit);

}  // namespace corvane::test
