// The median entry of one code path: the argument checks, the kernel for the
// mask, and the border planner that runs it over the region.
#include "primitives/core/border.h"
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

}  // namespace

PrimitiveStatus ownFilterMedianBorder_8u_C3R(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                             int32_t dstStep, ImageSize roi, ImageSize mask,
                                             BorderType border, const uint8_t* borderValue,
                                             uint8_t* buffer) {
  if (src == nullptr || dst == nullptr || buffer == nullptr) return StatusNullPointer;
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
  if (mask.width == 1 && mask.height == 1) return ownCopy_8u_C3R(src, srcStep, dst, dstStep, roi);
  const MedianKernel kernel = ChooseKernel(ownMedianKernelTable().group[MedianGroup8uC3], mask);
  // The general masks have no kernel yet; refused before anything is touched.
  if (kernel == nullptr) return StatusMaskSize;
  // The scratch holds the strip room, the kernels' work behind it.
  ownFilterWithBorder(BorderPlan{src, srcStep, dst, dstStep, roi, mask, 3, border, borderValue,
                                 kernel, buffer, nullptr});
  return StatusOk;
}

}  // namespace corvane::CORVANE_VARIANT
