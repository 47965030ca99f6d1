// Dispatch rows 1 and 2: the median's sizing and filter entries, each a jump
// to the build of the code path this processor runs.
#include "primitives/median/median.h"
#include "primitives/core/dispatch_row.h"

namespace corvane::primitives {
namespace {

constexpr DispatchRow<decltype(ownFilterMedianBorderGetBufferSize)> kMedianSizeRow =
    CORVANE_DISPATCH_ROW(ownFilterMedianBorderGetBufferSize);
constexpr DispatchRow<decltype(ownFilterMedianBorder_8u_C3R)> kMedianRow =
    CORVANE_DISPATCH_ROW(ownFilterMedianBorder_8u_C3R);

}  // namespace

PrimitiveStatus ownFilterMedianBorderGetBufferSize(ImageSize roi, ImageSize mask,
                                                   PixelType pixelType, int32_t channels,
                                                   int32_t* size) {
  return kMedianSizeRow.Call(roi, mask, pixelType, channels, size);
}

PrimitiveStatus ownFilterMedianBorder_8u_C3R(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                             int32_t dstStep, ImageSize roi, ImageSize mask,
                                             BorderType border, const uint8_t* borderValue,
                                             uint8_t* buffer) {
  return kMedianRow.Call(src, srcStep, dst, dstStep, roi, mask, border, borderValue, buffer);
}

}  // namespace corvane::primitives
