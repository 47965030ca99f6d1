// Linear sampling, three 8-bit channels: the affine road's kernel (positions
// in doubles) and the bilinear road's row sampler (positions in floats), on
// one blend of 2x2 pixels by 14-bit weights,
//   top = (a·(16384 - fx) + b·fx) >> 8, bottom likewise one row down,
//   result = (top·(16384 - fy) + bottom·fy + 0x80000) >> 20,
// with iu = trunc(u) (one less in the last column) and fx = (u - iu)·16384
// rounded to nearest; v likewise. Integer sums: every code path gives the
// same bytes. Built once per code path.
#include <immintrin.h>

#include <cstring>

#include "primitives/warp/warp_kernels.h"

namespace corvane::CORVANE_VARIANT {
namespace {

#include "primitives/warp/warp_pixels.inc"
#include "primitives/warp/warp_separable.inc"

// Pixel and weights of a position: (iu, iv) and (fx, fy) in lanes 0 and 1.
// The pixel is kept where it has a neighbour right and below (and inside the
// image whatever the position), the fraction to 0..16384.
struct Split {
  __m128i whole;
  __m128i fraction;
};

WARP_INLINE Split SplitOf(__m128d uv, __m128i lastPair) {
  const __m128i whole = Clamp32(_mm_cvttpd_epi32(uv), _mm_setzero_si128(), lastPair);
  const __m128d f = _mm_mul_pd(_mm_sub_pd(uv, _mm_cvtepi32_pd(whole)), _mm_set1_pd(kOne14));
  return {whole, Clamp32(_mm_cvtpd_epi32(f), _mm_setzero_si128(), _mm_set1_epi32(kOne14))};
}

WARP_INLINE Split SplitOf(__m128 uv, __m128i lastPair) {
  const __m128i whole = Clamp32(_mm_cvttps_epi32(uv), _mm_setzero_si128(), lastPair);
  const __m128 f = _mm_mul_ps(_mm_sub_ps(uv, _mm_cvtepi32_ps(whole)), _mm_set1_ps(kOne14));
  return {whole, Clamp32(_mm_cvtps_epi32(f), _mm_setzero_si128(), _mm_set1_epi32(kOne14))};
}

// The last pixel that has a neighbour right and below, in lanes 0 and 1 (an
// image one pixel wide or high never comes here).
__m128i LastPairOf(const Source& s) {
  return Max32(_mm_setr_epi32(s.lastColumn - 1, s.lastRow - 1, 0, 0), _mm_setzero_si128());
}

// (first, second) weight pairs of lanes 0 and 1 of a split, in lanes 0 and 1.
WARP_INLINE __m128i WeightsOf(const Split& p) {
  return PairUp(_mm_sub_epi32(_mm_set1_epi32(kOne14), p.fraction), p.fraction);
}

WARP_INLINE void Pixel(const Source& s, const Split& p, uint8_t* d, bool widen) {
  const int64_t offset = int64_t(_mm_cvtsi128_si32(_mm_shuffle_epi32(p.whole, 0x55))) * s.step +
                         3 * int64_t(_mm_cvtsi128_si32(p.whole));
  const __m128i w = WeightsOf(p);
  const __m128i across = _mm_shuffle_epi32(w, 0x00), down = _mm_shuffle_epi32(w, 0x55);
  uint8_t spare[2][16];
  const __m128i top =
      _mm_srai_epi32(_mm_madd_epi16(PixelPairs(Reach(s, offset, 6, spare[0])), across), 8);
  const __m128i bottom =
      _mm_srai_epi32(_mm_madd_epi16(PixelPairs(Reach(s, offset + s.step, 6, spare[1])), across), 8);
  Store3(d, Finish20(_mm_madd_epi16(PairUp(top, bottom), down)), widen);
}

// Four pixels, u and v split lane k for pixel k, to the 12 bytes at d (16
// where `widen`, as Store4): the blend of Pixel with the pixels' channels
// side by side.
WARP_INLINE void Four(const Source& s, const Split& u, const Split& v, uint8_t* d, bool widen) {
  alignas(16) int32_t column[4], row[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(column), u.whole);
  _mm_store_si128(reinterpret_cast<__m128i*>(row), v.whole);
  uint8_t spare[8][16];
  const uint8_t* top[4];
  const uint8_t* below[4];
  for (int k = 0; k < 4; ++k) {
    const int64_t offset = int64_t(row[k]) * s.step + 3 * int64_t(column[k]);
    top[k] = Reach(s, offset, 6, spare[k]);
    below[k] = Reach(s, offset + s.step, 6, spare[4 + k]);
  }
  __m128i upper[3], lower[3], out[3];
  PairPlanes(top, upper);
  PairPlanes(below, lower);
  const __m128i across = WeightsOf(u), down = WeightsOf(v);
  const __m128i round = _mm_set1_epi32(0x80000);
  for (int c = 0; c < 3; ++c) {
    const __m128i pairs = PairUp(_mm_srai_epi32(_mm_madd_epi16(upper[c], across), 8),
                                 _mm_srai_epi32(_mm_madd_epi16(lower[c], across), 8));
    out[c] = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(pairs, down), round), 20);
  }
  Store4(d, out, widen);
}

