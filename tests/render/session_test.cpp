// Render sessions on the recording backend: scenarios run as they are and with
// each display call failing in turn; the device mutex held by another process;
// sessions under load.
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "support/render_rig.h"

namespace corvane::test {
namespace {

using namespace std::chrono_literals;

TEST(RenderRate, PeriodTruncatesAndLimitIsHalfTheRate) {
  const int32_t rows[][3] = {{1, 1000, 0},    {5, 200, 2},    {15, 66, 7},  {24, 41, 12},
                             {25, 40, 12},    {30, 33, 15},   {60, 16, 30}, {1000, 1, 500},
                             {2000, 0, 1000}, {-10, -100, -5}};
  for (const auto& [fps, period, limit] : rows)
    EXPECT_EQ(std::pair(render::PresentationPeriodMs(fps), render::SurfaceLimitFor(fps)),
              std::pair(period, limit))
        << fps;
}

struct Step {
  char kind;  // 'F' frame `value`, 'T' tick, 'R' client area resized, 'S' `value` frames a second
  int32_t value = 0;
  int width = 32, height = 24;
  render::WindowId window = 7;
};
Step F(int32_t n, int w = 32, int h = 24, render::WindowId window = 7) {
  return {'F', n, w, h, window};
}
Step S(int32_t fps) { return {'S', fps}; }
const Step T{'T'}, R{'R'};

struct Scenario {
  uint32_t caps;  // vertex processing: in hardware if any
  std::vector<Step> steps;
  std::vector<int32_t> shown;  // the frames presented when nothing fails
  size_t resets;               // rebuilds of the one device when nothing fails
};

const Scenario kScenarios[] = {
    // Drawn at once: each change of client area, frame size or window rebuilds.
    // The last row isn't converted: a frame of one row shows the clear's white.
    {1,
     {F(1), F(2), R, F(3), F(4, 48, 20), F(5, 48, 21), F(6, 48, 21, 9), F(7, 48, 21, 9), F(8, 1, 2),
      F(9, 3, 3), F(10, 17, 5), F(11, 101, 7), F(12, 33, 1)},
     {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0xFFFFFF},
     9},
    // Queued: oldest first; a rebuild drops what waits (4).
    {0,
     {S(25), F(1), T, F(2), F(3), T, T, T, F(4), R, F(5), T, F(6, 48, 20), T, F(7, 48, 20, 9), T},
     {1, 2, 3, 5, 6, 7},
     3},
    // A rate takes effect at the next frame: at 1 a second no frame may wait
    // (2 goes), 0 and below draw at once, above 1000 the timer is due at once.
    {1, {F(1), S(1), F(2), S(1), S(0), T, F(3), S(-10), F(4), S(5000), F(5), T}, {1, 3, 4, 5}, 4}};

// Runs the scenario with call `failAt` failing, then one more frame, which
// must be shown. Returns the number of calls the scenario made.
size_t RunScenario(const Scenario& scenario, size_t failAt) {
  Rig rig;
  Backend& backend = rig.backend;
  backend.caps = scenario.caps;
  backend.failWhen = [failAt](size_t index, Op) { return index == failAt; };
  backend.beforeCall = [&](Op op) {  // a rebuild finds both lists drained
    const bool rebuild = op == Op::CreateDevice || op == Op::Reset;
    EXPECT_EQ(rebuild ? rig.session->displayCount + rig.session->freeCount : 0, 0u);
  };
  auto rebuilds = [&] {
    return backend.ValuesOf(Op::CreateDevice).size() + backend.ValuesOf(Op::Reset).size();
  };
  int32_t fps = 0, timerFps = 0;  // the rate now, and at the last rebuild
  bool mustRebuild = false;
  for (const Step& step : scenario.steps) {
    const size_t calls = backend.Calls().size(), rebuilt = rebuilds(),
                 shown = backend.ValuesOf(Op::Present).size();
    if (step.kind == 'F') {
      EXPECT_EQ(rig.Frame(step.value, step.width, step.height, step.window), 0);
      EXPECT_TRUE(!mustRebuild || rebuilds() > rebuilt) << "no rebuild at frame " << step.value;
      timerFps = rebuilds() > rebuilt ? fps : timerFps;
    }
    if (step.kind == 'T') ManualTimer::Tick();
    if (step.kind == 'R') backend.client = {0, 0, 320, 200};
    EXPECT_EQ(step.kind == 'S' ? render::SetFramesPerSecond(rig.session, fps = step.value) : 0, 0);
    const uint32_t period = timerFps > 0 ? render::PresentationPeriodMs(timerFps) : 0;
    EXPECT_EQ(ManualTimer::callback ? std::pair(ManualTimer::due, ManualTimer::period)
                                    : std::pair(period, period),
              std::pair(period, period));
    const std::vector<Backend::Call> log = backend.Calls();
    const std::vector<uint32_t> presents = backend.ValuesOf(Op::Present);
    if (failAt == SIZE_MAX && presents.size() > shown) {
      EXPECT_EQ(presents.back(), Stamp(scenario.shown[shown]));
    }
    // Caps and the client area only feed decisions; the back buffer's unlock isn't read.
    const Op failed = failAt >= calls && failAt < log.size() ? log[failAt].op : Op::GetDeviceCaps;
    if (failed != Op::GetDeviceCaps && failed != Op::GetClientRect &&
        (failed != Op::UnlockRect || fps > 0)) {
      EXPECT_EQ(rig.session->device.load(), nullptr);
      EXPECT_TRUE(rig.session->rebuildPending.load());
      mustRebuild = true;
    } else if (step.kind == 'F') {
      mustRebuild = false;
    }
  }
  const size_t calls = backend.Calls().size();
  if (failAt == SIZE_MAX) {
    EXPECT_EQ(backend.ValuesOf(Op::Present).size(), scenario.shown.size());
    // Multithreaded, vertex processing in hardware where the caps offer it.
    EXPECT_EQ(backend.ValuesOf(Op::CreateDevice),
              std::vector<uint32_t>{scenario.caps ? 0x44u : 0x24u});
    EXPECT_EQ(backend.ValuesOf(Op::Reset).size(), scenario.resets);
  }
  EXPECT_EQ(rig.Frame(100), 0);
  if (fps > 0) ManualTimer::Tick();
  EXPECT_EQ(backend.ValuesOf(Op::Present).back(), Stamp(100));
  return calls;
}

TEST(RenderSession, ScenariosShowTheirFramesAndSurviveEveryFailure) {
  for (const Scenario& scenario : kScenarios) {
    const size_t calls = RunScenario(scenario, SIZE_MAX);
    for (size_t failAt = 0; failAt < calls && !::testing::Test::HasFailure(); ++failAt) {
      SCOPED_TRACE("call " + std::to_string(failAt) + " of " +
                   std::to_string(scenario.steps.size()) + " steps fails");
      RunScenario(scenario, failAt);
    }
  }
}

TEST(RenderSession, BadFramesReachNoDisplayCall) {
  Rig rig;
  const auto frame = MakeFrame(8, 8, 1);
  for (const auto& [pixels, w, h] :
       {std::tuple(frame.data(), 0, 8), std::tuple(frame.data(), 8, -8),
        std::tuple<const uint8_t*, int, int>(nullptr, 8, 8)})
    EXPECT_EQ(render::SubmitFrame(rig.session, 7, pixels, w, h), 0);
  EXPECT_EQ(rig.backend.Calls().size(), 0u);
}

// "RenderDeviceMutex" is shared by every render session of every process of
// the user. A child, forked before the session starts a thread, takes it when
// told, lets go a second later at the latest (a frame that waits fails the
// test instead of hanging it) or `lingerMs` after it is told.
struct Holder {
  explicit Holder(int lingerMs) {
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fd) != 0 || (child = fork()) < 0) std::abort();
    if (child == 0) {
      char byte;
      if (read(fd[1], &byte, 1) != 1) _exit(1);
      platform::Mutex* mutex = platform::CreateMutex("RenderDeviceMutex");
      platform::WaitMutex(mutex);
      pollfd letGo{fd[1], POLLIN, 0};
      if (write(fd[1], "h", 1) != 1 || poll(&letGo, 1, 1000) < 0) _exit(1);
      usleep(static_cast<useconds_t>(lingerMs) * 1000);
      platform::ReleaseMutex(mutex);
      _exit(0);
    }
  }
  void Take() {
    char byte;
    if (write(fd[0], "t", 1) != 1 || read(fd[0], &byte, 1) != 1) std::abort();
  }
  void LetGo() {
    if (write(fd[0], "g", 1) != 1) std::abort();
  }
  ~Holder() {
    if (write(fd[0], "t", 1) != 1 || waitpid(child, nullptr, 0) != child) ADD_FAILURE();
    close(fd[0]), close(fd[1]);
  }
  int fd[2];
  pid_t child;
};

