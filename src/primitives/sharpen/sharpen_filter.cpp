// The sharpen entry and its sizing, one build per code path: the argument
// checks, the scratch laid out as the column-sum line then the planner's
// room, and the border planner that runs the kernel over the region.
#include <cstdint>

#include "primitives/core/border.h"
#include "primitives/sharpen/sharpen.h"

namespace corvane::CORVANE_VARIANT {
namespace {

constexpr ImageSize kMask{3, 3};

int64_t RoundUp32(int64_t n) { return (n + 31) & ~int64_t{31}; }

// The column-sum line: 3 * width + 6 sums of 16 bits, a whole number of
// 32-byte blocks, so that no vector store past the last sum leaves it.
int64_t LineBytes(int64_t width, int64_t channels, int64_t sumBytes) {
  return RoundUp32((width + 2) * channels * sumBytes);
}

}  // namespace

PrimitiveStatus ownFilterSharpenBorderGetBufferSize(ImageSize roi, int32_t mask, PixelType srcType,
                                                    PixelType dstType, int32_t channels,
                                                    int32_t* size) {
  if (mask != kSharpenMask3x3) return StatusMaskSize;
  if (size == nullptr) return StatusNullPointer;
  if (roi.width <= 0 || roi.height <= 0) return StatusSize;
  if ((srcType != PixelType8u && srcType != PixelType16s && srcType != PixelType32f) ||
      dstType != srcType) {
    return StatusPixelType;
  }
  if (channels != 1 && channels != 3 && channels != 4) return StatusChannels;
  const int64_t w = roi.width, h = roi.height;
  // Pixels of the strip room: the whole extended image when the mask is as
  // large as the region (the planner's test), else the longest edge strip.
  const int64_t pixels = w <= 3 || h <= 3 ? (w + 2) * (h + 2) : ((w > h ? w : h) + 2) * 3;
  const int64_t element = srcType == PixelType8u ? 1 : srcType == PixelType16s ? 2 : 4;
  const int64_t sum = srcType == PixelType8u ? 2 : 4;
  // 32 bytes to bring the line to a multiple of 32 wherever the block starts.
  const int64_t total = RoundUp32(channels * pixels * element) + LineBytes(w, channels, sum) + 32;
  if (total > INT32_MAX) {
    *size = 0;
    return StatusSizeOverflow;
  }
  *size = static_cast<int32_t>(total);
  return StatusOk;
}

PrimitiveStatus ownFilterSharpenBorder_8u_C3R(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                              int32_t dstStep, ImageSize roi, int32_t mask,
                                              BorderType border, const uint8_t* borderValue,
                                              uint8_t* buffer) {
  if (src == nullptr || dst == nullptr || buffer == nullptr) return StatusNullPointer;
  if (roi.width <= 0 || roi.height <= 0) return StatusSize;
  if (mask != kSharpenMask3x3) return StatusMaskSize;
  if (border > 0xFF) return StatusBorder;
  if (border != BorderMemoryAll) {
    const uint32_t mode = border & 0xF;
    // With every side in memory no pixel is made, so the value may be missing.
    if (mode == BorderConstant && (border & BorderMemoryAll) != BorderMemoryAll &&
        borderValue == nullptr) {
      return StatusNullPointer;
    }
    if (mode != BorderConstant && mode != BorderReplicate) return StatusBorder;
  }
  // The line first, then the room of the strips or of the whole image; every
  // kernel call, on a strip or on the source, works in the line.
  const uintptr_t at = reinterpret_cast<uintptr_t>(buffer);
  uint8_t* line = buffer + (((at + 31) & ~uintptr_t{31}) - at);
  uint8_t* room = line + LineBytes(roi.width, 3, 2);
  ownFilterWithBorder(BorderPlan{src, srcStep, dst, dstStep, roi, kMask, 3, border, borderValue,
                                 &ownSharpenKernel_8u_C3R, room, line});
  return StatusOk;
}

}  // namespace corvane::CORVANE_VARIANT
