// The median of corvane_image.h: the client's images checked, the scratch
// sized and allocated by the call, the primitive's own status passed back.
#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include "corvane_image.h"
#include "library/image_call.h"
#include "primitives/median/median.h"

namespace {

using namespace corvane;

constexpr uint32_t kEveryFormat = 0x3FEu;  // FormatBit of CORVANE_8U_C3 to CORVANE_16S_C4K

// The kernel table's group of a format: elements, then three channels, four
// with the fourth kept, four.
int32_t Group(int32_t format) {
  constexpr int32_t kForm[3] = {0, 2, 1};  // C3, C4, C4K
  return (format - 1) / 3 * 3 + kForm[(format - 1) % 3];
}

// The scratch that the sizing answers, worked in 64 bits: the designed
// answer is a 32-bit value and wraps for regions and masks so large that
// their strips pass 2 GiB. -1 then.
int64_t ScratchBytes(ImageSize roi, ImageSize mask, int32_t elementBytes, int32_t channels) {
  const int64_t w = roi.width, h = roi.height, a = mask.width, b = mask.height;
  const int64_t ew = w + a - 1, eh = h + b - 1, xr = a / 2, yr = b / 2;
  const bool tiny = w <= a || h <= b;
  int64_t n = tiny ? ew * eh : std::max(ew * (b + yr - 1), (a + xr - 1) * eh);
  n = n * channels * elementBytes + 31 + a * b * 8;
  return n <= INT32_MAX ? n : -1;
}

}  // namespace

extern "C" {

int32_t corvane_median(const corvane_image* src, const corvane_image* dst, int32_t maskWidth,
                       int32_t maskHeight, int32_t border, const void* borderValue) {
  for (const corvane_image* image : {src, dst}) {
    if (const int32_t status = library::CheckImage(image, kEveryFormat)) return status;
  }
  if (src->format != dst->format) return CORVANE_STATUS_PIXEL_TYPE;
  if (!library::SameSize(*src, *dst)) return CORVANE_STATUS_SIZE;
  if (maskWidth <= 0 || maskHeight <= 0 || maskWidth % 2 == 0 || maskHeight % 2 == 0) {
    return CORVANE_STATUS_MASK_SIZE;
  }
  if (const int32_t status = library::CheckBorder(border)) return status;
  if (border == CORVANE_BORDER_CONSTANT && borderValue == nullptr) {
    return CORVANE_STATUS_NULL_POINTER;
  }
  const ImageSize roi{src->width, src->height}, mask{maskWidth, maskHeight};
  const int32_t element = src->format <= CORVANE_8U_C4K ? 1 : 2;
  const int32_t channels = library::PixelBytes(src->format) / element;
  if (ScratchBytes(roi, mask, element, channels) < 0) return CORVANE_STATUS_NO_MEMORY;
  constexpr PixelType kTypes[3] = {PixelType8u, PixelType16u, PixelType16s};
  int32_t size = 0;
  const PrimitiveStatus sized = primitives::ownFilterMedianBorderGetBufferSize(
      roi, mask, kTypes[(src->format - 1) / 3], channels, &size);
  if (sized != StatusOk) return sized;
  return library::WithScratch(size, [&](uint8_t* scratch) {
    return primitives::ownFilterMedianBorder(Group(src->format),
                                             static_cast<const uint8_t*>(src->data), src->step,
                                             static_cast<uint8_t*>(dst->data), dst->step, roi, mask,
                                             static_cast<BorderType>(border), borderValue, scratch);
  });
}

}  // extern "C"
