// What the first-frames step adds to a packet while a session settles: the
// step alone (a parser over the packet's first 1000 bytes, sequence parameter
// set 0, the header) against libavcodec decoding the same first packet on a
// new decoder with the session's settings, and against the whole settling call
// through the export (decoder set-up, decode, step). The packet is the first
// access unit of a stream with B-frames, so the decoder gives no picture and
// the step runs, as it does for such streams in a client. The closing lines
// give step / decode for each stream.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

#include "corvane.h"
#include "decoder/first_frames.h"
#include "decoder/session.h"
#include "support/clips.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace {

#define BPYR "-c:v libx264 -profile:v high -bf 3 -x264-params b-pyramid=normal"
const corvane::test::StreamRecipe kStreams[] = {{"firstframes_1080p.h264", 1920, 1080, 4, BPYR},
                                                {"firstframes_320x240.h264", 320, 240, 4, BPYR}};
#undef BPYR

const std::vector<uint8_t>& FirstPacket(int index) {
  static std::map<int, std::vector<uint8_t>> packets;
  auto& packet = packets[index];
  if (packet.empty()) packet = corvane::test::LoadPackets(kStreams[index]).at(0);
  return packet;
}

void Label(benchmark::State& state) {
  const std::vector<uint8_t>& packet = FirstPacket(static_cast<int>(state.range(0)));
  state.SetLabel(std::string(kStreams[state.range(0)].file) + ", " + std::to_string(packet.size()) +
                 " bytes");
}

// The step as the worker runs it on a binding H.264 session whose decoder gave
// no picture.
void BM_FirstFramesStep(benchmark::State& state) {
  const std::vector<uint8_t>& packet = FirstPacket(static_cast<int>(state.range(0)));
  corvane::decoder::CodecSession session;
  session.codecId = corvane::decoder::CodecH264;
  BITMAPINFOHEADER header{};
  for (auto _ : state) {
    session.needsInit = true;
    const bool settled = corvane::decoder::RunFirstFramesStep(
        session, packet.data(), static_cast<int32_t>(packet.size()), &header);
    benchmark::DoNotOptimize(settled);
    benchmark::DoNotOptimize(&header);
  }
  if (header.biWidth != ((kStreams[state.range(0)].width + 15) & ~15))
    state.SkipWithError("the step found no size");
  Label(state);
}

AVCodecContext* OpenDecoder() {
  const AVCodec* codec = avcodec_find_decoder_by_name("h264");
  AVCodecContext* ctx = avcodec_alloc_context3(codec);
  ctx->thread_count = 0;
  ctx->thread_type = FF_THREAD_SLICE;
  ctx->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
  ctx->flags2 |= AV_CODEC_FLAG2_FAST | AV_CODEC_FLAG2_SHOW_ALL;
  if (avcodec_open2(ctx, codec, nullptr) < 0) avcodec_free_context(&ctx);
  return ctx;
}

// libavcodec's decode of the same packet on a new decoder, the decoder's
// opening and closing left out of the time.
void BM_DecodeFirstPacket(benchmark::State& state) {
  const std::vector<uint8_t>& packet = FirstPacket(static_cast<int>(state.range(0)));
  AVPacket* pkt = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  for (auto _ : state) {
    state.PauseTiming();
    AVCodecContext* ctx = OpenDecoder();
    state.ResumeTiming();
    if (!ctx) {
      state.SkipWithError("avcodec_open2 failed");
      break;
    }
    pkt->data = const_cast<uint8_t*>(packet.data());
    pkt->size = static_cast<int>(packet.size());
    avcodec_send_packet(ctx, pkt);
    benchmark::DoNotOptimize(avcodec_receive_frame(ctx, frame));
    state.PauseTiming();
    avcodec_free_context(&ctx);
    state.ResumeTiming();
  }
  av_frame_free(&frame);
  av_packet_free(&pkt);
  Label(state);
}

// The whole call of a settling session through the export: set-up of a new
// decoder, the decode, the step.
void BM_SettlingCall(benchmark::State& state) {
  const std::vector<uint8_t>& packet = FirstPacket(static_cast<int>(state.range(0)));
  CodecHandle session = H264CodecOpen();
  BITMAPINFOHEADER header{};
  for (auto _ : state) {
    state.PauseTiming();
    H264CodecReset(session);
    state.ResumeTiming();
    benchmark::DoNotOptimize(H264CodecDecompress(
        session, packet.data(), static_cast<int32_t>(packet.size()), &header, nullptr, 0));
  }
  H264CodecClose(session);
  if (header.biSize != 40) state.SkipWithError("the call didn't settle on the parameter set");
  Label(state);
}

void Configure(benchmark::internal::Benchmark* b) {
  b->Arg(0)->Arg(1)->Repetitions(5)->UseRealTime()->Unit(benchmark::kMicrosecond);
}
BENCHMARK(BM_FirstFramesStep)->Apply(Configure);
BENCHMARK(BM_DecodeFirstPacket)->Apply(Configure);
BENCHMARK(BM_SettlingCall)->Apply(Configure);

// The console output, plus the medians kept for the closing ratios.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs)
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" &&
          !run.error_occurred)
        medians[run.run_name.function_name][run.run_name.args] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, std::map<std::string, double>> medians;  // function, argument
};

}  // namespace

int main(int argc, char** argv) {
  av_log_set_level(AV_LOG_QUIET);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  for (int i = 0; i < 2; ++i) FirstPacket(i);  // make and load the streams before any timing
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  auto& m = reporter.medians;
  for (int i = 0; i < 2; ++i) {
    const std::string arg = std::to_string(i);
    const double step = m["BM_FirstFramesStep"][arg];
    const double decode = m["BM_DecodeFirstPacket"][arg];
    const double call = m["BM_SettlingCall"][arg];
    if (step <= 0 || decode <= 0 || call <= 0) continue;
    std::printf("%s: step / decode of the packet %.5f (%.2f %%), step / settling call %.5f\n",
                kStreams[i].file, step / decode, step / decode * 100.0, step / call);
  }
  benchmark::Shutdown();
  return 0;
}
