// The timer's thread sleeps on a condition variable until the next absolute
// deadline, so that deletion wakes it at once and a late tick does not push
// the later ones back: a tick that overran is followed by the ticks it made
// late, at once and in order, and the phase is kept.
#include "platform/timer.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace corvane::platform {

struct Timer {
  TimerCallback callback = nullptr;
  void* context = nullptr;
  // Fixed when the timer is made, so that a thread that starts late does not
  // shift the phase of every later tick.
  std::chrono::steady_clock::time_point firstDeadline;
  std::chrono::milliseconds period{0};
  std::mutex lock;  // guards `stopping`
  std::condition_variable wake;
  bool stopping = false;
  std::thread thread;
};

namespace {

void RunTimer(Timer* timer) {
  auto deadline = timer->firstDeadline;
  std::unique_lock<std::mutex> hold(timer->lock);
  for (;;) {
    if (timer->wake.wait_until(hold, deadline, [timer] { return timer->stopping; })) return;
    hold.unlock();
    timer->callback(timer->context);
    if (timer->period.count() == 0) return;
    deadline += timer->period;
    hold.lock();
  }
}

}  // namespace

Timer* CreateTimer(TimerCallback callback, void* context, uint32_t dueMs, uint32_t periodMs) {
  if (callback == nullptr) return nullptr;
  Timer* timer = new (std::nothrow) Timer;
  if (timer == nullptr) return nullptr;
  timer->callback = callback;
  timer->context = context;
  timer->firstDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(dueMs);
  timer->period = std::chrono::milliseconds(periodMs);
  try {
    timer->thread = std::thread(RunTimer, timer);
  } catch (const std::system_error&) {
    delete timer;
    return nullptr;
  }
  return timer;
}

void DeleteTimer(Timer* timer) {
  if (timer == nullptr) return;
  {
    std::lock_guard<std::mutex> hold(timer->lock);
    timer->stopping = true;
  }
  timer->wake.notify_one();
  // The thread checks `stopping` under the lock before every tick, so after
  // the join no callback runs and none will start.
  timer->thread.join();
  delete timer;
}

}  // namespace corvane::platform
