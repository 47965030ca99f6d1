// corvane-decode: feeds a stream file through libcorvane's decoder exports, one
// packet a call, writes the pictures it is asked for and prints a summary.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/log.h>
}

#include "corvane_image.h"
#include "decode_client.h"
#include "options.h"
#include "packet_source.h"
#include "picture_writer.h"

namespace corvane::tools {

namespace {

using Clock = std::chrono::steady_clock;

const char* ResultName(int code) {
  switch (code) {
    case 0:
      return "ok";
    case 1:
      return "drained";
    case ResultDecoderUnavailable:
      return "ResultDecoderUnavailable";
    case ResultNoResource:
      return "ResultNoResource";
    case ResultBufferTooSmall:
      return "ResultBufferTooSmall";
    case ResultNoParameters:
      return "ResultNoParameters";
    case ResultBadArgument:
      return "ResultBadArgument";
    case ResultDecodeFailed:
      return "ResultDecodeFailed";
    case ResultFilterFailed:
      return "ResultFilterFailed";
    default:
      return "unknown";
  }
}

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// Errors FFmpeg reported while reading or decoding, shown or not: a sign of a
// damaged or truncated file. Counted from any thread (FFmpeg's decoder threads
// log too).
std::atomic<long> g_ffmpegErrors{0};

void CountingLog(void* context, int level, const char* format, va_list args) {
  if (level <= AV_LOG_ERROR) ++g_ffmpegErrors;
  av_log_default_callback(context, level, format, args);
}

// "1:02:03.4" or "2:03.4".
std::string MediaTime(double seconds) {
  const long tenths = static_cast<long>(seconds * 10 + 0.5);
  char text[32];
  if (tenths >= 36000)
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld.%ld", tenths / 36000, tenths / 600 % 60,
                  tenths / 10 % 60, tenths % 10);
  else
    std::snprintf(text, sizeof text, "%ld:%02ld.%ld", tenths / 600, tenths / 10 % 60, tenths % 10);
  return text;
}

// A one-line count on a terminal, redrawn in place a few times a second: how far
// into the stream (when the container tells its length), pictures, speed.
class Progress {
 public:
  Progress(bool enabled, double duration)
      : enabled_(enabled), duration_(duration), start_(Clock::now()) {}
  void Update(long pictures, double time) {
    if (time > reached_) reached_ = time;
    if (!enabled_) return;
    const auto now = Clock::now();
    if (now - last_ < std::chrono::milliseconds(200)) return;
    last_ = now;
    const double elapsed = Seconds(now - start_);
    std::string where;
    if (duration_ > 0 && reached_ >= 0)
      where = std::to_string(static_cast<int>(100 * std::min(reached_ / duration_, 1.0))) + "% " +
              MediaTime(reached_) + " / " + MediaTime(duration_) + ", ";
    std::fprintf(stderr, "\r%s%ld pictures, %.1f pictures/s ", where.c_str(), pictures,
                 elapsed > 0 ? pictures / elapsed : 0.0);
    std::fflush(stderr);
    shown_ = true;
  }
  void Clear() {
    if (shown_) std::fputs("\r\033[K", stderr);
  }
  // The furthest media time reached, -1 when no packet told one.
  double reached() const { return reached_; }

 private:
  bool enabled_;
  double duration_;
  double reached_ = -1.0;
  bool shown_ = false;
  Clock::time_point start_;
  Clock::time_point last_{};
};

struct Tally {
  long packets = 0;
  long pictures = 0;
  long drained = 0;  // of the pictures, those the drain gave
  long written = 0;
  std::set<std::pair<int, int>> sizes;
  Clock::duration inDecoder{};
};

Stage StageOf(const Options& options) {
  return options.median == 3 ? Stage::Median : options.sharpen ? Stage::Sharpen : Stage::Plain;
}

const char* ExportName(Codec codec, Stage stage) {
  if (codec == Codec::H265) return "H265CodecDecompress";
  if (stage == Stage::Sharpen) return "corvane_codec_decompress_sharpen";
  return stage == Stage::Median ? "H264CodecDecompressMedian" : "H264CodecDecompress";
}

// A median clean-up of a size other than the decoder's own 3 x 3: each
// picture through corvane_median into a buffer of the tool's.
class MedianCleanUp {
 public:
  explicit MedianCleanUp(int32_t size) : size_(size) {}
  DecodedPicture Apply(const DecodedPicture& picture) {
    const int32_t step = picture.width * 3;
    out_.resize(size_t(step) * picture.height);
    const corvane_image src{const_cast<uint8_t*>(picture.bgr), step, picture.width, picture.height,
                            CORVANE_8U_C3};
    const corvane_image dst{out_.data(), step, picture.width, picture.height, CORVANE_8U_C3};
    const int32_t status =
        corvane_median(&src, &dst, size_, size_, CORVANE_BORDER_REPLICATE, nullptr);
    if (status != CORVANE_STATUS_OK)
      throw std::runtime_error("corvane_median refused a picture: status " +
                               std::to_string(status));
    return {picture.width, picture.height, out_.data()};
  }

