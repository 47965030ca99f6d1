// ownGetBilinearCoeffs and ownWarpBilinearBufferSize: the scalar double
// arithmetic that runs once per image before the warp. Built once per code
// path; l9 and k0 fuse the coefficient sums.
#include "primitives/core/conventions.h"
#include "primitives/warp/fused.h"
#include "primitives/warp/warp.h"
#include "primitives/warp/warp_geometry.h"

namespace corvane::CORVANE_VARIANT {
namespace {

void AffineOf(const double* c, double* a) {
  a[0] = c[1];
  a[1] = c[2];
  a[2] = c[3];
  a[3] = c[5];
  a[4] = c[6];
  a[5] = c[7];
}

// Row range of a picture in the destination rectangle; StatusNoOverlap when
// nothing of it falls inside.
PrimitiveStatus RowsOf(const double* quad, ImageRect dstRect, int32_t* yMin, int32_t* yMax) {
  const int32_t found =
      ownQuadRowRange(quad, ownRectCorners(dstRect), ownQuadOrientation(quad), nullptr, yMin, yMax);
  return found ? StatusOk : StatusNoOverlap;
}

int32_t Int32Of(uint32_t v) { return static_cast<int32_t>(v); }

// Source to destination: the row table, then room for two float rows.
PrimitiveStatus ForwardSize(ImageSize srcSize, ImageRect srcRect, ImageRect dstRect,
                            const double* c, uint32_t mode, int32_t* size) {
  const bool affine = c[0] == 0.0 && c[4] == 0.0;
  if (PrimitiveStatus s = ownCheckWarpMode(mode, affine)) return s;
  if (affine) {
    if (PrimitiveStatus s = ownAffineDeterminantStatus(c[1] * c[6], c[2] * c[5])) return s;
  }
  ImageRect rect = srcRect;
  if (PrimitiveStatus s = ownClipSourceRect(srcSize, &rect)) return s;
  if (rect.width < 2 || rect.height < 2) return StatusRectangle;
  double quad[8];
  if (affine) {
    double a[6];
    AffineOf(c, a);
    ownAffineQuad(ownRectCorners(rect), a, quad);
  } else {
    ownBilinearQuad(ownRectCorners(rect), c, quad);
  }
  const int32_t shape = ownClassifyQuad(quad);
  if (shape == QuadDegenerate || shape == QuadConcave) return StatusTransform;
  int32_t yMin = 0, yMax = 0;
  if (PrimitiveStatus s = RowsOf(quad, dstRect, &yMin, &yMax)) return s;
  // Sizes wrap in 32 bits like the rest of the primitive arithmetic.
  const uint32_t rows = uint32_t(yMax) - uint32_t(yMin);
  *size = Int32Of(((rows * 8u + 55u) & ~31u) + uint32_t(dstRect.width) * 8u + 128u);
  return StatusOk;
}

// Destination to source: an answer no operation of this library uses.
PrimitiveStatus BackwardSize(ImageSize srcSize, ImageRect srcRect, ImageRect dstRect,
                             const double* c, uint32_t mode, int32_t* size) {
  if (PrimitiveStatus s = ownCheckWarpMode(mode, false)) return s;
  if (!(c[0] == 0.0 && c[4] == 0.0)) {
    *size = Int32Of(uint32_t(dstRect.width) * 8u + 128u);
    return StatusOk;
  }
  ImageRect rect = srcRect;
  if (PrimitiveStatus s = ownClipSourceRect(srcSize, &rect)) return s;
  const double p = c[1] * c[6], r = c[2] * c[5];
  if (PrimitiveStatus s = ownAffineDeterminantStatus(p, r)) return s;
  const double d = 1.0 / (p - r);
  const double inverse[6] = {c[6] * d,  -c[2] * d, (c[2] * c[7] - c[6] * c[3]) * d,
                             -c[5] * d, c[1] * d,  (c[5] * c[3] - c[1] * c[7]) * d};
  double quad[8];
  ownAffineQuad(ownRectCorners(rect), inverse, quad);
  const int32_t shape = ownClassifyQuad(quad);
  if (shape == QuadDegenerate || shape == QuadConcave) return StatusTransform;
  int32_t yMin = 0, yMax = 0;
  if (PrimitiveStatus s = RowsOf(quad, dstRect, &yMin, &yMax)) return s;
  uint32_t bytes = (uint32_t(yMax) - uint32_t(yMin)) * 8u + 88u;
  if (mode == WarpCubic) bytes += uint32_t(dstRect.width) * 8u + 64u;
  *size = Int32Of(bytes);
  return StatusOk;
}

}  // namespace

PrimitiveStatus ownGetBilinearCoeffs(ImageRect srcRect, const double* quad, double* coeffs) {
  if (!quad || !coeffs) return StatusNullPointer;
  if (srcRect.x < 0 || srcRect.y < 0 || srcRect.width < 1 || srcRect.height < 1) return StatusSize;
  const int32_t shape = ownClassifyQuad(quad);
  if (shape == QuadDegenerate || shape == QuadConcave) return StatusQuad;
  const RectCorners rc = ownRectCorners(srcRect);
  const double x0 = double(rc.x0), y0 = double(rc.y0), x1 = double(rc.x1), y1 = double(rc.y1);
  if (x1 - x0 < 1.0 || y1 - y0 < 1.0) return StatusRectangle;

  const double qx0 = quad[0], qy0 = quad[1];
  const double dx01 = quad[2] - quad[0], dx12 = quad[4] - quad[2];
  const double dx23 = quad[6] - quad[4], dx30 = quad[0] - quad[6];
  const double dy01 = quad[3] - quad[1], dy12 = quad[5] - quad[3];
  const double dy23 = quad[7] - quad[5], dy30 = quad[1] - quad[7];
  const double inv = 1.0 / ((x1 - x0) * (y1 - y0));
  // Opposite edges that are equal vectors cancel exactly in c0 and c4: every
  // parallelogram, so every rectangle, comes out affine.
  const double c0 = -(dx23 + dx01) * inv;
  const double c1 = FusedMulAdd(dx01, y1, dx23 * y0) * inv;
  const double c2 = FusedMulAdd(-dx30, x1, -(dx12 * x0)) * inv;
  const double c3 = (-c1 - c0 * y0) * x0 + (qx0 - c2 * y0);
  const double c4 = -(dy01 + dy23) * inv;
  const double c5 = FusedMulAdd(y1, dy01, dy23 * y0) * inv;
  const double c6 = FusedMulAdd(-dy30, x1, -(dy12 * x0)) * inv;
  const double c7 = (-(c4 * y0) - c5) * x0 + (qy0 - c6 * y0);
  const double out[8] = {c0, c1, c2, c3, c4, c5, c6, c7};
  for (int i = 0; i < 8; ++i) coeffs[i] = out[i];
  return StatusOk;
}

PrimitiveStatus ownWarpBilinearBufferSize(ImageSize srcSize, ImageRect srcRect, ImageRect dstRect,
                                          int32_t direction, const double* coeffs,
                                          uint32_t interpolation, int32_t* size) {
  if (!size || !coeffs) return StatusNullPointer;
  if (PrimitiveStatus s = ownCheckWarpImages(srcSize, srcRect, dstRect)) return s;
  const uint32_t mode = interpolation & ~WarpSmoothEdge;
  if (direction == WarpSourceToDestination) {
    return ForwardSize(srcSize, srcRect, dstRect, coeffs, mode, size);
  }
  if (direction == WarpDestinationToSource) {
    return BackwardSize(srcSize, srcRect, dstRect, coeffs, mode, size);
  }
  return StatusDirection;
}

}  // namespace corvane::CORVANE_VARIANT
