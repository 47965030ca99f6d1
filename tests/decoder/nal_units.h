// Test-side handling of H.264 byte streams: cutting a packet into its NAL
// units, writing RBSP bits the way ITU-T H.264 codes them, and wrapping a
// payload into a unit with emulation prevention and a start code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/streams.h"

namespace corvane::test {

// The units of an Annex B packet, each with its own start code.
std::vector<Packet> SplitNalUnits(const Packet& packet);
int NalType(const Packet& unit);  // nal_unit_type of a unit that starts with a start code
Packet Join(const std::vector<Packet>& units);

class RbspWriter {
public:
    void u(int bits, uint64_t value);
    void ue(uint64_t value);
    void se(int64_t value);
    void TrailingBits();  // rbsp_stop_one_bit and alignment
    size_t BitCount() const { return bitCount_; }
    const std::vector<uint8_t>& Bytes() const { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
    size_t bitCount_ = 0;
};

struct WrappedUnit {
    Packet bytes;                       // 00 00 00 01, header byte, escaped payload
    std::vector<size_t> offsetOfByte;   // payload byte i -> its offset in `bytes`
};

// Four-byte start code, header byte, payload with 03 inserted after every
// 00 00 that precedes a byte of 3 or less.
WrappedUnit WrapNalUnit(uint8_t headerByte, const std::vector<uint8_t>& rbsp);

}  // namespace corvane::test
