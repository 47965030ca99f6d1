// Decoding a 1080p H.264 stream through the exports, plain and in the median
// mode: what the median stage adds to a picture.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench_median.h"
#include "corvane.h"
#include "support/clips.h"

namespace corvane::bench {
namespace {

using Packets = std::vector<test::Packet>;
constexpr int kWidth = test::k1080p.width, kHeight = test::k1080p.height,
              kFrames = test::k1080p.frames;

const Packets& Stream() {
  static const Packets packets = test::LoadPackets(test::k1080p);
  return packets;
}

using DecompressFn = int32_t (*)(CodecHandle, const uint8_t*, int32_t, BITMAPINFOHEADER*, uint8_t*,
                                 int32_t);

void BM_Decode(benchmark::State& state, DecompressFn decompress) {
  const Packets& packets = Stream();
  std::vector<uint8_t> out(size_t{kWidth} * kHeight * 3);
  long pictures = 0;
  for (auto _ : state) {
    CodecHandle session = H264CodecOpen();
    for (const auto& p : packets) {
      BITMAPINFOHEADER header{};
      if (decompress(session, p.data(), static_cast<int32_t>(p.size()), &header, out.data(),
                     static_cast<int32_t>(out.size())) == 0 &&
          header.biHeight == kHeight) {
        ++pictures;
      }
    }
    H264CodecClose(session);
    benchmark::DoNotOptimize(out.data());
  }
  if (pictures != static_cast<long>(state.iterations()) * kFrames) {
    state.SkipWithError("not every packet gave a picture");
  }
}

}  // namespace

void RegisterDecodeBenchmarks() {
  Stream();
  for (auto [name, fn] : {std::pair<const char*, DecompressFn>{"decode", &H264CodecDecompress},
                          {"decode_median", &H264CodecDecompressMedian}}) {
    benchmark::RegisterBenchmark(name, BM_Decode, fn)
        ->Iterations(2)
        ->Repetitions(7)
        ->ReportAggregatesOnly(true)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
}

void PrintDecodeRatio(const std::map<std::string, double>& medians) {
  const auto plain = medians.find("decode"), median = medians.find("decode_median");
  if (plain == medians.end() || median == medians.end() || plain->second <= 0) return;
  std::printf("%-34s decode_median / decode = %.3f (%.2f ms a picture added)\n",
              "median mode against plain decoding", median->second / plain->second,
              (median->second - plain->second) / kFrames);
}

}  // namespace corvane::bench
