// The median filter with borders made on the fly: its two entry points and
// their per-code-path builds.
#pragma once

#include <cstdint>

#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

// Scratch size for a filter of `roi` with `mask`; the answer depends on the
// code path, so each path's filter uses its own path's size. Dispatch row 1.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownFilterMedianBorderGetBufferSize,
                   (corvane::ImageSize roi, corvane::ImageSize mask, corvane::PixelType pixelType,
                    int32_t channels, int32_t* size))

// Per-channel median of 8-bit BGR-style pixels (3 bytes each). Dispatch row 2.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownFilterMedianBorder_8u_C3R,
                   (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                    corvane::ImageSize roi, corvane::ImageSize mask, corvane::BorderType border,
                    const uint8_t* borderValue, uint8_t* buffer))

// The same filter on any of the nine pixel forms of the kernel table
// (MedianGroup: 8-bit, 16-bit unsigned or signed elements; three channels,
// four, or four with dst's fourth left as it was). borderValue is one pixel
// of the form; a group outside 0 to 8 gives StatusPixelType after the null
// pointer check. A dispatch row of its own, past the eight of the library's
// exports.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownFilterMedianBorder,
                   (int32_t group, const uint8_t* src, int32_t srcStep, uint8_t* dst,
                    int32_t dstStep, corvane::ImageSize roi, corvane::ImageSize mask,
                    corvane::BorderType border, const void* borderValue, uint8_t* buffer))
