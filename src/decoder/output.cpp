// Delivery of a decoded picture: BGR24 into the caller's buffer, or into a
// buffer of the call's own handed to the frame callback.
#include <cstdlib>

#include "decoder/conversion.h"
#include "decoder/filter_stage.h"
#include "decoder/session.h"

namespace corvane::decoder {

namespace {

void WritePictureHeader(BITMAPINFOHEADER* header, const AVFrame& picture, int32_t size) {
  header->biSize = sizeof(BITMAPINFOHEADER);
  header->biWidth = picture.width;
  header->biHeight = picture.height;
  header->biPlanes = 1;
  header->biBitCount = 24;
  header->biSizeImage = static_cast<uint32_t>(size);
}

// Runs the stage of `mode` into `dst`: 0 or a result code.
int32_t RunStage(CodecSession& session, int32_t mode, uint8_t* dst) {
  const AVFrame& picture = *session.frame;
  if (mode == ModeNone) return 0;
  if (!PrepareConversion(session, picture)) return ResultNoResource;
  if (IsFilterMode(mode)) return RunFilterStage(session, mode, picture, dst);
  const bool converted = (session.options & CORVANE_OPTION_FULL_PICTURE)
                             ? ConvertAllRows(session, picture, dst)
                             : ConvertAllButLastRow(session, picture, dst);
  return converted ? 0 : ResultNoResource;
}

}  // namespace

int32_t DeliverPicture(CodecSession& session, BITMAPINFOHEADER* header, uint8_t* out,
                       int32_t outSize, int32_t mode) {
  const AVFrame& picture = *session.frame;
  const int64_t bytes = static_cast<int64_t>(picture.width) * picture.height * 3;
  if (picture.width <= 0 || picture.height <= 0 || bytes > INT32_MAX) return ResultDecodeFailed;
  const auto size = static_cast<int32_t>(bytes);

  if (outSize >= size) {
    WritePictureHeader(header, picture, size);
    return RunStage(session, mode, out);
  }

  const FrameCallback callback = session.frameCallback.load(std::memory_order_relaxed);
  if (!callback) return ResultBufferTooSmall;
  // Zeroed, so that rows no stage writes (the last one, or all of them
  // with ModeNone) hold nothing left over from elsewhere.
  auto* temporary = static_cast<uint8_t*>(std::calloc(static_cast<size_t>(size), 1));
  if (!temporary) return ResultNoResource;
  // On this road the conversion context is made anew for every picture.
  DropConversionContext(session);
  WritePictureHeader(header, picture, size);
  const int32_t staged = RunStage(session, mode, temporary);
  if (staged == 0) {
    CodecFrameRecord record{};
    record.session = &session;
    record.width = header->biWidth;
    record.height = header->biHeight;
    record.bitCount = header->biBitCount;
    record.pixels = temporary;
    record.size = size;
    // The callback may reset this very session: nothing of the session is
    // touched after it returns.
    callback(&record);
  }
  std::free(temporary);
  return staged;
}

}  // namespace corvane::decoder
