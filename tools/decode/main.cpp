// corvane-decode: feeds a stream file through libcorvane's decoder exports, one
// packet a call, writes the pictures it is asked for and prints a summary.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <utility>

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

// A one-line count on a terminal, redrawn in place a few times a second.
class Progress {
 public:
  explicit Progress(bool enabled) : enabled_(enabled), start_(Clock::now()) {}
  void Update(long packets, long pictures) {
    if (!enabled_) return;
    const auto now = Clock::now();
    if (now - last_ < std::chrono::milliseconds(200)) return;
    last_ = now;
    const double elapsed = Seconds(now - start_);
    std::fprintf(stderr, "\r%ld packets, %ld pictures, %.1f pictures/s ", packets, pictures,
                 elapsed > 0 ? pictures / elapsed : 0.0);
    std::fflush(stderr);
    shown_ = true;
  }
  void Clear() {
    if (shown_) std::fputs("\r\033[K", stderr);
  }

 private:
  bool enabled_;
  bool shown_ = false;
  Clock::time_point start_;
  Clock::time_point last_{};
};

struct Tally {
  long packets = 0;
  long pictures = 0;
  long written = 0;
  std::set<std::pair<int, int>> sizes;
  Clock::duration inDecoder{};
};

const char* ExportName(Codec codec, bool median) {
  if (codec == Codec::H265) return "H265CodecDecompress";
  return median ? "H264CodecDecompressMedian" : "H264CodecDecompress";
}

void PrintSummary(const Options& options, const PacketSource& source, const DecodeClient& client,
                  const Tally& tally, Clock::duration total) {
  std::printf("input:    %s (%s, %s)\n", options.input.c_str(), CodecName(source.codec()),
              source.kind().c_str());
  std::printf("export:   %s%s\n", ExportName(source.codec(), options.median),
              options.callback ? ", every picture through the callback" : "");
  std::printf("packets:  %ld\n", tally.packets);
  std::printf("pictures: %ld\n", tally.pictures);
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

int Run(const Options& options) {
  const auto start = Clock::now();
  std::unique_ptr<PacketSource> source = OpenPacketSource(options.input, options.codec);
  DecodeClient client(source->codec(), options.median, options.callback);
  std::unique_ptr<PictureWriter> writer;
  if (options.outDir) writer = std::make_unique<PictureWriter>(*options.outDir, options.format);

  Progress progress(!options.quiet && isatty(STDERR_FILENO));
  Tally tally;
  PacketView packet;
  while ((options.max == 0 || tally.pictures < options.max) && source->Next(packet)) {
    DecodedPicture picture;
    const auto before = Clock::now();
    client.Feed(packet.data, packet.size, picture);
    tally.inDecoder += Clock::now() - before;
    ++tally.packets;
    if (picture.bgr) {
      if (writer && tally.pictures % options.every == 0) {
        writer->Write(tally.pictures, picture.bgr, picture.width, picture.height);
        ++tally.written;
      }
      tally.sizes.emplace(picture.width, picture.height);
      ++tally.pictures;
    }
    progress.Update(tally.packets, tally.pictures);
  }
  progress.Clear();
  if (!options.quiet) PrintSummary(options, *source, client, tally, Clock::now() - start);
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
  try {
    return Run(options);
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "corvane-decode: %s\n", e.what());
    return 1;
  }
}
