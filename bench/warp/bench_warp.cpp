// Crop and scale, single thread: a 1000x700 crop of a 1920x1080 BGR24 bitmap
// to 640x480 and to 1920x1080 through BmpReSizeEx on every code path this
// processor runs, against OpenCV's resize and warpAffine, both nearest
// neighbour, on the same crop. Times are processor time of the one thread,
// which a busy machine disturbs less than wall time; the closing lines give
// the ratios of the median times.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <vector>

#include "corvane.h"
#include "primitives/core/cpu_dispatch.h"

namespace {

constexpr int kWidth = 1920, kHeight = 1080;
const cv::Rect kCrop(460, 190, 1000, 700);

struct Output {
  const char* name;
  int width, height;
};
constexpr Output kOutputs[] = {{"640x480", 640, 480}, {"1920x1080", 1920, 1080}};

cv::Mat& Source() {
  static cv::Mat src = [] {
    cv::Mat m(kHeight, kWidth, CV_8UC3);
    std::mt19937 rng(11);
    for (int y = 0; y < kHeight; ++y) {
      uint8_t* row = m.ptr<uint8_t>(y);
      for (int x = 0; x < kWidth * 3; ++x)
        row[x] = static_cast<uint8_t>(x / 5 + y / 2 + rng() % 16);
    }
    return m;
  }();
  return src;
}

void BM_BmpReSizeEx(benchmark::State& state, int variant, Output out) {
  const cv::Mat& src = Source();
  BITMAPINFOHEADER srcHeader{};
  srcHeader.biSize = 40;
  srcHeader.biWidth = kWidth;
  srcHeader.biHeight = kHeight;
  srcHeader.biBitCount = 24;
  srcHeader.biSizeImage = kWidth * kHeight * 3;
  BITMAPINFOHEADER dstHeader = srcHeader;
  std::vector<uint8_t> dst(size_t(out.width) * out.height * 3);
  corvane::primitives::ForceCpuVariantForTesting(variant);
  for (auto _ : state) {
    dstHeader.biWidth = out.width;
    dstHeader.biHeight = out.height;
    if (BmpReSizeEx(&srcHeader, src.data, kCrop.x, kCrop.y, kCrop.width, kCrop.height, &dstHeader,
                    dst.data()) != 1) {
      state.SkipWithError("BmpReSizeEx failed");
      break;
    }
    benchmark::ClobberMemory();
  }
  corvane::primitives::RestoreCpuVariantForTesting();
  state.SetItemsProcessed(int64_t(state.iterations()) * out.width * out.height);
}

void BM_OpenCVResize(benchmark::State& state, Output out) {
  cv::setNumThreads(1);
  const cv::Mat crop = Source()(kCrop);
  cv::Mat dst(out.height, out.width, CV_8UC3);
  for (auto _ : state) {
    cv::resize(crop, dst, dst.size(), 0, 0, cv::INTER_NEAREST);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * out.width * out.height);
}

// The same map as BmpReSizeEx: the crop's first pixel to (0, 0), its last
// column and row to the destination's far side.
void BM_OpenCVWarpAffine(benchmark::State& state, Output out) {
  cv::setNumThreads(1);
  const double sx = double(out.width) / (kCrop.width - 1),
               sy = double(out.height) / (kCrop.height - 1);
  const cv::Matx23d map(sx, 0, -kCrop.x * sx, 0, sy, -kCrop.y * sy);
  cv::Mat dst(out.height, out.width, CV_8UC3);
  for (auto _ : state) {
    cv::warpAffine(Source(), dst, map, dst.size(), cv::INTER_NEAREST);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * out.width * out.height);
}

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" &&
          !run.error_occurred) {
        medians[run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> medians;
};

void PrintRatio(const std::map<std::string, double>& m, const std::string& ours,
                const std::string& peer) {
  const auto a = m.find(ours), b = m.find(peer);
  if (a == m.end() || b == m.end() || a->second <= 0) return;
  std::printf("%-28s %-32s %.2f\n", ours.c_str(), peer.c_str(), b->second / a->second);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Source();
  auto configure = [](benchmark::internal::Benchmark* b) {
    b->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);
  };
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const Output& out : kOutputs) {
    const std::string size = out.name;
    configure(
        benchmark::RegisterBenchmark(("opencv_resize/" + size).c_str(), BM_OpenCVResize, out));
    configure(benchmark::RegisterBenchmark(("opencv_warpAffine/" + size).c_str(),
                                           BM_OpenCVWarpAffine, out));
    for (int v = 0; v < corvane::primitives::kCpuVariantCount; ++v) {
      if (!corvane::primitives::ownCpuCanRunVariant(v)) {
        std::printf("%s skipped: this processor can't run it\n",
                    corvane::primitives::CpuVariantPrefix(v));
        continue;
      }
      const std::string name =
          "BmpReSizeEx/" + size + "/" + corvane::primitives::CpuVariantPrefix(v);
      configure(benchmark::RegisterBenchmark(name.c_str(), BM_BmpReSizeEx, v, out));
      pairs.emplace_back(name, "opencv_resize/" + size);
      pairs.emplace_back(name, "opencv_warpAffine/" + size);
    }
  }
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nRatios of median times, peer / ours (above 1: ours is faster):\n");
  for (const auto& [ours, peer] : pairs) PrintRatio(reporter.medians, ours, peer);
  return 0;
}
