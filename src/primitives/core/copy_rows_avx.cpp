// Row copies of the AVX2 and AVX-512 code paths (l9, k0), one code for both.
// Built for every path; only l9 and k0 keep code here.
#include <immintrin.h>

#include <cstring>

#include "primitives/core/cache_query.h"
#include "primitives/core/copy.h"

#if CORVANE_VARIANT_INDEX >= 4

namespace corvane::CORVANE_VARIANT {
namespace {

__m256i Load32(const uint8_t* s) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)); }
void Store32(uint8_t* d, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), v); }
void StoreAligned32(uint8_t* d, __m256i v) { _mm256_store_si256(reinterpret_cast<__m256i*>(d), v); }
void Stream32(uint8_t* d, __m256i v) { _mm256_stream_si256(reinterpret_cast<__m256i*>(d), v); }

// An unaligned 64-byte move; both loads come before both stores.
void Move64(const uint8_t* s, uint8_t* d) {
  const __m256i a = Load32(s);
  const __m256i b = Load32(s + 32);
  Store32(d, a);
  Store32(d + 32, b);
}

// A row below 512 bytes, by size class: every class loads its first and last
// vectors so that the row is covered without a byte loop.
void CopyNarrowRow(const uint8_t* s, uint8_t* d, int32_t n) {
  if (n >= 64) {
    const __m256i lastA = Load32(s + n - 64);
    const __m256i lastB = Load32(s + n - 32);
    for (int32_t i = 0; i + 64 <= n; i += 64) Move64(s + i, d + i);
    Store32(d + n - 64, lastA);
    Store32(d + n - 32, lastB);
  } else if (n >= 32) {
    const __m256i a = Load32(s);
    const __m256i b = Load32(s + n - 32);
    Store32(d, a);
    Store32(d + n - 32, b);
  } else if (n >= 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + n - 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), a);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n - 16), b);
  } else if (n >= 8) {
    uint64_t a, b;
    std::memcpy(&a, s, 8);
    std::memcpy(&b, s + n - 8, 8);
    std::memcpy(d, &a, 8);
    std::memcpy(d + n - 8, &b, 8);
  } else if (n >= 4) {
    uint32_t a, b;
    std::memcpy(&a, s, 4);
    std::memcpy(&b, s + n - 4, 4);
    std::memcpy(d, &a, 4);
    std::memcpy(d + n - 4, &b, 4);
  } else {
    for (int32_t i = 0; i < n; ++i) d[i] = s[i];
  }
}

// Moves of 1, 2, 4, 8, 16 and 32 bytes that bring d to a multiple of 64 (or
// copy the whole row if it ends before that). Returns the bytes done.
int32_t AlignHead(const uint8_t* s, uint8_t* d, int32_t limit) {
  const int32_t head = static_cast<int32_t>(-reinterpret_cast<uintptr_t>(d) & 63);
  const int32_t n = head < limit ? head : limit;
  int32_t done = 0;
  for (int32_t w = 1; w <= 32; w <<= 1) {
    if ((n & w) == 0) continue;
    std::memcpy(d + done, s + done, static_cast<size_t>(w));
    done += w;
  }
  return done;
}

// The tail below 64 bytes, in moves of 32 down to 1.
void CopyTail(const uint8_t* s, uint8_t* d, int32_t n) {
  for (int32_t w = 32; w >= 1; w >>= 1) {
    if ((n & w) == 0) continue;
    std::memcpy(d, s, static_cast<size_t>(w));
    s += w;
    d += w;
  }
}

void StreamRows(const uint8_t* src, int64_t srcStep, uint8_t* dst, int64_t dstStep,
                int32_t rowBytes, int32_t rows) {
  const bool aligned =
      (reinterpret_cast<uintptr_t>(dst) & 63) == 0 && (dstStep & 63) == 0 && (rowBytes & 31) == 0;
  for (int64_t y = 0; y < rows; ++y) {
    const uint8_t* s = src + y * srcStep;
    uint8_t* d = dst + y * dstStep;
    int32_t i = aligned ? 0 : AlignHead(s, d, rowBytes);
    for (; i + 64 <= rowBytes; i += 64) {
      const __m256i a = Load32(s + i);
      const __m256i b = Load32(s + i + 32);
      Stream32(d + i, a);
      Stream32(d + i + 32, b);
    }
    if (aligned) {
      if (i < rowBytes) Store32(d + i, Load32(s + i));  // an odd multiple of 32
    } else {
      CopyTail(s + i, d + i, rowBytes - i);
    }
  }
  _mm_sfence();
}

