// The warp of a 1920x1080 BGR picture, single thread, on every code path this
// processor runs, each against what OpenCV does with the same map:
// - BmpReSizeEx, a 1000x700 crop to 640x480 and to 1920x1080, against
//   resize and warpAffine, both nearest neighbour;
// - corvane_warp turning the picture by 10 degrees about its centre and
//   scaling it by 0.6 and 1.7, linear and cubic, against warpAffine;
// - corvane_resize to 0.6 and 1.7 times the size, against resize;
// - corvane_warp_quad onto a quad with no parallel sides, linear, against
//   warpPerspective.
// Times are processor time of the one thread, which a busy machine disturbs
// less than wall time; the closing lines give the ratios of the median times.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <vector>

#include "common/median_times.h"
#include "corvane.h"
#include "corvane_image.h"
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

// A map of the whole picture, and what OpenCV is given for it.
struct Map {
  const char* name;
  int width, height;  // of the destination
  double c[8];        // corvane_warp's forward coefficients
};

Map Rotation() {
  const double a = 10 * 3.14159265358979 / 180, cs = std::cos(a), sn = std::sin(a);
  const double cx = (kWidth - 1) / 2.0, cy = (kHeight - 1) / 2.0;
  return {"rotate10",
          kWidth,
          kHeight,
          {0, cs, -sn, cx - cs * cx + sn * cy, 0, sn, cs, cy - sn * cx - cs * cy}};
}
Map Scale(const char* name, double s) {
  return {name, int(kWidth * s), int(kHeight * s), {0, s, 0, 0, 0, 0, s, 0}};
}
// The corners of the picture go here, in order.
constexpr double kQuad[4][2] = {{120, 40}, {1800, 0}, {1919, 1079}, {0, 990}};

corvane_image ImageOf(const cv::Mat& m) {
  return {m.data, int32_t(m.step), m.cols, m.rows, CORVANE_8U_C3};
}

enum class Call { Warp, Resize, Quad };

void BM_Ours(benchmark::State& state, int variant, Call call, Map map, uint32_t mode) {
  const corvane_image src = ImageOf(Source());
  cv::Mat out(map.height, map.width, CV_8UC3);
  const corvane_image dst = ImageOf(out);
  const corvane_rect whole{0, 0, kWidth, kHeight}, all{0, 0, map.width, map.height};
  corvane::primitives::ForceCpuVariantForTesting(variant);
  for (auto _ : state) {
    const int32_t status = call == Call::Warp ? corvane_warp(&src, whole, &dst, all, map.c, mode)
                           : call == Call::Resize
                               ? corvane_resize(&src, whole, &dst, mode)
                               : corvane_warp_quad(&src, whole, &dst, kQuad, mode);
    if (status != 0) {
      state.SkipWithError("the warp refused");
      break;
    }
    benchmark::ClobberMemory();
  }
  corvane::primitives::RestoreCpuVariantForTesting();
  state.SetItemsProcessed(int64_t(state.iterations()) * map.width * map.height);
}

void BM_Peer(benchmark::State& state, Call call, Map map, int mode) {
  cv::setNumThreads(1);
  cv::Mat dst(map.height, map.width, CV_8UC3);
  const cv::Matx23d affine(map.c[1], map.c[2], map.c[3], map.c[5], map.c[6], map.c[7]);
  const cv::Point2f from[4] = {
      {0, 0}, {kWidth - 1, 0}, {kWidth - 1, kHeight - 1}, {0, kHeight - 1}};
  cv::Point2f to[4];
  for (int i = 0; i < 4; ++i) to[i] = {float(kQuad[i][0]), float(kQuad[i][1])};
  const cv::Mat perspective = cv::getPerspectiveTransform(from, to);
  for (auto _ : state) {
    if (call == Call::Warp) cv::warpAffine(Source(), dst, affine, dst.size(), mode);
    if (call == Call::Resize) cv::resize(Source(), dst, dst.size(), 0, 0, mode);
    if (call == Call::Quad) cv::warpPerspective(Source(), dst, perspective, dst.size(), mode);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * map.width * map.height);
}

void PrintRatio(const corvane::bench::MedianTimes& times, const std::string& ours,
                const std::string& peer) {
  if (const double r = times.Ratio(ours, peer)) {
    std::printf("%-36s %-40s %.2f\n", ours.c_str(), peer.c_str(), r);
  }
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
  struct Case {
    Call call;
    const char* family;
    const char* peer;
    Map map;
    uint32_t mode;
    int cvMode;
  };
  std::vector<Case> cases;
  for (const Map& map : {Rotation(), Scale("scale0.6", 0.6), Scale("scale1.7", 1.7)}) {
    cases.push_back({Call::Warp, "warp", "opencv_warpAffine", map, 2, cv::INTER_LINEAR});
    cases.push_back({Call::Warp, "warp", "opencv_warpAffine", map, 4, cv::INTER_CUBIC});
  }
  for (const Map& map : {Scale("0.6", 0.6), Scale("1.7", 1.7)}) {
    cases.push_back({Call::Resize, "resize", "opencv_resize", map, 2, cv::INTER_LINEAR});
    cases.push_back({Call::Resize, "resize", "opencv_resize", map, 4, cv::INTER_CUBIC});
  }
  cases.push_back({Call::Quad,
                   "warp_quad",
                   "opencv_warpPerspective",
                   {"quad", kWidth, kHeight, {}},
                   2,
                   cv::INTER_LINEAR});
  for (const Case& c : cases) {
    const std::string what = std::string(c.map.name) + (c.mode == 2 ? "/linear" : "/cubic");
    const std::string peer = std::string(c.peer) + "/" + what;
    configure(benchmark::RegisterBenchmark(peer.c_str(), BM_Peer, c.call, c.map, c.cvMode));
    for (int v = 0; v < corvane::primitives::kCpuVariantCount; ++v) {
      if (!corvane::primitives::ownCpuCanRunVariant(v)) continue;
      const std::string name =
          std::string(c.family) + "/" + what + "/" + corvane::primitives::CpuVariantPrefix(v);
      configure(benchmark::RegisterBenchmark(name.c_str(), BM_Ours, v, c.call, c.map, c.mode));
      pairs.emplace_back(name, peer);
    }
  }
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
  corvane::bench::MedianTimes reporter(/*cpuTime=*/true);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nRatios of median times, peer / ours (above 1: ours is faster):\n");
  for (const auto& [ours, peer] : pairs) PrintRatio(reporter, ours, peer);
  return 0;
}
