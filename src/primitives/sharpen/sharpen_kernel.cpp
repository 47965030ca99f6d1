// The sharpen kernel of one code path. The 3x3 sum is separable: each row the
// three source rows are added once per column into the line, and each output
// adds three columns of the line, which costs four additions a byte instead
// of eight. Sums stay in 16 bits (at most 9 * 255), and v = 17 * p - S never
// goes below 0 nor above 17 * 255, so every path gives the same bytes as the
// scalar form whatever its vector width.
//
// A vector of bytes is worked on as its even and its odd bytes, each a 16-bit
// lane in place: no byte ever moves across lanes, so no shuffle is needed to
// widen or narrow, and k0 runs on 512 bits as cheaply as l9 on 256. The line
// keeps the column sums the same way, even columns then odd ones, so that the
// three columns of an output are three plain loads: for an even output 2m
// they are even[m], odd[m + 1] and even[m + 3], for an odd one odd[m],
// even[m + 2] and odd[m + 3].
#include <immintrin.h>

#include "primitives/sharpen/sharpen.h"

namespace corvane::CORVANE_VARIANT {
namespace {

#include "primitives/core/simd_wide.inc"

constexpr int32_t kBytes = sizeof(V);

// (v + 4) / 8, as the rounding multiply by 2^12 gives it from SSSE3 on.
#if CORVANE_VARIANT_INDEX >= 1
CORVANE_WIDE_INLINE V RoundedEighth(V v) { return MulHighRounded(v, Splat(4096)); }
#else
CORVANE_WIDE_INLINE V RoundedEighth(V v) { return ShiftRight<3>(Add(v, Splat(4))); }
#endif

// Less 1 where v is 4 modulo 16: the ties, which go to the even quotient.
CORVANE_WIDE_INLINE V TieToEven(V r, V v) { return Add(r, Equal(And(v, Splat(15)), Splat(4))); }

// The even and odd bytes of a vector, each in the low half of its lane.
CORVANE_WIDE_INLINE V Even(V bytes) { return And(bytes, Splat(0xFF)); }
CORVANE_WIDE_INLINE V Odd(V bytes) { return ShiftRight<8>(bytes); }

// 17 times the even or the odd bytes: one byte product from SSSE3 on, whose
// weights are 17 for the bytes wanted and 0 for the others.
#if CORVANE_VARIANT_INDEX >= 1
CORVANE_WIDE_INLINE V Times17Even(V bytes) { return PairProducts(bytes, Splat(17)); }
CORVANE_WIDE_INLINE V Times17Odd(V bytes) { return PairProducts(bytes, Splat(17 << 8)); }
#else
CORVANE_WIDE_INLINE V Times17Even(V bytes) { return Add(ShiftLeft<4>(Even(bytes)), Even(bytes)); }
CORVANE_WIDE_INLINE V Times17Odd(V bytes) { return Add(ShiftLeft<4>(Odd(bytes)), Odd(bytes)); }
#endif

// 17 * p - s limited at 0, then divided by 8 to nearest with ties to even,
// limited at 255.
CORVANE_WIDE_INLINE V Sharpened(V p17, V s) {
  const V v = SubLimited(p17, s);
  return Min(TieToEven(RoundedEighth(v), v), Splat(255));
}

uint8_t SharpenedByte(int32_t p, int32_t s) {
  int32_t v = 17 * p - s;
  if (v < 0) v = 0;
  const int32_t r = ((v + 4) >> 3) - ((v & 15) == 4);
  return static_cast<uint8_t>(r > 255 ? 255 : r);
}

// The column sums of one output row, `sums` of them from byte offset -3, even
// ones at `even`, odd ones at `odd`. A vector's worth starts on an even
// column; the last laid back over the one before, and an odd last column
// alone, so that nothing past the rows is read.
void ColumnSums(const uint8_t* above, const uint8_t* row, const uint8_t* below, int32_t sums,
                uint16_t* even, uint16_t* odd) {
  above -= 3, row -= 3, below -= 3;
  auto block = [&](int32_t j) {
    const V a = Load(above + j), b = Load(row + j), c = Load(below + j);
    Store(even + j / 2, Add(Add(Even(a), Even(b)), Even(c)));
    Store(odd + j / 2, Add(Add(Odd(a), Odd(b)), Odd(c)));
  };
  int32_t j = 0;
  if (sums >= kBytes) {
    for (; j + kBytes <= sums; j += kBytes) block(j);
    if (j < sums) block((sums - kBytes) & ~1);
    j = sums & ~1;
  }
  for (; j < sums; ++j) {
    const uint16_t sum = uint16_t(above[j] + row[j] + below[j]);
    if (j & 1) {
      odd[j >> 1] = sum;
    } else {
      even[j >> 1] = sum;
    }
  }
}

// The column sum k of the line.
int32_t Sum(const uint16_t* even, const uint16_t* odd, int32_t k) {
  return k & 1 ? odd[k >> 1] : even[k >> 1];
}

// One output row of `bytes` bytes from the column sums, in the same manner.
void Outputs(const uint8_t* row, uint8_t* out, int32_t bytes, const uint16_t* even,
             const uint16_t* odd) {
  auto block = [&](int32_t i) {
    const V p = Load(row + i);
    const uint16_t *e = even + i / 2, *o = odd + i / 2;
    const V evens = Sharpened(Times17Even(p), Add(Add(Load(e), Load(o + 1)), Load(e + 3)));
    const V odds = Sharpened(Times17Odd(p), Add(Add(Load(o), Load(e + 2)), Load(o + 3)));
    Store(out + i, Or(evens, ShiftLeft<8>(odds)));
  };
  int32_t i = 0;
  if (bytes >= kBytes) {
    for (; i + kBytes <= bytes; i += kBytes) block(i);
    if (i < bytes) block((bytes - kBytes) & ~1);
    i = bytes & ~1;
  }
  for (; i < bytes; ++i) {
    out[i] =
        SharpenedByte(row[i], Sum(even, odd, i) + Sum(even, odd, i + 3) + Sum(even, odd, i + 6));
  }
}

}  // namespace

void ownSharpenKernel_8u_C3R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                             ImageSize roi, ImageSize, uint8_t* work) {
  const int32_t sums = 3 * roi.width + 6;
  uint16_t* even = reinterpret_cast<uint16_t*>(work);
  uint16_t* odd = even + (sums + 1) / 2;
  for (int32_t y = 0; y < roi.height; ++y) {
    const uint8_t* row = src + intptr_t{y} * srcStep;
    ColumnSums(row - srcStep, row, row + srcStep, sums, even, odd);
    Outputs(row, dst + intptr_t{y} * dstStep, 3 * roi.width, even, odd);
  }
}

}  // namespace corvane::CORVANE_VARIANT
