// The kernels of the warp's two roads, their row samplers and the smooth-edge
// pass, one build per code path. Safe to include from a kernel unit:
// declarations only.
//
// A kernel draws rows yMin..yMax of the destination, starting at dstFirstRow
// (row yMin), each over the span of its row-table pair (first, last column,
// absolute), and leaves every other pixel as it was. lastColumn and lastRow
// are the source image's last column and row. workArea is 64-byte aligned and
// holds 8 bytes for each column of the destination rectangle, as the warp
// sizing provides: two float arrays of one row.
#pragma once

#include <cstdint>

#include "primitives/core/variants.h"
#include "primitives/warp/warp_geometry.h"

// Affine road: the source position of destination pixel (X, Y) is
// u = i0·X + i1·Y + i2, v = i3·X + i4·Y + i5 (`inverse`), accumulated in
// doubles along the row and down the rows.
#define CORVANE_WARP_AFFINE_KERNEL(name)                                                         \
  CORVANE_DECLARE_VARIANTS(                                                                      \
      void, name,                                                                                \
      (const uint8_t* src, uint8_t* dstFirstRow, int32_t srcStep, int32_t dstStep, int32_t yMin, \
       int32_t yMax, const int32_t* rowTable, const double* inverse, int32_t lastColumn,         \
       int32_t lastRow, uint8_t* workArea))
CORVANE_WARP_AFFINE_KERNEL(ownWarpAffineNearest_8u_C3)     // slot 4: one sample, + 0.5, trunc
CORVANE_WARP_AFFINE_KERNEL(ownWarpAffineLinear_8u_C3)      // slot 5: 2x2, 14-bit weights
CORVANE_WARP_AFFINE_KERNEL(ownWarpAffineCubic_8u_C3)       // slot 6: 4x4 Lagrange, float positions
CORVANE_WARP_AFFINE_KERNEL(ownWarpAffineCatmullRom_8u_C3)  // slot 7: 4x4 Catmull-Rom, edges clamped

namespace corvane {

// The inverse of a bilinear map with x·y terms: eleven parameters, the way
// the quadratic is solved (0 both ways, 1 and 2 with one pair of opposite
// edges parallel, 3 with both) and the sign of its root.
struct BilinearInverse {
  double p[11];
  int32_t solveMode;
  int32_t rootSign;
};

}  // namespace corvane

// The parameters of the inverse for the picture `quad` of the rectangle
// `rect`, whose corners run clockwise on screen when orientation is 1.
CORVANE_DECLARE_VARIANTS(void, ownBilinearInverse,
                         (const double* quad, corvane::RectCorners rect, int32_t orientation,
                          corvane::BilinearInverse* inverse))

// Bilinear road: each row's source positions go as floats into the work area
// (all u, then all v), then the mode's row sampler runs over them.
#define CORVANE_WARP_BILINEAR_KERNEL(name)                                                       \
  CORVANE_DECLARE_VARIANTS(                                                                      \
      void, name,                                                                                \
      (const uint8_t* src, uint8_t* dstFirstRow, int32_t srcStep, int32_t dstStep, int32_t yMin, \
       int32_t yMax, const int32_t* rowTable, const corvane::BilinearInverse* inverse,           \
       uint8_t* workArea, int32_t lastColumn, int32_t lastRow))
CORVANE_WARP_BILINEAR_KERNEL(ownWarpBilinearNearest_8u_C3)  // slot 3
CORVANE_WARP_BILINEAR_KERNEL(ownWarpBilinearLinear_8u_C3)   // slot 4
CORVANE_WARP_BILINEAR_KERNEL(ownWarpBilinearCubic_8u_C3)    // slot 5

// Row samplers: `count` destination pixels from `dst` on, pixel k taking the
// source at (u[k], v[k]). Nearest rounds to the nearest pixel, ties to even;
// linear blends 2x2 pixels by 14-bit weights; cubic blends 4x4 by Lagrange's
// weights and leaves a pixel outside (-1, -1)..(width, height) unwritten.
#define CORVANE_WARP_ROW_SAMPLER(name)                                                           \
  CORVANE_DECLARE_VARIANTS(                                                                      \
      void, name,                                                                                \
      (const uint8_t* src, int32_t srcStep, int32_t lastColumn, int32_t lastRow, const float* u, \
       const float* v, int32_t count, uint8_t* dst))
CORVANE_WARP_ROW_SAMPLER(ownWarpRowNearest_8u_C3)
CORVANE_WARP_ROW_SAMPLER(ownWarpRowLinear_8u_C3)
CORVANE_WARP_ROW_SAMPLER(ownWarpRowCubic_8u_C3)

// The smooth-edge pass: the pixels just outside the edges of `quad`, clipped
// to `clip`, blended with their inside neighbours by how far the edge passes
// from each. orientation as for ownQuadRowRange.
CORVANE_DECLARE_VARIANTS(void, ownWarpSmoothEdge_8u_C3,
                         (uint8_t * dst, int32_t dstStep, const double* quad,
                          corvane::RectCorners clip, int32_t orientation))
