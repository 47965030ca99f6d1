// Quad test, rectangle corners through a transform, and the checks that the
// warp sizing and the warp share. Built once per code path.
#include <cmath>

#include "primitives/warp/fused.h"
#include "primitives/warp/warp.h"
#include "primitives/warp/warp_geometry.h"

namespace corvane::CORVANE_VARIANT {
namespace {

// a·b - c·d; fused on l9 and k0, which may change the last place of a
// product that is nearly 0 but never the sign of an exact integer one.
double Cross(double a, double b, double c, double d) { return FusedMulAdd(a, b, -(c * d)); }

double CrossAt3(const double* q) {
  return Cross(q[6] - q[4], q[1] - q[7], q[0] - q[6], q[7] - q[5]);
}

}  // namespace

int32_t ownClassifyQuad(const double* q) {
  const double x0 = q[0], y0 = q[1], x1 = q[2], y1 = q[3];
  const double x2 = q[4], y2 = q[5], x3 = q[6], y3 = q[7];
  // Cross product of the edge into each corner with the edge out of it.
  const double at3 = CrossAt3(q);
  const double at0 = Cross(x0 - x3, y1 - y0, y0 - y3, x1 - x0);
  const double at1 = Cross(x1 - x0, y2 - y1, y1 - y0, x2 - x1);
  const double at2 = Cross(y3 - y2, x2 - x1, x3 - x2, y2 - y1);
  // Exact equality: a NaN is not 0 and is not above 0 either.
  if (at3 == 0.0 || at0 == 0.0 || at1 == 0.0 || at2 == 0.0) return QuadDegenerate;
  const int above = (at3 > 0.0) + (at0 > 0.0) + (at1 > 0.0) + (at2 > 0.0);
  if (above == 4) return QuadConvexPositive;
  if (above == 0) return QuadConvexNegative;
  return QuadConcave;
}

int32_t ownQuadOrientation(const double* quad) { return CrossAt3(quad) > 0.0 ? 1 : 0; }

RectCorners ownRectCorners(ImageRect r) {
  return {r.x, r.y, int64_t(r.x) + r.width - 1, int64_t(r.y) + r.height - 1};
}

void ownBilinearQuad(RectCorners rect, const double* c, double* quad) {
  const double xs[4] = {double(rect.x0), double(rect.x1), double(rect.x1), double(rect.x0)};
  const double ys[4] = {double(rect.y0), double(rect.y0), double(rect.y1), double(rect.y1)};
  for (int i = 0; i < 4; ++i) {
    const double x = xs[i], y = ys[i];
    quad[2 * i] = (c[0] * y + c[1]) * x + (c[2] * y + c[3]);
    quad[2 * i + 1] = (c[4] * y + c[5]) * x + (c[6] * y + c[7]);
  }
}

void ownAffineQuad(RectCorners rect, const double* a, double* quad) {
  const double xs[4] = {double(rect.x0), double(rect.x1), double(rect.x1), double(rect.x0)};
  const double ys[4] = {double(rect.y0), double(rect.y0), double(rect.y1), double(rect.y1)};
  for (int i = 0; i < 4; ++i) {
    const double x = xs[i], y = ys[i];
    // Summed from the left, unfused: a corner that an exact set puts at 0
    // stays at 0 on every code path.
    quad[2 * i] = a[0] * x + a[1] * y + a[2];
    quad[2 * i + 1] = a[3] * x + a[4] * y + a[5];
  }
}

PrimitiveStatus ownCheckWarpMode(uint32_t mode, bool withCatmullRom) {
  const bool offered = mode == WarpNearest || mode == WarpLinear || mode == WarpCubic ||
                       (withCatmullRom && mode == WarpCatmullRom);
  return offered ? StatusOk : StatusInterpolation;
}

PrimitiveStatus ownAffineDeterminantStatus(double p, double r) {
  // Two limits on purpose: a vanishing product is judged by the other one
  // absolutely, a usable one by the relative size of the determinant.
  if (std::fabs(p) <= 1e-200) return std::fabs(r) <= 1e-10 ? StatusTransform : StatusOk;
  return std::fabs((p - r) / p) <= 1e-10 ? StatusTransform : StatusOk;
}

PrimitiveStatus ownCheckWarpImages(ImageSize srcSize, ImageRect srcRect, ImageRect dstRect) {
  if (srcSize.width <= 0 || srcSize.height <= 0) return StatusSize;
  if (srcRect.x < 0 || srcRect.y < 0 || srcRect.width <= 0 || srcRect.height <= 0) {
    return StatusSize;
  }
  if (dstRect.x < 0 || dstRect.y < 0 || dstRect.width < 1 || dstRect.height < 1) return StatusSize;
  return StatusOk;
}

PrimitiveStatus ownClipSourceRect(ImageSize srcSize, ImageRect* rect) {
  if (rect->x >= srcSize.width || rect->y >= srcSize.height) return StatusRectangleOutside;
  if (rect->width > srcSize.width - rect->x) rect->width = srcSize.width - rect->x;
  if (rect->height > srcSize.height - rect->y) rect->height = srcSize.height - rect->y;
  return StatusOk;
}

}  // namespace corvane::CORVANE_VARIANT
