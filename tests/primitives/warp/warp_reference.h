// Plain references for the warp tests: an exact quad classification, the row
// spans of a quad from its edge crossings, and a pixel-by-pixel
// nearest-neighbour affine warp.
#pragma once

#include <cstdint>

#include "primitives/core/conventions.h"

namespace corvane::test {

// 1 or 0 for a convex quad by the sign of its area, -4 when its diagonals
// don't cross, -5 when three consecutive corners lie on a line. Integer
// corners only: the arithmetic is exact.
int32_t ClassifyIntegerQuad(const int64_t* quad);

// First and last covered column of row `y` of a convex quad clipped to
// columns x0..x1, with the 1e-13 reach of a boundary past a column when
// `reach` is set. False when the row misses the quad. `near` reports a
// boundary within 1e-9 of a column, where rounding may decide either way.
bool SpanOfRow(const double* quad, double y, double x0, double x1, bool reach, int32_t* left,
               int32_t* right, bool* near);

// The warp of the affine set a (x' = a0·x + a1·y + a2, y' = a3·x + a4·y + a5)
// into dst, pixel by pixel; false when nothing is drawn.
bool ReferenceWarp(const uint8_t* src, ImageSize srcSize, int32_t srcStep, ImageRect srcRect,
                   uint8_t* dst, int32_t dstStep, ImageRect dstRect, const double* a);

}  // namespace corvane::test
