// Crop and scale of 24-bit bitmaps, as the bitmap exports see it.
#pragma once

#include <cstdint>

#include "corvane.h"

namespace corvane::bitmap {

// Cuts {x, y, width, height} out of the source bitmap and scales it, nearest
// neighbour, over the destination's wished size rounded down to multiples of 8,
// which it writes back into dstHeader. A crop that runs past the image, or has
// no width or height, copies the whole source as it stands instead.
// 1 when done, 0 for a null pointer or a refusal of the warp, ResultBadArgument
// when the warp's scratch size isn't positive.
int32_t CropAndScale(const BITMAPINFOHEADER* srcHeader, const uint8_t* srcBits, int32_t x,
                     int32_t y, int32_t width, int32_t height, BITMAPINFOHEADER* dstHeader,
                     uint8_t* dstBits);

}  // namespace corvane::bitmap
