// The render exports through the shared object, at once and paced.
#include "corvane.h"
#include "support/x_window.h"

namespace corvane::test {
namespace {

// Reserved arguments carry junk: none may be read. A top-down header.
int32_t Draw(RenderHandle session, WindowHandle window, const uint8_t* pixels, int32_t w,
             int32_t h) {
  const BITMAPINFOHEADER header{40, w, h, 1, 24, 0, 0, 0, 0, 0, 0};
  return VideoRenderFrame(window, 2, 3, 4, 5, 6, 7, 8, 9, pixels, &header, 12, session);
}

TEST(RenderExports, DrawFollowingEveryChangeButNothingBadNorAfterClose) {
  EXPECT_EQ(Draw(nullptr, 0x200001, MakeFrame(16, 8, 1).data(), 16, -8), ResultBadArgument);
  EXPECT_EQ(VideoRenderSetFPS(nullptr, 25), ResultBadArgument);
  EXPECT_EQ(VideoRenderClose(nullptr), 1);
  if (TestConnection() == nullptr) GTEST_SKIP() << "no X server answers on DISPLAY";
  constexpr uint32_t kBackground = 0x3C8A5A;  // a window's own colour, no frame's
  for (const int32_t fps : {0, 25}) {
    SCOPED_TRACE(fps ? "paced" : "at once");
    RenderHandle session = VideoRenderOpen();
    ASSERT_EQ(VideoRenderSetFPS(session, fps), 0);
    ExpectFramesFollowWindows([&](xcb_window_t window, const std::vector<uint8_t>& frame, int w,
                                  int h) { return Draw(session, window, frame.data(), w, -h); },
                              fps ? 0 : 0xFFFFFF);
    XWindow window(64, 48, 0, kBackground);
    const auto good = MakeFrame(64, 48, 5);
    const int32_t bad[][3] = {{0, -48, 1}, {-64, -48, 1},      {64, 0, 1},
                              {64, 48, 1}, {64, INT32_MIN, 1}, {64, -48, 0}};
    for (const auto& [w, h, pixels] : bad)
      EXPECT_EQ(Draw(session, window.id(), pixels ? good.data() : nullptr, w, h), 0);
    EXPECT_EQ(
        VideoRenderFrame(window.id(), 0, 0, 0, 0, 0, 0, 0, 0, good.data(), nullptr, 0, session), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // ticks enough to show any
    EXPECT_EQ(window.Mismatches(nullptr, 1, 1, kBackground, 0), 0) << "after the bad frames";
    // The paced path still holds frames at the close, which drops them.
    for (uint32_t n = 21; n < 33; ++n)
      EXPECT_EQ(Draw(session, window.id(), MakeFrame(64, 48, n).data(), 64, -48), 0);
    EXPECT_EQ(VideoRenderClose(session), 1);
    window.Wipe();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(window.Mismatches(nullptr, 1, 1, kBackground, 0), 0) << "after the close";
  }
}

}  // namespace
}  // namespace corvane::test
