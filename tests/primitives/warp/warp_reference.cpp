#include "warp_reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace corvane::test {
namespace {

int64_t Orient(const int64_t* a, const int64_t* b, const int64_t* c) {
  return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

}  // namespace

int32_t ClassifyIntegerQuad(const int64_t* q) {
  const int64_t* p[4] = {q, q + 2, q + 4, q + 6};
  for (int i = 0; i < 4; ++i) {
    if (Orient(p[(i + 3) % 4], p[i], p[(i + 1) % 4]) == 0) return -5;
  }
  // Convex exactly when each diagonal separates the two other corners.
  const bool crossA = (Orient(p[0], p[2], p[1]) > 0) != (Orient(p[0], p[2], p[3]) > 0);
  const bool crossB = (Orient(p[1], p[3], p[0]) > 0) != (Orient(p[1], p[3], p[2]) > 0);
  if (!crossA || !crossB) return -4;
  const int64_t twiceArea = (q[0] * q[3] - q[2] * q[1]) + (q[2] * q[5] - q[4] * q[3]) +
                            (q[4] * q[7] - q[6] * q[5]) + (q[6] * q[1] - q[0] * q[7]);
  return twiceArea > 0 ? 1 : 0;
}

bool SpanOfRow(const double* q, double y, double x0, double x1, bool reach, int32_t* left,
               int32_t* right, bool* near) {
  double lo = HUGE_VAL, hi = -HUGE_VAL;
  for (int i = 0; i < 4; ++i) {
    const double px = q[2 * i], py = q[2 * i + 1];
    const double qx = q[(2 * i + 2) % 8], qy = q[(2 * i + 3) % 8];
    if (py == y) {
      lo = std::min(lo, px);
      hi = std::max(hi, px);
    }
    if (py == qy || y < std::min(py, qy) || y > std::max(py, qy)) continue;
    const double x = px + (y - py) * (qx - px) / (qy - py);
    lo = std::min(lo, x);
    hi = std::max(hi, x);
  }
  lo = std::max(lo, x0);
  hi = std::min(hi, x1);
  if (lo > hi) return false;
  *near = std::fabs(lo - std::round(lo)) < 1e-9 || std::fabs(hi - std::round(hi)) < 1e-9;
  double l = std::ceil(lo), r = std::floor(hi);
  if (reach && lo + 1.0 - l < 1e-13) l -= 1.0;
  if (reach && 1.0 - hi + r < 1e-13) r += 1.0;
  *left = int32_t(l);
  *right = int32_t(r);
  return true;
}

bool ReferenceWarp(const uint8_t* src, ImageSize srcSize, int32_t srcStep, ImageRect rect,
                   uint8_t* dst, int32_t dstStep, ImageRect dstRect, const double* a) {
  rect.width = std::min(rect.width, srcSize.width - rect.x);
  rect.height = std::min(rect.height, srcSize.height - rect.y);
  const double x0 = rect.x, y0 = rect.y;
  const double x1 = rect.x + rect.width - 1, y1 = rect.y + rect.height - 1;
  const double cx[4] = {x0, x1, x1, x0}, cy[4] = {y0, y0, y1, y1};
  double q[8];
  for (int i = 0; i < 4; ++i) {
    q[2 * i] = a[0] * cx[i] + a[1] * cy[i] + a[2];
    q[2 * i + 1] = a[3] * cx[i] + a[4] * cy[i] + a[5];
  }
  // Destination pixel -> source position, from the rectangle and its picture.
  const double ex = q[2] - q[0], ey = q[3] - q[1], fx = q[4] - q[2], fy = q[5] - q[3];
  const double d = 1.0 / (ex * fy - fx * ey), s = (x1 - x0) * d, t = (y1 - y0) * d;
  const double i0 = fy * s, i1 = -(s * fx), i3 = -(ey * t), i4 = t * ex;
  const double i2 = x0 - i0 * q[0] - i1 * q[1], i5 = y0 - i3 * q[0] - i4 * q[1];

  const double minY = std::min({q[1], q[3], q[5], q[7]}), maxY = std::max({q[1], q[3], q[5], q[7]});
  const double firstRow = std::ceil(std::max(minY, double(dstRect.y)));
  const double lastRow = std::floor(std::min(maxY, double(dstRect.y + dstRect.height - 1)));
  // Clipped to no height (a one-row rectangle, or a picture that only
  // touches it along a side), the picture is a bare segment: no reach.
  const bool segment =
      std::max(minY, double(dstRect.y)) == std::min(maxY, double(dstRect.y + dstRect.height - 1));
  bool drawn = false;
  // Positions accumulate along the row and down the rows, from the first row.
  double baseU = firstRow * i1 + i2, baseV = firstRow * i4 + i5;
  for (double y = firstRow; y <= lastRow; y += 1.0, baseU += i1, baseV += i4) {
    int32_t left = 0, right = -1;
    bool near = false;
    if (!SpanOfRow(q, y, dstRect.x, dstRect.x + dstRect.width - 1, !segment, &left, &right,
                   &near)) {
      continue;
    }
    double u = left * i0 + baseU + 0.5, v = left * i3 + baseV + 0.5;
    for (int32_t x = left; x <= right; ++x, u += i0, v += i3) {
      const int32_t su = int32_t(u), sv = int32_t(v);
      if (su < rect.x || su > x1 || sv < rect.y || sv > y1) {
        ADD_FAILURE() << "reference position (" << u << ", " << v << ") outside the rectangle";
        continue;
      }
      std::memcpy(dst + int64_t(y) * dstStep + 3 * x, src + int64_t(sv) * srcStep + 3 * su, 3);
      drawn = true;
    }
  }
  return drawn;
}

}  // namespace corvane::test
