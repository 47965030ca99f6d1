#include "options.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace corvane::tools {

const char* const kUsage =
    "Usage: corvane-decode INPUT [options]\n"
    "Decodes an H.264 or H.265 stream with libcorvane, one packet a call, and prints a\n"
    "summary. INPUT is a raw Annex B stream (.h264 .264 .h265 .265 .hevc), a\n"
    "container that FFmpeg reads (.mp4 .mkv .ts ...), or - for standard input.\n"
    "\n"
    "Options:\n"
    "  --out DIR         write the pictures into DIR (created when missing)\n"
    "  --every N         write only every Nth picture: 0, N, 2N, ... (default 1)\n"
    "  --format F        bmp, png (default) or raw: all pictures appended as BGR24\n"
    "                    to DIR/pictures.bgr, width * 3 bytes a row, top row first\n"
    "  --codec C         h264 or h265, whatever the file name or container says;\n"
    "                    with - as INPUT, standard input is a raw stream of C\n"
    "  --median [N]      clean each picture with an N x N median, N odd (default 3:\n"
    "                    the decoder's own median mode, H.264 only; any other N\n"
    "                    through corvane_median, H.265 too)\n"
    "  --sharpen         decode with the 3x3 sharpen stage (H.264 only)\n"
    "  --callback        take every picture through the frame callback\n"
    "  --max N           stop after N pictures\n"
    "  --strict          the 18 exports as designed: no option, no drain (pictures\n"
    "                    before a packet that opens with the parameters, the last\n"
    "                    pictures of a stream and the bottom rows are lost)\n"
    "  --loglevel L      FFmpeg's messages: quiet, fatal, error (default), warning,\n"
    "                    info, verbose or debug\n"
    "  --progress        show the progress line even when standard error is not a\n"
    "                    terminal\n"
    "  --quiet           print nothing but errors, FFmpeg's messages included\n"
    "  --version         show the versions of the tool, libcorvane and FFmpeg\n"
    "  --help            show this text\n"
    "\n"
    "Every picture the stream holds is decoded, with all its rows, in the order\n"
    "shown; 10-bit streams come out as 8-bit BGR24. A damaged or truncated file\n"
    "decodes as far as it can, with a warning. Exit status: 0 when at least one\n"
    "picture was decoded, 1 when the input can't be read or gives no picture, 2 for\n"
    "a bad command line.\n";

namespace {

long ParseCount(const std::string& option, const std::string& text) {
  errno = 0;
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno != 0 || value < 1)
    throw UsageError(option + " wants a whole number of at least 1, not '" + text + "'");
  return value;
}

const struct {
  const char* name;
  int level;  // FFmpeg's AV_LOG_* value
} kLogLevels[] = {{"quiet", -8},   {"panic", 0}, {"fatal", 8},    {"error", 16},
                  {"warning", 24}, {"info", 32}, {"verbose", 40}, {"debug", 48}};

int ParseLogLevel(const std::string& text) {
  for (const auto& level : kLogLevels)
    if (text == level.name) return level.level;
  throw UsageError("unknown log level '" + text +
                   "' (quiet, fatal, error, warning, info, verbose, debug)");
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    std::optional<std::string> inlineValue;
    if (arg.rfind("--", 0) == 0) {
      if (const auto eq = arg.find('='); eq != std::string::npos) {
        inlineValue = arg.substr(eq + 1);
        arg.resize(eq);
      }
    }
    auto value = [&]() -> std::string {
      if (inlineValue) return *inlineValue;
      if (i + 1 >= argc) throw UsageError(arg + " wants a value");
      return argv[++i];
    };
    auto flag = [&](bool& target) {
      if (inlineValue) throw UsageError(arg + " takes no value");
      target = true;
    };
    if (arg == "--help" || arg == "-h") {
      options.help = true;
    } else if (arg == "--out") {
      options.outDir = value();
    } else if (arg == "--every") {
      options.every = ParseCount(arg, value());
    } else if (arg == "--max") {
      options.max = ParseCount(arg, value());
    } else if (arg == "--format") {
      const std::string name = value();
      const auto format = ParsePictureFormat(name);
      if (!format) throw UsageError("unknown picture format '" + name + "' (bmp, png, raw)");
      options.format = *format;
    } else if (arg == "--codec") {
      const std::string name = value();
      options.codec = ParseCodec(name);
      if (!options.codec) throw UsageError("unknown codec '" + name + "' (h264, h265)");
    } else if (arg == "--median") {
      // The size is optional: a bare --median is the decoder's own 3 x 3.
      const bool sized = inlineValue || (i + 1 < argc && std::isdigit(argv[i + 1][0]));
      options.median = sized ? ParseCount(arg, value()) : 3;
      if (options.median % 2 == 0 || options.median > 255)
        throw UsageError("--median wants an odd size up to 255, not " +
                         std::to_string(options.median));
    } else if (arg == "--sharpen") {
      flag(options.sharpen);
    } else if (arg == "--callback") {
      flag(options.callback);
    } else if (arg == "--strict") {
      flag(options.strict);
    } else if (arg == "--loglevel") {
      options.logLevel = ParseLogLevel(value());
    } else if (arg == "--progress") {
      flag(options.progress);
    } else if (arg == "--quiet" || arg == "-q") {
      flag(options.quiet);
    } else if (arg == "--version") {
      flag(options.version);
    } else if (arg.size() > 1 && arg[0] == '-') {
      throw UsageError("unknown option " + arg);
    } else if (options.input.empty()) {
      options.input = arg;
    } else {
      throw UsageError("one input file only ('" + options.input + "' and '" + arg + "')");
    }
  }
  if (options.help || options.version) return options;
  if (options.quiet) options.logLevel = kLogLevels[0].level;
  if (options.input.empty()) throw UsageError("no input file");
  if (options.median == 3 && options.sharpen)
    throw UsageError("--median and --sharpen exclude each other");
  if ((options.median == 3 || options.sharpen) && options.codec == Codec::H265)
    throw UsageError(std::string(options.median == 3 ? "--median" : "--sharpen") +
                     " works on H.264 streams only");
  return options;
}

}  // namespace corvane::tools
