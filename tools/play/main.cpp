// corvane-play: decodes a stream file through libcorvane's decoder exports and
// shows it on an X window through its render exports, paced by the renderer's
// timer at the stream's rate or the one asked for.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

extern "C" {
#include <libavformat/avformat.h>
}

#include "corvane.h"
#include "decode_client.h"
#include "packet_source.h"
#include "x_window.h"

namespace corvane::tools {

namespace {

const char* const kUsage =
    "usage: corvane-play FILE [--fps N]\n"
    "  Shows FILE (raw H.264/H.265 Annex B: .h264 .264 .h265 .265 .hevc, or a\n"
    "  container) in an X window, at the stream's frame rate or at N frames a second.\n";

struct PlayOptions {
  std::string input;
  int fps = 0;  // 0: the stream's own
};

bool ParseOptions(int argc, char** argv, PlayOptions& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--fps" && i + 1 < argc) {
      char* end = nullptr;
      const long fps = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || fps < 1 || fps > 1000) return false;
      options.fps = static_cast<int>(fps);
    } else if (arg.empty() || arg[0] == '-' || !options.input.empty()) {
      return false;
    } else {
      options.input = arg;
    }
  }
  return !options.input.empty();
}

// The stream's rate as libavformat reads it; 25 when it tells none.
int StreamRate(const std::string& path) {
  AVFormatContext* format = nullptr;
  int fps = 0;
  if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) == 0) {
    if (avformat_find_stream_info(format, nullptr) >= 0) {
      const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
      if (index >= 0) {
        AVRational rate = format->streams[index]->avg_frame_rate;
        if (rate.num <= 0 || rate.den <= 0) rate = format->streams[index]->r_frame_rate;
        if (rate.num > 0 && rate.den > 0) fps = static_cast<int>(av_q2d(rate) + 0.5);
      }
    }
    avformat_close_input(&format);
  }
  return fps >= 1 && fps <= 1000 ? fps : 25;
}

class NotAVideo : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Frames go in at the rate the renderer presents at, so that its queue stays short.
long Play(PacketSource& source, XWindow& window, const std::string& title, int fps) {
  DecodeClient client(source.codec(), false, false);
  RenderHandle render = VideoRenderOpen();
  if (render == nullptr) throw std::runtime_error("the library could not open a render session");
  VideoRenderSetFPS(render, fps);
  const auto period = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(1.0 / fps));
  auto next = std::chrono::steady_clock::now();
  long shown = 0;
  PacketView packet;
  while (source.Next(packet)) {
    DecodedPicture picture;
    client.Feed(packet.data, packet.size, picture);
    if (picture.bgr == nullptr) continue;
    if (shown == 0) window.Open(picture.width, picture.height, title);
    if (!window.Poll()) break;
    // The decoder's header is bottom-up by its sign; the renderer takes top-down rows.
    BITMAPINFOHEADER header{};
    header.biSize = sizeof header;
    header.biWidth = picture.width;
    header.biHeight = -picture.height;
    header.biPlanes = 1;
    header.biBitCount = 24;
    std::this_thread::sleep_until(next);
    next += period;
    VideoRenderFrame(window.id(), 0, 0, 0, 0, 0, 0, 0, 0, picture.bgr, &header, 0, render);
    ++shown;
  }
  // The last frame waits for a tick or two.
  std::this_thread::sleep_for(3 * period);
  VideoRenderClose(render);
  if (shown == 0) throw NotAVideo("no picture could be decoded from " + title);
  return shown;
}

}  // namespace

int Main(int argc, char** argv) {
  PlayOptions options;
  if (!ParseOptions(argc, argv, options)) {
    std::fputs(kUsage, stderr);
    return 1;
  }
  std::unique_ptr<PacketSource> source;
  try {
    source = OpenPacketSource(options.input, std::nullopt);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "corvane-play: %s\n", e.what());
    return 1;
  }
  std::unique_ptr<XWindow> window;
  try {
    window = std::make_unique<XWindow>();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "corvane-play: %s\n", e.what());
    return 2;
  }
  const int fps = options.fps > 0 ? options.fps : StreamRate(options.input);
  try {
    const long shown = Play(*source, *window, options.input, fps);
    std::printf("%s: %ld frames shown at %d frames a second\n", options.input.c_str(), shown, fps);
  } catch (const NotAVideo& e) {
    std::fprintf(stderr, "corvane-play: %s\n", e.what());
    return 3;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "corvane-play: %s\n", e.what());
    return 1;
  }
  return 0;
}

}  // namespace corvane::tools

int main(int argc, char** argv) { return corvane::tools::Main(argc, argv); }
