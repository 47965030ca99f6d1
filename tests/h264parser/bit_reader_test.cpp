// The in-place reader: emulation prevention, start codes inside a unit,
// fixed-length and Exp-Golomb values, and where each read gives up.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "h264parser/bit_reader.h"
#include "h264parser/bit_writer.h"
#include "h264parser/exception.h"

namespace corvane {
namespace {

const std::string kEnd = "ERROR: H264::cBitReader::NextByte(): premature end of data";
const std::string kBits = "ERROR: H264::cBitReader::ReadBits(): bitbuffer overflow";
const std::string kUe = "ERROR: H264::cBitReader::ue(): overflow";

enum class Op { Byte, Bits, Ue, Se };
struct Step {
    Op op;
    uint32_t n = 0;  // for Bits
};
const Step B{Op::Byte}, UE{Op::Ue}, SE{Op::Se};
Step Bits(uint32_t n) { return {Op::Bits, n}; }

struct ReaderCase {
    const char* name;
    std::vector<uint8_t> payload;  // behind the unit's header byte
    std::vector<Step> steps;
    std::vector<int64_t> values;   // what the steps give before any raise
    std::string error;             // the message of the raise, or empty
};
void PrintTo(const ReaderCase& c, std::ostream* os) { *os << c.name; }

const std::vector<ReaderCase> kCases = {
    {"no bytes: ReadBits(0) then a raise", {}, {Bits(0), B}, {0}, kEnd},
    {"00 00 03 01", {0, 0, 3, 1}, {B, B, B}, {0, 0, 1}, ""},
    {"two escapes", {0, 0, 3, 0, 0, 3, 1}, {B, B, B, B, B}, {0, 0, 0, 0, 1}, ""},
    {"escape as last byte", {0, 0, 3}, {B, B, B}, {0, 0}, kEnd},
    {"three-byte start code", {0, 0, 1}, {B, B, B}, {0, 0}, kEnd},
    {"four-byte start code", {0, 0, 0, 1}, {B, B, B, B}, {0, 0, 0}, kEnd},
    {"four zero bytes", {0, 0, 0, 0}, {B, B, B, B}, {0, 0, 0}, kEnd},
    {"03 after one zero is data", {0, 3, 5}, {B, B, B}, {0, 3, 5}, ""},
    {"escape before a zero", {0, 0, 3, 0, 7}, {B, B, B, B}, {0, 0, 0, 7}, ""},
    // 1 010 011 00100 00101
    {"ue small values", {0xA6, 0x42, 0x80}, {UE, UE, UE, UE, UE}, {0, 1, 2, 3, 4}, ""},
    {"se small values", {0xA6, 0x42, 0x80}, {SE, SE, SE, SE, SE}, {0, 1, -1, 2, -2}, ""},
    // 31 zero bits, a one, 31 ones (the payload escaped after its two zero bytes)
    {"largest ue", {0, 0, 3, 0, 1, 0xFF, 0xFF, 0xFF, 0xFE}, {UE}, {0xFFFFFFFE}, ""},
    {"ue of 32 zero bits", {0x80, 0, 0, 0, 0x7F}, {Bits(1), UE}, {1}, kUe},
    {"ue running into four zero bytes", {0x80, 0, 0, 0, 0}, {Bits(1), UE}, {1}, kEnd},
    {"32 bits aligned", {0x12, 0x34, 0x56, 0x78}, {Bits(32)}, {0x12345678}, ""},
    {"32 bits from mid-byte", {0x12, 0x34, 0x56, 0x78, 0x9A}, {Bits(4), Bits(32), Bits(4)},
     {0x1, 0x23456789, 0xA}, ""},
    {"mixed widths", {0xB5, 0x6C, 0xF0}, {Bits(3), Bits(7), Bits(1), Bits(9), Bits(0), Bits(4)},
     {0x5, 0x55, 0x1, 0xCF, 0, 0}, ""},
    {"33 bits", {1, 2, 3, 4, 5, 6}, {Bits(33)}, {}, kBits},
    {"past the end in a value", {0xFF}, {Bits(4), Bits(8)}, {0xF}, kEnd},
};

class BitReaderCase : public testing::TestWithParam<ReaderCase> {};

TEST_P(BitReaderCase, GivesValuesThenRaises) {
    const ReaderCase& c = GetParam();
    std::vector<uint8_t> unit = {0x67};  // any header byte: the reader skips it
    unit.insert(unit.end(), c.payload.begin(), c.payload.end());
    cBitReader reader(unit.data(), static_cast<int32_t>(unit.size()));
    std::vector<int64_t> got;
    std::string error;
    try {
        for (const Step& s : c.steps) {
            switch (s.op) {
            case Op::Byte: got.push_back(reader.NextByte()); break;
            case Op::Bits: got.push_back(reader.ReadBits(s.n)); break;
            case Op::Ue: got.push_back(reader.ue()); break;
            case Op::Se: got.push_back(reader.se()); break;
            }
        }
    } catch (H264PARSER::cException* e) {
        error = e->Message();
        delete e;
    }
    EXPECT_EQ(got, c.values);
    EXPECT_EQ(error, c.error);
}

INSTANTIATE_TEST_SUITE_P(Table, BitReaderCase, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<ReaderCase>& info) {
                             std::string n = info.param.name;
                             for (char& ch : n)
                                 if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
                             return n;
                         });

// Random elements written with emulation prevention read back unchanged, so
// that escapes land at every bit offset and inside long zero runs.
TEST(BitReader, ReadsBackWhatWasWritten) {
    std::mt19937 rng(1234);
    enum Kind { kU, kUe, kSe };
    struct Element { Kind kind; int n; int64_t v; };
    std::vector<Element> elements;
    test::BitWriter w;
    for (int i = 0; i < 3000; ++i) {
        const int n = static_cast<int>(rng() % 33);
        const uint64_t raw = (uint64_t{rng()} << 32 | rng()) >> (rng() % 64);
        const uint64_t zeroish = rng() % 3 == 0 ? 0 : raw;  // plenty of zero bytes
        switch (rng() % 3) {
        case kU: elements.push_back({kU, n, int64_t(zeroish & ((uint64_t{1} << n) - 1))}); break;
        case kUe: elements.push_back({kUe, 0, int64_t(zeroish % 0xFFFFFFFFu)}); break;
        default: elements.push_back({kSe, 0, int64_t(zeroish % 0x7FFFFFFF) * (rng() % 2 ? 1 : -1)});
        }
        const Element& e = elements.back();
        if (e.kind == kU) w.u(e.n, uint64_t(e.v));
        else if (e.kind == kUe) w.ue(uint64_t(e.v));
        else w.se(e.v);
    }
    w.trailing();
    const std::vector<uint8_t> nal = w.Nal(0x06);
    cBitReader reader(nal.data() + 4, static_cast<int32_t>(nal.size() - 4));
    for (size_t i = 0; i < elements.size(); ++i) {
        const Element& e = elements[i];
        int64_t got = 0;
        if (e.kind == kU) got = reader.ReadBits(e.n);
        else if (e.kind == kUe) got = reader.ue();
        else got = reader.se();
        ASSERT_EQ(got, e.v) << "element " << i;
    }
}

}  // namespace
}  // namespace corvane
