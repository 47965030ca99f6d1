// The render family of exports: one render session per handle, drawing BGR24
// frames on an X11 window.
#include "corvane.h"
#include "render/render.h"

using corvane::render::RenderSession;

extern "C" {

RenderHandle VideoRenderOpen(void) { return corvane::render::OpenRenderSession(); }

int32_t VideoRenderClose(RenderHandle session) {
  corvane::render::CloseRenderSession(static_cast<RenderSession*>(session));
  return 1;
}

// Only the window, the pixels, the header and the handle are read. The header
// is top-down: its height is negative.
int32_t VideoRenderFrame(WindowHandle window, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t,
                         int32_t, int32_t, const uint8_t* pixels, const BITMAPINFOHEADER* header,
                         int32_t, RenderHandle session) {
  if (session == nullptr) return ResultBadArgument;
  if (header == nullptr) return 0;
  // Negated in 64 bits: INT32_MIN has no positive 32-bit counterpart, and is
  // no picture height anyway.
  const int64_t height = -static_cast<int64_t>(header->biHeight);
  if (height > INT32_MAX) return 0;
  return corvane::render::SubmitFrame(static_cast<RenderSession*>(session), window, pixels,
                                      header->biWidth, static_cast<int32_t>(height));
}

int32_t VideoRenderSetFPS(RenderHandle session, int32_t fps) {
  if (session == nullptr) return ResultBadArgument;
  return corvane::render::SetFramesPerSecond(static_cast<RenderSession*>(session), fps);
}

}  // extern "C"