// Rows whose destination, destination step and length are multiples of 32.
void CopyAlignedRows(const uint8_t* src, int64_t srcStep, uint8_t* dst, int64_t dstStep,
                     int32_t rowBytes, int32_t rows) {
  const int32_t body = rowBytes & ~63;
  const int32_t apart = static_cast<int32_t>(reinterpret_cast<uintptr_t>(dst) & 0xFFF) -
                        static_cast<int32_t>(reinterpret_cast<uintptr_t>(src) & 0xFFF);
  if (srcStep == dstStep && apart >= 0 && apart < 160) {
    // Last row first, each row from its end: a destination just above the
    // source in the page would make forward loads wait on earlier stores.
    for (int64_t y = rows - 1; y >= 0; --y) {
      const uint8_t* s = src + y * srcStep;
      uint8_t* d = dst + y * dstStep;
      if (body < rowBytes) StoreAligned32(d + body, Load32(s + body));
      for (int32_t i = body - 64; i >= 0; i -= 64) {
        const __m256i a = Load32(s + i);
        const __m256i b = Load32(s + i + 32);
        StoreAligned32(d + i + 32, b);
        StoreAligned32(d + i, a);
      }
    }
    return;
  }
  for (int64_t y = 0; y < rows; ++y) {
    const uint8_t* s = src + y * srcStep;
    uint8_t* d = dst + y * dstStep;
    for (int32_t i = 0; i < body; i += 64) {
      const __m256i a = Load32(s + i);
      const __m256i b = Load32(s + i + 32);
      StoreAligned32(d + i, a);
      StoreAligned32(d + i + 32, b);
    }
    if (body < rowBytes) StoreAligned32(d + body, Load32(s + body));
  }
}

// Rows of 512 bytes or more at any alignment: an unaligned head, aligned
// 64-byte steps, an unaligned 64 bytes that end at the row's end.
void CopyUnalignedRows(const uint8_t* src, int64_t srcStep, uint8_t* dst, int64_t dstStep,
                       int32_t rowBytes, int32_t rows) {
  for (int64_t y = 0; y < rows; ++y) {
    const uint8_t* s = src + y * srcStep;
    uint8_t* d = dst + y * dstStep;
    Move64(s, d);
    int32_t i = 64 - static_cast<int32_t>(reinterpret_cast<uintptr_t>(d) & 63);
    for (; i + 64 <= rowBytes; i += 64) {
      const __m256i a = Load32(s + i);
      const __m256i b = Load32(s + i + 32);
      StoreAligned32(d + i, a);
      StoreAligned32(d + i + 32, b);
    }
    Move64(s + rowBytes - 64, d + rowBytes - 64);
  }
}

}  // namespace

void ownCopyRows(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                 int32_t rowBytes, int32_t rows) {
  const int64_t total = static_cast<int64_t>(rowBytes) * rows;
  if (total > 0x7FFFFFFF) {
    StreamRows(src, srcStep, dst, dstStep, rowBytes, rows);
    return;
  }
  if (rowBytes == srcStep && rowBytes == dstStep) {
    ownCopyBlock(src, dst, static_cast<int32_t>(total));
    return;
  }
  if (rowBytes < 512) {
    for (int64_t y = 0; y < rows; ++y) {
      CopyNarrowRow(src + y * srcStep, dst + y * dstStep, rowBytes);
    }
    return;
  }
  int32_t cache = 0;
  if (total > 0x300000 && primitives::ownGetCacheSize(&cache) == StatusOk && total >= cache / 2) {
    StreamRows(src, srcStep, dst, dstStep, rowBytes, rows);
    return;
  }
  if ((reinterpret_cast<uintptr_t>(dst) & 31) == 0 && (dstStep & 31) == 0 && (rowBytes & 31) == 0) {
    CopyAlignedRows(src, srcStep, dst, dstStep, rowBytes, rows);
  } else {
    CopyUnalignedRows(src, srcStep, dst, dstStep, rowBytes, rows);
  }
}

}  // namespace corvane::CORVANE_VARIANT

#endif
