// The median kernels and their table: what the planner picks from by mask
// shape and pixel form. Declarations and plain data only, so that every code
// path may include it.
//
// A kernel filters a region whose every mask neighbour exists in memory: src
// points at the source pixel under the first output, steps are in bytes, and
// work is spare scratch (unused by the small-mask kernels).
#pragma once

#include <cstdint>

#include "primitives/core/border.h"
#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

namespace corvane {

using MedianKernel = BorderKernel;

// The kernels of one pixel form. The designed table has seven slots a form:
// 1x3, 1x5, 3x1, 5x1, 3x3, 5x5 and any other odd mask; each pair of small
// masks shares one function, which tells the two apart by the mask code.
struct MedianKernels {
  MedianKernel column;   // slots 0 and 1: 1x3, 1x5
  MedianKernel row;      // slots 2 and 3: 3x1, 5x1
  MedianKernel square;   // slots 4 and 5: 3x3, 5x5
  MedianKernel general;  // slot 6: any other odd mask
};

// A form's number is also the selector of the border copies that serve it:
// element-major, then three channels, four with the fourth kept, four.
enum MedianGroup : int32_t {
  MedianGroup8uC3 = 0,
  MedianGroup8uC4Keep = 1,  // the fourth channel of dst is left as it was
  MedianGroup8uC4 = 2,
  MedianGroup16uC3 = 3,
  MedianGroup16uC4Keep = 4,
  MedianGroup16uC4 = 5,
  MedianGroup16sC3 = 6,
  MedianGroup16sC4Keep = 7,
  MedianGroup16sC4 = 8,
};
constexpr int32_t kMedianGroupCount = 9;

struct MedianKernelTable {
  MedianKernels group[kMedianGroupCount];
};

// Mask width * 10 + height, as the shared kernels of two masks tell them
// apart. Internal linkage: every code path's kernels keep their own copy, so
// an unoptimised build never shares one across instruction sets.
static constexpr int32_t MedianMaskCode(ImageSize mask) { return mask.width * 10 + mask.height; }

}  // namespace corvane

// The kernels of a code path, form by form.
CORVANE_DECLARE_VARIANTS(const corvane::MedianKernelTable&, ownMedianKernelTable, ())

// The 8-bit general kernel: src at the mask's top-left for the first output;
// the first channels - keepLast channels of each pixel are filtered, the last
// one of dst is left alone when keepLast is 1. Uses no scratch.
CORVANE_DECLARE_VARIANTS(void, ownMedianHistogram_8u,
                         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                          corvane::ImageSize roi, corvane::ImageSize mask, int32_t channels,
                          int32_t keepLast))

// The 16-bit general kernels, one a form (C4KR: the fourth element kept).
// Their work area holds two arrays of mask width x height uint32.
#define CORVANE_DECLARE_RADIX_(name)                                                            \
  CORVANE_DECLARE_VARIANTS(void, name,                                                          \
                           (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, \
                            corvane::ImageSize roi, corvane::ImageSize mask, uint8_t* work))
CORVANE_DECLARE_RADIX_(ownMedianRadix_16u_C3R)
CORVANE_DECLARE_RADIX_(ownMedianRadix_16u_C4KR)
CORVANE_DECLARE_RADIX_(ownMedianRadix_16u_C4R)
CORVANE_DECLARE_RADIX_(ownMedianRadix_16s_C3R)
CORVANE_DECLARE_RADIX_(ownMedianRadix_16s_C4KR)
CORVANE_DECLARE_RADIX_(ownMedianRadix_16s_C4R)
#undef CORVANE_DECLARE_RADIX_

// The square kernels of the two 8-bit four-channel forms, serial, and their
// drivers, which split the 5x5 mask into bands of rows over the primitives'
// threads: maskCode 33 or 55. _C4R keeps dst's fourth channel (group 1), and
// goes parallel from 4096 pixels; _BC4R filters all four (group 2), always.
CORVANE_DECLARE_VARIANTS(void, ownMedianSquare_8u_C4KR,
                         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                          corvane::ImageSize roi, corvane::ImageSize mask, uint8_t* work))
CORVANE_DECLARE_VARIANTS(void, ownMedianSquare_8u_C4R,
                         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                          corvane::ImageSize roi, corvane::ImageSize mask, uint8_t* work))
CORVANE_DECLARE_VARIANTS(void, ownippiFilterMedian_8u_C4R,
                         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                          corvane::ImageSize roi, int32_t maskCode))
CORVANE_DECLARE_VARIANTS(void, ownippiFilterMedian_8u_BC4R,
                         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                          corvane::ImageSize roi, int32_t maskCode))
