// Every display operation fails in turn, once, in a stream of frames and ticks:
// each time every frame returns 0, a failed device is given up and the next
// frame rebuilds it with both lists empty, the session stays consistent, and a
// later frame is shown again. Nothing leaks (the backend counts its objects;
// the sanitizer builds check the rest).
#include "render/render_fixture.h"

namespace corvane::test {
namespace {

struct Action {
    enum Kind { Frame, Tick, Resize } kind;
    uint32_t number = 0;
    int width = 32;
    int height = 24;
    render::WindowId window = 7;
};

struct Scenario {
    const char* name;
    int32_t fps;
    std::vector<Action> actions;
};

const Scenario kScenarios[] = {
    {"direct", 0,
     {{Action::Frame, 1}, {Action::Frame, 2}, {Action::Resize}, {Action::Frame, 3},
      {Action::Frame, 4, 48, 20}, {Action::Frame, 5, 48, 20, 9}, {Action::Frame, 6, 48, 20, 9}}},
    {"queued", 25,
     {{Action::Frame, 1}, {Action::Tick}, {Action::Frame, 2}, {Action::Frame, 3}, {Action::Tick},
      {Action::Tick}, {Action::Tick}, {Action::Resize}, {Action::Frame, 4}, {Action::Tick},
      {Action::Frame, 5, 48, 20}, {Action::Tick}, {Action::Frame, 6, 48, 20, 9}, {Action::Tick}}},
};

// Whether a failure of `op` makes the session give its device up. Caps and the
// client rectangle only feed decisions; the back buffer's unlock isn't read.
bool GivesDeviceUp(Op op, bool queued) {
    switch (op) {
        case Op::GetDeviceCaps:
        case Op::GetClientRect: return false;
        case Op::UnlockRect: return queued;
        default: return true;
    }
}

class RenderFailureTest : public RecordingSession {
protected:
    // Runs the scenario with call `failAt` failing, then one more frame that
    // must be shown. Returns the number of calls made.
    size_t Run(const Scenario& scenario, size_t failAt) {
        Open();
        if (session == nullptr) return 0;
        backend.FailCall(failAt);
        backend.beforeCall = [this](Op op) {
            if (op == Op::CreateDevice || op == Op::Reset) {
                EXPECT_EQ(session->displayCount.load() + session->freeCount.load(), 0u)
                    << "lists not drained before " << OpName(op);
            }
        };
        render::SetFramesPerSecond(session, scenario.fps);
        const bool queued = scenario.fps != 0;
        bool mustRebuild = false;
        for (const Action& action : scenario.actions) {
            const size_t before = backend.CallCount();
            switch (action.kind) {
                case Action::Frame: {
                    EXPECT_EQ(Frame(action.number, action.width, action.height, action.window), 0);
                    const size_t rebuilds = backend.CountOf(Op::CreateDevice) + backend.CountOf(Op::Reset);
                    if (mustRebuild) {
                        EXPECT_GT(rebuilds, rebuildsBefore_) << "frame " << action.number;
                    }
                    break;
                }
                case Action::Tick: ManualTimer::Tick(); break;
                case Action::Resize: backend.SetClientRect(320, 200); break;
            }
            const size_t after = backend.CallCount();
            ExpectListsConsistent(session);
            if (failAt >= before && failAt < after) {
                const Op failed = backend.Calls()[failAt].op;
                if (GivesDeviceUp(failed, queued)) {
                    EXPECT_EQ(session->device.load(), nullptr) << OpName(failed);
                    EXPECT_TRUE(session->rebuildPending.load()) << OpName(failed);
                    if (action.kind == Action::Tick) {
                        EXPECT_EQ(session->mode.load(), render::RenderModeIdle);
                    }
                    mustRebuild = true;
                }
            } else if (action.kind == Action::Frame) {
                mustRebuild = false;
            }
            rebuildsBefore_ = backend.CountOf(Op::CreateDevice) + backend.CountOf(Op::Reset);
        }
        const size_t calls = backend.CallCount();
        EXPECT_EQ(Frame(100), 0);
        if (queued) ManualTimer::Tick();
        const auto log = backend.Calls();
        EXPECT_EQ(log.back().op, Op::Present);
        EXPECT_EQ(log.back().stamp, Stamp(100));
        return calls;
    }

    void Close() {
        TearDown();
        session = nullptr;
        backend.Forget();
    }

    size_t rebuildsBefore_ = 0;
};

TEST_F(RenderFailureTest, EveryOperationFailsInTurn) {
    for (const Scenario& scenario : kScenarios) {
        const size_t calls = Run(scenario, SIZE_MAX);
        Close();
        ASSERT_GT(calls, 20u);
        for (size_t failAt = 0; failAt < calls; ++failAt) {
            SCOPED_TRACE(std::string(scenario.name) + ", call " + std::to_string(failAt) + " fails");
            Run(scenario, failAt);
            Close();
            if (HasFailure()) return;
        }
    }
}

TEST_F(RenderFailureTest, ADeviceThatNeverComesFailsEveryFrameQuietly) {
    Open();
    backend.FailEvery(Op::CreateDevice);
    render::SetFramesPerSecond(session, 25);
    for (uint32_t n = 1; n <= 3; ++n) EXPECT_EQ(Frame(n), 0);
    EXPECT_EQ(backend.CountOf(Op::CreateDevice), 3u);
    EXPECT_FALSE(ManualTimer::Running());
    backend.FailEvery(Op::CreateDevice, false);
    Frame(4);
    ManualTimer::Tick();
    EXPECT_EQ(backend.Calls().back().stamp, Stamp(4));
}

}  // namespace
}  // namespace corvane::test
