// Decoding a 1080p H.264 stream through the exports, plain and in the median
// mode: what the median stage adds to a picture.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench_median.h"
#include "corvane.h"
#include "packet_source.h"

namespace corvane::bench {
namespace {

constexpr int kWidth = 1920, kHeight = 1080, kFrames = 80;

using Packets = std::vector<std::vector<uint8_t>>;

// The stream of bench_decode, made the same way so that one file serves both.
std::string MakeStream() {
  const std::string dir = CORVANE_BENCH_DATA_DIR;
  const std::string path = dir + "/decode_1080p.h264";
  struct stat st {};
  if (stat(path.c_str(), &st) == 0 && st.st_size > 0) return path;
  const std::string tmp = path + ".median.tmp.h264";
  const std::string cmd = "mkdir -p '" + dir +
                          "' && ffmpeg -nostdin -y -loglevel error -f lavfi -i "
                          "testsrc2=size=1920x1080:rate=25 -frames:v " +
                          std::to_string(kFrames) +
                          " -c:v libx264 -profile:v main -bf 0 -g 50 -x264-params slices=4 '" +
                          tmp + "' && mv '" + tmp + "' '" + path + "'";
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "cannot make the stream: %s\n", cmd.c_str());
    std::exit(1);
  }
  return path;
}

const Packets& Stream() {
  static const Packets packets = [] {
    Packets all;
    auto source = tools::OpenPacketSource(MakeStream(), tools::Codec::H264);
    tools::PacketView p;
    while (source->Next(p)) all.emplace_back(p.data, p.data + p.size);
    return all;
  }();
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
