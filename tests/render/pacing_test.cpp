// Sessions on the platform's real timer: what comes out, in which order, and
// how many surfaces wait. Nothing here depends on how punctual the timer is;
// waits are polls with generous limits.
#include <chrono>
#include <future>
#include <thread>

#include "render/render_fixture.h"

namespace corvane::test {
namespace {

using namespace std::chrono_literals;

template <typename Condition>
bool WaitFor(Condition done) {
  const auto end = std::chrono::steady_clock::now() + 20s;
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

void ExpectOldestFirstNeverTwice(const std::vector<uint32_t>& shown) {
  for (size_t i = 1; i < shown.size(); ++i) EXPECT_LT(shown[i - 1], shown[i]) << "at " << i;
}

TEST(RenderPacing, FasterFramesWaitUpToTheLimitAndGoOutOldestFirst) {
  Rig rig(true);
  render::SetFramesPerSecond(rig.session, 25);  // limit 12
  for (uint32_t n = 1; n <= 60; ++n) {
    EXPECT_EQ(rig.Frame(n), 0);
    EXPECT_LE(rig.session->displayCount.load(), 12u);
    // Only frames make surfaces: the limit, the one a tick holds, the back buffer.
    EXPECT_LE(rig.backend.liveSurfaces.load(), 14);
  }
  // Until every surface is free again: a tick takes its surface off the queue
  // before it copies it, and gives it back only once it has presented it.
  ASSERT_TRUE(WaitFor([&] {
    return rig.session->freeCount.load() + 1 ==
           static_cast<uint64_t>(rig.backend.liveSurfaces.load());
  }));
  const auto shown = rig.backend.ValuesOf(Op::UpdateSurface);
  ASSERT_GE(shown.size(), 12u);
  EXPECT_LT(shown.size(), 60u);  // some were dropped
  EXPECT_EQ(shown.front(), Stamp(1));
  ExpectOldestFirstNeverTwice(shown);
  EXPECT_EQ(rig.backend.CountOf(Op::Present), shown.size());
}

TEST(RenderPacing, CloseWaitsForARunningTickAndNoneFollows) {
  Rig rig(true);
  std::promise<void> entered, release;
  std::shared_future<void> released = release.get_future().share();
  rig.backend.beforeCall = [&](Op op) {
    if (op != Op::Present) return;
    entered.set_value();  // one frame, one present
    released.wait();
  };
  render::SetFramesPerSecond(rig.session, 100);
  rig.Frame(1);
  ASSERT_EQ(entered.get_future().wait_for(20s), std::future_status::ready);
  std::atomic<bool> closed{false};
  std::thread closer([&] {
    rig.Close();
    closed = true;
  });
  std::this_thread::sleep_for(100ms);
  EXPECT_FALSE(closed.load()) << "close returned while a tick was running";
  release.set_value();
  closer.join();
  const size_t calls = rig.backend.CallCount();
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(rig.backend.CallCount(), calls);
}

TEST(RenderPacing, TwoSessionsOnTheSharedMutexesRunSideBySide) {
  auto run = [](int rate, uint32_t resizeAt) {
    Rig rig(true);
    render::SetFramesPerSecond(rig.session, rate);
    for (uint32_t n = 1; n <= 150; ++n) {
      if (n == resizeAt) rig.backend.SetClientRect(200, 100);
      if (n == 100) render::SetFramesPerSecond(rig.session, rate * 2);
      EXPECT_EQ(rig.Frame(n, 16, 8, 3), 0);
      std::this_thread::sleep_for(1ms);
    }
    rig.Close();
    ExpectOldestFirstNeverTwice(rig.backend.ValuesOf(Op::UpdateSurface));
    EXPECT_GT(rig.backend.CountOf(Op::Present), 0u);
  };
  std::thread a(run, 200, 40);
  std::thread b(run, 300, 70);
  a.join();
  b.join();
}

}  // namespace
}  // namespace corvane::test
