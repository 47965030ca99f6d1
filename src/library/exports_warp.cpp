// The warp family of corvane_image.h: a warp by coefficients, a warp onto a
// quad, and a resize, each a sizing, a scratch block and one warp on three
// 8-bit channels.
#include "corvane_image.h"
#include "library/image_call.h"
#include "primitives/warp/warp.h"

namespace {

namespace prim = corvane::primitives;
using corvane::ImageRect;
using corvane::ImageSize;
using corvane::PrimitiveStatus;
using corvane::library::CheckImage;
using corvane::library::FormatBit;

ImageSize SizeOf(const corvane_image& image) { return {image.width, image.height}; }

ImageRect RectOf(corvane_rect r) { return {r.x, r.y, r.width, r.height}; }

// Whether `r` lies inside the image and has an area.
bool Inside(ImageRect r, const corvane_image& image) {
  return r.x >= 0 && r.y >= 0 && r.width >= 1 && r.height >= 1 &&
         int64_t{r.x} + r.width <= image.width && int64_t{r.y} + r.height <= image.height;
}

// The checks of the two images, the source's first.
int32_t CheckImages(const corvane_image* src, const corvane_image* dst) {
  if (int32_t s = CheckImage(src, FormatBit(CORVANE_8U_C3))) return s;
  return CheckImage(dst, FormatBit(CORVANE_8U_C3));
}

// The images are checked already.
PrimitiveStatus Warp(const corvane_image& src, ImageRect srcRect, const corvane_image& dst,
                     ImageRect dstRect, const double* coeffs, uint32_t interpolation) {
  // The primitive writes where dstRect says: it must lie inside dst.
  if (!Inside(dstRect, dst)) return corvane::StatusSize;
  int32_t size = 0;
  if (PrimitiveStatus s = prim::ownWarpBilinearBufferSize(SizeOf(src), srcRect, dstRect,
                                                          corvane::WarpSourceToDestination, coeffs,
                                                          interpolation, &size)) {
    return s;
  }
  return corvane::library::WithScratch(size, [&](uint8_t* scratch) {
    return prim::ownWarpBilinear_8u_C3R(static_cast<const uint8_t*>(src.data), SizeOf(src),
                                        src.step, srcRect, static_cast<uint8_t*>(dst.data),
                                        dst.step, dstRect, coeffs, interpolation, scratch);
  });
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
  if (int32_t s = CheckImages(src, dst)) return s;
  return Warp(*src, RectOf(srcRect), *dst, RectOf(dstRect), coeffs, interpolation);
}

int32_t corvane_warp_quad(const corvane_image* src, corvane_rect srcRect, const corvane_image* dst,
                          const double quad[4][2], uint32_t interpolation) {
  if (!quad) return CORVANE_STATUS_NULL_POINTER;
  if (int32_t s = CheckImages(src, dst)) return s;
  return WarpOnto(*src, RectOf(srcRect), *dst, &quad[0][0], interpolation);
}

int32_t corvane_resize(const corvane_image* src, corvane_rect srcRect, const corvane_image* dst,
                       uint32_t interpolation) {
  if (int32_t s = CheckImages(src, dst)) return s;
  const ImageRect rect = RectOf(srcRect);
  if (!Inside(rect, *src)) return corvane::StatusSize;
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
