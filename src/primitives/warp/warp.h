// The warp family: a source rectangle mapped onto a four-cornered area of a
// destination image by eight bilinear coefficients
//   x' = c0·x·y + c1·x + c2·y + c3,   y' = c4·x·y + c5·x + c6·y + c7,
// which are affine when c0 and c4 are 0. Safe to include from a kernel unit:
// declarations only.
//
// A quad is four points as eight doubles (x, y of point 0 .. 3); point 0 is
// the picture of the rectangle's corner (x0, y0), then (x1, y0), (x1, y1),
// (x0, y1), with x1 = x + width - 1 and y1 = y + height - 1 inclusive.
#pragma once

#include <cstdint>

#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

namespace corvane {

// Interpolation: the low 31 bits are the mode, the top bit asks for the
// smooth-edge pass.
enum : uint32_t {
  WarpNearest = 1,
  WarpLinear = 2,
  WarpCubic = 4,
  WarpCatmullRom = 6,  // affine road only
  WarpSmoothEdge = 0x80000000u,
};

// Direction of the coefficients for the sizing entry.
enum : int32_t {
  WarpSourceToDestination = 0,
  WarpDestinationToSource = 1,
};

}  // namespace corvane

// Coefficients from a rectangle and the quad it goes to. Dispatch row 5.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownGetBilinearCoeffs,
                   (corvane::ImageRect srcRect, const double* quad, double* coeffs))

// Scratch bytes that ownWarpBilinear_8u_C3R needs for the same rectangles,
// coefficients and interpolation. Dispatch row 6.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownWarpBilinearBufferSize,
                   (corvane::ImageSize srcSize, corvane::ImageRect srcRect,
                    corvane::ImageRect dstRect, int32_t direction, const double* coeffs,
                    uint32_t interpolation, int32_t* size))

// Draws the picture of srcRect into dst, three 8-bit channels. src and dst
// point at pixel (0, 0) of their images; rectangles are image coordinates.
// Pixels outside the picture keep what they held. Dispatch row 7.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownWarpBilinear_8u_C3R,
                   (const uint8_t* src, corvane::ImageSize srcSize, int32_t srcStep,
                    corvane::ImageRect srcRect, uint8_t* dst, int32_t dstStep,
                    corvane::ImageRect dstRect, const double* coeffs, uint32_t interpolation,
                    uint8_t* scratch))
