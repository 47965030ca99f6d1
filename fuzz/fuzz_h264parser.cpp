// Arbitrary bytes through the stream parser, driven the two ways it can be:
// as the decoder's first-frames step does (one packet, header only, SPS 0 asked
// for), and as a stream cut at its start codes into units sharing one store,
// with SEI and the whole SPS read. Parser exceptions are caught as its users
// catch them; anything else that escapes, and any sanitizer report, is a find.
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "h264parser/exception.h"
#include "h264parser/parser.h"

namespace {

using corvane::cParser;
using corvane::H264PARSER::cException;

template <typename F>
void Guarded(F&& f) {
  try {
    f();
  } catch (cException* e) {
    delete e;
  }
}

// End of the unit that starts at `start`: the next 00 00 01, or its leading
// zero when the four-byte form follows.
size_t UnitEnd(const uint8_t* data, size_t size, size_t start) {
  for (size_t i = start + 3; i + 3 <= size; ++i) {
    if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1)
      return data[i - 1] == 0 && i - 1 > start ? i - 1 : i;
  }
  return size;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The parser prints its two messages about bad buffers to standard output;
  // here they would only fill the log.
  static_cast<void>(std::freopen("/dev/null", "w", stdout));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int32_t packetSize = size > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int32_t>(size);
  {
    cParser parser(1000, true);
    parser.Reset();
    parser.Append(data, packetSize);
    parser.Process();
    Guarded([&] { parser.Context().ActivateSPS(0); });
  }
  cParser parser(1000, false);
  parser.Reset();
  for (size_t start = 0; start < size;) {
    const size_t end = UnitEnd(data, size, start);
    parser.Append(data + start, static_cast<int32_t>(end - start));
    parser.Process();
    start = end;
  }
  Guarded([&] { parser.Context().ActivatePPS(0); });
  Guarded([&] { parser.Context().ActivateSPS(0); });
  return 0;
}
