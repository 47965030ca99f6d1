// The render exports as a client calls them through the shared object, drawing
// on real windows of the X server of $DISPLAY (the test command starts Xvfb),
// on the direct path and paced by the timer.
#include <gtest/gtest.h>

#include <ostream>
#include <random>

#include "corvane.h"
#include "render/x_window.h"

namespace corvane::test {
namespace {

constexpr uint32_t kBackground = 0x3C8A5A;  // a window's own colour (0xRRGGBB), no frame's
constexpr int kBand = 1;                    // below the windows of the renderer's other tests

// A frame as a client holds it: random BGR24 rows and a top-down header.
struct Frame {
  Frame(int width, int height, uint32_t seed)
      : pixels(static_cast<size_t>(width) * height * 3),
        header{sizeof(BITMAPINFOHEADER), width, -height, 1, 24, 0, 0, 0, 0, 0, 0} {
    std::mt19937 random(seed);
    for (uint8_t& byte : pixels) byte = static_cast<uint8_t>(random());
  }
  std::vector<uint8_t> pixels;
  BITMAPINFOHEADER header;
};

// Reserved arguments carry junk: none of them may be read.
int32_t Draw(RenderHandle session, WindowHandle window, const uint8_t* pixels,
             const BITMAPINFOHEADER* header) {
  return VideoRenderFrame(window, 2, 3, 4, 5, 6, 7, 8, 9, pixels, header, 12, session);
}
int32_t Draw(RenderHandle session, const XWindow& window, const Frame& frame) {
  return Draw(session, window.id(), frame.pixels.data(), &frame.header);
}

// Long enough for several ticks at 25 frames a second to draw, were any due.
void QuietSpell() { std::this_thread::sleep_for(std::chrono::milliseconds(300)); }

TEST(RenderExports, NullHandlesGiveTheirResults) {
  const Frame frame(16, 8, 1);
  EXPECT_EQ(Draw(nullptr, 0x200001, frame.pixels.data(), &frame.header), ResultBadArgument);
  EXPECT_EQ(VideoRenderSetFPS(nullptr, 25), ResultBadArgument);
  EXPECT_EQ(VideoRenderClose(nullptr), 1);
}

struct Path {
  const char* name;
  int32_t fps;       // 0: drawn at once; else paced by the timer
  uint32_t lastRow;  // the unconverted last row: the clear's white, or a new surface's black
};
void PrintTo(const Path& path, std::ostream* out) { *out << path.name; }

class RenderExportsOnX : public ::testing::TestWithParam<Path> {
 protected:
  void SetUp() override {
    if (TestConnection() == nullptr) GTEST_SKIP() << "no X server answers on DISPLAY";
    session_ = VideoRenderOpen();
    ASSERT_NE(session_, nullptr);
    ASSERT_EQ(VideoRenderSetFPS(session_, GetParam().fps), 0);
  }
  void TearDown() override {
    if (session_ != nullptr) {
      EXPECT_EQ(VideoRenderClose(session_), 1);
    }
  }
  // Draws and waits for the window to show the frame.
  int Shown(const XWindow& window, const Frame& frame) {
    EXPECT_EQ(Draw(session_, window, frame), 0);
    return window.AwaitMismatches(frame.pixels.data(), frame.header.biWidth, -frame.header.biHeight,
                                  GetParam().lastRow);
  }

  RenderHandle session_ = nullptr;
};

TEST_P(RenderExportsOnX, FramesFollowChangesOfFrameAndWindowUntilTheWindowGoes) {
  struct Step {
    int ww, wh, fw, fh;
    const char* what;
  };
  const Step steps[] = {{96, 64, 96, 64, "first frame"},   {96, 64, 48, 32, "smaller frame"},
                        {48, 32, 48, 32, "window shrunk"}, {96, 64, 48, 32, "window grown"},
                        {33, 17, 33, 17, "odd sizes"},     {33, 17, 33, 17, "same size again"},
                        {40, 30, 20, 15, "odd half size"}};
  XWindow window(steps[0].ww, steps[0].wh, kBand, kBackground);
  uint32_t seed = 1;
  for (const Step& s : steps) {
    if (s.ww != window.width() || s.wh != window.height()) window.Resize(s.ww, s.wh);
    EXPECT_EQ(Shown(window, Frame(s.fw, s.fh, seed++)), 0) << s.what;
  }
  const WindowHandle gone = window.id();
  EXPECT_EQ(Draw(session_, window, Frame(40, 30, seed++)), 0);  // may still wait for a tick
  window.Destroy();
  const Frame frame(40, 30, seed++);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(Draw(session_, gone, frame.pixels.data(), &frame.header), 0);
  EXPECT_EQ(Shown(XWindow(40, 30, kBand, kBackground), Frame(40, 30, seed)), 0) << "a new window";
}

// On the paced path frames still wait in the queue when the session closes:
// the close stops the running timer and drops them.
TEST_P(RenderExportsOnX, NothingIsDrawnForBadFramesNorAfterClose) {
  XWindow window(64, 48, kBand, kBackground);
  const Frame good(64, 48, 5);
  ASSERT_EQ(Shown(window, good), 0);
  window.Wipe();
  struct Bad {
    int32_t width, height;
    bool pixels, header;
    const char* what;
  };
  const Bad cases[] = {
      {0, -48, true, true, "zero width"},    {-64, -48, true, true, "negative width"},
      {64, 0, true, true, "zero height"},    {64, 48, true, true, "bottom-up height"},
      {64, -48, false, true, "null pixels"}, {64, -48, true, false, "null header"}};
  for (const Bad& c : cases) {
    BITMAPINFOHEADER header = good.header;
    header.biWidth = c.width;
    header.biHeight = c.height;
    EXPECT_EQ(Draw(session_, window.id(), c.pixels ? good.pixels.data() : nullptr,
                   c.header ? &header : nullptr),
              0)
        << c.what;
  }
  QuietSpell();
  EXPECT_EQ(window.NotOfColour(kBackground), 0) << "after the bad frames";
  EXPECT_EQ(Shown(window, Frame(64, 48, 6)), 0) << "a good frame after the bad ones";

  for (uint32_t seed = 21; seed < 33; ++seed)
    EXPECT_EQ(Draw(session_, window, Frame(64, 48, seed)), 0);
  EXPECT_EQ(VideoRenderClose(session_), 1);
  session_ = nullptr;
  window.Wipe();
  QuietSpell();
  EXPECT_EQ(window.NotOfColour(kBackground), 0) << "after the close";
}

INSTANTIATE_TEST_SUITE_P(Paths, RenderExportsOnX,
                         ::testing::Values(Path{"Direct", 0, 0xFFFFFF},
                                           Path{"Paced25", 25, 0x000000}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace corvane::test
