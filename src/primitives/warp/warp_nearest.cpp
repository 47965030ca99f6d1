// Nearest-neighbour sampling on the affine road, three 8-bit channels: the
// loop behind every crop and scale. Built once per code path; every path runs
// the same double arithmetic, so all give the same bytes.
#include <emmintrin.h>

#include <cstdint>
#include <cstring>

#include "primitives/warp/warp_nearest.h"

namespace corvane::CORVANE_VARIANT {
namespace {

// Byte offset of the source pixel at the truncated position (u, v).
int64_t SourceOffset(__m128d position, int64_t srcStep) {
  const int64_t uv = _mm_cvtsi128_si64(_mm_cvttpd_epi32(position));
  const int64_t u = int32_t(uint64_t(uv));
  const int64_t v = int32_t(uint64_t(uv) >> 32);
  return v * srcStep + 3 * u;
}

void Copy3(const uint8_t* s, uint8_t* d) {
  std::memcpy(d, s, 2);
  d[2] = s[2];
}


// Copies `count` pixels from the source row `s` at the byte offsets given,
// to consecutive pixels from `d`. A pixel but the last is moved as four
// bytes, the fourth landing on the next pixel, written after it; `wideLimit`
// is the first offset where reading a fourth byte would leave the source.
void CopyByOffsets(const uint8_t* s, const int64_t* offsets, int64_t count, int64_t wideLimit,
                   uint8_t* d) {
  int64_t k = 0;
  for (; k + 1 < count; ++k, d += 3) {
    if (offsets[k] < wideLimit) {
      uint32_t pixel;
      std::memcpy(&pixel, s + offsets[k], 4);
      std::memcpy(d, &pixel, 4);
    } else {
      Copy3(s + offsets[k], d);
    }
  }
  Copy3(s + offsets[k], d);
}

// Rows of a map without rotation or shear (i1 = i3 = 0): v stays put along a
// row and the u of a column is the same on every row that starts at the same
// column, so the accumulated u of a span is truncated once into `offsets` and
// used by every row of that span. Same sums as the general loop, same bytes.
void AxisAlignedRows(const uint8_t* src, uint8_t* dstRow, int32_t srcStep, int32_t dstStep,
                     int64_t rows, const int32_t* rowTable, __m128d step, __m128d rowStep,
                     __m128d base, int32_t lastColumn, int32_t lastRow, int64_t* offsets) {
  const __m128d half = _mm_set1_pd(0.5);
  int32_t tableLeft = 0, tableRight = -1;
  for (int64_t r = 0; r < rows; ++r, dstRow += dstStep) {
    const int32_t left = rowTable[2 * r];
    const int32_t right = rowTable[2 * r + 1];
    __m128d acc = _mm_add_pd(_mm_add_pd(_mm_mul_pd(_mm_set1_pd(double(left)), step), base), half);
    base = _mm_add_pd(base, rowStep);
    if (right < left) continue;
    if (left != tableLeft || right > tableRight) {
      __m128d u = acc;
      for (int64_t k = 0; k <= int64_t(right) - left; ++k, u = _mm_add_sd(u, step)) {
        offsets[k] = 3 * int64_t(_mm_cvttsd_si32(u));
      }
      tableLeft = left;
      tableRight = right;
    }
    const int64_t v = _mm_cvttsd_si32(_mm_unpackhi_pd(acc, acc));
    // Only the last source row ends where a fourth byte may not be read.
    const int64_t wideLimit = v < lastRow ? INT64_MAX : 3 * int64_t(lastColumn);
    CopyByOffsets(src + v * srcStep, offsets, int64_t(right) - left + 1, wideLimit,
                  dstRow + 3 * int64_t(left));
  }
}
}  // namespace

void ownWarpAffineNearest_8u_C3(const uint8_t* src, uint8_t* dstRow, int32_t srcStep,
                                int32_t dstStep, int32_t yMin, int32_t yMax,
                                const int32_t* rowTable, const double* inverse,
                                int32_t lastColumn, int32_t lastRow, uint8_t* workArea) {
  if (yMax < yMin) return;
  // Lane 0 carries u, lane 1 v.
  const __m128d step = _mm_set_pd(inverse[3], inverse[0]);
  const __m128d rowStep = _mm_set_pd(inverse[4], inverse[1]);
  const __m128d half = _mm_set1_pd(0.5);
  __m128d base = _mm_add_pd(_mm_mul_pd(_mm_set1_pd(double(yMin)), rowStep),
                            _mm_set_pd(inverse[5], inverse[2]));
  // A four-byte move may read one byte past a pixel only where that byte is
  // still inside the source: anywhere but at its very last pixel.
  const int64_t wideLimit = int64_t(lastRow) * srcStep + 3 * int64_t(lastColumn);
  const int64_t rows = int64_t(yMax) - yMin + 1;
  if (inverse[1] == 0.0 && inverse[3] == 0.0) {
    // The work area holds two floats for each column of the destination
    // rectangle: room for one offset per column of any span.
    AxisAlignedRows(src, dstRow, srcStep, dstStep, rows, rowTable, step, rowStep, base, lastColumn,
                    lastRow, reinterpret_cast<int64_t*>(workArea));
    return;
  }
  for (int64_t r = 0; r < rows; ++r, dstRow += dstStep) {
    const int32_t left = rowTable[2 * r];
    const int32_t right = rowTable[2 * r + 1];
    __m128d acc = _mm_add_pd(_mm_add_pd(_mm_mul_pd(_mm_set1_pd(double(left)), step), base), half);
    base = _mm_add_pd(base, rowStep);
    if (right < left) continue;
    uint8_t* d = dstRow + 3 * int64_t(left);
    uint8_t* const lastPixel = dstRow + 3 * int64_t(right);
    // Every pixel but the span's last is stored as four bytes; the fourth
    // lands on the next pixel, which is written after it.
    for (; d < lastPixel; d += 3) {
      const int64_t offset = SourceOffset(acc, srcStep);
      acc = _mm_add_pd(acc, step);
      if (offset < wideLimit) {
        uint32_t pixel;
        std::memcpy(&pixel, src + offset, 4);
        std::memcpy(d, &pixel, 4);
      } else {
        Copy3(src + offset, d);
      }
    }
    Copy3(src + SourceOffset(acc, srcStep), d);
  }
}

}  // namespace corvane::CORVANE_VARIANT
