// Render sessions on the recording backend with a hand-driven timer: the rate
// arithmetic, the path each mode takes, what each rebuild does, and the pixels
// a frame leaves in the back buffer.
#include <cstring>

#include "render/render_fixture.h"

namespace corvane::test {
namespace {

using render::RenderModeArmed;
using render::RenderModeIdle;
using render::RenderModeQueued;
using render::RenderModeRebuild;

TEST(RenderRate, PeriodTruncatesAndLimitIsHalfTheRate) {
    struct Row { int32_t fps, periodMs, limit; };
    const Row rows[] = {{1, 1000, 0},  {5, 200, 2},  {10, 100, 5},  {15, 66, 7},
                        {24, 41, 12},  {25, 40, 12}, {30, 33, 15},  {50, 20, 25},
                        {60, 16, 30},  {100, 10, 50}, {1000, 1, 500}, {2000, 0, 1000},
                        {-10, -100, -5}};
    for (const Row& row : rows) {
        EXPECT_EQ(render::PresentationPeriodMs(row.fps), row.periodMs) << row.fps << " fps";
        EXPECT_EQ(render::SurfaceLimitFor(row.fps), row.limit) << row.fps << " fps";
    }
}

TEST(RenderLists, FirstInFirstOutAndSessionsShareTheirMutexes) {
    RecordingDirect3D backend;
    render::RenderProcess process;
    process.direct3d = &backend;
    render::RenderSession* a = render::OpenRenderSession(process);
    render::RenderSession* b = render::OpenRenderSession(process);
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->freeMutex, b->freeMutex);
    EXPECT_EQ(a->displayMutex, b->displayMutex);
    EXPECT_EQ(a->deviceMutex, b->deviceMutex);
    EXPECT_EQ(a->tickMutex, b->tickMutex);
    EXPECT_EQ(a->timerMutex, b->timerMutex);
    EXPECT_NE(a->freeSurfaces, b->freeSurfaces);

    render::IDirect3DDevice9* device = nullptr;
    ASSERT_EQ(backend.CreateDevice(1, 0, {}, &device), 0);
    render::IDirect3DSurface9* surfaces[3];
    for (auto& s : surfaces) ASSERT_EQ(device->CreateOffscreenPlainSurface(4, 4, &s), 0);
    for (auto* s : surfaces) render::AppendSurface(a->freeSurfaces, a->freeCount, s);
    ExpectListsConsistent(a);
    EXPECT_EQ(render::TakeSurface(a->freeSurfaces, a->freeCount), surfaces[0]);
    surfaces[0]->Release();
    render::DrainSurfaces(a);
    EXPECT_EQ(a->freeCount.load(), 0u);
    EXPECT_EQ(a->freeSurfaces->next, a->freeSurfaces);
    EXPECT_EQ(a->freeSurfaces->previous, a->freeSurfaces);
    EXPECT_EQ(backend.liveSurfaces.load(), 0);
    device->Release();
    render::CloseRenderSession(a);
    render::CloseRenderSession(b);
    EXPECT_EQ(backend.liveDevices.load(), 0);
}

using RenderSessionTest = RecordingSession;

TEST_F(RenderSessionTest, BadFramesDoNothing) {
    Open();
    const auto frame = MakeFrame(8, 8, 1);
    EXPECT_EQ(render::SubmitFrame(session, 7, nullptr, 8, 8), 0);
    EXPECT_EQ(render::SubmitFrame(session, 7, frame.data(), 0, 8), 0);
    EXPECT_EQ(render::SubmitFrame(session, 7, frame.data(), 8, -8), 0);
    EXPECT_EQ(backend.CallCount(), 0u);
}

TEST_F(RenderSessionTest, RateZeroShowsEveryFrameAtOnceOnOneDevice) {
    Open();
    backend.vertexProcessingCaps = 0;
    EXPECT_EQ(Frame(1), 0);
    EXPECT_EQ(session->mode.load(), RenderModeRebuild);
    EXPECT_FALSE(ManualTimer::Running());
    EXPECT_EQ(Frame(2), 0);
    EXPECT_EQ(backend.CountOf(Op::CreateDevice), 1u);
    EXPECT_EQ(backend.CountOf(Op::Reset), 0u);
    std::vector<uint32_t> shown;
    for (const Call& c : backend.Calls()) {
        if (c.op == Op::CreateDevice) {
            EXPECT_EQ(c.flags, 0x24u);
        }
        if (c.op == Op::Present) shown.push_back(c.stamp);
    }
    EXPECT_EQ(shown, (std::vector<uint32_t>{Stamp(1), Stamp(2)}));
}

TEST_F(RenderSessionTest, RateQueuesFramesForTheTicksOldestFirst) {
    Open();
    EXPECT_EQ(render::SetFramesPerSecond(session, 25), 0);
    EXPECT_EQ(Frame(1), 0);
    EXPECT_EQ(ManualTimer::created, 1);
    EXPECT_EQ(ManualTimer::due, 40u);
    EXPECT_EQ(ManualTimer::period, 40u);
    EXPECT_EQ(session->mode.load(), RenderModeArmed);
    EXPECT_EQ(session->displayCount.load(), 1u);
    EXPECT_EQ(backend.CountOf(Op::Present), 0u);
    Frame(2);
    ManualTimer::Tick();
    EXPECT_EQ(session->mode.load(), RenderModeQueued);
    ManualTimer::Tick();
    const size_t callsBefore = backend.CallCount();
    ManualTimer::Tick();  // nothing waits: no device call, the mode stays
    EXPECT_EQ(backend.CallCount(), callsBefore);
    EXPECT_EQ(session->mode.load(), RenderModeQueued);
    Frame(3);  // reuses the surface given back first
    ManualTimer::Tick();
    EXPECT_EQ(backend.CountOf(Op::CreateOffscreenPlainSurface), 2u);
    std::vector<uint32_t> shown;
    for (const Call& c : backend.Calls()) {
        if (c.op == Op::UpdateSurface) shown.push_back(c.stamp);
    }
    EXPECT_EQ(shown, (std::vector<uint32_t>{Stamp(1), Stamp(2), Stamp(3)}));
    EXPECT_EQ(backend.CountOf(Op::Present), 3u);
    ExpectListsConsistent(session);
}

TEST_F(RenderSessionTest, EachChangeRebuildsByResetAndStartsAnew) {
    Open();
    render::SetFramesPerSecond(session, 25);
    struct Step { const char* what; int w, h; render::WindowId window; int clientW; };
    const Step steps[] = {{"client area resized", 32, 24, 7, 300},
                          {"new frame size", 48, 20, 7, 300},
                          {"another window", 48, 20, 9, 300}};
    Frame(1);
    Frame(2);
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        backend.SetClientRect(step.clientW, 200);
        const int created = ManualTimer::created;
        const size_t resets = backend.CountOf(Op::Reset);
        EXPECT_EQ(Frame(10, step.w, step.h, step.window), 0);
        EXPECT_EQ(backend.CountOf(Op::Reset), resets + 1);
        EXPECT_EQ(ManualTimer::created, created + 1);
        EXPECT_EQ(session->displayCount.load(), 1u);  // the queue was drained; only this frame waits
        EXPECT_EQ(session->freeCount.load(), 0u);
        EXPECT_EQ(session->mode.load(), RenderModeArmed);
    }
    EXPECT_EQ(backend.CountOf(Op::CreateDevice), 1u);
    // The same frame again changes nothing.
    const size_t calls = backend.CountOf(Op::Reset);
    Frame(11, 48, 20, 9);
    EXPECT_EQ(backend.CountOf(Op::Reset), calls);
}

