#include "decoder/conversion.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace corvane::decoder {

namespace {

// swscale's vector BGR24 writers work in groups of 16 pixels and size their
// last group by the destination stride: with a stride of exactly width * 3 and
// a width that isn't a multiple of 16 they either leave the last pixels of a
// row unwritten or write up to 45 bytes past it. Such pictures are converted
// into scratch rows with a frame's usual padded stride, and copied out.
constexpr int kWholeGroupPixels = 16;
constexpr int kPaddedStrideAlign = 32 * 3;  // bytes of 32 pixels, a frame's usual row alignment
constexpr int64_t kRowOverrunSlack = 64;

// Source rows of the second pass of a direct conversion. swscale takes
// chroma-subsampled slices in steps of two rows, and its exact converters
// write two rows at a time.
constexpr int kTailSourceRows = 2;

int RowBytes(const AVFrame& picture) { return picture.width * 3; }

bool ConvertsInWholeGroups(const AVFrame& picture) {
  return picture.width % kWholeGroupPixels == 0;
}

bool EnsureScratchRows(CodecSession& session, int64_t bytes) {
  bytes += kRowOverrunSlack;
  if (bytes <= session.scratchRowsBytes) return true;
  auto* grown =
      static_cast<uint8_t*>(std::realloc(session.scratchRows, static_cast<size_t>(bytes)));
  if (!grown) return false;
  session.scratchRows = grown;
  session.scratchRowsBytes = bytes;
  return true;
}

// The picture's planes from source row `row` on: swscale takes a slice as
// pointers to its own first rows. Chroma planes advance by fewer rows when
// they are subsampled vertically.
void SliceFrom(const AVFrame& picture, int row, const uint8_t* planes[4]) {
  const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
  const int chromaShift = desc ? desc->log2_chroma_h : 0;
  for (int i = 0; i < 4; ++i) {
    const int planeRow = (i == 1 || i == 2) ? row >> chromaShift : row;
    planes[i] = picture.data[i]
                    ? picture.data[i] + static_cast<ptrdiff_t>(planeRow) * picture.linesize[i]
                    : nullptr;
  }
}

int Scale(CodecSession& session, const AVFrame& picture, int firstRow, int rows, uint8_t* plane,
          int stride) {
  const uint8_t* source[4];
  SliceFrom(picture, firstRow, source);
  uint8_t* planes[4] = {plane, nullptr, nullptr, nullptr};
  const int strides[4] = {stride, 0, 0, 0};
  return Calls().scale(session.swsContext, source, picture.linesize, firstRow, rows, planes,
                       strides);
}

// A conversion that swscale refused part way leaves its context somewhere
// down a picture: the next picture starts on a new one.
bool Refused(CodecSession& session) {
  DropConversionContext(session);
  return false;
}

// The whole picture into scratch rows of padded stride, then `rows` rows out.
bool ConvertStaged(CodecSession& session, const AVFrame& picture, uint8_t* dst, int rows) {
  const int rowBytes = RowBytes(picture);
  const int stride = (rowBytes + kPaddedStrideAlign - 1) / kPaddedStrideAlign * kPaddedStrideAlign;
  if (!EnsureScratchRows(session, static_cast<int64_t>(stride) * picture.height)) return false;
  if (Scale(session, picture, 0, picture.height, session.scratchRows, stride) < 0)
    return Refused(session);
  for (int y = 0; y < rows; ++y)
    std::memcpy(dst + static_cast<ptrdiff_t>(y) * rowBytes,
                session.scratchRows + static_cast<ptrdiff_t>(y) * stride, rowBytes);
  return true;
}

// Rows 0..height-2 straight into `dst` but for the few last ones, which come
// out of a second pass into scratch rows; only those above the last row are
// copied to `dst`.
bool ConvertDirectAllButLastRow(CodecSession& session, const AVFrame& picture, uint8_t* dst) {
  const int height = picture.height;
  const int rowBytes = RowBytes(picture);
  // swscale says how many destination rows it could finish from the first
  // pass's source rows; the second pass writes the rest.
  const int headSourceRows = (height - kTailSourceRows) & ~1;
  const int rowsDone =
      headSourceRows > 0 ? Scale(session, picture, 0, headSourceRows, dst, rowBytes) : 0;
  if (rowsDone < 0) return Refused(session);

  if (!EnsureScratchRows(session, static_cast<int64_t>(height - rowsDone) * rowBytes)) return false;
  // swscale addresses destination row r at plane + r * stride: the plane is
  // placed rowsDone rows before the scratch, so that row rowsDone lands on
  // its first byte. Nothing is written before it.
  const auto origin = reinterpret_cast<uintptr_t>(session.scratchRows) -
                      static_cast<uintptr_t>(rowsDone) * static_cast<uintptr_t>(rowBytes);
  if (Scale(session, picture, headSourceRows, height - headSourceRows,
            reinterpret_cast<uint8_t*>(origin), rowBytes) < 0)
    return Refused(session);
  const int rowsToCopy = height - 1 - rowsDone;
  if (rowsToCopy > 0)
    std::memcpy(dst + static_cast<ptrdiff_t>(rowsDone) * rowBytes, session.scratchRows,
                static_cast<size_t>(rowsToCopy) * rowBytes);
  return true;
}

}  // namespace

bool PrepareConversion(CodecSession& session, const AVFrame& picture) {
  if (session.swsContext && session.swsWidth == picture.width &&
      session.swsHeight == picture.height && session.swsFormat == picture.format)
    return true;
  sws_freeContext(session.swsContext);
  session.swsContext = Calls().getSwsContext(
      picture.width, picture.height, static_cast<AVPixelFormat>(picture.format), picture.width,
      picture.height, AV_PIX_FMT_BGR24, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
  session.swsWidth = picture.width;
  session.swsHeight = picture.height;
  session.swsFormat = picture.format;
  return session.swsContext != nullptr;
}

bool ConvertAllButLastRow(CodecSession& session, const AVFrame& picture, uint8_t* dst) {
  if (picture.height < 2) return true;  // a one-row picture has no row to write
  if (!ConvertsInWholeGroups(picture))
    return ConvertStaged(session, picture, dst, picture.height - 1);
  return ConvertDirectAllButLastRow(session, picture, dst);
}

bool ConvertAllRows(CodecSession& session, const AVFrame& picture, uint8_t* dst) {
  if (!ConvertsInWholeGroups(picture)) return ConvertStaged(session, picture, dst, picture.height);
  if (Scale(session, picture, 0, picture.height, dst, RowBytes(picture)) < 0)
    return Refused(session);
  return true;
}

bool ConvertsInSlices(const AVFrame& picture) { return ConvertsInWholeGroups(picture); }

int ConvertSlice(CodecSession& session, const AVFrame& picture, int firstRow, int rows,
                 uint8_t* dst) {
  return Scale(session, picture, firstRow, rows, dst, RowBytes(picture));
}

void DropConversionContext(CodecSession& session) {
  sws_freeContext(session.swsContext);
  session.swsContext = nullptr;
  session.swsWidth = 0;
  session.swsHeight = 0;
  session.swsFormat = -1;
}

void ReleaseConversion(CodecSession& session) {
  DropConversionContext(session);
  std::free(session.scratchRows);
  session.scratchRows = nullptr;
  session.scratchRowsBytes = 0;
}

}  // namespace corvane::decoder
