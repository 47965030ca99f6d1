#include "decoder/filter_stage.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "decoder/conversion.h"
#include "decoder/decoder_calls.h"
#include "primitives/core/aligned_memory.h"
#include "primitives/median/median.h"
#include "primitives/sharpen/sharpen.h"

namespace corvane::decoder {

namespace {

// Replicate mode makes no pixel from the value; the filters still want one.
constexpr uint8_t kBorderValue[3] = {0, 0, 0};

// A filter stage: its primitive's scratch size for a picture, and the
// primitive over a region with the session's scratch.
struct Stage {
  int32_t mode;
  PrimitiveStatus (*bufferSize)(ImageSize region, int32_t* size);
  PrimitiveStatus (*filter)(const uint8_t* src, uint8_t* dst, int32_t step, ImageSize region,
                            BorderType border, uint8_t* buffer);
};

constexpr ImageSize kMedianMask{3, 3};
constexpr Stage kMedian{
    ModeMedian,
    [](ImageSize region, int32_t* size) {
      return Calls().medianBufferSize(region, kMedianMask, PixelType8u, 3, size);
    },
    [](const uint8_t* src, uint8_t* dst, int32_t step, ImageSize region, BorderType border,
       uint8_t* buffer) {
      return primitives::ownFilterMedianBorder_8u_C3R(src, step, dst, step, region, kMedianMask,
                                                      border, kBorderValue, buffer);
    }};
constexpr Stage kSharpen{
    ModeSharpen,
    [](ImageSize region, int32_t* size) {
      return Calls().sharpenBufferSize(region, kSharpenMask3x3, PixelType8u, PixelType8u, 3, size);
    },
    [](const uint8_t* src, uint8_t* dst, int32_t step, ImageSize region, BorderType border,
       uint8_t* buffer) {
      return primitives::ownFilterSharpenBorder_8u_C3R(
          src, step, dst, step, region, kSharpenMask3x3, border, kBorderValue, buffer);
    }};

// Makes filterImage and filterBuffer for the picture's size and the stage at
// hand, or keeps the pair made for both by an earlier picture: the two
// filters want scratch of different sizes. 0 or ResultNoResource, with
// nothing left allocated on failure.
int32_t PrepareScratch(CodecSession& session, const Stage& stage, const AVFrame& picture) {
  if (session.filterImage && session.filterMode == stage.mode &&
      session.filterWidth == picture.width && session.filterHeight == picture.height) {
    return 0;
  }
  ReleaseFilterScratch(session);
  int32_t size = 0;
  if (stage.bufferSize(ImageSize{picture.width, picture.height}, &size) != StatusOk) {
    return ResultNoResource;
  }
  session.filterBuffer = primitives::ownMallocAligned(size > 0 ? size : 1);
  session.filterImage = static_cast<uint8_t*>(
      std::malloc(static_cast<size_t>(picture.width) * 3 * static_cast<size_t>(picture.height)));
  if (!session.filterBuffer || !session.filterImage) {
    ReleaseFilterScratch(session);
    return ResultNoResource;
  }
  session.filterWidth = picture.width;
  session.filterHeight = picture.height;
  session.filterMode = stage.mode;
  return 0;
}

// The whole picture at once: converted into filterImage, then filtered into
// dst. For pictures that can't be converted slice by slice.
int32_t FilterWholePicture(CodecSession& session, const Stage& stage, const AVFrame& picture,
                           uint8_t* dst) {
  if (!ConvertAllRows(session, picture, session.filterImage)) return ResultNoResource;
  const PrimitiveStatus status = stage.filter(
      session.filterImage, dst, picture.width * 3, ImageSize{picture.width, picture.height},
      BorderReplicate, static_cast<uint8_t*>(session.filterBuffer));
  return status == StatusOk ? 0 : ResultFilterFailed;
}

// Rows of a band, and of a conversion slice: even, so that every slice of a
// vertically subsampled picture starts on a chroma row, and small enough that
// a band's BGR rows, the rows below it and its source rows stay in cache
// between conversion and filter.
constexpr int kBandRows = 32;

// Converts and filters band by band, a slice ahead of the filter: a band
// [y0, y1) is filtered once rows up to y1 (the row below it) are converted.
// Inside the picture the filter reads the real rows above and below the band;
// on its edges it replicates, so the result is the one of a single pass over
// the whole picture. Every band but the last has kBandRows rows, the last up to
// twice that, so none is too short for the filter's strips.
int32_t FilterInBands(CodecSession& session, const Stage& stage, const AVFrame& picture,
                      uint8_t* dst) {
  const int height = picture.height;
  const int32_t step = picture.width * 3;
  uint8_t* image = session.filterImage;
  int fed = 0, converted = 0;
  for (int y0 = 0; y0 < height;) {
    const int y1 = height - y0 < 2 * kBandRows ? height : y0 + kBandRows;
    const int needed = y1 < height ? y1 + 1 : height;
    while (converted < needed && fed < height) {
      const int rows = std::min(kBandRows, height - fed);
      const int done = ConvertSlice(session, picture, fed, rows, image);
      if (done < 0) {
        DropConversionContext(session);
        return ResultNoResource;
      }
      fed += rows;
      converted += done;
    }
    uint32_t border = BorderReplicate;
    if (y0 > 0) border |= BorderMemoryTop;
    if (y1 < height) border |= BorderMemoryBottom;
    const ptrdiff_t offset = static_cast<ptrdiff_t>(y0) * step;
    const PrimitiveStatus status =
        stage.filter(image + offset, dst + offset, step, ImageSize{picture.width, y1 - y0},
                     static_cast<BorderType>(border), static_cast<uint8_t*>(session.filterBuffer));
    if (status != StatusOk) {
      // The context is left part way down a picture; the next one
      // starts on a fresh context.
      DropConversionContext(session);
      return ResultFilterFailed;
    }
    y0 = y1;
  }
  return 0;
}

}  // namespace

bool IsFilterMode(int32_t mode) {
  return mode == ModeMedian || mode == ModeMedianToo || mode == ModeSharpen;
}

// Every row of the picture goes into filterImage (the session's own scratch,
// so the last row is converted too and the output is the same whatever the
// caller's buffer held), and the filter runs from there into dst. The scratch
// is sized for the whole picture, which covers every band.
int32_t RunFilterStage(CodecSession& session, int32_t mode, const AVFrame& picture, uint8_t* dst) {
  const Stage& stage = mode == ModeSharpen ? kSharpen : kMedian;
  const int32_t prepared = PrepareScratch(session, stage, picture);
  if (prepared != 0) return prepared;
  if (!ConvertsInSlices(picture)) return FilterWholePicture(session, stage, picture, dst);
  return FilterInBands(session, stage, picture, dst);
}

void ReleaseFilterScratch(CodecSession& session) {
  std::free(session.filterImage);
  session.filterImage = nullptr;
  primitives::ownFreeAligned(session.filterBuffer);
  session.filterBuffer = nullptr;
  session.filterWidth = 0;
  session.filterHeight = 0;
  session.filterMode = 0;
}

}  // namespace corvane::decoder
