// Render sessions on the recording backend with a hand-driven timer: the rate
// arithmetic, the path each mode takes, what each rebuild does, and the pixels
// a frame leaves in the back buffer.
#include "render/render_fixture.h"

namespace corvane::test {
namespace {

using render::RenderModeArmed;
using render::RenderModeIdle;
using render::RenderModeQueued;
using render::RenderModeRebuild;

TEST(RenderRate, PeriodTruncatesAndLimitIsHalfTheRate) {
  struct Row {
    int32_t fps, periodMs, limit;
  };
  const Row rows[] = {{1, 1000, 0}, {5, 200, 2},  {15, 66, 7},    {24, 41, 12},    {25, 40, 12},
                      {30, 33, 15}, {60, 16, 30}, {1000, 1, 500}, {2000, 0, 1000}, {-10, -100, -5}};
  for (const Row& row : rows) {
    EXPECT_EQ(render::PresentationPeriodMs(row.fps), row.periodMs) << row.fps << " fps";
    EXPECT_EQ(render::SurfaceLimitFor(row.fps), row.limit) << row.fps << " fps";
  }
}

TEST(RenderSession, SessionsShareTheNamedMutexesButNotTheirLists) {
  Rig a, b;
  EXPECT_EQ(a.session->freeMutex, b.session->freeMutex);
  EXPECT_EQ(a.session->displayMutex, b.session->displayMutex);
  EXPECT_EQ(a.session->deviceMutex, b.session->deviceMutex);
  EXPECT_EQ(a.session->tickMutex, b.session->tickMutex);
  EXPECT_EQ(a.session->timerMutex, b.session->timerMutex);
  EXPECT_NE(a.session->freeSurfaces, b.session->freeSurfaces);
}

TEST(RenderSession, RateZeroShowsEveryFrameAtOnceOnOneDeviceAndBadFramesDoNothing) {
  for (uint32_t caps : {0u, 1u}) {
    Rig rig;
    rig.backend.vertexProcessingCaps = caps;
    const auto frame = MakeFrame(8, 8, 1);
    EXPECT_EQ(render::SubmitFrame(rig.session, 7, nullptr, 8, 8), 0);
    EXPECT_EQ(render::SubmitFrame(rig.session, 7, frame.data(), 0, 8), 0);
    EXPECT_EQ(render::SubmitFrame(rig.session, 7, frame.data(), 8, -8), 0);
    EXPECT_EQ(rig.backend.CallCount(), 0u);

    EXPECT_EQ(rig.Frame(1), 0);
    EXPECT_EQ(rig.session->mode.load(), RenderModeRebuild);
    EXPECT_FALSE(ManualTimer::Running());
    EXPECT_EQ(rig.Frame(2), 0);
    // Multithreaded, with hardware vertex processing where the caps offer it.
    EXPECT_EQ(rig.backend.ValuesOf(Op::CreateDevice), std::vector<uint32_t>{caps ? 0x44u : 0x24u});
    EXPECT_EQ(rig.backend.CountOf(Op::Reset), 0u);
    EXPECT_EQ(rig.backend.ValuesOf(Op::Present), (std::vector<uint32_t>{Stamp(1), Stamp(2)}));
  }
}

TEST(RenderSession, RateQueuesFramesOldestFirstAndEachChangeRebuildsByReset) {
  Rig rig;
  EXPECT_EQ(render::SetFramesPerSecond(rig.session, 25), 0);
  EXPECT_EQ(rig.Frame(1), 0);
  EXPECT_EQ(ManualTimer::created, 1);
  EXPECT_EQ(ManualTimer::due, 40u);
  EXPECT_EQ(ManualTimer::period, 40u);
  EXPECT_EQ(rig.session->mode.load(), RenderModeArmed);
  EXPECT_EQ(rig.session->displayCount.load(), 1u);
  EXPECT_EQ(rig.backend.CountOf(Op::Present), 0u);
  rig.Frame(2);
  ManualTimer::Tick();
  EXPECT_EQ(rig.session->mode.load(), RenderModeQueued);
  ManualTimer::Tick();
  const size_t callsBefore = rig.backend.CallCount();
  ManualTimer::Tick();  // nothing waits: no device call, the mode stays
  EXPECT_EQ(rig.backend.CallCount(), callsBefore);
  EXPECT_EQ(rig.session->mode.load(), RenderModeQueued);
  rig.Frame(3);  // reuses the surface given back first
  ManualTimer::Tick();
  EXPECT_EQ(rig.backend.CountOf(Op::CreateOffscreenPlainSurface), 2u);
  EXPECT_EQ(rig.backend.ValuesOf(Op::UpdateSurface),
            (std::vector<uint32_t>{Stamp(1), Stamp(2), Stamp(3)}));
  EXPECT_EQ(rig.backend.CountOf(Op::Present), 3u);
  ExpectListsConsistent(rig.session);

  struct Step {
    const char* what;
    int w, h;
    render::WindowId window;
  };
  const Step steps[] = {{"client area resized", 32, 24, 7},
                        {"new frame size", 48, 20, 7},
                        {"another window", 48, 20, 9}};
  rig.Frame(4);  // waits, with two surfaces free: each rebuild drains both lists
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    rig.backend.SetClientRect(300, 200);
    const int created = ManualTimer::created;
    const size_t resets = rig.backend.CountOf(Op::Reset);
    EXPECT_EQ(rig.Frame(10, step.w, step.h, step.window), 0);
    EXPECT_EQ(rig.backend.CountOf(Op::Reset), resets + 1);
    EXPECT_EQ(ManualTimer::created, created + 1);
    EXPECT_EQ(rig.session->displayCount.load(),
              1u);  // the queue was drained; only this frame waits
    EXPECT_EQ(rig.session->freeCount.load(), 0u);
    EXPECT_EQ(rig.session->mode.load(), RenderModeArmed);
  }
  EXPECT_EQ(rig.backend.CountOf(Op::CreateDevice), 1u);
  rig.Frame(11, 48, 20, 9);  // the same again changes nothing
  EXPECT_EQ(rig.backend.CountOf(Op::Reset), 3u);
}

TEST(RenderSession, RateChangesTakeEffectAtTheNextFrame) {
  Rig rig;
  render::SetFramesPerSecond(rig.session, 1);  // limit 0: every queued frame is dropped
  EXPECT_EQ(rig.Frame(1), 0);
  EXPECT_EQ(rig.session->displayCount.load(), 0u);
  EXPECT_EQ(rig.backend.CountOf(Op::CreateOffscreenPlainSurface), 0u);
  EXPECT_EQ(render::SetFramesPerSecond(rig.session, 1), 0);  // same rate: nothing changes
  EXPECT_FALSE(rig.session->rebuildPending.load());
  render::SetFramesPerSecond(rig.session, 0);
  ManualTimer::Tick();  // a rate change stops presentation until the rebuild
  EXPECT_EQ(rig.session->mode.load(), RenderModeIdle);
  EXPECT_EQ(rig.Frame(2), 0);
  EXPECT_FALSE(ManualTimer::Running());
  render::SetFramesPerSecond(rig.session, -10);  // no timer runs on a negative period
  EXPECT_EQ(rig.Frame(3), 0);
  EXPECT_FALSE(ManualTimer::Running());
  EXPECT_EQ(rig.backend.ValuesOf(Op::Present), (std::vector<uint32_t>{Stamp(2), Stamp(3)}));
  render::SetFramesPerSecond(rig.session, 5000);  // above 1000: due at once, fires once
  rig.Frame(4);
  EXPECT_TRUE(ManualTimer::Running());
  EXPECT_EQ(ManualTimer::due, 0u);
  EXPECT_EQ(ManualTimer::period, 0u);
}

// What the last frame presented: rows 0 to height - 2 are the frame widened to
// BGRX; the last row is white after the direct path's clear, and keeps the
// surface's old pixels after the queued path.
void ExpectShown(const render::RenderSession* session, const std::vector<uint8_t>& frame, int w,
                 int h, uint8_t lastRowByte) {
  std::vector<uint8_t> expected(static_cast<size_t>(w) * h * 4, lastRowByte);
  for (int i = 0; i < w * (h - 1); ++i) {
    std::memcpy(&expected[i * 4], &frame[i * 3], 3);
    expected[i * 4 + 3] = 0xFF;
  }
  EXPECT_EQ(static_cast<RecordingDevice*>(session->device.load())->shown, expected)
      << w << "x" << h;
}

TEST(RenderSession, FramesAreWidenedRowForRowButTheLast) {
  Rig rig;
  const int sizes[][2] = {{1, 2}, {3, 3}, {17, 5}, {64, 48}, {33, 1}, {101, 7}};
  for (const auto& size : sizes) {
    const auto frame = MakeFrame(size[0], size[1], 5, size[0]);
    render::SubmitFrame(rig.session, 7, frame.data(), size[0], size[1]);
    ExpectShown(rig.session, frame, size[0], size[1], 0xFF);
  }
  render::SetFramesPerSecond(rig.session, 10);
  const auto frame = MakeFrame(19, 6, 6);
  render::SubmitFrame(rig.session, 7, frame.data(), 19, 6);
  ManualTimer::Tick();
  ExpectShown(rig.session, frame, 19, 6, 0xAB);
}

}  // namespace
}  // namespace corvane::test
