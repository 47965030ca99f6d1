// Copies with border, one build per code path: a source rectangle lands inside
// a larger destination and the pixels around it are made by repeating the
// nearest source pixel or by a constant pixel. The rows themselves go through
// the path's own row copy. Also the plain checked copy of a region.
#include <cstring>

#include "primitives/core/border.h"
#include "primitives/core/copy.h"

namespace corvane::CORVANE_VARIANT {
namespace {

uint8_t* RowAt(uint8_t* base, int32_t step, int32_t y) {
  return base + static_cast<intptr_t>(step) * y;
}

void FillPixels(uint8_t* dst, const uint8_t* pixel, int32_t pixelBytes, int32_t count) {
  for (int32_t i = 0; i < count; ++i) std::memcpy(dst + i * pixelBytes, pixel, pixelBytes);
}

PrimitiveStatus CheckCopy(const uint8_t* src, int32_t srcStep, ImageSize srcRoi, const uint8_t* dst,
                          int32_t dstStep, ImageSize dstRoi, int32_t top, int32_t left) {
  if (src == nullptr || dst == nullptr) return StatusNullPointer;
  if (srcStep < 1 || dstStep < 1) return StatusStep;
  if (srcRoi.width < 1 || srcRoi.height < 1 || dstRoi.width < 1 || dstRoi.height < 1 || top < 0 ||
      left < 0 || dstRoi.width - left < srcRoi.width || dstRoi.height - top < srcRoi.height) {
    return StatusSize;
  }
  return StatusOk;
}

// The rows of the destination rectangle: rows [top, top + srcH) hold the
// source with `left` made pixels before and the rest of the width after it.
// With `value` null, made pixels repeat the row's end pixel, else they are
// the value pixel.
void MakeSides(uint8_t* dst, int32_t dstStep, ImageSize srcRoi, ImageSize dstRoi, int32_t top,
               int32_t left, int32_t pixelBytes, const uint8_t* value) {
  const int32_t right = dstRoi.width - left - srcRoi.width;
  for (int32_t y = top; y < top + srcRoi.height; ++y) {
    uint8_t* row = RowAt(dst, dstStep, y);
    uint8_t* first = row + left * pixelBytes;
    uint8_t* last = first + (srcRoi.width - 1) * pixelBytes;
    FillPixels(row, value ? value : first, pixelBytes, left);
    FillPixels(last + pixelBytes, value ? value : last, pixelBytes, right);
  }
}

// The rows above and below: copies of the first and last extended row, or
// whole rows of the value pixel.
void MakeTopBottom(uint8_t* dst, int32_t dstStep, ImageSize srcRoi, ImageSize dstRoi, int32_t top,
                   int32_t pixelBytes, const uint8_t* value) {
  const int32_t rowBytes = dstRoi.width * pixelBytes;
  const uint8_t* firstRow = RowAt(dst, dstStep, top);
  const uint8_t* lastRow = RowAt(dst, dstStep, top + srcRoi.height - 1);
  for (int32_t y = top + srcRoi.height; y < dstRoi.height; ++y) {
    if (value) {
      FillPixels(RowAt(dst, dstStep, y), value, pixelBytes, dstRoi.width);
    } else {
      std::memcpy(RowAt(dst, dstStep, y), lastRow, rowBytes);
    }
  }
  for (int32_t y = 0; y < top; ++y) {
    if (value) {
      FillPixels(RowAt(dst, dstStep, y), value, pixelBytes, dstRoi.width);
    } else {
      std::memcpy(RowAt(dst, dstStep, y), firstRow, rowBytes);
    }
  }
}

PrimitiveStatus ReplicateInPlace(uint8_t* image, int32_t step, ImageSize srcRoi, ImageSize dstRoi,
                                 int32_t top, int32_t left, int32_t pixelBytes) {
  const PrimitiveStatus status = CheckCopy(image, step, srcRoi, image, step, dstRoi, top, left);
  if (status != StatusOk) return status;
  uint8_t* origin = RowAt(image, step, -top) - left * pixelBytes;
  MakeSides(origin, step, srcRoi, dstRoi, top, left, pixelBytes, nullptr);
  MakeTopBottom(origin, step, srcRoi, dstRoi, top, pixelBytes, nullptr);
  return StatusOk;
}

PrimitiveStatus CopyWithBorder(const uint8_t* src, int32_t srcStep, ImageSize srcRoi, uint8_t* dst,
                               int32_t dstStep, ImageSize dstRoi, int32_t top, int32_t left,
                               int32_t pixelBytes, bool constant, const void* value) {
  if (!constant && src == dst) {
    return ReplicateInPlace(dst, srcStep, srcRoi, dstRoi, top, left, pixelBytes);
  }
  const PrimitiveStatus status = CheckCopy(src, srcStep, srcRoi, dst, dstStep, dstRoi, top, left);
  if (status != StatusOk) return status;
  if (constant && value == nullptr) return StatusNullPointer;
  ownExtendWithBorder(src, srcStep, srcRoi, dst, dstStep, dstRoi, top, left, pixelBytes,
                      static_cast<const uint8_t*>(value));
  return StatusOk;
}

}  // namespace

void ownExtendWithBorder(const uint8_t* src, int32_t srcStep, ImageSize srcRoi, uint8_t* dst,
                         int32_t dstStep, ImageSize dstRoi, int32_t top, int32_t left,
                         int32_t pixelBytes, const uint8_t* value) {
  ownCopyRows(src, srcStep, RowAt(dst, dstStep, top) + left * pixelBytes, dstStep,
              srcRoi.width * pixelBytes, srcRoi.height);
  MakeSides(dst, dstStep, srcRoi, dstRoi, top, left, pixelBytes, value);
  MakeTopBottom(dst, dstStep, srcRoi, dstRoi, top, pixelBytes, value);
}

#define CORVANE_DEFINE_BORDER_COPIES_(suffix, ValueType, pixelBytes)                               \
  PrimitiveStatus ownCopyReplicateBorder_##suffix(const uint8_t* src, int32_t srcStep,             \
                                                  ImageSize srcRoi, uint8_t* dst, int32_t dstStep, \
                                                  ImageSize dstRoi, int32_t top, int32_t left) {   \
    return CopyWithBorder(src, srcStep, srcRoi, dst, dstStep, dstRoi, top, left, pixelBytes,       \
                          false, nullptr);                                                         \
  }                                                                                                \
  PrimitiveStatus ownCopyConstBorder_##suffix(                                                     \
      const uint8_t* src, int32_t srcStep, ImageSize srcRoi, uint8_t* dst, int32_t dstStep,        \
      ImageSize dstRoi, int32_t top, int32_t left, const ValueType* value) {                       \
    return CopyWithBorder(src, srcStep, srcRoi, dst, dstStep, dstRoi, top, left, pixelBytes, true, \
                          value);                                                                  \
  }                                                                                                \
  PrimitiveStatus ownCopyReplicateBorderInPlace_##suffix(uint8_t* image, int32_t step,             \
                                                         ImageSize srcRoi, ImageSize dstRoi,       \
                                                         int32_t top, int32_t left) {              \
    return ReplicateInPlace(image, step, srcRoi, dstRoi, top, left, pixelBytes);                   \
  }
CORVANE_DEFINE_BORDER_COPIES_(8u_C3R, uint8_t, 3)
CORVANE_DEFINE_BORDER_COPIES_(8u_C4R, uint8_t, 4)
CORVANE_DEFINE_BORDER_COPIES_(16_C3R, uint16_t, 6)
CORVANE_DEFINE_BORDER_COPIES_(16_C4R, uint16_t, 8)
#undef CORVANE_DEFINE_BORDER_COPIES_

PrimitiveStatus ownCopy_8u_C3R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                               ImageSize roi) {
  if (src == nullptr || dst == nullptr) return StatusNullPointer;
  if (roi.width < 1 || roi.height < 1) return StatusSize;
  ownCopyRows(src, srcStep, dst, dstStep, roi.width * 3, roi.height);
  return StatusOk;
}

}  // namespace corvane::CORVANE_VARIANT
