// Catmull-Rom sampling on the affine road, three 8-bit channels: 4x4 pixels
// around each position, rows and columns past the image's edges clamped to
// its last ones. Built once per code path, in floating point: m7 in scalar
// doubles, the others in single precision with the three channels packed,
// l9 and k0 with fused multiply-add where Fma says so. Each path is exact
// against the same sums done plainly in its precision; paths differ from each
// other by rounding.
//
// iu = trunc(u + 1e-7) and t = u - iu; the weights of the columns
// iu - 1 .. iu + 2 are
//   (-0.5t² - 0.5)t + t²,  (1.5t - 2.5)t² + 1,  (-1.5t² + 2t + 0.5)t,  (t² - t)t·0.5,
// rows likewise. A result above 255 gives 255, below 0 gives 0, else
// trunc(result + 0.5).
#include <immintrin.h>

#include <cmath>
#include <cstring>

#include "primitives/warp/warp_kernels.h"

namespace corvane::CORVANE_VARIANT {
namespace {

#include "primitives/warp/warp_pixels.inc"

#if CORVANE_VARIANT_INDEX == 0
using Real = double;
#else
using Real = float;
#endif

// a·b + c, fused on the paths that have it. The builtin, not std::fma: an
// unoptimised build emits the library's inline overload as a shared symbol,
// which would carry this path's instructions out of its unit.
WARP_INLINE Real Fma(Real a, Real b, Real c) {
#if CORVANE_VARIANT_INDEX >= 4
  return __builtin_fmaf(a, b, c);
#else
  return a * b + c;
#endif
}

WARP_INLINE void Weights(Real t, Real* w) {
  const Real t2 = t * t;
  w[0] = Fma(Fma(Real(-0.5), t2, Real(-0.5)), t, t2);
  w[1] = Fma(Fma(Real(1.5), t, Real(-2.5)), t2, Real(1));
  w[2] = (Fma(Real(-1.5), t2, Real(2) * t) + Real(0.5)) * t;
  w[3] = Fma(t, t, -t) * t * Real(0.5);
}

// Byte offsets of the four rows (or columns, times 3) of a block from its
// first, clamped to 0..last.
WARP_INLINE void Clamped(int64_t first, int64_t last, int64_t scale, int64_t* at) {
  for (int32_t i = 0; i < 4; ++i) {
    const int64_t p = first + i;
    at[i] = (p < 0 ? 0 : p > last ? last : p) * scale;
  }
}

// A NaN (a position the coefficients put nowhere) gives 0, as below the range.
WARP_INLINE uint8_t Finish(Real value) {
  if (value > Real(255)) return 255;
  if (!(value >= Real(0))) return 0;
  return uint8_t(int32_t(value + Real(0.5)));
}

#if CORVANE_VARIANT_INDEX == 0
WARP_INLINE void Blend(const Source& s, const int64_t* rows, const int64_t* columns, const Real* wx,
                       const Real* wy, uint8_t* d) {
  for (int32_t c = 0; c < 3; ++c) {
    Real value = 0;
    for (int32_t j = 0; j < 4; ++j) {
      const uint8_t* p = s.data + rows[j] + c;
      Real h = wx[0] * p[columns[0]];
      for (int32_t i = 1; i < 4; ++i) h = Fma(wx[i], p[columns[i]], h);
      value = j == 0 ? wy[0] * h : Fma(wy[j], h, value);
    }
    d[c] = Finish(value);
  }
}
#else
// The pixel at p as floats (b, g, r, 0).
WARP_INLINE __m128 PixelAt(const uint8_t* p) {
  uint32_t bytes = p[2];
  bytes = bytes << 16 | uint32_t(p[1]) << 8 | p[0];
  const __m128i v = _mm_cvtsi32_si128(int32_t(bytes));
  const __m128i zero = _mm_setzero_si128();
  return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(v, zero), zero));
}

WARP_INLINE __m128 FmaPs(__m128 a, __m128 b, __m128 c) {
#if CORVANE_VARIANT_INDEX >= 4
  return _mm_fmadd_ps(a, b, c);
#else
  return _mm_add_ps(_mm_mul_ps(a, b), c);
#endif
}

WARP_INLINE void Blend(const Source& s, const int64_t* rows, const int64_t* columns, const Real* wx,
                       const Real* wy, uint8_t* d) {
  __m128 value = _mm_setzero_ps();
  for (int32_t j = 0; j < 4; ++j) {
    const uint8_t* p = s.data + rows[j];
    __m128 h = _mm_mul_ps(_mm_set1_ps(wx[0]), PixelAt(p + columns[0]));
    for (int32_t i = 1; i < 4; ++i) h = FmaPs(_mm_set1_ps(wx[i]), PixelAt(p + columns[i]), h);
    value = j == 0 ? _mm_mul_ps(_mm_set1_ps(wy[0]), h) : FmaPs(_mm_set1_ps(wy[j]), h, value);
  }
  alignas(16) float out[4];
  _mm_store_ps(out, value);
  for (int32_t c = 0; c < 3; ++c) d[c] = Finish(out[c]);
}
#endif

}  // namespace

void ownWarpAffineCatmullRom_8u_C3(const uint8_t* src, uint8_t* dstRow, int32_t srcStep,
                                   int32_t dstStep, int32_t yMin, int32_t yMax,
                                   const int32_t* rowTable, const double* inverse,
                                   int32_t lastColumn, int32_t lastRow, uint8_t*) {
  if (yMax < yMin) return;
  const Source s = SourceOf(src, srcStep, lastColumn, lastRow);
  const __m128d nudge = _mm_set1_pd(1e-7);
  ForEachRow(inverse, dstRow, dstStep, yMin, yMax, rowTable,
             [&](__m128d acc, __m128d step, int32_t left, int32_t right, uint8_t* row) {
               uint8_t* d = row + 3 * int64_t(left);
               for (int64_t x = left; x <= right; ++x, d += 3, acc = _mm_add_pd(acc, step)) {
                 const __m128i whole = _mm_cvttpd_epi32(_mm_add_pd(acc, nudge));
                 alignas(16) double t[2];
                 _mm_store_pd(t, _mm_sub_pd(acc, _mm_cvtepi32_pd(whole)));
                 const int64_t iu = _mm_cvtsi128_si32(whole);
                 const int64_t iv = _mm_cvtsi128_si32(_mm_shuffle_epi32(whole, 0x55));
                 Real wx[4], wy[4];
                 Weights(Real(t[0]), wx);
                 Weights(Real(t[1]), wy);
                 int64_t at[4], columns[4];
                 Clamped(iv - 1, lastRow, s.step, at);
                 Clamped(iu - 1, lastColumn, 3, columns);
                 Blend(s, at, columns, wx, wy, d);
               }
             });
}

}  // namespace corvane::CORVANE_VARIANT
