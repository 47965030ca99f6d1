// The sharpen filter with borders made on the fly: a fixed 3x3 mask on 8-bit
// BGR-style pixels, every channel twice its value less an eighth of the sum of
// its eight neighbours, rounded to nearest (ties to even) and limited to a
// byte. Its two entry points and their per-code-path builds.
#pragma once

#include <cstdint>

#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

namespace corvane {

// Mask ids are width * 10 + height; the filter knows only its 3x3 mask.
constexpr int32_t kSharpenMask3x3 = 33;

}  // namespace corvane

// Scratch size for a filter of `roi`: a column-sum line of the region's width
// and the room of the border planner. PixelType8u, 16s or 32f, the same for
// source and destination; 1, 3 or 4 channels. StatusSizeOverflow (size 0)
// when the answer would not fit 31 bits.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownFilterSharpenBorderGetBufferSize,
                   (corvane::ImageSize roi, int32_t mask, corvane::PixelType srcType,
                    corvane::PixelType dstType, int32_t channels, int32_t* size))

// The filter over `roi`, src and dst separate images of 3-byte pixels; the
// scratch comes from the sizing entry with the same region.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownFilterSharpenBorder_8u_C3R,
                   (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                    corvane::ImageSize roi, int32_t mask, corvane::BorderType border,
                    const uint8_t* borderValue, uint8_t* buffer))

// The kernel: every neighbour of `roi` is in memory (one row above and below,
// one pixel left and right); `work` holds the column-sum line of
// 3 * roi.width + 6 sums. The mask argument is the planner's and unused.
CORVANE_DECLARE_VARIANTS(void, ownSharpenKernel_8u_C3R,
                         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                          corvane::ImageSize roi, corvane::ImageSize mask, uint8_t* work))
