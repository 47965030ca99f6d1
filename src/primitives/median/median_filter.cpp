// The median entries of one code path: the argument checks, the kernel for
// the mask, and the border planner that runs it over the region.
#include "primitives/core/border.h"
#include "primitives/core/copy.h"
#include "primitives/median/median.h"
#include "primitives/median/median_kernel.h"

namespace corvane::CORVANE_VARIANT {
namespace {

bool IsOdd(int32_t v) { return (v & 1) != 0; }

// The kernel of a form for a mask other than 1x1.
MedianKernel ChooseKernel(const MedianKernels& form, ImageSize mask) {
  const int32_t a = mask.width, b = mask.height;
  if (a == 1) return b == 3 || b == 5 ? form.column : form.general;
  if (b == 1) return a == 3 || a == 5 ? form.row : form.general;
  if (a == b && (a == 3 || a == 5)) return form.square;
  return form.general;
}

// Bytes of a pixel of each form, and whether dst's fourth element stays.
constexpr int32_t kPixelBytes[kMedianGroupCount] = {3, 4, 4, 6, 8, 8, 6, 8, 8};
bool KeepsFourth(int32_t group) { return group % 3 == 1; }

// The 1x1 mask: a copy, of the first three elements only where dst keeps
// its fourth.
void CopyPixels(int32_t group, const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                ImageSize roi) {
  const int32_t px = kPixelBytes[group];
  if (!KeepsFourth(group))
    return ownCopyRows(src, srcStep, dst, dstStep, roi.width * px, roi.height);
  const int32_t kept = px / 4 * 3;
  for (int32_t y = 0; y < roi.height; ++y) {
    const uint8_t* s = src + intptr_t{y} * srcStep;
    uint8_t* d = dst + intptr_t{y} * dstStep;
    for (int32_t x = 0; x < roi.width; ++x, s += px, d += px) {
      for (int32_t i = 0; i < kept; ++i) d[i] = s[i];
    }
  }
}

// The checks of both entries, in their order, past the null pointers.
PrimitiveStatus CheckRest(ImageSize roi, ImageSize mask, BorderType border,
                          const void* borderValue) {
  if (roi.width <= 0 || roi.height <= 0) return StatusSize;
  if (mask.width <= 0 || mask.height <= 0 || !IsOdd(mask.width) || !IsOdd(mask.height)) {
    return StatusMaskSize;
  }
  if (border > 0xFF) return StatusBorder;
  if (border != BorderMemoryAll) {
    const uint32_t mode = border & 0xF;
    if (mode == BorderConstant && borderValue == nullptr) return StatusNullPointer;
    if (mode != BorderConstant && mode != BorderReplicate) return StatusBorder;
  }
  return StatusOk;
}

// The scratch holds the strip room, the kernels' work behind it.
void Filter(int32_t group, const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
            ImageSize roi, ImageSize mask, BorderType border, const void* borderValue,
            uint8_t* buffer) {
  const MedianKernel kernel = ChooseKernel(ownMedianKernelTable().group[group], mask);
  ownFilterWithBorder(BorderPlan{src, srcStep, dst, dstStep, roi, mask, kPixelBytes[group], border,
                                 static_cast<const uint8_t*>(borderValue), kernel, buffer,
                                 nullptr});
}

}  // namespace

PrimitiveStatus ownFilterMedianBorder_8u_C3R(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                             int32_t dstStep, ImageSize roi, ImageSize mask,
                                             BorderType border, const uint8_t* borderValue,
                                             uint8_t* buffer) {
  if (src == nullptr || dst == nullptr || buffer == nullptr) return StatusNullPointer;
  if (const PrimitiveStatus s = CheckRest(roi, mask, border, borderValue)) return s;
  if (mask.width == 1 && mask.height == 1) return ownCopy_8u_C3R(src, srcStep, dst, dstStep, roi);
  Filter(MedianGroup8uC3, src, srcStep, dst, dstStep, roi, mask, border, borderValue, buffer);
  return StatusOk;
}

PrimitiveStatus ownFilterMedianBorder(int32_t group, const uint8_t* src, int32_t srcStep,
                                      uint8_t* dst, int32_t dstStep, ImageSize roi, ImageSize mask,
                                      BorderType border, const void* borderValue, uint8_t* buffer) {
  if (src == nullptr || dst == nullptr || buffer == nullptr) return StatusNullPointer;
  if (group < 0 || group >= kMedianGroupCount) return StatusPixelType;
  if (const PrimitiveStatus s = CheckRest(roi, mask, border, borderValue)) return s;
  if (mask.width == 1 && mask.height == 1) {
    CopyPixels(group, src, srcStep, dst, dstStep, roi);
  } else {
    Filter(group, src, srcStep, dst, dstStep, roi, mask, border, borderValue, buffer);
  }
  return StatusOk;
}

}  // namespace corvane::CORVANE_VARIANT
