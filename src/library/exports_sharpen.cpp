// The sharpen of corvane_image.h: the client's images checked, the scratch
// sized and allocated by the call, the primitive's own status passed back.
#include <initializer_list>

#include "corvane_image.h"
#include "library/image_call.h"
#include "primitives/sharpen/sharpen.h"

extern "C" {

int32_t corvane_sharpen(const corvane_image* src, const corvane_image* dst, int32_t border,
                        const void* borderValue) {
  using namespace corvane;
  for (const corvane_image* image : {src, dst}) {
    if (const int32_t status = library::CheckImage(image, library::FormatBit(CORVANE_8U_C3))) {
      return status;
    }
  }
  if (!library::SameSize(*src, *dst)) return CORVANE_STATUS_SIZE;
  if (const int32_t status = library::CheckBorder(border)) return status;
  const ImageSize roi{src->width, src->height};
  int32_t size = 0;
  const PrimitiveStatus sized = primitives::ownFilterSharpenBorderGetBufferSize(
      roi, kSharpenMask3x3, PixelType8u, PixelType8u, 3, &size);
  if (sized != StatusOk) return sized;
  return library::WithScratch(size, [&](uint8_t* scratch) {
    return primitives::ownFilterSharpenBorder_8u_C3R(
        static_cast<const uint8_t*>(src->data), src->step, static_cast<uint8_t*>(dst->data),
        dst->step, roi, kSharpenMask3x3, static_cast<BorderType>(border),
        static_cast<const uint8_t*>(borderValue), scratch);
  });
}

}  // extern "C"
