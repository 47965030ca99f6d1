// The device on the frame path. "RenderDeviceMutex" is shared by every render
// session of every process of the user: another process that holds it (a slow
// present, say) delays no frame of ours on the direct or the queued path; only
// a rebuild waits for it. Without that lock, a device that a tick gives up
// lives on until the frame drawing with it is done.
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "support/render_rig.h"

namespace corvane::test {
namespace {

using Clock = std::chrono::steady_clock;

double MsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Another process that takes the mutex by its name and holds it until told
// to let go, then waits `lingerMs` more before it does. It lets go by itself
// after kMaxHoldMs, so that a frame that waits for it fails the test instead
// of hanging it.
constexpr int kMaxHoldMs = 1000;

class Holder {
 public:
  explicit Holder(int lingerMs) {
    if (pipe(held_) != 0 || pipe(letGo_) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      platform::Mutex* mutex = platform::CreateMutex("RenderDeviceMutex");
      platform::WaitMutex(mutex);
      char c = 'h';
      ssize_t io = write(held_[1], &c, 1);
      pollfd told{letGo_[0], POLLIN, 0};
      if (poll(&told, 1, kMaxHoldMs) == 1) io += read(letGo_[0], &c, 1);
      usleep(static_cast<useconds_t>(lingerMs) * 1000);
      platform::ReleaseMutex(mutex);
      _exit(io == 2 ? 0 : 1);
    }
    char c;
    holding_ = pid_ > 0 && read(held_[0], &c, 1) == 1;
  }
  bool Holding() const { return holding_; }
  void LetGo() {
    char c = 'g';
    if (write(letGo_[1], &c, 1) != 1) ADD_FAILURE() << "holder gone";
  }
  ~Holder() {
    if (pid_ > 0) {
      int status = 0;
      waitpid(pid_, &status, 0);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    for (int fd : {held_[0], held_[1], letGo_[0], letGo_[1]}) close(fd);
  }

 private:
  int held_[2] = {-1, -1};
  int letGo_[2] = {-1, -1};
  pid_t pid_ = -1;
  bool holding_ = false;
};

TEST(RenderDeviceMutex, AnotherProcessHoldingItDelaysNoFrameOnlyARebuild) {
  constexpr int kLingerMs = 300;
  for (const int32_t fps : {0, 25}) {
    SCOPED_TRACE(fps == 0 ? "direct" : "queued");
    Rig rig;
    render::SetFramesPerSecond(rig.session, fps);
    rig.Frame(1);  // builds the device while nobody holds the mutex
    ASSERT_EQ(rig.backend.ValuesOf(Op::CreateDevice).size(), 1u);

    Holder holder(kLingerMs);
    ASSERT_TRUE(holder.Holding());
    double slowest = 0;
    for (uint32_t n = 2; n < 8; ++n) {
      const Clock::time_point start = Clock::now();
      rig.Frame(n);
      slowest = std::max(slowest, MsSince(start));
    }
    std::printf("%s path: slowest frame %.3f ms while another process holds the mutex\n",
                fps == 0 ? "direct" : "queued", slowest);
    EXPECT_LT(slowest, 100.0);
    EXPECT_EQ(rig.backend.ValuesOf(fps == 0 ? Op::Present : Op::CreateOffscreenPlainSurface).size(),
              7u);

    // A new frame size resets the device under the mutex: that one waits.
    holder.LetGo();
    const Clock::time_point start = Clock::now();
    rig.Frame(8, 48, 20);
    EXPECT_GE(MsSince(start), kLingerMs * 0.6);
    EXPECT_EQ(rig.backend.ValuesOf(Op::Reset).size(), 1u);
  }
}

// The tick runs inside the frame's own device call, as it may on its thread at
// that moment, and its present fails.
TEST(RenderDeviceMutex, ADeviceATickGivesUpLivesOnUntilTheFrameUsingItIsDone) {
  Rig rig;
  render::SetFramesPerSecond(rig.session, 25);
  rig.Frame(1);
  bool ticked = false;
  int liveBefore = 0, liveAfter = 0;  // the backend's devices and surfaces around the tick
  rig.backend.failWhen = [](size_t, Op op) { return op == Op::Present; };
  rig.backend.beforeCall = [&](Op op) {
    if (op != Op::CreateOffscreenPlainSurface || ticked) return;
    ticked = true;
    liveBefore = rig.backend.live.load();
    ManualTimer::Tick();
    liveAfter = rig.backend.live.load();
  };
  rig.Frame(2);
  ASSERT_TRUE(ticked);
  EXPECT_EQ(rig.session->device.load(), nullptr);
  EXPECT_EQ(liveAfter, liveBefore);
  // The next frame's rebuild lets it go and makes a new one.
  rig.backend.failWhen = nullptr;
  rig.backend.beforeCall = nullptr;
  rig.Frame(3);
  EXPECT_EQ(rig.backend.ValuesOf(Op::CreateDevice).size(), 2u);
}

}  // namespace
}  // namespace corvane::test
