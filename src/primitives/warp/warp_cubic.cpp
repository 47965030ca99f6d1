// Cubic sampling, three 8-bit channels: Lagrange's polynomial through 4x4
// pixels, on float positions. The row sampler serves both roads; the affine
// road's kernel writes each row's positions into the work area first, or,
// without rotation or shear, goes the separable road. Integer sums: every code
// path gives the same bytes. Built once per code path.
//
// Per axis, iu = trunc(u) limited to width - 3, then one less above 0; the
// four columns are iu..iu + 3, and k = (u - iu)·512 rounded picks the weights
// of the first two from the table, those of the last two from entry 1536 - k.
// Sums across are shifted right by 8, the sum down gets 0x80000 and is
// shifted right by 20 and limited to 0..255. A position outside
// (-1, -1)..(width, height) leaves its pixel unwritten.
#include <immintrin.h>

#include <cstring>

#include "primitives/warp/warp_kernels.h"

namespace corvane::CORVANE_VARIANT {
namespace {

#include "primitives/warp/warp_pixels.inc"
#include "primitives/warp/warp_separable.inc"

constexpr int32_t kSteps = 1536;  // k runs over 0..1536, s = k/512 - 1 over -1..2

constexpr int32_t Rounded(double x) {
  const double a = x < 0 ? -x : x;
  const int32_t whole = int32_t(a);
  const int32_t r = whole + (a - whole >= 0.5 ? 1 : 0);
  return x < 0 ? -r : r;
}

// Entry k: the weights of the samples at offsets -1 and 0 from s,
// L0(s) = -s(s - 1)(s - 2)/6 and L1(s) = (s + 1)(s - 1)(s - 2)/2, scaled by
// 16384, as a pair (L0, L1).
struct LagrangeTable {
  int32_t pair[kSteps + 1];
};

constexpr LagrangeTable MakeLagrange() {
  LagrangeTable t{};
  for (int32_t k = 0; k <= kSteps; ++k) {
    const double s = k / 512.0 - 1.0;
    const double l0 = -s * (s - 1) * (s - 2) / 6, l1 = (s + 1) * (s - 1) * (s - 2) / 2;
    t.pair[k] = WeightPair(Rounded(l0 * kOne14), Rounded(l1 * kOne14));
  }
  return t;
}

constexpr LagrangeTable kLagrange = MakeLagrange();

// Whether a pixel at (u, v) is drawn: inside (-1, -1)..(width, height).
WARP_INLINE bool Drawn(__m128 uv, const Source& s) {
  const __m128 lo = _mm_set1_ps(-1.0f);
  const __m128 hi = _mm_setr_ps(float(s.lastColumn + 1.0), float(s.lastRow + 1.0), 0, 0);
  const __m128 in = _mm_and_ps(_mm_cmpge_ps(uv, lo), _mm_cmple_ps(uv, hi));
  return (_mm_movemask_ps(in) & 3) == 3;
}

// First pixel (iu, iv) and table entry (ku, kv) of a position, lanes 0 and 1.
struct Split {
  __m128i whole;
  __m128i k;
};

WARP_INLINE Split SplitOf(__m128 uv, const Source& s) {
  const __m128i zero = _mm_setzero_si128();
  __m128i whole =
      Min32(_mm_cvttps_epi32(uv), _mm_setr_epi32(s.lastColumn - 2, s.lastRow - 2, 0, 0));
  whole = Max32(_mm_add_epi32(whole, _mm_cmpgt_epi32(whole, zero)), zero);
  const __m128 f = _mm_mul_ps(_mm_sub_ps(uv, _mm_cvtepi32_ps(whole)), _mm_set1_ps(512.0f));
  return {whole, Clamp32(_mm_cvtps_epi32(f), zero, _mm_set1_epi32(kSteps))};
}

// Weight pairs of a table entry: (first, second) in lane 0, (fourth, third) in
// lane 1, to go with the pixel pairs of QuadPairs.
WARP_INLINE __m128i WeightsOf(int32_t k) {
  return _mm_setr_epi32(kLagrange.pair[k], kLagrange.pair[kSteps - k], 0, 0);
}

// Four pixels from p on, across: three 32-bit sums >> 8.
WARP_INLINE __m128i Across4(const uint8_t* p, __m128i weights) {
  __m128i first, last;
  QuadPairs(p, &first, &last);
  const __m128i sum = _mm_add_epi32(_mm_madd_epi16(first, _mm_shuffle_epi32(weights, 0x00)),
                                    _mm_madd_epi16(last, _mm_shuffle_epi32(weights, 0x55)));
  return _mm_srai_epi32(sum, 8);
}

WARP_INLINE void Pixel(const Source& s, const Split& p, uint8_t* d) {
  const int32_t iu = _mm_cvtsi128_si32(p.whole);
  const int32_t iv = _mm_cvtsi128_si32(_mm_shuffle_epi32(p.whole, 0x55));
  const __m128i across = WeightsOf(_mm_cvtsi128_si32(p.k));
  const __m128i down = WeightsOf(_mm_cvtsi128_si32(_mm_shuffle_epi32(p.k, 0x55)));
  int64_t offset = int64_t(iv) * s.step + 3 * int64_t(iu);
  uint8_t spare[16];
  __m128i h[4];
  for (int32_t j = 0; j < 4; ++j, offset += s.step) {
    h[j] = Across4(Reach(s, offset, 12, spare), across);
  }
  const __m128i sum =
      _mm_add_epi32(_mm_madd_epi16(PairUp(h[0], h[1]), _mm_shuffle_epi32(down, 0x00)),
                    _mm_madd_epi16(PairUp(h[3], h[2]), _mm_shuffle_epi32(down, 0x55)));
  Store3(d, Finish20(sum), false);
}

// The separable road's cubic mode.
struct CubicMode {
  static constexpr int32_t kTaps = 4;

