// Every display operation fails in turn, once, in a stream of frames and ticks:
// each time every frame returns 0, a failed device is given up and the next
// frame rebuilds it with both lists empty, the session stays consistent, and a
// later frame is shown again. Nothing leaks (the backend counts its objects;
// the sanitizer builds check the rest).
#include <string>

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
    {"direct",
     0,
     {{Action::Frame, 1},
      {Action::Frame, 2},
      {Action::Resize},
      {Action::Frame, 3},
      {Action::Frame, 4, 48, 20},
      {Action::Frame, 5, 48, 20, 9},
      {Action::Frame, 6, 48, 20, 9}}},
    {"queued",
     25,
     {{Action::Frame, 1},
      {Action::Tick},
      {Action::Frame, 2},
      {Action::Frame, 3},
      {Action::Tick},
      {Action::Tick},
      {Action::Tick},
      {Action::Resize},
      {Action::Frame, 4},
      {Action::Tick},
      {Action::Frame, 5, 48, 20},
      {Action::Tick},
      {Action::Frame, 6, 48, 20, 9},
      {Action::Tick}}},
};

// Whether a failure of `op` makes the session give its device up. Caps and the
// client rectangle only feed decisions; the back buffer's unlock isn't read.
bool GivesDeviceUp(Op op, bool queued) {
  return op == Op::UnlockRect ? queued : op != Op::GetDeviceCaps && op != Op::GetClientRect;
}

size_t Rebuilds(const RecordingDirect3D& backend) {
  return backend.CountOf(Op::CreateDevice) + backend.CountOf(Op::Reset);
}

// Runs the scenario with call `failAt` failing, then one more frame that must
// be shown. Returns the number of calls the scenario made.
size_t RunScenario(const Scenario& scenario, size_t failAt) {
  Rig rig;
  RecordingDirect3D& backend = rig.backend;
  backend.failWhen = [failAt](size_t index, Op) { return index == failAt; };
  backend.beforeCall = [&](Op op) {
    if (op == Op::CreateDevice || op == Op::Reset) {
      EXPECT_EQ(rig.session->displayCount.load() + rig.session->freeCount.load(), 0u)
          << "lists not drained before " << OpName(op);
    }
  };
  render::SetFramesPerSecond(rig.session, scenario.fps);
  const bool queued = scenario.fps != 0;
  bool mustRebuild = false;
  for (const Action& action : scenario.actions) {
    const size_t before = backend.CallCount();
    const size_t rebuilds = Rebuilds(backend);
    switch (action.kind) {
      case Action::Frame:
        EXPECT_EQ(rig.Frame(action.number, action.width, action.height, action.window), 0);
        if (mustRebuild) {
          EXPECT_GT(Rebuilds(backend), rebuilds) << "frame " << action.number;
        }
        break;
      case Action::Tick:
        ManualTimer::Tick();
        break;
      case Action::Resize:
        backend.SetClientRect(320, 200);
        break;
    }
    ExpectListsConsistent(rig.session);
    const bool failedHere = failAt >= before && failAt < backend.CallCount();
    const Op failed = failedHere ? backend.Calls()[failAt].op : Op::GetDeviceCaps;
    if (failedHere && GivesDeviceUp(failed, queued)) {
      EXPECT_EQ(rig.session->device.load(), nullptr) << OpName(failed);
      EXPECT_TRUE(rig.session->rebuildPending.load()) << OpName(failed);
      if (action.kind == Action::Tick) {
        EXPECT_EQ(rig.session->mode.load(), render::RenderModeIdle);
      }
      mustRebuild = true;
    } else if (action.kind == Action::Frame) {
      mustRebuild = false;
    }
  }
  const size_t calls = backend.CallCount();
  EXPECT_EQ(rig.Frame(100), 0);
  if (queued) ManualTimer::Tick();
  const Call last = backend.Calls().back();
  EXPECT_EQ(last.op, Op::Present);
  EXPECT_EQ(last.value, Stamp(100));
  return calls;
}

TEST(RenderFailure, EveryOperationFailsInTurn) {
  for (const Scenario& scenario : kScenarios) {
    const size_t calls = RunScenario(scenario, SIZE_MAX);
    ASSERT_GT(calls, 20u);
    for (size_t failAt = 0; failAt < calls; ++failAt) {
      SCOPED_TRACE(std::string(scenario.name) + ", call " + std::to_string(failAt) + " fails");
      RunScenario(scenario, failAt);
      if (::testing::Test::HasFailure()) return;
    }
  }
}

TEST(RenderFailure, ADeviceThatNeverComesFailsEveryFrameQuietly) {
  Rig rig;
  bool failing = true;
  rig.backend.failWhen = [&](size_t, Op op) { return failing && op == Op::CreateDevice; };
  render::SetFramesPerSecond(rig.session, 25);
  for (uint32_t n = 1; n <= 3; ++n) EXPECT_EQ(rig.Frame(n), 0);
  EXPECT_EQ(rig.backend.CountOf(Op::CreateDevice), 3u);
  EXPECT_FALSE(ManualTimer::Running());
  failing = false;
  rig.Frame(4);
  ManualTimer::Tick();
  EXPECT_EQ(rig.backend.Calls().back().value, Stamp(4));
}

}  // namespace
}  // namespace corvane::test
