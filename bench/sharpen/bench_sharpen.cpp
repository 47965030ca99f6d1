// The sharpen filter on a 1920x1080 BGR24 picture, one thread: every code path
// this processor runs against OpenCV's filter2D with the same 3x3 mask and
// replicated border (which gives the same bytes, checked first), and against a
// memcpy of the picture; then decoding a 1080p stream with the sharpen stage
// against plain decoding. The closing lines give the ratios of the median
// times.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "common/decode_stage.h"
#include "common/median_times.h"
#include "corvane_ext.h"
#include "primitives/core/cpu_dispatch.h"
#include "primitives/sharpen/sharpen.h"

namespace {

using corvane::ImageSize;

constexpr int kWidth = 1920, kHeight = 1080, kStep = kWidth * 3;
constexpr size_t kBytes = size_t{kStep} * kHeight;

using FilterFn = decltype(&corvane::m7::ownFilterSharpenBorder_8u_C3R);
#define CORVANE_FILTER_OF(v) &corvane::v::ownFilterSharpenBorder_8u_C3R,
constexpr FilterFn kFilters[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_FILTER_OF)};

// A camera-like picture: smooth gradients with noise on top.
struct Picture {
  cv::Mat src, dst;
  std::vector<uint8_t> scratch;
  Picture() : src(kHeight, kWidth, CV_8UC3), dst(kHeight, kWidth, CV_8UC3) {
    std::mt19937 rng(7);
    for (int y = 0; y < kHeight; ++y) {
      uint8_t* row = src.ptr<uint8_t>(y);
      for (int x = 0; x < kStep; ++x) row[x] = static_cast<uint8_t>((x / 7 + y / 3) + rng() % 24);
    }
    int32_t size = 0;
    corvane::primitives::ownFilterSharpenBorderGetBufferSize({kWidth, kHeight}, 33, 1, 1, 3, &size);
    scratch.resize(size_t(size));
  }
  void Sharpen(int variant) {
    kFilters[variant](src.data, kStep, dst.data, kStep, {kWidth, kHeight}, 33,
                      corvane::BorderReplicate, nullptr, scratch.data());
  }
};
Picture& Shared() {
  static Picture picture;
  return picture;
}

void OpenCvSharpen(const cv::Mat& src, cv::Mat& dst) {
  static const cv::Mat kernel =
      (cv::Mat_<float>(3, 3) << -1, -1, -1, -1, 16, -1, -1, -1, -1) / 8.0f;
  cv::filter2D(src, dst, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
}

void BM_Corvane(benchmark::State& state, int variant) {
  Picture& p = Shared();
  for (auto _ : state) {
    p.Sharpen(variant);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBytes);
}

void BM_OpenCV(benchmark::State& state) {
  Picture& p = Shared();
  cv::setNumThreads(1);
  for (auto _ : state) {
    OpenCvSharpen(p.src, p.dst);
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

void PrintRatio(const corvane::bench::MedianTimes& times, const std::string& faster,
                const std::string& slower, const char* what) {
  if (const double r = times.Ratio(faster, slower)) {
    std::printf("%-30s %s / %s = %.2f\n", what, slower.c_str(), faster.c_str(), r);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Picture& picture = Shared();
  cv::Mat theirs;
  OpenCvSharpen(picture.src, theirs);
  auto configure = [](benchmark::internal::Benchmark* b) {
    b->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond)->UseRealTime();
  };
  std::vector<std::string> ours;
  for (int v = 0; v < corvane::primitives::kCpuVariantCount; ++v) {
    const std::string name = std::string("sharpen/") + corvane::primitives::CpuVariantPrefix(v);
    if (!corvane::primitives::ownCpuCanRunVariant(v)) {
      std::printf("%s skipped: this processor can't run it\n", name.c_str());
      continue;
    }
    picture.Sharpen(v);
    if (cv::norm(picture.dst, theirs, cv::NORM_INF) != 0) {
      std::printf("%s differs from filter2D\n", name.c_str());
      return 1;
    }
    ours.push_back(name);
    configure(benchmark::RegisterBenchmark(name.c_str(), BM_Corvane, v));
  }
  configure(benchmark::RegisterBenchmark("opencv_filter2D", BM_OpenCV));
  configure(benchmark::RegisterBenchmark("memcpy_picture", BM_Memcpy));
  corvane::bench::RegisterDecodeStage("decode_sharpen", &corvane_codec_decompress_sharpen);

  corvane::bench::MedianTimes reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nRatios of median times:\n");
  for (const std::string& name : ours) {
    PrintRatio(reporter, name, "opencv_filter2D", "speed-up on filter2D");
    PrintRatio(reporter, "memcpy_picture", name, "cost against memcpy");
  }
  PrintRatio(reporter, "decode", "decode_sharpen", "decode + sharpen against decode");
  return 0;
}
