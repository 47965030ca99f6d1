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

#include "corvane_ext.h"
#include "primitives/core/cpu_dispatch.h"
#include "primitives/sharpen/sharpen.h"
#include "support/clips.h"

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

using DecompressFn = decltype(&H264CodecDecompress);

// The whole 1080p stream through one session a run.
void BM_Decode(benchmark::State& state, DecompressFn decompress) {
  static const std::vector<corvane::test::Packet> packets =
      corvane::test::LoadPackets(corvane::test::k1080p);
  std::vector<uint8_t> out(kBytes);
  long pictures = 0;
  for (auto _ : state) {
    CodecHandle session = H264CodecOpen();
    for (const auto& p : packets) {
      BITMAPINFOHEADER header{};
      pictures += decompress(session, p.data(), int32_t(p.size()), &header, out.data(),
                             int32_t(out.size())) == 0 &&
                  header.biHeight == kHeight;
    }
    H264CodecClose(session);
    benchmark::DoNotOptimize(out.data());
  }
  if (pictures != long(state.iterations()) * corvane::test::k1080p.frames) {
    state.SkipWithError("not every packet gave a picture");
  }
}

class Reporter : public benchmark::ConsoleReporter {
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
  // How many times `slower` takes `faster`'s time.
  void Ratio(const std::string& faster, const std::string& slower, const char* what) const {
    const auto x = medians.find(faster), y = medians.find(slower);
    if (x == medians.end() || y == medians.end() || x->second <= 0) return;
    std::printf("%-30s %s / %s = %.2f\n", what, slower.c_str(), faster.c_str(),
                y->second / x->second);
  }
  std::map<std::string, double> medians;
};

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
  for (auto [name, fn] : {std::pair<const char*, DecompressFn>{"decode", &H264CodecDecompress},
                          {"decode_sharpen", &corvane_codec_decompress_sharpen}}) {
    benchmark::RegisterBenchmark(name, BM_Decode, fn)
        ->Iterations(2)
        ->Repetitions(7)
        ->ReportAggregatesOnly(true)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }

  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nRatios of median times:\n");
  for (const std::string& name : ours) {
    reporter.Ratio(name, "opencv_filter2D", "speed-up on filter2D");
    reporter.Ratio("memcpy_picture", name, "cost against memcpy");
  }
  reporter.Ratio("decode", "decode_sharpen", "decode + sharpen against decode");
  return 0;
}