// It delays no frame on the direct or the queued path; only a rebuild waits.
TEST(RenderDeviceMutex, AnotherOwnerHoldingItDelaysNoFrameOnlyARebuild) {
  using Clock = std::chrono::steady_clock;
  constexpr auto kLinger = 300ms;
  for (const int32_t fps : {0, 25}) {
    SCOPED_TRACE(fps == 0 ? "direct" : "queued");
    Holder holder(kLinger / 1ms);
    Rig rig;
    render::SetFramesPerSecond(rig.session, fps);
    rig.Frame(1);  // builds the device while nobody holds the mutex
    holder.Take();
    Clock::duration slowest{};
    for (uint32_t n = 2; n < 8; ++n) {
      const Clock::time_point start = Clock::now();
      rig.Frame(n);
      slowest = std::max(slowest, Clock::now() - start);
    }
    EXPECT_LT(slowest, 100ms);
    EXPECT_EQ(rig.backend.ValuesOf(fps == 0 ? Op::Present : Op::CreateOffscreenPlainSurface).size(),
              7u);
    // A new frame size resets the device under the mutex: that one waits.
    holder.LetGo();
    const Clock::time_point start = Clock::now();
    rig.Frame(8, 48, 20);
    EXPECT_GE(Clock::now() - start, kLinger * 6 / 10);
    EXPECT_EQ(rig.backend.ValuesOf(Op::Reset).size(), 1u);
  }
}

