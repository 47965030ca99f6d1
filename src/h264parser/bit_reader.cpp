#include "h264parser/bit_reader.h"

#include "h264parser/exception.h"

namespace corvane {

namespace {

constexpr const char* kEndOfData = "ERROR: H264::cBitReader::NextByte(): premature end of data";
constexpr const char* kBitBufferOverflow =
    "ERROR: H264::cBitReader::ReadBits(): bitbuffer overflow";
constexpr const char* kUeOverflow = "ERROR: H264::cBitReader::ue(): overflow";
constexpr const char* kSeOverflow = "ERROR: H264::cBitReader::se(): overflow";

}  // namespace

cBitReader::cBitReader(const uint8_t* unit, int32_t length)
    : data(unit + 1), remaining(length - 1), bitBuffer(0), bitCount(0), zeroRun(0) {}

uint8_t cBitReader::NextByte() {
  if (remaining < 1) H264PARSER::Raise(kEndOfData);
  const uint8_t c = *data;
  if (c == 0) {
    // Three zero bytes can be payload; a fourth can't be anything but the
    // start of a next unit.
    if (zeroRun >= 3) H264PARSER::Raise(kEndOfData);
    ++zeroRun;
  } else if (zeroRun >= 2 && c == 1) {
    H264PARSER::Raise(kEndOfData);  // 00 00 01: the next start code
  } else if (zeroRun >= 2 && c == 3) {
    // Emulation prevention: drop the 03; the byte behind it is payload.
    if (remaining < 2) H264PARSER::Raise(kEndOfData);
    ++data;
    --remaining;
    zeroRun = *data == 0 ? 1 : 0;
  } else {
    zeroRun = 0;
  }
  --remaining;
  return *data++;
}

uint32_t cBitReader::ReadBits(uint32_t n) {
  if (n == 0) return 0;
  // bitCount is below 8 on entry, so the buffer never holds more than 31 bits.
  while (n > bitCount && bitCount <= 24) {
    bitBuffer = (bitBuffer << 8) | NextByte();
    bitCount += 8;
  }
  if (n > bitCount) {
    if (n > 32) H264PARSER::Raise(kBitBufferOverflow);
    const uint32_t high = ReadBits(n - 16);
    return (high << 16) | ReadBits(16);
  }
  bitCount -= n;
  const uint64_t mask = (uint64_t{1} << n) - 1;
  return static_cast<uint32_t>((bitBuffer >> bitCount) & mask);
}

uint32_t cBitReader::ue() {
  if (ReadBits(1) == 1) return 0;
  uint64_t zeros = 1;
  while (ReadBits(1) == 0) ++zeros;
  if (zeros >= 32) H264PARSER::Raise(kUeOverflow);
  const uint32_t z = static_cast<uint32_t>(zeros);
  return ((uint32_t{1} << z) - 1) + ReadBits(z);
}

int32_t cBitReader::se() {
  const uint32_t v = ue();
  if (v == 0xFFFFFFFFu) H264PARSER::Raise(kSeOverflow);
  const int32_t k = static_cast<int32_t>((v + 1) / 2);
  return (v & 1) ? k : -k;
}

}  // namespace corvane
