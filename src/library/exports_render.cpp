// The render family of exports. Rendering is not served yet: no session can be
// opened, and calls with a null handle give their designed results.
#include "corvane.h"

extern "C" {

RenderHandle VideoRenderOpen(void) { return nullptr; }

int32_t VideoRenderClose(RenderHandle) { return 1; }

int32_t VideoRenderFrame(WindowHandle, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t,
                         int32_t, const uint8_t*, const BITMAPINFOHEADER*, int32_t,
                         RenderHandle session) {
    return session ? 0 : ResultBadArgument;
}

int32_t VideoRenderSetFPS(RenderHandle session, int32_t) {
    return session ? 0 : ResultBadArgument;
}

}  // extern "C"
