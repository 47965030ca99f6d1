// The periodic timer: repeated and one-shot calls, deletion that waits for a
// running call and lets none start after it, and deadlines that keep the phase.
#include "platform/timer.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

namespace corvane::platform {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// When each call began and ended; a call takes `work`, as a slow present does.
struct Ticks {
  std::mutex lock;
  std::vector<Clock::time_point> begins, ends;
  std::chrono::milliseconds work;
  static void Callback(void* context) {
    auto* self = static_cast<Ticks*>(context);
    self->Note(self->begins), std::this_thread::sleep_for(self->work), self->Note(self->ends);
  }
  void Note(std::vector<Clock::time_point>& into) {
    std::lock_guard<std::mutex> hold(lock);
    into.push_back(Clock::now());
  }
  std::pair<size_t, size_t> Counts() {
    std::lock_guard<std::mutex> hold(lock);
    return {begins.size(), ends.size()};
  }
  bool Begun(size_t n) {  // within a minute: the machine may be loaded
    for (auto end = Clock::now() + 60s; Counts().first < n; std::this_thread::sleep_for(1ms))
      if (Clock::now() > end) return false;
    return true;
  }
};

TEST(Timer, FiresRepeatedlyOrOnceAndDeletionWaitsForTheRunningCall) {
  EXPECT_EQ(CreateTimer(nullptr, nullptr, 0, 10), nullptr);
  DeleteTimer(nullptr);
  for (const uint32_t period : {1, 0}) {  // a call nearly always running; a single call
    Ticks ticks{{}, {}, {}, 100ms};
    Timer* timer = CreateTimer(Ticks::Callback, &ticks, 0, period);
    ASSERT_TRUE(ticks.Begun(period ? 3 : 1));
    std::this_thread::sleep_for(period ? 0ms : 200ms);
    DeleteTimer(timer);
    const auto counts = ticks.Counts();
    EXPECT_EQ(counts.second, counts.first) << "deletion returned while a call ran";
    EXPECT_TRUE(period || counts.first == 1) << counts.first << " calls";
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(ticks.Counts(), counts) << "a call began after deletion";
  }
  Ticks ticks{{}, {}, {}, 0ms};  // deleted from another thread an hour before its first call
  Timer* timer = CreateTimer(Ticks::Callback, &ticks, 3600000, 3600000);
  const auto before = Clock::now();
  std::thread([timer] { DeleteTimer(timer); }).join();
  EXPECT_LT(Clock::now() - before, 30s);
}

// Deadlines are absolute: call k never begins before 20 + 20 k ms, and the
// time a call took comes off the wait for the next: a timer that slept a
// whole period after each call would never begin one sooner.
TEST(Timer, KeepsItsPhase) {
  Ticks ticks{{}, {}, {}, 5ms};
  const auto start = Clock::now();
  Timer* timer = CreateTimer(Ticks::Callback, &ticks, 20, 20);
  ASSERT_TRUE(ticks.Begun(12));
  DeleteTimer(timer);
  int shortWaits = 0;
  for (int k = 0; k < 12; ++k) {
    EXPECT_GE(ticks.begins[k] - start, std::chrono::milliseconds(20 + k * 20)) << "call " << k;
    shortWaits += k > 0 && ticks.begins[k] - ticks.ends[k - 1] < 20ms;
  }
  EXPECT_GT(shortWaits, 0);
}

}  // namespace
}  // namespace corvane::platform
