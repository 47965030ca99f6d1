// The 16-bit median of any odd mask, one build per code path: a two-level
// count finds the high byte of the median, and a second count over only the
// mask values with that high byte finds the low byte. Counting is on values
// from 0 to 65535; a signed element is biased by 32768 on the way in and out.
//
// The mask's values wait in a ring in the work area, one mask column after
// another; sliding right replaces the oldest column. Behind the ring lies the
// gather list of the low-byte search.
#include <cstring>

#include "primitives/median/median_kernel.h"

namespace corvane::CORVANE_VARIANT {
namespace {

// The four counter tables, 544 counters.
struct Counts {
  uint32_t top[16];    // value >> 12
  uint32_t high[256];  // value >> 8
  uint32_t lowTop[16];
  uint32_t low[256];
};

template <bool Signed>
uint32_t Read(const uint8_t* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return Signed ? static_cast<uint16_t>(v ^ 0x8000u) : v;
}

void Add(Counts& t, uint32_t v) { ++t.top[v >> 12], ++t.high[v >> 8]; }
void Remove(Counts& t, uint32_t v) { --t.top[v >> 12], --t.high[v >> 8]; }

// The value of the given rank among the n values of `ring`, whose high
// bytes Top and High count.
uint32_t Search(Counts& t, const uint32_t* ring, int32_t n, uint32_t rank, uint32_t* gather) {
  uint32_t sum = 0;
  int32_t bin = 0;
  while ((sum += t.top[bin]) < rank) ++bin;
  sum -= t.top[bin];
  int32_t high = bin * 16;
  while ((sum += t.high[high]) < rank) ++high;
  const uint32_t found = t.high[high];
  sum -= found;
  uint32_t gathered = 0;
  for (int32_t i = 0; gathered < found && i < n; ++i) {
    const uint32_t v = ring[i];
    if (static_cast<int32_t>(v >> 8) != high) continue;
    gather[gathered++] = v;
    ++t.low[v & 255], ++t.lowTop[(v & 255) >> 4];
  }
  bin = 0;
  while ((sum += t.lowTop[bin]) < rank) ++bin;
  sum -= t.lowTop[bin];
  int32_t low = bin * 16;
  while ((sum += t.low[low]) < rank) ++low;
  for (uint32_t i = 0; i < gathered; ++i) {
    --t.low[gather[i] & 255], --t.lowTop[(gather[i] & 255) >> 4];
  }
  return static_cast<uint32_t>(high * 256 + low);
}

// Channels walked, and elements from one pixel to the next.
template <bool Signed, int32_t Channels, int32_t Stride>
void Radix(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, ImageSize roi,
           ImageSize mask, uint8_t* work) {
  constexpr int32_t px = Stride * 2;
  const int32_t a = mask.width, b = mask.height, n = a * b;
  const uint32_t rank = static_cast<uint32_t>(n / 2 + 1);
  uint32_t* const ring = reinterpret_cast<uint32_t*>(work);
  uint32_t* const gather = ring + n;
  const uint8_t* const corner = src - intptr_t{b / 2} * srcStep - intptr_t{a / 2} * px;
  auto write = [](uint8_t* p, uint32_t v) {
    const uint16_t out = static_cast<uint16_t>(Signed ? v ^ 0x8000u : v);
    std::memcpy(p, &out, 2);
  };
  Counts t;
  std::memset(&t, 0, sizeof t);
  for (int32_t c = 0; c < Channels; ++c) {
    for (int32_t y = 0; y < roi.height; ++y) {
      const uint8_t* const top = corner + intptr_t{y} * srcStep + c * 2;
      uint8_t* const out = dst + intptr_t{y} * dstStep + c * 2;
      auto at = [&](int32_t row, int32_t col) {
        return Read<Signed>(top + intptr_t{row} * srcStep + intptr_t{col} * px);
      };
      if (a == 1) {
        // Neighbouring outputs share nothing: each column is counted alone.
        for (int32_t x = 0; x < roi.width; ++x) {
          for (int32_t i = 0; i < b; ++i) Add(t, ring[i] = at(i, x));
          write(out + intptr_t{x} * px, Search(t, ring, n, rank, gather));
          for (int32_t i = 0; i < b; ++i) Remove(t, ring[i]);
        }
        continue;
      }
      std::memset(t.top, 0, sizeof t.top);
      std::memset(t.high, 0, sizeof t.high);
      for (int32_t j = 0; j < a; ++j) {
        for (int32_t i = 0; i < b; ++i) Add(t, ring[j * b + i] = at(i, j));
      }
      int32_t oldest = 0;
      for (int32_t x = 0;; ++x) {
        write(out + intptr_t{x} * px, Search(t, ring, n, rank, gather));
        if (x + 1 == roi.width) break;
        for (int32_t i = 0; i < b; ++i) {
          Remove(t, ring[oldest + i]);
          Add(t, ring[oldest + i] = at(i, x + a));
        }
        oldest = oldest + b == n ? 0 : oldest + b;
      }
    }
  }
}

}  // namespace

// The six designed kernels: element type, channels filtered, elements a pixel.
#define CORVANE_RADIX_ENTRY_(name, Signed, Channels, Stride)                                   \
  void name(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, ImageSize roi, \
            ImageSize mask, uint8_t* work) {                                                   \
    Radix<Signed, Channels, Stride>(src, srcStep, dst, dstStep, roi, mask, work);              \
  }
CORVANE_RADIX_ENTRY_(ownMedianRadix_16u_C3R, false, 3, 3)
CORVANE_RADIX_ENTRY_(ownMedianRadix_16u_C4KR, false, 3, 4)
CORVANE_RADIX_ENTRY_(ownMedianRadix_16u_C4R, false, 4, 4)
CORVANE_RADIX_ENTRY_(ownMedianRadix_16s_C3R, true, 3, 3)
CORVANE_RADIX_ENTRY_(ownMedianRadix_16s_C4KR, true, 3, 4)
CORVANE_RADIX_ENTRY_(ownMedianRadix_16s_C4R, true, 4, 4)
#undef CORVANE_RADIX_ENTRY_

}  // namespace corvane::CORVANE_VARIANT
