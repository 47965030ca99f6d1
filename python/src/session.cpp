#include "session.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "corvane_ext.h"

namespace corvane::python {

namespace {

// What a client of ordinary files turns on: settling on packets that open with a
// delimiter or an SEI, every row written, the standard's decode of multi-slice
// streams, and frame threads for throughput (the drain gives the last pictures).
constexpr uint32_t kFileOptions = CORVANE_OPTION_PARAMETERS_ANYWHERE | CORVANE_OPTION_FULL_PICTURE |
                                  CORVANE_OPTION_CONFORMANT | CORVANE_OPTION_FRAME_THREADS;

// A header field that no picture road writes and the parameters-only road
// clears: still holding this after a call, a 40-byte header describes a
// picture in our buffer rather than the stream's size alone.
constexpr uint32_t kUntouched = 0xC0DEC0DEu;

// The frame callback carries no pointer of ours: it reaches the session whose
// call runs on this thread.
thread_local Session* t_running = nullptr;

size_t PictureBytes(int32_t width, int32_t height) {
  return width > 0 && height > 0 ? static_cast<size_t>(width) * height * 3 : 0;
}

const char* Meaning(int32_t code) {
  switch (code) {
    case ResultNotImplemented:
      return "not implemented by the library";
    case ResultDecoderUnavailable:
      return "FFmpeg has no decoder for the stream";
    case ResultNoResource:
      return "out of memory or no picture conversion";
    case ResultBufferTooSmall:
      return "picture buffer too small";
    case ResultBadArgument:
      return "bad argument";
    case ResultDecodeFailed:
      return "the decoder refused the packet";
    case ResultFilterFailed:
      return "the clean-up stage failed";
    default:
      return "unexpected result";
  }
}

// The blocks kept for reuse, all of one size.
class BlockStore {
 public:
  ~BlockStore() { Drop(); }
  uint8_t* Take(size_t bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (bytes != bytes_ || kept_.empty()) return nullptr;
    uint8_t* block = kept_.back();
    kept_.pop_back();
    return block;
  }
  void Give(uint8_t* block, size_t bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (bytes != bytes_) {  // pictures of another size now: the old blocks go
      Drop();
      bytes_ = bytes;
    }
    if (kept_.size() < kKeep)
      kept_.push_back(block);
    else
      std::free(block);
  }

 private:
  // A picture being made, the one just given out and the one before it.
  static constexpr size_t kKeep = 3;
  void Drop() {
    for (uint8_t* block : kept_) std::free(block);
    kept_.clear();
  }
  std::mutex mutex_;
  std::vector<uint8_t*> kept_;
  size_t bytes_ = 0;
};

BlockStore& Store() {
  static BlockStore store;
  return store;
}

}  // namespace

void BlockRelease::operator()(uint8_t* block) const {
  if (block) Store().Give(block, bytes);
}

Block AcquireBlock(size_t bytes) {
  uint8_t* block = Store().Take(bytes);
  if (!block) block = static_cast<uint8_t*>(std::malloc(bytes));
  return Block(block, BlockRelease{bytes});
}

LibraryError::LibraryError(int32_t code, const std::string& what)
    : std::runtime_error(what + " (" + std::to_string(code) + ")"), code_(code) {}

Session::Session(Codec codec, Stage stage, bool strict) : strict_(strict) {
  if (codec == Codec::H265 && stage != Stage::Plain)
    throw std::invalid_argument("median and sharpen are for H.264 streams only");
  switch (stage) {
    case Stage::Plain:
      decompress_ = codec == Codec::H264 ? H264CodecDecompress : H265CodecDecompress;
      break;
    case Stage::Median:
      decompress_ = H264CodecDecompressMedian;
      break;
    case Stage::Sharpen:
      // The build defines CORVANE_PYTHON_HAVE_SHARPEN when corvane_ext.h
      // declares the sharpen export.
#if CORVANE_PYTHON_HAVE_SHARPEN
      decompress_ = corvane_codec_decompress_sharpen;
      break;
#else
      throw NotInLibrary("this build of the library has no sharpen stage");
#endif
  }
  handle_ = H264CodecOpen();
  if (!handle_) throw LibraryError(ResultNoResource, "the library gave no decoder session");
  if (H264CodecSetCallback(handle_, &Session::OnOverflow) != 0 ||
      corvane_codec_set_options(handle_, strict ? 0u : kFileOptions) != 0) {
    H264CodecClose(handle_);
    throw LibraryError(ResultBadArgument, "the library refused the session's set-up");
  }
}

Session::~Session() { H264CodecClose(handle_); }

// Pictures of a size not seen before come through the frame callback; the
// buffer for the next call is then made to their size.
void Session::OnOverflow(const CodecFrameRecord* record) {
  Session* self = t_running;
  if (!self || !record || record->session != self->handle_ || !record->pixels) return;
  const size_t bytes = PictureBytes(record->width, record->height);
  if (bytes == 0 || record->size < 0 || static_cast<size_t>(record->size) < bytes) return;
  Block copy = AcquireBlock(bytes);
  if (!copy) {
    self->outOfMemory_ = true;  // thrown once the library's call is over
    return;
  }
  std::memcpy(copy.get(), record->pixels, bytes);
  self->capacity_ = bytes;
  self->Deliver(std::move(copy), record->width, record->height);
}

void Session::Deliver(Block pixels, int32_t width, int32_t height) {
  // The designed exports leave the bottom row alone: it repeats the row above.
  if (strict_ && height >= 2) {
    const size_t row = static_cast<size_t>(width) * 3;
    std::memcpy(pixels.get() + row * (height - 1), pixels.get() + row * (height - 2), row);
  }
  ready_ = Picture{std::move(pixels), width, height, delivered_++};
  hasPicture_ = true;
}

template <typename Call>
bool Session::Run(Call call, int32_t delivered) {
  if (!buffer_ && capacity_ > 0) {
    buffer_ = AcquireBlock(capacity_);
    if (!buffer_) throw std::bad_alloc();
  }
  BITMAPINFOHEADER header{};
  header.biClrImportant = kUntouched;
  hasPicture_ = outOfMemory_ = false;
  t_running = this;
  const int32_t rc = call(&header, buffer_.get(), buffer_ ? static_cast<int32_t>(capacity_) : 0);
  t_running = nullptr;
  if (outOfMemory_) throw std::bad_alloc();
  if (hasPicture_) return true;
  if (rc == delivered && header.biSize == sizeof header && header.biClrImportant == kUntouched) {
    const size_t bytes = PictureBytes(header.biWidth, header.biHeight);
    if (bytes == 0 || bytes > capacity_)
      throw LibraryError(ResultDecodeFailed,
                         "the library reported a picture its buffer can't hold");
    capacity_ = bytes;  // a smaller picture keeps its larger block
    Deliver(std::move(buffer_), header.biWidth, header.biHeight);
    return true;
  }
  if (rc < 0 && rc != ResultNoParameters) throw LibraryError(rc, Meaning(rc));
  return false;
}

bool Session::Feed(const uint8_t* data, int32_t size) {
  return Run(
      [&](BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize) {
        return decompress_(handle_, data, size, header, out, outSize);
      },
      0);
}

bool Session::Drain() {
  if (strict_) return false;
  const bool got =
      Run([&](BITMAPINFOHEADER* header, uint8_t* out,
              int32_t outSize) { return corvane_codec_drain(handle_, header, out, outSize); },
          1);
  if (!got) delivered_ = 0;  // the library's session starts afresh, and so does the count
  return got;
}

Picture Session::TakePicture() {
  hasPicture_ = false;
  return std::move(ready_);
}

}  // namespace corvane::python
