#include "common/decode_stage.h"

#include <benchmark/benchmark.h>

#include <utility>
#include <vector>

#include "support/clips.h"

namespace corvane::bench {
namespace {

void BM_Decode(benchmark::State& state, DecompressFn decompress) {
  static const std::vector<test::Packet> packets = test::LoadPackets(test::k1080p);
  std::vector<uint8_t> out(size_t{test::k1080p.width} * test::k1080p.height * 3);
  long pictures = 0;
  for (auto _ : state) {
    CodecHandle session = H264CodecOpen();
    for (const auto& p : packets) {
      BITMAPINFOHEADER header{};
      pictures += decompress(session, p.data(), int32_t(p.size()), &header, out.data(),
                             int32_t(out.size())) == 0 &&
                  header.biHeight == test::k1080p.height;
    }
    H264CodecClose(session);
    benchmark::DoNotOptimize(out.data());
  }
  if (pictures != long(state.iterations()) * test::k1080p.frames) {
    state.SkipWithError("not every packet gave a picture");
  }
}

}  // namespace

void RegisterDecodeStage(const char* name, DecompressFn stage) {
  for (auto [n, fn] :
       {std::pair<const char*, DecompressFn>{"decode", &H264CodecDecompress}, {name, stage}}) {
    benchmark::RegisterBenchmark(n, BM_Decode, fn)
        ->Iterations(2)
        ->Repetitions(7)
        ->ReportAggregatesOnly(true)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace corvane::bench
