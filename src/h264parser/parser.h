// A small H.264 byte-stream parser: it owns a buffer, recognises the start code
// at offset 0, and reads the one NAL unit behind it into its cContext
// (parameter sets, slice header, SEI picture timing). Errors inside a unit end
// that unit quietly; the caller's test is the store itself.
#pragma once

#include <cstdint>

#include "h264parser/context.h"

namespace corvane {

class cParser {
 public:
  // With `headerOnly`, an SPS is read only up to frame_mbs_only_flag and SEI
  // units are passed over: enough to know the picture size.
  cParser(int32_t capacity, bool headerOnly);
  ~cParser();
  cParser(const cParser&) = delete;
  cParser& operator=(const cParser&) = delete;

  // A fresh store and an empty buffer; bad buffers go unreported again until
  // the next SPS unit.
  void Reset();
  // size >= 0 adds up to the free room; size < 0 takes |size| bytes back, but
  // not below the consumed part.
  void Append(const uint8_t* bytes, int32_t size);
  // Reads the one NAL unit at the start of the buffer and empties the buffer.
  // Never raises.
  void Process();

  // Readers of one unit: `unit` points at its header byte, `length` counts
  // from there to the end of the buffer. They raise H264PARSER::cException.
  void ParseSPS(const uint8_t* unit, int32_t length);
  void ParsePPS(const uint8_t* unit, int32_t length);
  void ParseSlice(const uint8_t* unit, int32_t length);
  void ParseSEI(const uint8_t* unit, int32_t length);

  cContext& Context() { return context; }
  const cContext& Context() const { return context; }
  bool AwaitingSps() const { return awaitingSps; }
  bool HeaderOnly() const { return headerOnly; }
  int32_t Capacity() const { return capacity; }
  int32_t Fill() const { return fill; }
  int32_t ReadPosition() const { return readPosition; }

 private:
  void Dispatch(const uint8_t* unit, int32_t length, bool longStartCode);

  bool awaitingSps = true;  // no SPS unit since the last Reset: print nothing
  bool headerOnly;
  uint8_t* data = nullptr;  // owned
  int32_t capacity = 0;
  int32_t fill = 0;
  int32_t readPosition = 0;
  cContext context;
};

}  // namespace corvane
