// What every export of corvane_image.h does around its primitive: the checks
// of the client's images, and the scratch that the primitive's sizing asked
// for, allocated and freed by the call.
#pragma once

#include <cstdint>

#include "corvane_image.h"
#include "primitives/core/aligned_memory.h"

namespace corvane::library {

// Bytes of a pixel of a corvane_format; 0 for a value that is none.
inline int32_t PixelBytes(int32_t format) {
  if (format < CORVANE_8U_C3 || format > CORVANE_16S_C4K) return 0;
  const int32_t channels = (format - 1) % 3 == 0 ? 3 : 4;
  return format <= CORVANE_8U_C4K ? channels : 2 * channels;
}

// The bit of a format in a set of served formats.
constexpr uint32_t FormatBit(int32_t format) { return 1u << format; }

// 0 when `image` can be read or written, else what the client gets: a null
// image or data, a format outside `served` (a set of FormatBit), an empty
// image, a step of either sign shorter than a row.
inline int32_t CheckImage(const corvane_image* image, uint32_t served) {
  if (image == nullptr || image->data == nullptr) return CORVANE_STATUS_NULL_POINTER;
  if (PixelBytes(image->format) == 0 || !(served & FormatBit(image->format))) {
    return CORVANE_STATUS_PIXEL_TYPE;
  }
  if (image->width <= 0 || image->height <= 0) return CORVANE_STATUS_SIZE;
  const int64_t step = image->step, row = int64_t{image->width} * PixelBytes(image->format);
  return (step < 0 ? -step : step) < row ? CORVANE_STATUS_STEP : CORVANE_STATUS_OK;
}

// 0 for the two border rules of an image call, else CORVANE_STATUS_BORDER: an
// image is the whole picture, so none of the primitives' flags that say real
// pixels lie beyond a side may come through (they would read outside it).
inline int32_t CheckBorder(int32_t border) {
  return border == CORVANE_BORDER_REPLICATE || border == CORVANE_BORDER_CONSTANT
             ? CORVANE_STATUS_OK
             : CORVANE_STATUS_BORDER;
}

inline bool SameSize(const corvane_image& a, const corvane_image& b) {
  return a.width == b.width && a.height == b.height;
}

// Runs `run` on a block of `size` bytes: CORVANE_STATUS_NO_MEMORY when it
// can't be had, else the status of `run`.
template <class Run>
int32_t WithScratch(int32_t size, Run run) {
  void* block = primitives::ownMallocAligned(size > 0 ? size : 1);
  if (block == nullptr) return CORVANE_STATUS_NO_MEMORY;
  const int32_t status = run(static_cast<uint8_t*>(block));
  primitives::ownFreeAligned(block);
  return status;
}

}  // namespace corvane::library
