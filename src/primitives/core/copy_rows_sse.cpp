// Row copies of the 128-bit code paths: m7, the n8/y8 family and e9.
// Built for every path; only m7 to e9 keep code here.
#include <immintrin.h>

#include <cstring>

#include "primitives/core/cache_query.h"
#include "primitives/core/copy.h"

#if CORVANE_VARIANT_INDEX <= 3

namespace corvane::CORVANE_VARIANT {
namespace {

// Fewer than 16 bytes, one move per set bit of the length.
void CopyTail(const uint8_t* s, uint8_t* d, int64_t n) {
  if (n & 8) {
    std::memcpy(d, s, 8);
    s += 8;
    d += 8;
  }
  if (n & 4) {
    std::memcpy(d, s, 4);
    s += 4;
    d += 4;
  }
  if (n & 2) {
    std::memcpy(d, s, 2);
    s += 2;
    d += 2;
  }
  if (n & 1) {
    *d = *s;
  }
}

void Move16(const uint8_t* s, uint8_t* d) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d),
                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(s)));
}

// Cached copy of one run in 16-byte moves: 64 bytes a step, then 16-byte
// steps, and a last 16-byte move that ends at the run's end.
void CopyRun(const uint8_t* s, uint8_t* d, int64_t n) {
  if (n < 16) {
    CopyTail(s, d, n);
    return;
  }
  int64_t i = 0;
  for (; i + 64 <= n; i += 64) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 16));
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 32));
    const __m128i e = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 48));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), a);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i + 16), b);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i + 32), c);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i + 48), e);
  }
  for (; i + 16 <= n; i += 16) Move16(s + i, d + i);
  if (i < n) Move16(s + n - 16, d + n - 16);
}

#if CORVANE_VARIANT_INDEX == 3
// e9: non-temporal stores of 32 bytes, each made of two 16-byte loads.
constexpr int64_t kStreamAlign = 32;
void Stream64(const uint8_t* s, uint8_t* d) {
  for (int k = 0; k < 64; k += 32) {
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k + 16));
    _mm256_stream_si256(reinterpret_cast<__m256i*>(d + k),
                        _mm256_insertf128_si256(_mm256_castsi128_si256(lo), hi, 1));
  }
}
#else
constexpr int64_t kStreamAlign = 16;
void Stream64(const uint8_t* s, uint8_t* d) {
  for (int k = 0; k < 64; k += 16) {
    _mm_stream_si128(reinterpret_cast<__m128i*>(d + k),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k)));
  }
}
#endif

// One run with non-temporal stores: the head up to the store alignment and
// the tail go by normal stores, the middle 64 bytes a step around the cache.
void StreamRun(const uint8_t* s, uint8_t* d, int64_t n) {
  const int64_t head = static_cast<int64_t>(-reinterpret_cast<uintptr_t>(d) & (kStreamAlign - 1));
  if (n < head + 64) {
    CopyRun(s, d, n);
    return;
  }
  CopyRun(s, d, head);
  int64_t i = head;
  for (; i + 64 <= n; i += 64) Stream64(s + i, d + i);
  CopyRun(s + i, d + i, n - i);
}

// Whether this path goes around the cache for a region of `total` bytes in
// runs of `run` bytes.
bool UseStreaming(int64_t run, int64_t total) {
#if CORVANE_VARIANT_INDEX == 0
  (void)run;
  return total > 0x100000;  // m7 asks no cache
#elif CORVANE_VARIANT_INDEX <= 2
  if (run < 64 || total <= 0x20000) return false;
  const int32_t cache = primitives::ownPackedDescriptorCacheSize();
  return cache > 0 && total > cache / 2;
#else
  int32_t cache = 0;
  return run >= 1024 && 2 * total > 0x400000 && primitives::ownGetCacheSize(&cache) == StatusOk &&
         2 * total > cache;
#endif
}

}  // namespace

void ownCopyRows(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                 int32_t rowBytes, int32_t rows) {
  const int64_t total = static_cast<int64_t>(rowBytes) * rows;
  // A region without gaps on both sides is one run.
  const bool single = srcStep == rowBytes && dstStep == rowBytes;
  const int64_t run = single ? total : rowBytes;
  const int64_t count = single ? 1 : rows;
  if (!UseStreaming(run, total)) {
    for (int64_t y = 0; y < count; ++y) CopyRun(src + y * srcStep, dst + y * dstStep, run);
    return;
  }
  for (int64_t y = 0; y < count; ++y) {
    StreamRun(src + y * srcStep, dst + y * dstStep, run);
#if CORVANE_VARIANT_INDEX == 0
    _mm_sfence();  // m7 closes every row
#endif
  }
  _mm_sfence();
}

}  // namespace corvane::CORVANE_VARIANT

#endif
