// The periodic timer: repeated and one-shot calls, deletion that waits for a
// running call and lets none start after it, and deadlines that keep the phase.
#include "platform/timer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace corvane::platform {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// When each call began and ended. A call may be asked to take a while, to
// stand for a slow presentation.
struct Ticks {
  std::mutex lock;
  std::condition_variable changed;
  std::vector<Clock::time_point> begins, ends;
  milliseconds work{0};

  static void Callback(void* context) {
    auto* self = static_cast<Ticks*>(context);
    self->Note(self->begins);
    std::this_thread::sleep_for(self->work);
    self->Note(self->ends);
  }
  void Note(std::vector<Clock::time_point>& into) {
    {
      std::lock_guard<std::mutex> hold(lock);
      into.push_back(Clock::now());
    }
    changed.notify_all();
  }
  // Waits (generously: the machine may be loaded) for `n` calls to begin.
  bool WaitBegun(size_t n) {
    std::unique_lock<std::mutex> hold(lock);
    return changed.wait_for(hold, std::chrono::seconds(60), [&] { return begins.size() >= n; });
  }
  std::pair<size_t, size_t> Counts() {
    std::lock_guard<std::mutex> hold(lock);
    return {begins.size(), ends.size()};
  }
};

TEST(Timer, FiresRepeatedlyAndDeletionWaitsForTheRunningCall) {
  Ticks ticks;
  ticks.work = milliseconds(100);  // longer than the period: a call is nearly always running
  Timer* timer = CreateTimer(Ticks::Callback, &ticks, 0, 1);
  ASSERT_NE(timer, nullptr);
  ASSERT_TRUE(ticks.WaitBegun(3));
  DeleteTimer(timer);
  const auto counts = ticks.Counts();
  EXPECT_EQ(counts.second, counts.first) << "deletion returned while a call ran";
  std::this_thread::sleep_for(milliseconds(30));
  EXPECT_EQ(ticks.Counts(), counts) << "a call started after deletion";
}

TEST(Timer, PeriodZeroFiresOnceAndNullArguments) {
  EXPECT_EQ(CreateTimer(nullptr, nullptr, 0, 10), nullptr);
  DeleteTimer(nullptr);
  Ticks ticks;
  Timer* timer = CreateTimer(Ticks::Callback, &ticks, 5, 0);
  ASSERT_NE(timer, nullptr);
  EXPECT_TRUE(ticks.WaitBegun(1));
  std::this_thread::sleep_for(milliseconds(100));
  DeleteTimer(timer);
  EXPECT_EQ(ticks.Counts(), std::make_pair(size_t{1}, size_t{1}));
}

TEST(Timer, DeletionFromAnotherThreadDoesNotWaitOutThePeriod) {
  Ticks ticks;
  constexpr uint32_t kHour = 3600 * 1000;
  Timer* timer = CreateTimer(Ticks::Callback, &ticks, kHour, kHour);
  ASSERT_NE(timer, nullptr);
  const auto before = Clock::now();
  std::thread([timer] { DeleteTimer(timer); }).join();
  EXPECT_LT(Clock::now() - before, std::chrono::seconds(30));
  EXPECT_EQ(ticks.Counts().first, 0u);
}

TEST(Timer, KeepsItsPhase) {
  constexpr int kTicks = 12;
  constexpr uint32_t kDue = 20, kPeriod = 20;
  Ticks ticks;
  ticks.work = milliseconds(5);
  const auto start = Clock::now();
  Timer* timer = CreateTimer(Ticks::Callback, &ticks, kDue, kPeriod);
  ASSERT_NE(timer, nullptr);
  ASSERT_TRUE(ticks.WaitBegun(kTicks));
  DeleteTimer(timer);
  // Deadlines are absolute: call k never begins before due + k periods, ...
  for (int k = 0; k < kTicks; ++k)
    EXPECT_GE(ticks.begins[k] - start, milliseconds(kDue + k * kPeriod)) << "call " << k;
  // ... and the time a call took comes off the wait for the next one. A timer
  // that slept a whole period after each call would never begin a call less
  // than a period after the previous one ended.
  int shortWaits = 0;
  for (int k = 0; k + 1 < kTicks; ++k)
    shortWaits += ticks.begins[k + 1] - ticks.ends[k] < milliseconds(kPeriod);
  EXPECT_GT(shortWaits, 0);
}

}  // namespace
}  // namespace corvane::platform