// The separable road's linear mode.
struct LinearMode {
  static constexpr int32_t kTaps = 2;

  static Column ColumnAt(double u, const Source& s) {
    const Split p = SplitOf(_mm_set_sd(u), LastPairOf(s));
    return {3 * int64_t(_mm_cvtsi128_si32(p.whole)), {_mm_cvtsi128_si32(WeightsOf(p)), 0}, true};
  }

  static bool RowAt(double v, const Source& s, int32_t* row, __m128i* down) {
    const Split p = SplitOf(_mm_set_pd(v, 0.0), LastPairOf(s));
    *row = _mm_cvtsi128_si32(_mm_shuffle_epi32(p.whole, 0x55));
    *down = _mm_shuffle_epi32(WeightsOf(p), 0x55);
    return true;
  }

  static void Across(const Source& s, int64_t rowOffset, const Column* columns, int32_t n,
                     int16_t* out) {
    uint8_t spare[16];
    for (int32_t k = 0; k < n; ++k) {
      const __m128i pairs = PixelPairs(Reach(s, rowOffset + columns[k].offset, 6, spare));
      const __m128i sum =
          _mm_srai_epi32(_mm_madd_epi16(pairs, _mm_set1_epi32(columns[k].weights[0])), 8);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 3 * k), _mm_packs_epi32(sum, sum));
    }
  }

  static void Down(const int16_t* const* taps, __m128i down, int32_t elements, uint8_t* d) {
    const __m128i round = _mm_set1_epi32(0x80000);
    for (int32_t e = 0; e < elements; e += 8) {
      const __m128i t = _mm_loadu_si128(reinterpret_cast<const __m128i*>(taps[0] + e));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(taps[1] + e));
      const __m128i lo =
          _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(t, b), down), round), 20);
      const __m128i hi =
          _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(t, b), down), round), 20);
      const __m128i words = _mm_packs_epi32(lo, hi);
      const __m128i bytes = _mm_packus_epi16(words, words);
      StoreUpTo8(d + e, bytes, elements - e);
    }
  }
};

}  // namespace

void ownWarpAffineLinear_8u_C3(const uint8_t* src, uint8_t* dstRow, int32_t srcStep,
                               int32_t dstStep, int32_t yMin, int32_t yMax, const int32_t* rowTable,
                               const double* inverse, int32_t lastColumn, int32_t lastRow,
                               uint8_t*) {
  if (yMax < yMin) return;
  const Source s = SourceOf(src, srcStep, lastColumn, lastRow);
  if (IsSeparable(inverse)) {
    Separable<LinearMode>(s, inverse).Run(dstRow, dstStep, yMin, yMax, rowTable);
    return;
  }
  const __m128i lastPair = LastPairOf(s);
  ForEachRow(inverse, dstRow, dstStep, yMin, yMax, rowTable,
             [&](__m128d acc, __m128d step, int32_t left, int32_t right, uint8_t* row) {
               uint8_t* d = row + 3 * int64_t(left);
               for (int64_t x = left; x <= right; ++x, d += 3, acc = _mm_add_pd(acc, step))
                 Pixel(s, SplitOf(acc, lastPair), d, x < right);
             });
}

void ownWarpRowLinear_8u_C3(const uint8_t* src, int32_t srcStep, int32_t lastColumn,
                            int32_t lastRow, const float* u, const float* v, int32_t count,
                            uint8_t* dst) {
  const Source s = SourceOf(src, srcStep, lastColumn, lastRow);
  const __m128i lastPair = LastPairOf(s);
  const __m128i lastU = _mm_shuffle_epi32(lastPair, 0x00),
                lastV = _mm_shuffle_epi32(lastPair, 0x55);
  int32_t k = 0;
  for (; k + 4 <= count; k += 4, dst += 12)
    Four(s, SplitOf(_mm_loadu_ps(u + k), lastU), SplitOf(_mm_loadu_ps(v + k), lastV), dst,
         k + 6 <= count);
  for (; k < count; ++k, dst += 3) {
    const __m128 uv = _mm_unpacklo_ps(_mm_load_ss(u + k), _mm_load_ss(v + k));
    Pixel(s, SplitOf(uv, lastPair), dst, k + 1 < count);
  }
}

}  // namespace corvane::CORVANE_VARIANT
