// The geometry under the warp family, one build per code path: the quad test,
// rectangle corners through a transform, the clip of a quad against the
// destination rectangle with its row spans, and the checks that the sizing and
// the warp share. Safe to include from a kernel unit: declarations only.
#pragma once

#include <cstdint>

#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

namespace corvane {

// ownClassifyQuad results.
enum : int32_t {
  QuadConvexNegative = 0,  // convex, corner cross products all below 0
  QuadConvexPositive = 1,  // convex, all above 0
  QuadConcave = -4,        // concave or self-crossing
  QuadDegenerate = -5,     // a straight or collapsed corner
};

// Most points a clipped quad keeps (ownClipQuad).
constexpr int32_t kClippedQuadPoints = 16;

// Inclusive corners of a rectangle, wide enough for any sum of two int32.
struct RectCorners {
  int64_t x0;
  int64_t y0;
  int64_t x1;
  int64_t y1;
};

}  // namespace corvane

// Signs of the four corner cross products of a quad.
CORVANE_DECLARE_VARIANTS(int32_t, ownClassifyQuad, (const double* quad))

// 1 when the cross product at point 3 is above 0 (corners clockwise on a
// screen whose y runs down), else 0.
CORVANE_DECLARE_VARIANTS(int32_t, ownQuadOrientation, (const double* quad))

// The quad of a rectangle's corners through the bilinear form (eight
// coefficients) or the affine form (six: a0·x + a1·y + a2, a3·x + a4·y + a5).
CORVANE_DECLARE_VARIANTS(void, ownBilinearQuad,
                         (corvane::RectCorners rect, const double* coeffs, double* quad))
CORVANE_DECLARE_VARIANTS(void, ownAffineQuad,
                         (corvane::RectCorners rect, const double* affine, double* quad))

// Clips a convex quad to `clip`: the polygon that remains, as x, y pairs of
// at most kClippedQuadPoints points, corners a rounding beside a side put
// onto it and repeated points dropped. Returns the count of points, 0 when
// nothing remains or the quad isn't finite.
CORVANE_DECLARE_VARIANTS(int32_t, ownClipQuad,
                         (const double* quad, corvane::RectCorners clip, double* points))

// Clips a convex quad to `clip` and gives the rows it covers. Returns 1 when
// something remains, with yMin and yMax written, else 0. With a row table it
// also writes a pair (first column, last column) for each row yMin..yMax;
// orientation 1 means the quad's corners run clockwise on screen (cross
// product at point 3 above 0).
CORVANE_DECLARE_VARIANTS(int32_t, ownQuadRowRange,
                         (const double* quad, corvane::RectCorners clip, int32_t orientation,
                          int32_t* rowTable, int32_t* yMin, int32_t* yMax))

// StatusInterpolation unless `mode` (the interpolation without its
// smooth-edge bit) is nearest neighbour, linear or cubic, or Catmull-Rom
// where `withCatmullRom` allows it; else StatusOk.
CORVANE_DECLARE_VARIANTS(corvane::PrimitiveStatus, ownCheckWarpMode,
                         (uint32_t mode, bool withCatmullRom))

// StatusTransform when the linear part of an affine set, with p = a0·a4 and
// r = a1·a3, has no usable inverse; else StatusOk.
CORVANE_DECLARE_VARIANTS(corvane::PrimitiveStatus, ownAffineDeterminantStatus, (double p, double r))

// Inclusive corners of a rectangle.
CORVANE_DECLARE_VARIANTS(corvane::RectCorners, ownRectCorners, (corvane::ImageRect rect))

// StatusSize for an empty source image, a source rectangle with a negative
// origin or no area, or a destination rectangle likewise; else StatusOk.
CORVANE_DECLARE_VARIANTS(corvane::PrimitiveStatus, ownCheckWarpImages,
                         (corvane::ImageSize srcSize, corvane::ImageRect srcRect,
                          corvane::ImageRect dstRect))

// Narrows a source rectangle to its image; StatusRectangleOutside when it
// starts outside, else StatusOk.
CORVANE_DECLARE_VARIANTS(corvane::PrimitiveStatus, ownClipSourceRect,
                         (corvane::ImageSize srcSize, corvane::ImageRect* rect))
