// Block copies of the AVX2 and AVX-512 code paths (l9, k0), one code for both.
// Built for every path; only l9 and k0 keep code here.
#include <immintrin.h>

#include <cstring>

#include "primitives/core/cache_query.h"
#include "primitives/core/copy.h"

#if CORVANE_VARIANT_INDEX >= 4

namespace corvane::CORVANE_VARIANT {
namespace {

void Move32(const uint8_t* s, uint8_t* d) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d),
                      _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)));
}

void Move16(const uint8_t* s, uint8_t* d) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d),
                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(s)));
}

void Move64By16(const uint8_t* s, uint8_t* d) {
  const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
  const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 16));
  const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 32));
  const __m128i e = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 48));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), a);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 16), b);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 32), c);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 48), e);
}

// Below 256 bytes: one move for each set bit of the length, largest first.
void CopyBits(const uint8_t* s, uint8_t* d, int32_t n) {
  if (n & 128) {
    for (int k = 0; k < 128; k += 32) Move32(s + k, d + k);
    s += 128;
    d += 128;
  }
  if (n & 64) {
    Move32(s, d);
    Move32(s + 32, d + 32);
    s += 64;
    d += 64;
  }
  if (n & 32) {
    Move32(s, d);
    s += 32;
    d += 32;
  }
  if (n & 16) {
    Move16(s, d);
    s += 16;
    d += 16;
  }
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

// Forward string moves at the widest width that both addresses can share,
// after aligning the destination to it.
void CopyStringMoves(const uint8_t* s, uint8_t* d, int64_t n) {
  const uintptr_t apart = reinterpret_cast<uintptr_t>(s) ^ reinterpret_cast<uintptr_t>(d);
  int width = 8;
  while (width > 1 && (apart & (width - 1)) != 0) width >>= 1;
  int64_t head = static_cast<int64_t>(-reinterpret_cast<uintptr_t>(d) & (width - 1));
  if (head > n) head = n;
  for (int64_t i = 0; i < head; ++i) d[i] = s[i];
  s += head;
  d += head;
  n -= head;
  uint64_t count = static_cast<uint64_t>(n) / width;
  switch (width) {
    case 8:
      __asm__ volatile("rep movsq" : "+S"(s), "+D"(d), "+c"(count) : : "memory");
      break;
    case 4:
      __asm__ volatile("rep movsl" : "+S"(s), "+D"(d), "+c"(count) : : "memory");
      break;
    case 2:
      __asm__ volatile("rep movsw" : "+S"(s), "+D"(d), "+c"(count) : : "memory");
      break;
    default:
      __asm__ volatile("rep movsb" : "+S"(s), "+D"(d), "+c"(count) : : "memory");
      break;
  }
  uint64_t rest = static_cast<uint64_t>(n) % width;
  __asm__ volatile("rep movsb" : "+S"(s), "+D"(d), "+c"(rest) : : "memory");
}

// n a multiple of 64 and d 64-aligned: from the top down, unaligned loads and
// aligned stores of 32 bytes.
void CopyDown64(const uint8_t* s, uint8_t* d, int64_t n) {
  for (int64_t i = n - 64; i >= 0; i -= 64) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i + 32));
    _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), a);
    _mm256_store_si256(reinterpret_cast<__m256i*>(d + i + 32), b);
  }
}

}  // namespace

void ownCopyShort(const void* source, void* destination, int32_t n) {
  auto* s = static_cast<const uint8_t*>(source);
  auto* d = static_cast<uint8_t*>(destination);
  if (n < 256) {
    CopyBits(s, d, n);
    return;
  }
  if (const int32_t mis = static_cast<int32_t>(reinterpret_cast<uintptr_t>(d) & 31)) {
    Move32(s, d);
    s += 32 - mis;
    d += 32 - mis;
    n -= 32 - mis;
  }
  if (n >= 16384) {
    // Top down: the end first if it is ragged, then 64-byte steps.
    if (n & 63) {
      Move64By16(s + n - 64, d + n - 64);
      n &= ~63;
    }
    for (int32_t i = n - 64; i >= 0; i -= 64) Move64By16(s + i, d + i);
    return;
  }
  int32_t i = 0;
  if ((reinterpret_cast<uintptr_t>(s) & 15) == 0) {
    for (; i + 256 <= n; i += 256) {
      for (int k = 0; k < 256; k += 32) Move32(s + i + k, d + i + k);
    }
  } else {
    for (; i + 64 <= n; i += 64) Move64By16(s + i, d + i);
  }
  CopyBits(s + i, d + i, n - i);
}

void* ownCopyBlock(const void* source, void* destination, int32_t n) {
  auto* s = static_cast<const uint8_t*>(source);
  auto* d = static_cast<uint8_t*>(destination);
  if (n < 32768) {
    ownCopyShort(s, d, n);
    return destination;
  }
  int32_t cache = 0;
  if (n > 0x400000 && primitives::ownGetCacheSize(&cache) == StatusOk && n >= cache / 2) {
    if (const int32_t mis = static_cast<int32_t>(reinterpret_cast<uintptr_t>(d) & 63)) {
      ownCopyShort(s, d, 64 - mis);
      s += 64 - mis;
      d += 64 - mis;
      n -= 64 - mis;
    }
    const int32_t body = n & ~63;
    for (int32_t i = 0; i < body; i += 64) {
      const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
      const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i + 32));
      _mm256_stream_si256(reinterpret_cast<__m256i*>(d + i), a);
      _mm256_stream_si256(reinterpret_cast<__m256i*>(d + i + 32), b);
    }
    ownCopyShort(s + body, d + body, n - body);
    _mm_sfence();
    return destination;
  }
  // The page offsets decide the direction: a destination just above the
  // source within a page would make forward loads wait on the stores before.
  const uint32_t apart = static_cast<uint32_t>((reinterpret_cast<uintptr_t>(d) & 0xFFF) -
                                               (reinterpret_cast<uintptr_t>(s) & 0xFFF));
  if (apart >= 160) {
    CopyStringMoves(s, d, n);
    return destination;
  }
  if (const int32_t end = static_cast<int32_t>((reinterpret_cast<uintptr_t>(d) + n) & 63)) {
    ownCopyShort(s + n - end, d + n - end, end);
    n -= end;
  }
  const int32_t h = n & 63;
  CopyDown64(s + h, d + h, n - h);
  if (h) ownCopyShort(s, d, h);
  return destination;
}

}  // namespace corvane::CORVANE_VARIANT

#endif
