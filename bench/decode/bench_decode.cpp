// Per-picture cost of decoding through the library against FFmpeg used directly.
//
// Both sides decode the same 1080p H.264 stream (made once with the ffmpeg CLI)
// one packet at a time with the same decoder settings (FFmpeg picks the thread
// count, slice threading, corrupt pictures shown, fast decoding) and convert
// each picture to BGR24 with swscale (fast bilinear). What differs is the
// library's session, locks, header and delivery: its overhead, which the closing
// line states as the ratio of the median times.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include "corvane.h"
#include "common/stream_1080p.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace {

using corvane::bench::Packets;
constexpr int kWidth = corvane::bench::kStreamWidth;
constexpr int kHeight = corvane::bench::kStreamHeight;
constexpr int kFrames = corvane::bench::kStreamFrames;
constexpr size_t kPictureBytes = size_t{kWidth} * kHeight * 3;

const Packets& Stream() { return corvane::bench::Stream1080p(); }

// CPU time of the whole process, FFmpeg's slice threads included: on a machine
// that others load too, the work done varies far less than the wall time.
double ProcessCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec * 1e-6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void ReportPictures(benchmark::State& state, long pictures, double cpuSeconds) {
  if (pictures != static_cast<long>(state.iterations()) * kFrames) {
    state.SkipWithError("not every packet gave a picture");
    return;
  }
  state.counters["per_picture"] = benchmark::Counter(
      static_cast<double>(pictures), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["cpu_ms_per_picture"] = cpuSeconds * 1e3 / static_cast<double>(pictures);
}

void BM_Corvane(benchmark::State& state) {
  const Packets& packets = Stream();
  std::vector<uint8_t> out(kPictureBytes);
  long pictures = 0;
  const double cpuBefore = ProcessCpuSeconds();
  for (auto _ : state) {
    CodecHandle session = H264CodecOpen();
    for (const auto& p : packets) {
      BITMAPINFOHEADER header{};
      const int rc = H264CodecDecompress(session, p.data(), static_cast<int32_t>(p.size()), &header,
                                         out.data(), static_cast<int32_t>(out.size()));
      if (rc == 0 && header.biSize == 40 && header.biHeight == kHeight) ++pictures;
    }
    H264CodecClose(session);
    benchmark::DoNotOptimize(out.data());
  }
  ReportPictures(state, pictures, ProcessCpuSeconds() - cpuBefore);
}

void BM_Ffmpeg(benchmark::State& state) {
  const Packets& packets = Stream();
  std::vector<uint8_t> out(kPictureBytes);
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  long pictures = 0;
  const double cpuBefore = ProcessCpuSeconds();
  for (auto _ : state) {
    const AVCodec* codec = avcodec_find_decoder_by_name("h264");
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    ctx->thread_count = 0;
    ctx->thread_type = FF_THREAD_SLICE;
    ctx->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
    ctx->flags2 |= AV_CODEC_FLAG2_FAST | AV_CODEC_FLAG2_SHOW_ALL;
    if (avcodec_open2(ctx, codec, nullptr) < 0) {
      state.SkipWithError("avcodec_open2 failed");
      break;
    }
    SwsContext* sws = nullptr;
    for (const auto& p : packets) {
      packet->data = const_cast<uint8_t*>(p.data());
      packet->size = static_cast<int>(p.size());
      avcodec_send_packet(ctx, packet);
      while (avcodec_receive_frame(ctx, frame) == 0) {
        sws = sws_getCachedContext(sws, frame->width, frame->height,
                                   static_cast<AVPixelFormat>(frame->format), frame->width,
                                   frame->height, AV_PIX_FMT_BGR24, SWS_FAST_BILINEAR, nullptr,
                                   nullptr, nullptr);
        uint8_t* dst[4] = {out.data(), nullptr, nullptr, nullptr};
        int dstStride[4] = {frame->width * 3, 0, 0, 0};
        sws_scale(sws, frame->data, frame->linesize, 0, frame->height, dst, dstStride);
        if (frame->height == kHeight) ++pictures;
        av_frame_unref(frame);
      }
    }
    sws_freeContext(sws);
    avcodec_free_context(&ctx);
    benchmark::DoNotOptimize(out.data());
  }
  av_frame_free(&frame);
  av_packet_free(&packet);
  ReportPictures(state, pictures, ProcessCpuSeconds() - cpuBefore);
}

// Many repetitions of a few whole passes each, the two sides interleaved in
// random order (see main) so that a busy moment of the machine doesn't load one
// side alone; wall time, since the decoder's slice threads do part of the work.
void Configure(benchmark::internal::Benchmark* b) {
  b->Iterations(3)->Repetitions(10)->UseRealTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_Ffmpeg)->Apply(Configure);
BENCHMARK(BM_Corvane)->Apply(Configure);

// The console output, plus the medians kept for the closing ratio.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs)
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" &&
          !run.error_occurred) {
        medians[run.run_name.function_name] = run.GetAdjustedRealTime();
        const auto cpu = run.counters.find("cpu_ms_per_picture");
        if (cpu != run.counters.end()) cpuMedians[run.run_name.function_name] = cpu->second;
      }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> medians;     // wall time of an iteration
  std::map<std::string, double> cpuMedians;  // process CPU time a picture
};

}  // namespace

int main(int argc, char** argv) {
  // Repetitions of both sides interleaved unless the command line says otherwise.
  std::vector<char*> args(argv, argv + argc);
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  bool given = false;
  for (int i = 1; i < argc; ++i)
    given |= std::string(argv[i]).rfind("--benchmark_enable_random_interleaving", 0) == 0;
  if (!given) args.insert(args.begin() + 1, interleave.data());
  argc = static_cast<int>(args.size());
  args.push_back(nullptr);
  argv = args.data();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Stream();  // make and load the stream before any timing
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  auto printRatio = [](const std::map<std::string, double>& medians, const char* what) {
    const auto lib = medians.find("BM_Corvane");
    const auto peer = medians.find("BM_Ffmpeg");
    if (lib == medians.end() || peer == medians.end() || peer->second <= 0) return;
    const double ratio = lib->second / peer->second;
    std::printf("library / FFmpeg, median %s a picture: %.4f (overhead %+.2f %%)\n", what, ratio,
                (ratio - 1.0) * 100.0);
  };
  printRatio(reporter.medians, "wall time");
  printRatio(reporter.cpuMedians, "process CPU time");
  benchmark::Shutdown();
  return 0;
}
