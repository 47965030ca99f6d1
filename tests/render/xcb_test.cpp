// The X11 backend with plain put-image requests (the exports' test draws with
// shared memory), at once and paced; and with no server to speak to.
#include "render/render_session.h"
#include "support/x_window.h"

namespace corvane::test {
namespace {

TEST(XcbBackend, FramesFollowEveryChangeOfFrameAndWindow) {
  if (TestConnection() == nullptr) GTEST_SKIP() << "no X server answers on DISPLAY";
  for (const int32_t fps : {0, 25}) {
    SCOPED_TRACE(fps ? "paced" : "at once");
    render::RenderProcess process;
    process.direct3d = render::CreateXcbDirect3D(nullptr, false);
    render::RenderSession* session = render::OpenRenderSession(process);
    render::SetFramesPerSecond(session, fps);
    ExpectFramesFollowWindows(  // the last row: a white clear, or a new surface's black
        [&](xcb_window_t window, const std::vector<uint8_t>& frame, int w, int h) {
          return render::SubmitFrame(session, window, frame.data(), w, h);
        },
        fps ? 0 : 0xFFFFFF);
    render::CloseRenderSession(session);
    process.direct3d->Release();
  }
}

TEST(XcbBackend, WithoutAServerNoDeviceIsMadeAndEveryCallReturns) {
  const std::string display = std::getenv("DISPLAY") ? std::getenv("DISPLAY") : "";
  for (const char* name : {":87", static_cast<const char*>(nullptr)}) {
    if (!name) unsetenv("DISPLAY");
    render::RenderProcess process;
    process.direct3d = render::CreateXcbDirect3D(name);
    render::RenderSession* session = render::OpenRenderSession(process);
    for (int fps : {0, 25, 0}) {
      EXPECT_EQ(render::SetFramesPerSecond(session, fps), 0);
      EXPECT_EQ(render::SubmitFrame(session, 0x200001, MakeFrame(16, 16, 1).data(), 16, 16), 0);
      EXPECT_EQ(session->device.load(), nullptr);
    }
    render::CloseRenderSession(session);
    process.direct3d->Release();
  }
  if (!display.empty()) setenv("DISPLAY", display.c_str(), 1);
}

}  // namespace
}  // namespace corvane::test