 private:
  int32_t size_;
  std::vector<uint8_t> out_;
};

void PrintSummary(const Options& options, const PacketSource& source, const DecodeClient& client,
                  const Tally& tally, Clock::duration total) {
  std::printf("input:    %s (%s, %s)\n", options.input.c_str(), CodecName(source.codec()),
              source.kind().c_str());
  const std::string cleanUp = options.median > 0 && options.median != 3
                                  ? " and corvane_median " + std::to_string(options.median) + "x" +
                                        std::to_string(options.median)
                                  : "";
  std::printf("export:   %s%s%s%s\n", ExportName(source.codec(), StageOf(options)), cleanUp.c_str(),
              options.strict ? ", as designed (--strict)" : " with the file options and drain",
              options.callback ? ", every picture through the callback" : "");
  std::printf("packets:  %ld\n", tally.packets);
  std::printf("pictures: %ld\n", tally.pictures);
  if (!options.strict) std::printf("drained:  %ld\n", tally.drained);
  std::string sizes;
  for (const auto& [w, h] : tally.sizes)
    sizes += (sizes.empty() ? "" : ", ") + std::to_string(w) + "x" + std::to_string(h);
  std::printf("size:     %s\n", sizes.empty() ? "none" : sizes.c_str());
  if (options.outDir)
    std::printf("written:  %ld (%s, %s)\n", tally.written, PictureFormatName(options.format),
                options.outDir->c_str());
  std::string results;
  for (const auto& [code, count] : client.results())
    results += (results.empty() ? "" : ", ") + std::to_string(code) + " " + ResultName(code) +
               " x" + std::to_string(count);
  std::printf("results:  %s\n", results.empty() ? "none" : results.c_str());
  const double decoding = Seconds(tally.inDecoder);
  std::printf("time:     %.3f s in the decoder, %.3f s in all\n", decoding, Seconds(total));
  std::printf("fps:      %.1f\n", decoding > 0 ? tally.pictures / decoding : 0.0);
}

// What the user should know about a file that didn't read or decode cleanly.
void WarnOfDamage(const PacketSource& source, const DecodeClient& client, double reached,
                  bool strict) {
  if (!source.stopReason().empty())
    std::fprintf(stderr, "corvane-decode: warning: reading stopped early: %s\n",
                 source.stopReason().c_str());
  const auto failed = client.results().find(ResultDecodeFailed);
  const long errors = g_ffmpegErrors.load();
  // The designed exports refuse every packet before one that opens with the
  // parameters, and FFmpeg complains of each: no damage in that.
  if (!strict && (failed != client.results().end() || errors > 0))
    std::fprintf(stderr,
                 "corvane-decode: warning: %ld packets refused by the decoder, %ld errors "
                 "reported by FFmpeg: the file is damaged or truncated\n",
                 failed != client.results().end() ? failed->second : 0, errors);
  // A container that tells its length while its packets stop well short of
  // it (two seconds, or a tenth) has lost its end.
  const double missing = source.duration() - reached;
  if (source.duration() > 0 && reached >= 0 && missing > std::min(2.0, source.duration() / 10))
    std::fprintf(stderr,
                 "corvane-decode: warning: the stream ends at %s of the %s its container states\n",
                 MediaTime(reached).c_str(), MediaTime(source.duration()).c_str());
}

int Run(const Options& options) {
  const auto start = Clock::now();
  std::unique_ptr<PacketSource> source = OpenPacketSource(options.input, options.codec);
  DecodeClient client(source->codec(), StageOf(options), options.callback,
                      options.strict ? 0u : kFileOptions);
  std::unique_ptr<MedianCleanUp> cleanUp;
  if (options.median > 0 && options.median != 3)
    cleanUp = std::make_unique<MedianCleanUp>(static_cast<int32_t>(options.median));
  std::unique_ptr<PictureWriter> writer;
  if (options.outDir) writer = std::make_unique<PictureWriter>(*options.outDir, options.format);

  Progress progress(!options.quiet && (options.progress || isatty(STDERR_FILENO)),
                    source->duration());
  Tally tally;
  auto take = [&](DecodedPicture picture) {
    if (cleanUp) {
      const auto before = Clock::now();
      picture = cleanUp->Apply(picture);
      tally.inDecoder += Clock::now() - before;
    }
    if (writer && tally.pictures % options.every == 0) {
      writer->Write(tally.pictures, picture.bgr, picture.width, picture.height);
      ++tally.written;
    }
    tally.sizes.emplace(picture.width, picture.height);
    ++tally.pictures;
  };
  auto wanted = [&] { return options.max == 0 || tally.pictures < options.max; };
  PacketView packet;
  DecodedPicture picture;
  while (wanted() && source->Next(packet)) {
    const auto before = Clock::now();
    client.Feed(packet.data, packet.size, picture);
    tally.inDecoder += Clock::now() - before;
    ++tally.packets;
    if (picture.bgr) take(picture);
    progress.Update(tally.pictures, packet.time);
  }
  // The pictures still inside the decoder: those behind reordering, and those
  // in flight in its frame threads.
  while (!options.strict && wanted()) {
    const auto before = Clock::now();
    const int drained = client.Drain(picture);
    tally.inDecoder += Clock::now() - before;
    if (drained != 1) break;
    take(picture);
    ++tally.drained;
  }
  progress.Clear();
  if (!options.quiet) {
    PrintSummary(options, *source, client, tally, Clock::now() - start);
    if (options.max == 0) WarnOfDamage(*source, client, progress.reached(), options.strict);
  }
  if (tally.pictures == 0) {
    std::fprintf(stderr, "corvane-decode: no picture decoded from %s\n", options.input.c_str());
    return 1;
  }
  return 0;
}

}  // namespace

}  // namespace corvane::tools

int main(int argc, char** argv) {
  using namespace corvane::tools;
  Options options;
  try {
    options = ParseOptions(argc, argv);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "corvane-decode: %s\nTry 'corvane-decode --help'.\n", e.what());
    return 2;
  }
  if (options.help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (options.version) {
    std::printf("corvane-decode %s\nlibcorvane %s\nFFmpeg %s\n", CORVANE_TOOL_VERSION,
                corvane_version(), av_version_info());
    return 0;
  }
  av_log_set_level(options.logLevel);
  av_log_set_callback(CountingLog);
  try {
    return Run(options);
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "corvane-decode: %s\n", e.what());
    return 1;
  }
}
