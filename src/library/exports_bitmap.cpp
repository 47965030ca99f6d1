// The bitmap family of exports.
#include "corvane.h"

namespace {

// One body serves the four bitmap operations that have no implementation.
int32_t NotImplemented() {
    return ResultNotImplemented;
}

}  // namespace

extern "C" {

int32_t BmpReSize(void) { return NotImplemented(); }
int32_t BmpStretchDIB(void) { return NotImplemented(); }
int32_t BmpStretchDIBEx(void) { return NotImplemented(); }
int32_t BmpStretchDIBEx2(void) { return NotImplemented(); }

// Crop and scale is not served yet: every call is the failure result 0.
int32_t BmpReSizeEx(const BITMAPINFOHEADER*, const uint8_t*, int32_t, int32_t, int32_t, int32_t,
                    BITMAPINFOHEADER*, uint8_t*) {
    return 0;
}

}  // extern "C"
