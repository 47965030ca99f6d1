#include "decode_client.h"

#include <cstring>
#include <stdexcept>

namespace corvane::tools {

namespace {

// The frame callback carries no pointer of the caller's: it reaches the client
// whose call is running on this thread.
thread_local DecodeClient* t_feeding = nullptr;

// Marks the header fields that a picture leaves alone. The path that only reads
// the stream's parameters (no picture yet) clears the whole record, so a header
// of 40 bytes whose marked fields survive describes a picture in the buffer.
constexpr uint32_t kUntouched = 0xA5A5A5A5u;

size_t PictureBytes(int width, int height) {
  return width > 0 && height > 0 ? static_cast<size_t>(width) * height * 3 : 0;
}

// Without CORVANE_OPTION_FULL_PICTURE the library leaves the bottom row of a
// picture unwritten; repeating the row above it keeps stale bytes out of the
// files.
void RepeatRowAboveLast(uint8_t* bgr, int width, int height) {
  if (height < 2) return;
  const size_t row = static_cast<size_t>(width) * 3;
  std::memcpy(bgr + row * (height - 1), bgr + row * (height - 2), row);
}

}  // namespace

DecodeClient::DecodeClient(Codec codec, Stage stage, bool callbackOnly, uint32_t options)
    : decompress_(codec == Codec::H265      ? H265CodecDecompress
                  : stage == Stage::Median  ? H264CodecDecompressMedian
                  : stage == Stage::Sharpen ? corvane_codec_decompress_sharpen
                                            : H264CodecDecompress),
      callbackOnly_(callbackOnly),
      fullPicture_((options & CORVANE_OPTION_FULL_PICTURE) != 0) {
  if (stage != Stage::Plain && codec != Codec::H264)
    throw std::runtime_error("the median and sharpen stages are for H.264 streams only");
  session_ = H264CodecOpen();
  if (!session_) throw std::runtime_error("the library gave no decoder session");
  // A picture that doesn't fit the buffer comes through the callback instead of
  // being dropped; the buffer then grows to the picture's size.
  if (H264CodecSetCallback(session_, &DecodeClient::OnFrame) != 0 ||
      corvane_codec_set_options(session_, options) != 0) {
    H264CodecClose(session_);
    throw std::runtime_error("the library refused the session's set-up");
  }
}

DecodeClient::~DecodeClient() { H264CodecClose(session_); }

void DecodeClient::OnFrame(const CodecFrameRecord* record) {
  DecodeClient* self = t_feeding;
  if (!self || !record || record->session != self->session_ || !record->pixels) return;
  const size_t bytes = PictureBytes(record->width, record->height);
  if (bytes == 0 || record->size < 0 || static_cast<size_t>(record->size) < bytes) return;
  self->overflow_.assign(record->pixels, record->pixels + bytes);
  self->overflowWidth_ = record->width;
  self->overflowHeight_ = record->height;
  self->overflowReady_ = true;
}

void DecodeClient::Grow(size_t bytes) {
  if (bytes > buffer_.size()) buffer_.resize(bytes);
}

template <typename Call>
int DecodeClient::Run(Call call, int delivered, DecodedPicture& picture) {
  BITMAPINFOHEADER header{};
  header.biCompression = header.biClrUsed = header.biClrImportant = kUntouched;
  overflowReady_ = false;
  const int32_t outSize = callbackOnly_ ? 0 : static_cast<int32_t>(buffer_.size());
  t_feeding = this;
  const int rc = call(&header, buffer_.data(), outSize);
  t_feeding = nullptr;
  ++results_[rc];

  picture = {};
  uint8_t* pixels = nullptr;
  if (overflowReady_) {
    picture.width = overflowWidth_;
    picture.height = overflowHeight_;
    pixels = overflow_.data();
    if (!callbackOnly_) Grow(overflow_.size());
  } else if (rc == delivered && header.biSize == 40 && header.biCompression == kUntouched) {
    picture.width = header.biWidth;
    picture.height = header.biHeight;
    pixels = buffer_.data();
    const size_t bytes = PictureBytes(picture.width, picture.height);
    if (bytes == 0 || bytes > static_cast<size_t>(outSize))
      throw std::runtime_error("the library reported a picture that its buffer can't hold");
  } else if (rc == 0 && header.biSize == 40 && !callbackOnly_) {
    // The stream's size, told before its first picture: size the buffer now.
    Grow(PictureBytes(header.biWidth, header.biHeight));
  }
  if (pixels) {
    if (!fullPicture_) RepeatRowAboveLast(pixels, picture.width, picture.height);
    picture.bgr = pixels;
  }
  return rc;
}

int DecodeClient::Feed(const uint8_t* data, int size, DecodedPicture& picture) {
  return Run(
      [&](BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize) {
        return decompress_(session_, data, size, header, out, outSize);
      },
      0, picture);
}

int DecodeClient::Drain(DecodedPicture& picture) {
  return Run([&](BITMAPINFOHEADER* header, uint8_t* out,
                 int32_t outSize) { return corvane_codec_drain(session_, header, out, outSize); },
             1, picture);
}

}  // namespace corvane::tools
