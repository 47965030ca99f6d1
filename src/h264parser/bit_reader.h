// Reads the payload of one H.264 NAL unit in place: emulation-prevention bytes
// are dropped on the fly, a start code inside the unit counts as its end, and
// fixed-length and Exp-Golomb values are delivered most significant bit first.
// Every failure raises a H264PARSER::cException.
#pragma once

#include <cstdint>

namespace corvane {

class cBitReader {
 public:
  // `unit` points at the NAL unit's header byte, `length` counts from there;
  // the reader starts behind the header byte. The bytes are borrowed, never
  // changed. A reader is a plain value: a copy is a snapshot of its position.
  cBitReader(const uint8_t* unit, int32_t length);

  uint8_t NextByte();             // next payload byte, emulation prevention removed
  uint32_t ReadBits(uint32_t n);  // u(n), n from 0 to 32
  uint32_t ue();                  // ue(v)
  int32_t se();                   // se(v)

  int32_t Remaining() const { return remaining; }

 private:
  const uint8_t* data;  // next byte to take
  int32_t remaining;    // bytes left from `data` on
  uint32_t bitBuffer;   // bytes taken so far, the latest in the low bits
  uint32_t bitCount;    // low bits of `bitBuffer` not yet read
  int32_t zeroRun;      // zero bytes taken in a row just before `data`
};

}  // namespace corvane
