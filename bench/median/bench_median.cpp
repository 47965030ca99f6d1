// The median filter on a 1920x1080 BGR24 picture, single thread: every code
// path this processor runs, OpenCV's medianBlur with the same mask and
// replicated border, and a memcpy of the picture as the floor. The closing
// lines give the ratios of the median times.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_median.h"
#include "primitives/core/cpu_dispatch.h"
#include "primitives/median/median.h"

namespace {

using corvane::ImageSize;
using corvane::PrimitiveStatus;

constexpr int kWidth = 1920, kHeight = 1080, kStep = kWidth * 3;
constexpr size_t kBytes = size_t{kStep} * kHeight;

using FilterFn = PrimitiveStatus (*)(const uint8_t*, int32_t, uint8_t*, int32_t, ImageSize,
                                     ImageSize, corvane::BorderType, const uint8_t*, uint8_t*);
using SizeFn = PrimitiveStatus (*)(ImageSize, ImageSize, corvane::PixelType, int32_t, int32_t*);
#define CORVANE_FILTER_OF(v) &corvane::v::ownFilterMedianBorder_8u_C3R,
#define CORVANE_SIZE_OF(v) &corvane::v::ownFilterMedianBorderGetBufferSize,
constexpr FilterFn kFilters[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_FILTER_OF)};
constexpr SizeFn kSizes[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_SIZE_OF)};

// A camera-like picture: smooth gradients with noise on top, 64-byte aligned
// as an allocator gives large blocks.
struct Picture {
  cv::Mat src, dst;
  Picture() : src(kHeight, kWidth, CV_8UC3), dst(kHeight, kWidth, CV_8UC3) {
    std::mt19937 rng(7);
    for (int y = 0; y < kHeight; ++y) {
      uint8_t* row = src.ptr<uint8_t>(y);
      for (int x = 0; x < kStep; ++x) row[x] = static_cast<uint8_t>((x / 7 + y / 3) + rng() % 24);
    }
  }
};
Picture& Shared() {
  static Picture picture;
  return picture;
}

void BM_Corvane(benchmark::State& state, int variant, int mask) {
  Picture& p = Shared();
  const ImageSize roi{kWidth, kHeight}, m{mask, mask};
  int32_t size = 0;
  kSizes[variant](roi, m, corvane::PixelType8u, 3, &size);
  std::vector<uint8_t> scratch(static_cast<size_t>(size) + 64);
  for (auto _ : state) {
    kFilters[variant](p.src.data, kStep, p.dst.data, kStep, roi, m, corvane::BorderReplicate,
                      nullptr, scratch.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBytes);
}

void BM_OpenCV(benchmark::State& state, int mask) {
  Picture& p = Shared();
  cv::setNumThreads(1);
  for (auto _ : state) {
    cv::medianBlur(p.src, p.dst, mask);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBytes);
}

void BM_Memcpy(benchmark::State& state) {
  Picture& p = Shared();
  for (auto _ : state) {
    std::memcpy(p.dst.data, p.src.data, kBytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBytes);
}

class MedianReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" &&
          !run.error_occurred) {
        medians[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> medians;
};

void PrintRatio(const std::map<std::string, double>& m, const std::string& a, const std::string& b,
                const char* what) {
  const auto x = m.find(a), y = m.find(b);
  if (x == m.end() || y == m.end() || x->second <= 0) return;
  std::printf("%-34s %s / %s = %.2f\n", what, b.c_str(), a.c_str(), y->second / x->second);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Shared();
  auto configure = [](benchmark::internal::Benchmark* b) {
    b->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond)->UseRealTime();
  };
  std::vector<std::string> ours3, ours5;
  for (int v = 0; v < corvane::primitives::kCpuVariantCount; ++v) {
    if (!corvane::primitives::ownCpuCanRunVariant(v)) {
      std::printf("%s skipped: this processor can't run it\n",
                  corvane::primitives::CpuVariantPrefix(v));
      continue;
    }
    const std::string prefix = corvane::primitives::CpuVariantPrefix(v);
    ours3.push_back("median3x3/" + prefix);
    ours5.push_back("median5x5/" + prefix);
    configure(benchmark::RegisterBenchmark(ours3.back().c_str(), BM_Corvane, v, 3));
    configure(benchmark::RegisterBenchmark(ours5.back().c_str(), BM_Corvane, v, 5));
  }
  configure(benchmark::RegisterBenchmark("opencv_medianBlur3", BM_OpenCV, 3));
  configure(benchmark::RegisterBenchmark("opencv_medianBlur5", BM_OpenCV, 5));
  configure(benchmark::RegisterBenchmark("memcpy_picture", BM_Memcpy));
#ifdef CORVANE_BENCH_DECODE
  corvane::bench::RegisterDecodeBenchmarks();
#endif

  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nRatios of median times (above 1: the first is faster):\n");
  for (const std::string& name : ours3) {
    PrintRatio(reporter.medians, name, "opencv_medianBlur3", "3x3 against OpenCV");
    PrintRatio(reporter.medians, "memcpy_picture", name, "3x3 against memcpy (cost)");
  }
  for (const std::string& name : ours5) {
    PrintRatio(reporter.medians, name, "opencv_medianBlur5", "5x5 against OpenCV");
  }
#ifdef CORVANE_BENCH_DECODE
  corvane::bench::PrintDecodeRatio(reporter.medians);
#endif
  return 0;
}
