// Four render sessions on four threads, each opened and closed again and
// again with the platform's timer running fast, frames pouring in, sizes
// changing, and now and then a device call failing on the frame's side or the
// tick's: the device a tick gives up is still drawn with by a frame under
// way. Every session ends with nothing of its backend alive. Under the thread
// sanitizer this is the renderer's race check.
#include <chrono>
#include <random>
#include <thread>

#include "support/render_rig.h"

namespace corvane::test {
namespace {

constexpr int kSessions = 4;
constexpr int kOpensEach = 12;
constexpr int kFramesEachOpen = 60;

struct Tally {
  size_t presents = 0;
  size_t rebuilds = 0;
};

Tally RunSessions(unsigned seed) {
  std::mt19937 random(seed);
  Tally tally;
  for (int open = 0; open < kOpensEach; ++open) {
    Rig rig(true);
    // One call in about 40 fails, whichever thread makes it.
    const unsigned failEvery = 30 + random() % 20;
    rig.backend.failWhen = [failEvery](size_t index, Op) { return index % failEvery == 0; };
    // 0: no timer, frames shown at once; else 2 to 5 ms a tick.
    const int32_t rates[] = {0, 200, 300, 500};
    render::SetFramesPerSecond(rig.session, rates[random() % 4]);
    for (uint32_t n = 1; n <= kFramesEachOpen; ++n) {
      const int width = random() % 8 == 0 ? 48 : 32;
      EXPECT_EQ(rig.Frame(n, width, 24), 0);
      if (random() % 16 == 0) render::SetFramesPerSecond(rig.session, rates[random() % 4]);
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
    }
    rig.Close();
    tally.presents += rig.backend.ValuesOf(Op::Present).size();
    tally.rebuilds +=
        rig.backend.ValuesOf(Op::CreateDevice).size() + rig.backend.ValuesOf(Op::Reset).size();
  }
  return tally;
}

TEST(RenderStress, FourSessionsOpenedAndClosedUnderLoadWithFailingDevices) {
  Tally tallies[kSessions];
  std::vector<std::thread> threads;
  for (int t = 0; t < kSessions; ++t)
    threads.emplace_back([&, t] { tallies[t] = RunSessions(99u + t); });
  for (std::thread& thread : threads) thread.join();
  for (const Tally& t : tallies) {
    EXPECT_GT(t.presents, 0u);
    EXPECT_GE(t.rebuilds, static_cast<size_t>(kOpensEach));
  }
}

}  // namespace
}  // namespace corvane::test
