// The in-place reader: emulation prevention, start codes inside a unit,
// fixed-length and Exp-Golomb values, and where each read gives up.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "h264parser/bit_reader.h"
#include "h264parser/exception.h"
#include "h264parser/h264_oracle.h"

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
  std::vector<int64_t> values;  // what the steps give before any raise
  std::string error;            // the message of the raise, or empty
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
    {"32 bits from mid-byte",
     {0x12, 0x34, 0x56, 0x78, 0x9A},
     {Bits(4), Bits(32), Bits(4)},
     {0x1, 0x23456789, 0xA},
     ""},
    {"mixed widths",
     {0xB5, 0x6C, 0xF0},
     {Bits(3), Bits(7), Bits(1), Bits(9), Bits(0), Bits(4)},
     {0x5, 0x55, 0x1, 0xCF, 0, 0},
     ""},
    {"33 bits", {1, 2, 3, 4, 5, 6}, {Bits(33)}, {}, kBits},
    {"past the end in a value", {0xFF}, {Bits(4), Bits(8)}, {0xF}, kEnd},
};

int64_t Read(cBitReader& reader, const Step& s) {
  switch (s.op) {
    case Op::Byte:
      return reader.NextByte();
    case Op::Bits:
      return reader.ReadBits(s.n);
    case Op::Ue:
      return reader.ue();
    default:
      return reader.se();
  }
}

class BitReaderCase : public testing::TestWithParam<ReaderCase> {};

TEST_P(BitReaderCase, GivesValuesThenRaises) {
  const ReaderCase& c = GetParam();
  test::Bytes unit = {0x67};  // any header byte: the reader skips it
  unit.insert(unit.end(), c.payload.begin(), c.payload.end());
  cBitReader reader(unit.data(), static_cast<int32_t>(unit.size()));
  std::vector<int64_t> got;
  const std::string error = test::Catch([&] {
    for (const Step& s : c.steps) got.push_back(Read(reader, s));
  });
  EXPECT_EQ(got, c.values);
  EXPECT_EQ(error, c.error);
}

INSTANTIATE_TEST_SUITE_P(Table, BitReaderCase, testing::ValuesIn(kCases));

// Random elements written with emulation prevention read back unchanged, so
// that escapes land at every bit offset and inside long zero runs.
TEST(BitReader, ReadsBackWhatWasWritten) {
  std::mt19937 rng(1234);
  std::vector<std::pair<Step, int64_t>> written;
  test::BitWriter w;
  for (int i = 0; i < 3000; ++i) {
    const uint32_t n = rng() % 33;
    const uint64_t raw = (uint64_t{rng()} << 32 | rng()) >> (rng() % 64);
    const uint64_t v = rng() % 3 == 0 ? 0 : raw;  // plenty of zero bytes
    switch (rng() % 3) {
      case 0:
        written.push_back({Bits(n), int64_t(v & ((uint64_t{1} << n) - 1))});
        break;
      case 1:
        written.push_back({UE, int64_t(v % 0xFFFFFFFFu)});
        break;
      default:
        written.push_back({SE, int64_t(v % 0x7FFFFFFF) * (rng() % 2 ? 1 : -1)});
    }
    const auto& [step, value] = written.back();
    if (step.op == Op::Bits)
      w.u(int(n), uint64_t(value));
    else if (step.op == Op::Ue)
      w.ue(uint64_t(value));
    else
      w.se(value);
  }
  const test::Bytes nal = w.trailing().Nal(0x06);
  cBitReader reader(nal.data() + 4, static_cast<int32_t>(nal.size() - 4));
  for (size_t i = 0; i < written.size(); ++i)
    ASSERT_EQ(Read(reader, written[i].first), written[i].second) << "element " << i;
}

}  // namespace
}  // namespace corvane
