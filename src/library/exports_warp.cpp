// The warp family of corvane_image.h: a warp by coefficients, a warp onto a
// quad, and a resize, each a sizing, a scratch block and one warp on three
// 8-bit channels.
#include "corvane_image.h"
#include "library/image_call.h"
#include "primitives/warp/warp.h"

namespace {

namespace prim = corvane::primitives;
using corvane::ImageRect;
using corvane::PrimitiveStatus;
using corvane::library::CheckImages;
using corvane::library::SizeOf;

// The images are checked already.
PrimitiveStatus Warp(const corvane_image& src, ImageRect srcRect, const corvane_image& dst,
                     ImageRect dstRect, const double* coeffs, uint32_t interpolation) {
  // The primitive writes where dstRect says: it must lie inside dst.
  if (!corvane::library::Inside(dstRect, dst)) return corvane::StatusSize;
  int32_t size = 0;
  if (PrimitiveStatus s = prim::ownWarpBilinearBufferSize(SizeOf(src), srcRect, dstRect,
                                                          corvane::WarpSourceToDestination, coeffs,
                                                          interpolation, &size)) {
    return s;
  }
  const corvane::library::Scratch scratch(size);
  if (!scratch.get()) return CORVANE_STATUS_NO_MEMORY;
  return prim::ownWarpBilinear_8u_C3R(static_cast<const uint8_t*>(src.data), SizeOf(src), src.step,
                                      srcRect, static_cast<uint8_t*>(dst.data), dst.step, dstRect,
                                      coeffs, interpolation, scratch.get());
}

// The warp of srcRect onto the quad, over the whole of dst.
PrimitiveStatus WarpOnto(const corvane_image& src, ImageRect srcRect, const corvane_image& dst,
                         const double* quad, uint32_t interpolation) {
  double coeffs[8];
  if (PrimitiveStatus s = prim::ownGetBilinearCoeffs(srcRect, quad, coeffs)) return s;
  return Warp(src, srcRect, dst, {0, 0, dst.width, dst.height}, coeffs, interpolation);
}

}  // namespace

extern "C" {

int32_t corvane_warp(const corvane_image* src, corvane_rect srcRect, const corvane_image* dst,
                     corvane_rect dstRect, const double coeffs[8], uint32_t interpolation) {
  if (!coeffs) return CORVANE_STATUS_NULL_POINTER;
  if (PrimitiveStatus s = CheckImages({src, dst}, CORVANE_8U_C3, 3)) return s;
  return Warp(*src, corvane::library::RectOf(srcRect), *dst, corvane::library::RectOf(dstRect),
              coeffs, interpolation);
}

int32_t corvane_warp_quad(const corvane_image* src, corvane_rect srcRect, const corvane_image* dst,
                          const double quad[4][2], uint32_t interpolation) {
  if (!quad) return CORVANE_STATUS_NULL_POINTER;
  if (PrimitiveStatus s = CheckImages({src, dst}, CORVANE_8U_C3, 3)) return s;
  return WarpOnto(*src, corvane::library::RectOf(srcRect), *dst, &quad[0][0], interpolation);
}

int32_t corvane_resize(const corvane_image* src, corvane_rect srcRect, const corvane_image* dst,
                       uint32_t interpolation) {
  if (PrimitiveStatus s = CheckImages({src, dst}, CORVANE_8U_C3, 3)) return s;
  const ImageRect rect = corvane::library::RectOf(srcRect);
  if (!corvane::library::Inside(rect, *src)) return corvane::StatusSize;
  // The first and last pixel centres of the crop go onto those of dst (one
  // pixel is reached from a side of length 1). The picture reaches a hair
  // beyond them, or a rounding of the coefficients could leave dst's last
  // row or column outside it, unwritten; samplers hold positions that far
  // past the crop's last pixel to it.
  constexpr double kHair = 1e-7;
  const double w = (dst->width > 1 ? dst->width - 1 : 1) + kHair,
               h = (dst->height > 1 ? dst->height - 1 : 1) + kHair;
  const double quad[8] = {-kHair, -kHair, w, -kHair, w, h, -kHair, h};
  return WarpOnto(*src, rect, *dst, quad, interpolation);
}

}  // extern "C"
