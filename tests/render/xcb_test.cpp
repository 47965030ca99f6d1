// The X11 backend against a real X server (the test command starts Xvfb), with
// shared memory and with plain put-image requests: what reaches the window is
// read back and compared with the frame stretched over the client area. The
// queued path on X goes through the exports' tests.
#include <cstdlib>
#include <string>

#include "render/render_fixture.h"
#include "render/x_window.h"

namespace corvane::test {
namespace {

constexpr uint32_t kWhite = 0xFFFFFF;  // the direct path's clear, in the unconverted last row

class XcbRenderTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (TestConnection() == nullptr) GTEST_SKIP() << "no X server answers on DISPLAY";
    process_.direct3d = render::CreateXcbDirect3D(nullptr, GetParam());
    process_.renderInitMutex = platform::CreateMutex("RenderInitMutex");
    session_ = render::OpenRenderSession(process_);
    ASSERT_NE(session_, nullptr);
  }
  void TearDown() override {
    render::CloseRenderSession(session_);
    platform::CloseMutex(process_.renderInitMutex);
    if (process_.direct3d != nullptr) process_.direct3d->Release();
  }
  // Shows frame `number` at once and reads the window back.
  int Show(const XWindow& window, int fw, int fh, uint32_t number) {
    const auto frame = MakeFrame(fw, fh, number, fw * 31 + fh);
    EXPECT_EQ(render::SubmitFrame(session_, window.id(), frame.data(), fw, fh), 0);
    return window.Mismatches(frame.data(), fw, fh, kWhite);
  }

  render::RenderProcess process_;
  render::RenderSession* session_ = nullptr;
};

TEST_P(XcbRenderTest, FramesFollowEveryChangeOnOneDeviceUntilTheWindowGoes) {
  struct Step {
    int fw, fh, ww, wh;
  };
  const Step steps[] = {{33, 17, 33, 17},
                        {96, 64, 200, 150},
                        {200, 150, 97, 61},
                        {320, 180, 160, 90},
                        {5, 3, 64, 64}};
  XWindow window(96, 64, 0, 0);
  uint32_t number = 1;
  ASSERT_EQ(Show(window, 96, 64, number++), 0);
  render::IDirect3DDevice9* device = session_->device.load();
  for (const Step& s : steps) {
    window.Resize(s.ww, s.wh);
    EXPECT_EQ(Show(window, s.fw, s.fh, number++), 0)
        << s.fw << "x" << s.fh << " into " << s.ww << "x" << s.wh;
  }
  XWindow other(80, 60, 0, 0);
  EXPECT_EQ(Show(other, 64, 40, number++), 0) << "another window";
  EXPECT_EQ(session_->device.load(), device) << "a change takes a reset, not a new device";

  const xcb_window_t gone = other.id();
  other.Destroy();
  const auto frame = MakeFrame(64, 40, number++);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(render::SubmitFrame(session_, gone, frame.data(), 64, 40), 0);
  EXPECT_EQ(session_->device.load(), nullptr);
  XWindow third(64, 48, 0, 0);
  EXPECT_EQ(Show(third, 64, 48, number++), 0) << "a new window after a destroyed one";
}

INSTANTIATE_TEST_SUITE_P(SharedMemoryAndPlain, XcbRenderTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "SharedMemory" : "PutImage"; });

// No server answering: no device is ever made, every call returns as usual.
void RunWithoutServer(const char* display) {
  render::IDirect3D9* direct3d = render::CreateXcbDirect3D(display);
  ASSERT_NE(direct3d, nullptr);
  render::RenderProcess process;
  process.direct3d = direct3d;
  render::RenderSession* session = render::OpenRenderSession(process);
  ASSERT_NE(session, nullptr);
  const auto frame = MakeFrame(16, 16, 1);
  for (int fps : {0, 25}) {
    EXPECT_EQ(render::SetFramesPerSecond(session, fps), 0);
    for (int i = 0; i < 3; ++i)
      EXPECT_EQ(render::SubmitFrame(session, 0x200001, frame.data(), 16, 16), 0);
    EXPECT_EQ(session->device.load(), nullptr);
  }
  render::CloseRenderSession(session);
  direct3d->Release();
}

TEST(XcbRenderNoServer, EveryCallReturnsAsDesignedWithoutAServer) {
  RunWithoutServer(":87");
  const char* display = std::getenv("DISPLAY");
  const std::string saved = display != nullptr ? display : "";
  unsetenv("DISPLAY");
  RunWithoutServer(nullptr);
  if (display != nullptr) setenv("DISPLAY", saved.c_str(), 1);
}

}  // namespace
}  // namespace corvane::test
