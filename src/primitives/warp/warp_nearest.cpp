// Nearest-neighbour sampling on the affine road, three 8-bit channels: the
// loop behind every crop and scale. Built once per code path; every path runs
// the same double arithmetic, so all give the same bytes.
//
// Each row first turns its accumulated positions into source byte offsets in
// the work area (which holds two floats for each column of the destination
// rectangle: room for one 64-bit offset per column of any span), then copies
// the pixels by them.
#include <emmintrin.h>

#include <cstdint>
#include <cstring>

#include "primitives/warp/warp_kernels.h"

namespace corvane::CORVANE_VARIANT {
namespace {

void Copy3(const uint8_t* s, uint8_t* d) {
  std::memcpy(d, s, 2);
  d[2] = s[2];
}

// Copies `count` pixels from `s` at the byte offsets given to consecutive
// pixels from `d`. A pixel but the last is moved as four bytes, the fourth
// landing on the next pixel, written after it; `wideLimit` is the first
// offset where reading a fourth byte could leave the source.
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

// A pixel index kept inside 0..last. Positions of the row table lie in the
// source; a transform scaled to the edge of double range can put its
// inverse's arithmetic anywhere (NaN converts to INT32_MIN), and no such
// position may reach outside the image.
int64_t Inside(int64_t index, int64_t last) { return index < 0 ? 0 : index > last ? last : index; }

// Offsets of `count` pixels from the position `acc`, stepping by `step`:
// both coordinates truncated toward zero.
void RowOffsets(__m128d acc, __m128d step, int64_t count, int64_t srcStep, int32_t lastColumn,
                int32_t lastRow, int64_t* offsets) {
  for (int64_t k = 0; k < count; ++k, acc = _mm_add_pd(acc, step)) {
    const int64_t uv = _mm_cvtsi128_si64(_mm_cvttpd_epi32(acc));
    const int64_t u = int32_t(uint64_t(uv)), v = int32_t(uint64_t(uv) >> 32);
    offsets[k] = Inside(v, lastRow) * srcStep + 3 * Inside(u, lastColumn);
  }
}

// u alone, for maps where v stays put along a row.
void ColumnOffsets(__m128d acc, __m128d step, int64_t count, int32_t lastColumn, int64_t* offsets) {
  for (int64_t k = 0; k < count; ++k, acc = _mm_add_sd(acc, step)) {
    offsets[k] = 3 * Inside(_mm_cvttsd_si32(acc), lastColumn);
  }
}

}  // namespace

void ownWarpAffineNearest_8u_C3(const uint8_t* src, uint8_t* dstRow, int32_t srcStep,
                                int32_t dstStep, int32_t yMin, int32_t yMax,
                                const int32_t* rowTable, const double* inverse, int32_t lastColumn,
                                int32_t lastRow, uint8_t* workArea) {
  if (yMax < yMin) return;
  int64_t* const offsets = reinterpret_cast<int64_t*>(workArea);
  // Lane 0 carries u, lane 1 v.
  const __m128d step = _mm_set_pd(inverse[3], inverse[0]);
  const __m128d rowStep = _mm_set_pd(inverse[4], inverse[1]);
  const __m128d half = _mm_set1_pd(0.5);
  __m128d base = _mm_add_pd(_mm_mul_pd(_mm_set1_pd(double(yMin)), rowStep),
                            _mm_set_pd(inverse[5], inverse[2]));
  // Without rotation or shear (i1 = i3 = 0) v stays put along a row, and u
  // of a column is the same on every row whose span starts at the same
  // column: the offsets of a span serve all its rows.
  const bool axisAligned = inverse[1] == 0.0 && inverse[3] == 0.0;
  int32_t tableLeft = 0, tableRight = -1;
  const int64_t rows = int64_t(yMax) - yMin + 1;
  for (int64_t r = 0; r < rows; ++r, dstRow += dstStep) {
    const int32_t left = rowTable[2 * r];
    const int32_t right = rowTable[2 * r + 1];
    const __m128d acc =
        _mm_add_pd(_mm_add_pd(_mm_mul_pd(_mm_set1_pd(double(left)), step), base), half);
    base = _mm_add_pd(base, rowStep);
    if (right < left) continue;
    const int64_t count = int64_t(right) - left + 1;
    uint8_t* const d = dstRow + 3 * int64_t(left);
    if (!axisAligned) {
      RowOffsets(acc, step, count, srcStep, lastColumn, lastRow, offsets);
      // A fourth byte may be read anywhere but at the source's last pixel.
      CopyByOffsets(src, offsets, count, int64_t(lastRow) * srcStep + 3 * int64_t(lastColumn), d);
      continue;
    }
    if (left != tableLeft || right > tableRight) {
      ColumnOffsets(acc, step, count, lastColumn, offsets);
      tableLeft = left;
      tableRight = right;
    }
    const int64_t v = Inside(_mm_cvttsd_si32(_mm_unpackhi_pd(acc, acc)), lastRow);
    const int64_t wideLimit = v < lastRow ? INT64_MAX : 3 * int64_t(lastColumn);
    CopyByOffsets(src + v * srcStep, offsets, count, wideLimit, d);
  }
}

}  // namespace corvane::CORVANE_VARIANT
