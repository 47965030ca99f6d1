// The bitmap family of exports: BmpReSizeEx crops and scales, the other four
// have no implementation.
#include "bitmap/bitmap.h"
#include "corvane.h"

namespace {

// One body serves the four bitmap operations that have no implementation.
int32_t NotImplemented() { return ResultNotImplemented; }

}  // namespace

extern "C" {

int32_t BmpReSize(void) { return NotImplemented(); }
int32_t BmpStretchDIB(void) { return NotImplemented(); }
int32_t BmpStretchDIBEx(void) { return NotImplemented(); }
int32_t BmpStretchDIBEx2(void) { return NotImplemented(); }

int32_t BmpReSizeEx(const BITMAPINFOHEADER* srcHeader, const uint8_t* srcBits, int32_t x, int32_t y,
                    int32_t width, int32_t height, BITMAPINFOHEADER* dstHeader, uint8_t* dstBits) {
  return corvane::bitmap::CropAndScale(srcHeader, srcBits, x, y, width, height, dstHeader, dstBits);
}

}  // extern "C"
