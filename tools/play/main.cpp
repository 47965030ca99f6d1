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
#include "corvane_ext.h"
#include "decode_client.h"
#include "packet_source.h"
#include "x_window.h"

namespace corvane::tools {

namespace {

const char* const kUsage =
    "Usage: corvane-play INPUT [--fps N]\n"
    "Shows INPUT (raw H.264/H.265 Annex B: .h264 .264 .h265 .265 .hevc, or a\n"
    "container that FFmpeg reads) in an X window, at the stream's frame rate or at N\n"
    "frames a second (1 to 1000), every picture to the last.\n"
    "\n"
    "Keys: q or Escape quits, space pauses and resumes. The window has the\n"
    "picture's shape, scaled down when the screen is smaller.\n"
    "Exit status: 0 when frames were shown, 1 when the input can't be read or shown,\n"
    "2 for a bad command line.\n";

struct PlayOptions {
  std::string input;
  int fps = 0;  // 0: the stream's own
  bool help = false;
};

// A command line that can't be run; the message says why.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

PlayOptions ParseOptions(int argc, char** argv) {
  PlayOptions options;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      options.help = true;
    } else if (arg == "--fps") {
      if (i + 1 >= argc) throw UsageError("--fps wants a value");
      const std::string text = argv[++i];
      char* end = nullptr;
      const long fps = std::strtol(text.c_str(), &end, 10);
      if (text.empty() || *end != '\0' || fps < 1 || fps > 1000)
        throw UsageError("--fps wants a whole number from 1 to 1000, not '" + text + "'");
      options.fps = static_cast<int>(fps);
    } else if (arg.size() > 1 && arg[0] == '-') {
      throw UsageError("unknown option " + arg);
    } else if (!options.input.empty()) {
      throw UsageError("one input file only ('" + options.input + "' and '" + arg + "')");
    } else {
      options.input = arg;
    }
  }
  if (!options.help && options.input.empty()) throw UsageError("no input file");
  return options;
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

// Frames go in at the rate the renderer presents at, so that its queue stays
// short; the last ones come from the decoder's drain.
long Play(PacketSource& source, XWindow& window, const std::string& title, int fps) {
  DecodeClient client(source.codec(), Stage::Plain, false, kFileOptions);
  RenderHandle render = VideoRenderOpen();
  if (render == nullptr) throw std::runtime_error("the library could not open a render session");
  VideoRenderSetFPS(render, fps);
  const auto period = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(1.0 / fps));
  auto next = std::chrono::steady_clock::now();
  long shown = 0;
  bool paused = false;
  bool ended = false;
  PacketView packet;
  DecodedPicture picture;
  // One picture a turn, or none while paused; false when the user quits.
  auto turn = [&]() {
    if (shown > 0) {
      const WindowInput input = window.Poll();
      if (input.quit) return false;
      if (input.togglePause) paused = !paused;
    }
    if (paused) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      next = std::chrono::steady_clock::now();
      return true;
    }
    if (!ended && source.Next(packet)) {
      client.Feed(packet.data, packet.size, picture);
    } else if (!ended || picture.bgr != nullptr) {
      ended = true;
      client.Drain(picture);
    }
    if (picture.bgr == nullptr) return !ended;
    if (shown == 0)
      window.Open(static_cast<int>(picture.width * source.pixelAspect() + 0.5), picture.height,
                  title);
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
    return true;
  };
  while (turn()) {
  }
  // The last frame waits for a tick or two.
  std::this_thread::sleep_for(3 * period);
  VideoRenderClose(render);
  if (shown == 0) throw std::runtime_error("no picture could be decoded from " + title);
  return shown;
}

}  // namespace

int Main(int argc, char** argv) {
  PlayOptions options;
  try {
    options = ParseOptions(argc, argv);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "corvane-play: %s\nTry 'corvane-play --help'.\n", e.what());
    return 2;
  }
  if (options.help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  try {
    std::unique_ptr<PacketSource> source = OpenPacketSource(options.input, std::nullopt);
    XWindow window;
    const int fps = options.fps > 0 ? options.fps : StreamRate(options.input);
    const long shown = Play(*source, window, options.input, fps);
    std::printf("%s: %ld frames shown at %d frames a second in a %dx%d window\n",
                options.input.c_str(), shown, fps, window.width(), window.height());
  } catch (const std::exception& e) {
    std::fprintf(stderr, "corvane-play: %s\n", e.what());
    return 1;
  }
  return 0;
}

}  // namespace corvane::tools

int main(int argc, char** argv) { return corvane::tools::Main(argc, argv); }
