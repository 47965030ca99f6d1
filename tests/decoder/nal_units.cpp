#include "decoder/nal_units.h"

namespace corvane::test {

namespace {

// Offset of the start code at or after `from`, and its length (3 or 4), or
// the packet's size when there is none.
size_t FindStartCode(const Packet& p, size_t from, size_t* length) {
    for (size_t i = from; i + 3 <= p.size(); ++i) {
        if (p[i] != 0 || p[i + 1] != 0) continue;
        if (p[i + 2] == 1) {
            *length = 3;
            return i;
        }
        if (i + 4 <= p.size() && p[i + 2] == 0 && p[i + 3] == 1) {
            *length = 4;
            return i;
        }
    }
    *length = 0;
    return p.size();
}

}  // namespace

std::vector<Packet> SplitNalUnits(const Packet& packet) {
    std::vector<Packet> units;
    size_t length = 0;
    size_t start = FindStartCode(packet, 0, &length);
    while (start < packet.size()) {
        size_t nextLength = 0;
        const size_t next = FindStartCode(packet, start + length, &nextLength);
        units.emplace_back(packet.begin() + static_cast<std::ptrdiff_t>(start),
                           packet.begin() + static_cast<std::ptrdiff_t>(next));
        start = next;
        length = nextLength;
    }
    return units;
}

int NalType(const Packet& unit) {
    const size_t header = unit.size() > 3 && unit[2] == 1 ? 3 : 4;
    return unit.size() > header ? unit[header] & 0x1F : -1;
}

Packet Join(const std::vector<Packet>& units) {
    Packet joined;
    for (const Packet& u : units) joined.insert(joined.end(), u.begin(), u.end());
    return joined;
}

void RbspWriter::u(int bits, uint64_t value) {
    for (int i = bits - 1; i >= 0; --i) {
        if (bitCount_ % 8 == 0) bytes_.push_back(0);
        if ((value >> i) & 1) bytes_.back() |= static_cast<uint8_t>(0x80 >> (bitCount_ % 8));
        ++bitCount_;
    }
}

void RbspWriter::ue(uint64_t value) {
    const uint64_t codeNum = value + 1;
    int bits = 0;
    while ((codeNum >> bits) > 1) ++bits;
    u(bits, 0);
    u(bits + 1, codeNum);
}

void RbspWriter::se(int64_t value) {
    ue(value > 0 ? static_cast<uint64_t>(2 * value - 1) : static_cast<uint64_t>(-2 * value));
}

void RbspWriter::TrailingBits() {
    u(1, 1);
    while (bitCount_ % 8 != 0) u(1, 0);
}

WrappedUnit WrapNalUnit(uint8_t headerByte, const std::vector<uint8_t>& rbsp) {
    WrappedUnit unit;
    unit.bytes = {0, 0, 0, 1, headerByte};
    int zeros = 0;
    for (uint8_t b : rbsp) {
        if (zeros >= 2 && b <= 3) {
            unit.bytes.push_back(3);
            zeros = 0;
        }
        unit.offsetOfByte.push_back(unit.bytes.size());
        unit.bytes.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
    return unit;
}

}  // namespace corvane::test