// Without that lock on the frame path, a device a tick gives up must live on
// until the frame drawing with it is done. The tick runs inside the frame's
// own device call, as it may on its thread at that moment, and its present fails.
TEST(RenderDeviceMutex, ADeviceATickGivesUpLivesOnUntilTheFrameUsingItIsDone) {
  Rig rig;
  render::SetFramesPerSecond(rig.session, 25);
  rig.Frame(1);
  int liveBefore = -1, liveAfter = 0;  // the backend's devices and surfaces around the tick
  rig.backend.failWhen = [](size_t, Op op) { return op == Op::Present; };
  rig.backend.beforeCall = [&](Op op) {
    if (op != Op::CreateOffscreenPlainSurface || liveBefore >= 0) return;
    liveBefore = rig.backend.live.load();
    ManualTimer::Tick();
    liveAfter = rig.backend.live.load();
  };
  rig.Frame(2);
  EXPECT_EQ(rig.session->device.load(), nullptr);
  EXPECT_EQ(liveAfter, liveBefore);
  rig.backend.failWhen = nullptr, rig.backend.beforeCall = nullptr;
  rig.Frame(3);  // its rebuild lets it go and makes a new one
  EXPECT_EQ(rig.backend.ValuesOf(Op::CreateDevice).size(), 2u);
}

// Four sessions on four threads, each opened and closed again and again with
// the platform's timer running fast, frames pouring in, sizes and rates
// changing, and one device call in about 40 failing on the frame's side or the
// tick's. Under the thread sanitizer this is the renderer's race check.
TEST(RenderStress, FourSessionsOpenedAndClosedUnderLoadWithFailingDevices) {
  std::vector<std::thread> threads;
  for (unsigned seed = 99; seed < 103; ++seed)
    threads.emplace_back([seed] {
      std::mt19937 random(seed);
      size_t presents = 0;
      const int32_t rates[] = {0, 200, 300, 500};  // at once, or 2 to 5 ms a tick
      for (int open = 0; open < 12; ++open) {
        Rig rig(true);
        const unsigned failEvery = 30 + random() % 20;
        rig.backend.failWhen = [failEvery](size_t index, Op) { return index % failEvery == 0; };
        for (uint32_t n = 1; n <= 60; ++n) {
          if (n == 1 || random() % 16 == 0)
            render::SetFramesPerSecond(rig.session, rates[random() % 4]);
          EXPECT_EQ(rig.Frame(n, random() % 8 == 0 ? 48 : 32, 24), 0);
          std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        }
        rig.Close();
        EXPECT_GT(rig.backend.ValuesOf(Op::CreateDevice).size(), 0u);
        presents += rig.backend.ValuesOf(Op::Present).size();
      }
      EXPECT_GT(presents, 0u);
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace corvane::test