TEST_F(RenderSessionTest, RateChangesTakeEffectAtTheNextFrame) {
    Open();
    render::SetFramesPerSecond(session, 1);  // limit 0: every queued frame is dropped
    EXPECT_EQ(Frame(1), 0);
    EXPECT_EQ(session->displayCount.load(), 0u);
    EXPECT_EQ(backend.CountOf(Op::CreateOffscreenPlainSurface), 0u);
    EXPECT_EQ(render::SetFramesPerSecond(session, 1), 0);  // same rate: nothing changes
    EXPECT_FALSE(session->rebuildPending.load());
    render::SetFramesPerSecond(session, 0);
    ManualTimer::Tick();  // a rate change stops presentation until the rebuild
    EXPECT_EQ(session->mode.load(), RenderModeIdle);
    EXPECT_EQ(Frame(2), 0);
    EXPECT_FALSE(ManualTimer::Running());
    EXPECT_EQ(backend.CountOf(Op::Present), 1u);
    EXPECT_EQ(backend.Calls().back().stamp, Stamp(2));
}

TEST_F(RenderSessionTest, RateAboveOneThousandFiresAtOnceAndOnce) {
    Open();
    render::SetFramesPerSecond(session, 5000);
    Frame(1);
    EXPECT_EQ(ManualTimer::due, 0u);
    EXPECT_EQ(ManualTimer::period, 0u);
}

// The back buffer after a frame: rows 0 to height - 2 are the frame widened to
// BGRX; the last row is white after the direct path's clear, and keeps the
// surface's old pixels after the queued path.
void ExpectShown(const RecordingDirect3D& backend, const std::vector<uint8_t>& frame, int w, int h,
                 uint8_t lastRowByte) {
    uint32_t pw = 0, ph = 0;
    const std::vector<uint8_t> shown = backend.LastPresented(&pw, &ph);
    ASSERT_EQ(pw, static_cast<uint32_t>(w));
    ASSERT_EQ(ph, static_cast<uint32_t>(h));
    std::vector<uint8_t> expected(shown.size(), lastRowByte);
    for (int y = 0; y + 1 < h; ++y) {
        for (int x = 0; x < w; ++x) {
            std::memcpy(&expected[(y * w + x) * 4], &frame[(y * w + x) * 3], 3);
            expected[(y * w + x) * 4 + 3] = 0xFF;
        }
    }
    EXPECT_EQ(shown, expected) << w << "x" << h;
}

TEST_F(RenderSessionTest, FramesAreWidenedRowForRowButTheLast) {
    Open();
    const int sizes[][2] = {{1, 2}, {3, 3}, {17, 5}, {64, 48}, {33, 1}, {101, 7}};
    for (const auto& size : sizes) {
        const auto frame = MakeFrame(size[0], size[1], 5, size[0]);
        render::SubmitFrame(session, 7, frame.data(), size[0], size[1]);
        ExpectShown(backend, frame, size[0], size[1], 0xFF);
    }
    render::SetFramesPerSecond(session, 10);
    const auto frame = MakeFrame(19, 6, 6);
    render::SubmitFrame(session, 7, frame.data(), 19, 6);
    ManualTimer::Tick();
    ExpectShown(backend, frame, 19, 6, 0xAB);
}

}  // namespace
}  // namespace corvane::test
