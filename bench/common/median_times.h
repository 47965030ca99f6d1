// A console reporter that keeps each benchmark's median time (wall time, or
// processor time where asked), for the ratios a program prints after its run.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace corvane::bench {

class MedianTimes : public benchmark::ConsoleReporter {
 public:
  explicit MedianTimes(bool cpuTime = false) : cpuTime_(cpuTime) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" &&
          !run.error_occurred) {
        medians_[run.run_name.function_name] =
            cpuTime_ ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // The median time of `name`; 0 when it didn't run (skipped or failed).
  double Median(const std::string& name) const {
    const auto m = medians_.find(name);
    return m == medians_.end() ? 0 : m->second;
  }

  // How many times `faster`'s median time `slower` takes; 0 when either is
  // missing.
  double Ratio(const std::string& faster, const std::string& slower) const {
    const double x = Median(faster), y = Median(slower);
    return x > 0 ? y / x : 0;
  }

 private:
  bool cpuTime_;
  std::map<std::string, double> medians_;
};

}  // namespace corvane::bench
