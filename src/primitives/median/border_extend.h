// The unchecked core of the border copies, shared by the copies and the
// median's planner within one code path. Declarations only.
#pragma once

#include <cstdint>

#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

// Copies srcRoi to (left, top) of dstRoi and makes the rest: repeating the
// nearest source pixel when value is null, else the pixel at value. Steps may
// be negative; sizes and placement are the caller's to have checked.
CORVANE_DECLARE_VARIANTS(void, ownExtendWithBorder,
                         (const uint8_t* src, int32_t srcStep, corvane::ImageSize srcRoi,
                          uint8_t* dst, int32_t dstStep, corvane::ImageSize dstRoi, int32_t top,
                          int32_t left, int32_t pixelBytes, const uint8_t* value))
