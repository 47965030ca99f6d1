// The median filter on 1920x1080 pictures: every code path this processor
// runs against OpenCV's medianBlur with the same mask and replicated border,
// in the same run. 8-bit BGR for masks 3 to 21 on one thread, 8-bit BGRA 5x5
// on one and two threads, 16-bit BGR 3x3 and 5x5; and a memcpy of the picture
// as the floor. The closing lines give the ratios of the median times.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "common/median_times.h"
#ifdef CORVANE_BENCH_DECODE
#include "common/decode_stage.h"
#include "support/clips.h"
#endif
#include "primitives/core/cpu_dispatch.h"
#include "primitives/median/median.h"
#include "primitives/median/median_kernel.h"

namespace {

using corvane::ImageSize;
using corvane::MedianGroup;
using corvane::PrimitiveStatus;

constexpr int kWidth = 1920, kHeight = 1080;

using FilterFn = PrimitiveStatus (*)(int32_t, const uint8_t*, int32_t, uint8_t*, int32_t, ImageSize,
                                     ImageSize, corvane::BorderType, const void*, uint8_t*);
using SizeFn = PrimitiveStatus (*)(ImageSize, ImageSize, corvane::PixelType, int32_t, int32_t*);
#define CORVANE_FILTER_OF(v) &corvane::v::ownFilterMedianBorder,
#define CORVANE_SIZE_OF(v) &corvane::v::ownFilterMedianBorderGetBufferSize,
constexpr FilterFn kFilters[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_FILTER_OF)};
constexpr SizeFn kSizes[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_SIZE_OF)};

// One measured case: a pixel form, a square mask, a thread count.
struct Case {
  const char* name;
  MedianGroup group;
  int cvType;
  int mask;
  int threads;
};
constexpr Case kCases[] = {
    {"8uC3_3x3", corvane::MedianGroup8uC3, CV_8UC3, 3, 1},
    {"8uC3_5x5", corvane::MedianGroup8uC3, CV_8UC3, 5, 1},
    {"8uC3_7x7", corvane::MedianGroup8uC3, CV_8UC3, 7, 1},
    {"8uC3_9x9", corvane::MedianGroup8uC3, CV_8UC3, 9, 1},
    {"8uC3_15x15", corvane::MedianGroup8uC3, CV_8UC3, 15, 1},
    {"8uC3_21x21", corvane::MedianGroup8uC3, CV_8UC3, 21, 1},
    {"8uC4_5x5_1thread", corvane::MedianGroup8uC4, CV_8UC4, 5, 1},
    {"8uC4_5x5_2threads", corvane::MedianGroup8uC4, CV_8UC4, 5, 2},
    {"16uC3_3x3", corvane::MedianGroup16uC3, CV_16UC3, 3, 1},
    {"16uC3_5x5", corvane::MedianGroup16uC3, CV_16UC3, 5, 1},
};

// Camera-like pictures: smooth gradients with noise on top, 64-byte aligned
// as an allocator gives large blocks; one source and one destination a form.
struct Picture {
  cv::Mat src, dst;
  explicit Picture(int type) : src(kHeight, kWidth, type), dst(kHeight, kWidth, type) {
    std::mt19937 rng(7);
    const int elements = kWidth * src.channels();
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < elements; ++x) {
        const unsigned v = (x / 7 + y / 3) + rng() % 24;
        if (src.depth() == CV_8U) {
          src.ptr<uint8_t>(y)[x] = static_cast<uint8_t>(v);
        } else {
          src.ptr<uint16_t>(y)[x] = static_cast<uint16_t>(v * 40);
        }
      }
    }
  }
};
Picture& Shared(int type) {
  static std::map<int, Picture> pictures;
  return pictures.try_emplace(type, type).first->second;
}

int64_t Bytes(const cv::Mat& m) { return static_cast<int64_t>(m.total() * m.elemSize()); }

