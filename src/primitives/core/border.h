// Borders made on the fly, for every filter that reads a mask around each
// output: the copies with border, and the planner that splits a region into
// edge strips, built from small extended copies of the source, and a centre
// read where it lies. One build per code path; declarations only, so that
// every code path may include it.
#pragma once

#include <cstdint>

#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

namespace corvane {

// A filter kernel: reads the whole mask around every output of `roi` from
// memory, src at the pixel under the first output, steps in bytes; `work` is
// its spare scratch.
using BorderKernel = void (*)(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                              ImageSize roi, ImageSize mask, uint8_t* work);

// One filter pass over a region whose arguments have been checked.
struct BorderPlan {
  const uint8_t* src;
  int32_t srcStep;
  uint8_t* dst;
  int32_t dstStep;
  ImageSize roi;
  ImageSize mask;  // odd; the kernel reaches mask / 2 pixels and rows around an output
  int32_t pixelBytes;
  uint32_t border;       // BorderType: memory flags, and replicate or constant
  const uint8_t* value;  // one pixel, made pixels in constant mode
  BorderKernel kernel;
  // Room for the largest strip (ownBorderStripBytes), or for the whole
  // extended image when the mask is as large as the region.
  uint8_t* strips;
  // The kernel's work area on every road. Null: behind the strip room on the
  // strips road, behind the extended image on the whole-image road, and at
  // `strips` where the kernel reads the source itself.
  uint8_t* work;
};

}  // namespace corvane

// Runs the kernel over the region: once on the source when all four sides
// exist in memory; on the extended image when the mask is as large as the
// region; else on a strip for each side that lacks neighbours, then on the
// centre. Every output is written once, as if the kernel read a virtual
// image whose missing neighbours repeat the region's edge or are the value.
CORVANE_DECLARE_VARIANTS(void, ownFilterWithBorder, (const corvane::BorderPlan& plan))

// Bytes of the strip room: r32(pixelBytes x the larger of Ew x (b + yr - 1)
// and (a + xr - 1) x Eh), with Ew, Eh the region's extended size.
CORVANE_DECLARE_VARIANTS(int32_t, ownBorderStripBytes,
                         (corvane::ImageSize roi, corvane::ImageSize mask, int32_t pixelBytes))

// Copies srcRoi to (left, top) of dstRoi and makes the rest: repeating the
// nearest source pixel when value is null, else the pixel at value. Steps may
// be negative; sizes and placement are the caller's to have checked.
CORVANE_DECLARE_VARIANTS(void, ownExtendWithBorder,
                         (const uint8_t* src, int32_t srcStep, corvane::ImageSize srcRoi,
                          uint8_t* dst, int32_t dstStep, corvane::ImageSize dstRoi, int32_t top,
                          int32_t left, int32_t pixelBytes, const uint8_t* value))

// The checked copies with border: the source rectangle lands at (left, top)
// of the destination rectangle, and the pixels around it are made by
// repeating the nearest source pixel or by a constant pixel. The in-place
// forms grow the border around a source that already lies in the larger
// image.
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

// The plain copy of a region of 3-byte pixels, checked: StatusNullPointer,
// StatusSize, else StatusOk.
CORVANE_DECLARE_VARIANTS(corvane::PrimitiveStatus, ownCopy_8u_C3R,
                         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                          corvane::ImageSize roi))
