// The command line of corvane-decode.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "packet_source.h"
#include "picture_writer.h"

namespace corvane::tools {

struct Options {
  std::string input;
  std::optional<std::string> outDir;  // --out: write pictures here
  long every = 1;                     // --every: write every Nth picture
  PictureFormat format = PictureFormat::Png;
  std::optional<Codec> codec;  // --codec: overrides the file's name or container
  long median = 0;             // --median [N]: N x N clean-up; 3 is the decoder's median mode
  bool sharpen = false;        // --sharpen
  bool callback = false;       // --callback: every picture through the frame callback
  long max = 0;                // --max: stop after this many pictures; 0 = all
  bool strict = false;         // --strict: the 18 exports alone, no option, no drain
  int logLevel = 16;           // --loglevel: FFmpeg's log level (AV_LOG_ERROR)
  bool progress = false;       // --progress: the progress line even when not on a terminal
  bool quiet = false;
  bool help = false;
  bool version = false;
};

// A command line that can't be run; the message says why.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

Options ParseOptions(int argc, char** argv);

extern const char* const kUsage;

}  // namespace corvane::tools