void BM_Corvane(benchmark::State& state, int variant, Case c) {
  Picture& p = Shared(c.cvType);
  const ImageSize roi{kWidth, kHeight}, m{c.mask, c.mask};
  const bool wide = p.src.depth() != CV_8U;
  int32_t size = 0;
  kSizes[variant](roi, m, wide ? corvane::PixelType16u : corvane::PixelType8u, p.src.channels(),
                  &size);
  std::vector<uint8_t> scratch(static_cast<size_t>(size) + 64);
  const int32_t threads = corvane::primitives::ownGetNumThreads();
  corvane::primitives::ownSetNumThreads(c.threads);
  const auto step = static_cast<int32_t>(p.src.step);
  for (auto _ : state) {
    kFilters[variant](c.group, p.src.data, step, p.dst.data, step, roi, m, corvane::BorderReplicate,
                      nullptr, scratch.data());
    benchmark::ClobberMemory();
  }
  corvane::primitives::ownSetNumThreads(threads);
  state.SetBytesProcessed(state.iterations() * Bytes(p.src));
}

void BM_OpenCV(benchmark::State& state, Case c) {
  Picture& p = Shared(c.cvType);
  cv::setNumThreads(c.threads);
  for (auto _ : state) {
    cv::medianBlur(p.src, p.dst, c.mask);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * Bytes(p.src));
}

void BM_Memcpy(benchmark::State& state) {
  Picture& p = Shared(CV_8UC3);
  for (auto _ : state) {
    std::memcpy(p.dst.data, p.src.data, static_cast<size_t>(Bytes(p.src)));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * Bytes(p.src));
}

void PrintRatio(const corvane::bench::MedianTimes& times, const std::string& a,
                const std::string& b, const std::string& what) {
  if (const double r = times.Ratio(a, b)) {
    std::printf("%-28s %s / %s = %.2f\n", what.c_str(), b.c_str(), a.c_str(), r);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  auto configure = [](benchmark::internal::Benchmark* b) {
    b->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond)->UseRealTime();
  };
  std::vector<std::string> prefixes;
  for (int v = 0; v < corvane::primitives::kCpuVariantCount; ++v) {
    if (!corvane::primitives::ownCpuCanRunVariant(v)) {
      std::printf("%s skipped: this processor can't run it\n",
                  corvane::primitives::CpuVariantPrefix(v));
      continue;
    }
    prefixes.push_back(corvane::primitives::CpuVariantPrefix(v));
    for (const Case& c : kCases) {
      configure(benchmark::RegisterBenchmark(
          ("median_" + std::string(c.name) + "/" + prefixes.back()).c_str(), BM_Corvane, v, c));
    }
  }
  for (const Case& c : kCases) {
    configure(
        benchmark::RegisterBenchmark(("opencv_" + std::string(c.name)).c_str(), BM_OpenCV, c));
  }
  configure(benchmark::RegisterBenchmark("memcpy_picture", BM_Memcpy));
#ifdef CORVANE_BENCH_DECODE
  corvane::bench::RegisterDecodeStage("decode_median", &H264CodecDecompressMedian);
#endif

  corvane::bench::MedianTimes reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nRatios of median times (above 1: the first is faster):\n");
  for (const Case& c : kCases) {
    for (const std::string& prefix : prefixes) {
      const std::string ours = "median_" + std::string(c.name) + "/" + prefix;
      PrintRatio(reporter, ours, "opencv_" + std::string(c.name),
                 std::string(c.name) + " vs OpenCV");
    }
  }
  // The parallel 5x5 against its own single thread.
  for (const std::string& prefix : prefixes) {
    PrintRatio(reporter, "median_8uC4_5x5_2threads/" + prefix, "median_8uC4_5x5_1thread/" + prefix,
               "8uC4_5x5 2 threads vs 1");
  }
  PrintRatio(reporter, "median_8uC3_3x3/" + prefixes.back(), "memcpy_picture",
             "3x3 against memcpy (cost)");
#ifdef CORVANE_BENCH_DECODE
  if (const double r = reporter.Ratio("decode", "decode_median")) {
    std::printf("%-34s decode_median / decode = %.3f (%.2f ms a picture added)\n",
                "median mode against plain decoding", r,
                (reporter.Median("decode_median") - reporter.Median("decode")) /
                    corvane::test::k1080p.frames);
  }
#endif
  return 0;
}