  static Column ColumnAt(double u, const Source& s) {
    const __m128 uv = _mm_setr_ps(float(u), 0.0f, 0.0f, 0.0f);
    const Split p = SplitOf(uv, s);
    const int32_t k = _mm_cvtsi128_si32(p.k);
    return {3 * int64_t(_mm_cvtsi128_si32(p.whole)),
            {kLagrange.pair[k], kLagrange.pair[kSteps - k]},
            Drawn(uv, s)};
  }

  static bool RowAt(double v, const Source& s, int32_t* row, __m128i* down) {
    const __m128 uv = _mm_setr_ps(0.0f, float(v), 0.0f, 0.0f);
    const Split p = SplitOf(uv, s);
    *row = _mm_cvtsi128_si32(_mm_shuffle_epi32(p.whole, 0x55));
    *down = WeightsOf(_mm_cvtsi128_si32(_mm_shuffle_epi32(p.k, 0x55)));
    return Drawn(uv, s);
  }

  static void Across(const Source& s, int64_t rowOffset, const Column* columns, int32_t n,
                     int16_t* out) {
    uint8_t spare[16];
    for (int32_t k = 0; k < n; ++k) {
      const __m128i w = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(columns[k].weights));
      const __m128i sum = Across4(Reach(s, rowOffset + columns[k].offset, 12, spare), w);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 3 * k), _mm_packs_epi32(sum, sum));
    }
  }

  static void Down(const int16_t* const* taps, __m128i down, int32_t elements, uint8_t* d) {
    const __m128i first = _mm_shuffle_epi32(down, 0x00), last = _mm_shuffle_epi32(down, 0x55);
    const __m128i round = _mm_set1_epi32(0x80000);
    for (int32_t e = 0; e < elements; e += 8) {
      __m128i t[4];
      for (int32_t j = 0; j < 4; ++j) {
        t[j] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(taps[j] + e));
      }
      const __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(t[0], t[1]), first),
                                       _mm_madd_epi16(_mm_unpacklo_epi16(t[3], t[2]), last));
      const __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(t[0], t[1]), first),
                                       _mm_madd_epi16(_mm_unpackhi_epi16(t[3], t[2]), last));
      const __m128i words = _mm_packs_epi32(_mm_srai_epi32(_mm_add_epi32(lo, round), 20),
                                            _mm_srai_epi32(_mm_add_epi32(hi, round), 20));
      const __m128i bytes = _mm_packus_epi16(words, words);
      StoreUpTo8(d + e, bytes, elements - e);
    }
  }
};

void SampleRow(const Source& s, const float* u, const float* v, int32_t count, uint8_t* dst) {
  for (int32_t k = 0; k < count; ++k, dst += 3) {
    const __m128 uv = _mm_unpacklo_ps(_mm_load_ss(u + k), _mm_load_ss(v + k));
    if (Drawn(uv, s)) Pixel(s, SplitOf(uv, s), dst);
  }
}

}  // namespace

void ownWarpRowCubic_8u_C3(const uint8_t* src, int32_t srcStep, int32_t lastColumn, int32_t lastRow,
                           const float* u, const float* v, int32_t count, uint8_t* dst) {
  SampleRow(SourceOf(src, srcStep, lastColumn, lastRow), u, v, count, dst);
}

void ownWarpAffineCubic_8u_C3(const uint8_t* src, uint8_t* dstRow, int32_t srcStep, int32_t dstStep,
                              int32_t yMin, int32_t yMax, const int32_t* rowTable,
                              const double* inverse, int32_t lastColumn, int32_t lastRow,
                              uint8_t* workArea) {
  if (yMax < yMin) return;
  const Source s = SourceOf(src, srcStep, lastColumn, lastRow);
  if (IsSeparable(inverse)) {
    Separable<CubicMode>(s, inverse).Run(dstRow, dstStep, yMin, yMax, rowTable);
    return;
  }
  ForEachRow(inverse, dstRow, dstStep, yMin, yMax, rowTable,
             [&](__m128d acc, __m128d step, int32_t left, int32_t right, uint8_t* row) {
               if (right < left) return;
               // The row's positions as floats: all u, then all v.
               const int32_t count = right - left + 1;
               float* u = reinterpret_cast<float*>(workArea);
               float* v = u + count;
               for (int32_t k = 0; k < count; ++k, acc = _mm_add_pd(acc, step)) {
                 const __m128 uv = _mm_cvtpd_ps(acc);
                 _mm_store_ss(u + k, uv);
                 _mm_store_ss(v + k, _mm_shuffle_ps(uv, uv, 1));
               }
               SampleRow(s, u, v, count, row + 3 * int64_t(left));
             });
}

}  // namespace corvane::CORVANE_VARIANT
