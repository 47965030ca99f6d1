// Entry points of the warp family: dispatch rows 5, 6 and 7.
#include "primitives/core/dispatch_row.h"
#include "primitives/warp/warp.h"

namespace corvane::primitives {
namespace {

constexpr DispatchRow<decltype(ownGetBilinearCoeffs)> kCoeffsRow =
    CORVANE_DISPATCH_ROW(ownGetBilinearCoeffs);
constexpr DispatchRow<decltype(ownWarpBilinearBufferSize)> kWarpSizeRow =
    CORVANE_DISPATCH_ROW(ownWarpBilinearBufferSize);
constexpr DispatchRow<decltype(ownWarpBilinear_8u_C3R)> kWarpRow =
    CORVANE_DISPATCH_ROW(ownWarpBilinear_8u_C3R);

}  // namespace

PrimitiveStatus ownGetBilinearCoeffs(ImageRect srcRect, const double* quad, double* coeffs) {
  return kCoeffsRow.Call(srcRect, quad, coeffs);
}

PrimitiveStatus ownWarpBilinearBufferSize(ImageSize srcSize, ImageRect srcRect, ImageRect dstRect,
                                          int32_t direction, const double* coeffs,
                                          uint32_t interpolation, int32_t* size) {
  return kWarpSizeRow.Call(srcSize, srcRect, dstRect, direction, coeffs, interpolation, size);
}

PrimitiveStatus ownWarpBilinear_8u_C3R(const uint8_t* src, ImageSize srcSize, int32_t srcStep,
                                       ImageRect srcRect, uint8_t* dst, int32_t dstStep,
                                       ImageRect dstRect, const double* coeffs,
                                       uint32_t interpolation, uint8_t* scratch) {
  return kWarpRow.Call(src, srcSize, srcStep, srcRect, dst, dstStep, dstRect, coeffs, interpolation,
                       scratch);
}

}  // namespace corvane::primitives
