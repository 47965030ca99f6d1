// Decoding 1080p H.264 two ways, each against what a user would pick instead.
//
// The exports with their designed set-up against FFmpeg used directly: both
// sides decode the same 1080p stream (made once with the ffmpeg CLI) one packet
// at a time with the same decoder settings (FFmpeg picks the thread count,
// slice threading, corrupt pictures shown, fast decoding) and convert each
// picture to BGR24 with swscale (fast bilinear). What differs is the library's
// session, locks, header and delivery: its overhead.
//
// corvane-decode on an ordinary file (a single-slice x264 MP4 with the
// encoder's defaults, no pictures written) against the ffmpeg command line
// decoding and converting the same file to BGR24 (fast bilinear) for the null
// muxer: whole processes, as a user times them.
//
// The closing lines give the ratios of the median times.
#include <benchmark/benchmark.h>

#include <fcntl.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>

#include "corvane.h"
#include "support/clips.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace {

using Packets = std::vector<corvane::test::Packet>;
constexpr int kWidth = corvane::test::k1080p.width;
constexpr int kHeight = corvane::test::k1080p.height;
constexpr int kFrames = corvane::test::k1080p.frames;
constexpr size_t kPictureBytes = size_t{kWidth} * kHeight * 3;

const Packets& Stream() {
  static const Packets packets = corvane::test::LoadPackets(corvane::test::k1080p);
  return packets;
}

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

// The file of the command-line pair: 150 pictures, 6 seconds.
constexpr int kFilePictures = 150;
const std::string& File() {
  static const std::string path = corvane::test::MakeClip(
      {"decode_1080p_x264.mp4", kWidth, kHeight, kFilePictures, "-c:v libx264 -f mp4"});
  return path;
}

extern "C" char** environ;

// Runs a program to its end with its output thrown away; false if it failed.
// `cpuSeconds` gains the CPU time of the process and its threads.
bool RunProcess(const std::vector<std::string>& args, double& cpuSeconds) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int spawned = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return false;
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid) return false;
  auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec * 1e-6; };
  cpuSeconds += seconds(usage.ru_utime) + seconds(usage.ru_stime);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void RunTool(benchmark::State& state, const std::vector<std::string>& args) {
  double cpuSeconds = 0;
  for (auto _ : state)
    if (!RunProcess(args, cpuSeconds)) {
      state.SkipWithError(("failed: " + args[0]).c_str());
      return;
    }
  const double pictures = static_cast<double>(state.iterations()) * kFilePictures;
  state.counters["pictures_per_s"] = benchmark::Counter(pictures, benchmark::Counter::kIsRate);
  state.counters["cpu_ms_per_picture"] = cpuSeconds * 1e3 / pictures;
}

void BM_DecodeTool(benchmark::State& state) {
  RunTool(state, {CORVANE_DECODE_TOOL, File(), "--quiet"});
}

void BM_FfmpegTool(benchmark::State& state) {
  RunTool(state, {"ffmpeg", "-nostdin", "-loglevel", "error", "-i", File(), "-pix_fmt", "bgr24",
                  "-sws_flags", "fast_bilinear", "-f", "null", "-"});
}

// Many repetitions of a few whole passes each, the two sides interleaved in
// random order (see main) so that a busy moment of the machine doesn't load one
// side alone; wall time, since the decoder's slice threads do part of the work.
void Configure(benchmark::internal::Benchmark* b) {
  b->Iterations(3)->Repetitions(10)->UseRealTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_Ffmpeg)->Apply(Configure);
BENCHMARK(BM_Corvane)->Apply(Configure);
void ConfigureTool(benchmark::internal::Benchmark* b) {
  b->Iterations(1)->Repetitions(10)->UseRealTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_FfmpegTool)->Apply(ConfigureTool);
BENCHMARK(BM_DecodeTool)->Apply(ConfigureTool);

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
  Stream();  // make and load the streams before any timing
  File();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  auto printRatio = [](const std::map<std::string, double>& medians, const char* lib,
                       const char* peer, const char* what) {
    const auto l = medians.find(lib);
    const auto p = medians.find(peer);
    if (l == medians.end() || p == medians.end() || p->second <= 0 || l->second <= 0) return;
    const double ratio = l->second / p->second;
    std::printf("%s / %s, median %s: %.4f (overhead %+.2f %%, speed %.2fx)\n", lib, peer, what,
                ratio, (ratio - 1.0) * 100.0, 1.0 / ratio);
  };
  printRatio(reporter.medians, "BM_Corvane", "BM_Ffmpeg", "wall time a picture");
  printRatio(reporter.cpuMedians, "BM_Corvane", "BM_Ffmpeg", "process CPU time a picture");
  printRatio(reporter.medians, "BM_DecodeTool", "BM_FfmpegTool", "wall time of the file");
  printRatio(reporter.cpuMedians, "BM_DecodeTool", "BM_FfmpegTool", "CPU time of the file");
  benchmark::Shutdown();
  return 0;
}
