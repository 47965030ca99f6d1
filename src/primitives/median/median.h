// The median filter with borders made on the fly: the entry points, their
// per-code-path builds, and the border copies that the planner (and later the
// sharpen filter) extends strips with.
#pragma once

#include <cstdint>

#include "primitives/median/median_kernel.h"
#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

// Scratch size for a filter of `roi` with `mask`; the answer depends on the
// code path, so each path's filter uses its own path's size.
// Dispatch row 1.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownFilterMedianBorderGetBufferSize,
                   (corvane::ImageSize roi, corvane::ImageSize mask, corvane::PixelType pixelType,
                    int32_t channels, int32_t* size))

// Per-channel median of 8-bit BGR-style pixels (3 bytes each). Dispatch row 2.
CORVANE_DISPATCHED(corvane::PrimitiveStatus, ownFilterMedianBorder_8u_C3R,
                   (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                    corvane::ImageSize roi, corvane::ImageSize mask, corvane::BorderType border,
                    const uint8_t* borderValue, uint8_t* buffer))

// The plain copy behind the 1x1 mask.
CORVANE_DECLARE_VARIANTS(corvane::PrimitiveStatus, ownCopy_8u_C3R,
                         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                          corvane::ImageSize roi))

// Copies with border: the source rectangle lands at (left, top) of the
// destination rectangle, and the pixels around it are made by repeating the
// nearest source pixel or by a constant pixel.
#define CORVANE_DECLARE_BORDER_COPIES_(suffix, ValueType)                                          \
  CORVANE_DECLARE_VARIANTS(                                                                        \
      corvane::PrimitiveStatus, ownCopyReplicateBorder_##suffix,                                   \
      (const uint8_t* src, int32_t srcStep, corvane::ImageSize srcRoi, uint8_t* dst,               \
       int32_t dstStep, corvane::ImageSize dstRoi, int32_t top, int32_t left))                     \
  CORVANE_DECLARE_VARIANTS(corvane::PrimitiveStatus, ownCopyConstBorder_##suffix,                  \
                           (const uint8_t* src, int32_t srcStep, corvane::ImageSize srcRoi,        \
                            uint8_t* dst, int32_t dstStep, corvane::ImageSize dstRoi, int32_t top, \
                            int32_t left, const ValueType* value))                                 \
  CORVANE_DECLARE_VARIANTS(corvane::PrimitiveStatus, ownCopyReplicateBorderInPlace_##suffix,       \
                           (uint8_t * image, int32_t step, corvane::ImageSize srcRoi,              \
                            corvane::ImageSize dstRoi, int32_t top, int32_t left))
CORVANE_DECLARE_BORDER_COPIES_(8u_C3R, uint8_t)
CORVANE_DECLARE_BORDER_COPIES_(8u_C4R, uint8_t)
CORVANE_DECLARE_BORDER_COPIES_(16_C3R, uint16_t)
CORVANE_DECLARE_BORDER_COPIES_(16_C4R, uint16_t)
#undef CORVANE_DECLARE_BORDER_COPIES_
