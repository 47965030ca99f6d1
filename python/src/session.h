// One decoder session of the library as the Python package drives it: packets
// in, whole BGR24 pictures out, each in a block of memory of its own that the
// caller takes over. Touches no Python object, so that it runs with the
// interpreter's lock released.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "corvane.h"

namespace corvane::python {

enum class Codec { H264, H265 };
enum class Stage { Plain, Median, Sharpen };

// A negative result of the library, with its code.
class LibraryError : public std::runtime_error {
 public:
  LibraryError(int32_t code, const std::string& what);
  int32_t code() const { return code_; }

 private:
  int32_t code_;
};

// A stage that this build of the library lacks.
class NotInLibrary : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// Memory for one picture. A few blocks of the size last used are kept for the
// next pictures rather than given back: a 1080p picture in fresh memory costs
// some 1500 page faults, and glibc returns freed blocks of that size to the
// system at once.
struct BlockRelease {
  size_t bytes = 0;
  void operator()(uint8_t* block) const;
};
using Block = std::unique_ptr<uint8_t, BlockRelease>;
// A block of `bytes`; empty when there is no memory. Safe from any thread.
Block AcquireBlock(size_t bytes);

// A picture that came out: width * 3 bytes a row, top row first, every row written.
struct Picture {
  Block pixels;
  int32_t width = 0;
  int32_t height = 0;
  int64_t index = 0;  // counted from 0 in the order the pictures came out
};

class Session {
 public:
  // `strict`: the designed exports alone, with no session option and no drain.
  // Throws std::invalid_argument for a stage the codec lacks, NotInLibrary for
  // one this build of the library lacks, LibraryError when the library gives
  // no session.
  Session(Codec codec, Stage stage, bool strict);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // One packet. True when a picture came out (TakePicture gives it). Throws
  // LibraryError for a negative result other than "no parameters yet".
  bool Feed(const uint8_t* data, int32_t size);
  // End of stream: true while pictures still come out, one a call. Never gives
  // one in strict mode. After the last the session, and the count of its
  // pictures, start afresh.
  bool Drain();
  Picture TakePicture();

  bool strict() const { return strict_; }

 private:
  using Decompress = int32_t (*)(CodecHandle, const uint8_t*, int32_t, BITMAPINFOHEADER*, uint8_t*,
                                 int32_t);
  template <typename Call>
  bool Run(Call call, int32_t delivered);
  static void OnOverflow(const CodecFrameRecord* record);
  void Deliver(Block pixels, int32_t width, int32_t height);

  CodecHandle handle_ = nullptr;
  Decompress decompress_ = nullptr;
  bool strict_;
  Block buffer_;         // where the next picture goes; allocated when needed
  size_t capacity_ = 0;  // the size of the next picture as far as known
  Picture ready_;        // the picture the last call gave
  bool hasPicture_ = false;
  bool outOfMemory_ = false;  // a picture of the frame callback found no memory
  int64_t delivered_ = 0;
};

}  // namespace corvane::python
