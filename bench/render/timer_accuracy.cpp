// How punctual the presentation timer is: the platform timer at the period a
// render session computes for 25 frames a second, for 20 s (or the seconds
// given). Prints the median and 99th percentile of |tick interval - period|,
// and the largest distance of tick N from N periods after the start.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "render/render_session.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Ticks {
  std::vector<Clock::time_point> at;
  std::atomic<size_t> count{0};
};

void OnTick(void* context) {
  auto* ticks = static_cast<Ticks*>(context);
  const size_t n = ticks->count.load();
  if (n < ticks->at.size()) ticks->at[n] = Clock::now();
  ticks->count.store(n + 1);
}

double Ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

}  // namespace

int main(int argc, char** argv) {
  const int fps = 25;
  const double seconds = argc > 1 ? std::atof(argv[1]) : 20.0;
  const int periodMs = corvane::render::PresentationPeriodMs(fps);
  Ticks ticks;
  ticks.at.resize(static_cast<size_t>(seconds * 1000 / periodMs) + 2);
  const Clock::time_point start = Clock::now();
  corvane::platform::Timer* timer = corvane::platform::CreateTimer(
      OnTick, &ticks, static_cast<uint32_t>(periodMs), static_cast<uint32_t>(periodMs));
  if (timer == nullptr) {
    std::fprintf(stderr, "no timer\n");
    return 1;
  }
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  corvane::platform::DeleteTimer(timer);
  const size_t n = std::min(ticks.count.load(), ticks.at.size());
  if (n < 3) return 1;
  // Drift is counted from the creation of the timer, and apart from that
  // from the first tick, so that a late first tick shows as an offset.
  std::vector<double> error, drift, fromFirst;
  for (size_t i = 0; i < n; ++i) {
    drift.push_back(std::fabs(Ms(ticks.at[i] - start) - double(i + 1) * periodMs));
    fromFirst.push_back(std::fabs(Ms(ticks.at[i] - ticks.at[0]) - double(i) * periodMs));
    if (i > 0) error.push_back(std::fabs(Ms(ticks.at[i] - ticks.at[i - 1]) - periodMs));
  }
  std::sort(error.begin(), error.end());
  std::sort(drift.begin(), drift.end());
  std::sort(fromFirst.begin(), fromFirst.end());
  std::printf("%d fps, period %d ms, %zu ticks in %.1f s\n", fps, periodMs, n, seconds);
  std::printf("interval error: median %.3f ms, p99 %.3f ms, max %.3f ms\n", error[error.size() / 2],
              error[error.size() * 99 / 100], error.back());
  std::printf(
      "drift: tick N from N x %d ms: median %.3f ms, p99 %.3f ms, max %.3f ms, last %.3f ms\n",
      periodMs, drift[n / 2], drift[n * 99 / 100], drift.back(),
      Ms(ticks.at[n - 1] - start) - double(n) * periodMs);
  std::printf("from the first tick (at %.3f ms): median %.3f ms, p99 %.3f ms, max %.3f ms\n",
              Ms(ticks.at[0] - start), fromFirst[n / 2], fromFirst[n * 99 / 100], fromFirst.back());
  return 0;
}
