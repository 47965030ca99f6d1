// The smooth-edge pass behind the top bit of the interpolation: the picture's
// slanted edges, clipped to the destination rectangle, blend each pixel just
// outside them with its neighbour inside by where the edge passes between the
// two. Built once per code path, in plain doubles.
//
// An edge is walked along its longer axis, one whole step at a time from its
// start on, its end left to the next edge; at each step it passes between two
// pixels across the other axis. Where it meets a pixel exactly nothing
// happens; else the outside pixel becomes outside·w1 + inside·w2 (+ 0.5,
// truncated), w1 being the crossing's distance from the outside pixel and w2
// its distance from the inside one. Axis-parallel edges change nothing.
#include <cmath>
#include <cstdint>

#include "primitives/warp/warp_kernels.h"

namespace corvane::CORVANE_VARIANT {
namespace {

void Blend(uint8_t* dst, int32_t dstStep, double ox, double oy, double ix, double iy, double w1,
           double w2) {
  if (ox < 0 || oy < 0 || ix < 0 || iy < 0) return;
  uint8_t* outside = dst + int64_t(oy) * dstStep + 3 * int64_t(ox);
  const uint8_t* inside = dst + int64_t(iy) * dstStep + 3 * int64_t(ix);
  for (int32_t c = 0; c < 3; ++c)
    outside[c] = uint8_t(int32_t(outside[c] * w1 + inside[c] * w2 + 0.5));
}

// One edge from (px, py) to (qx, qy) along its longer axis a (the other, b);
// `before` says whether the pixel on the lower side of b is the outside one.
// Coordinates are (a, b) here; `swap` puts them back in (x, y) order.
void Walk(uint8_t* dst, int32_t dstStep, double pa, double pb, double qa, double qb, bool before,
          bool swap) {
  const double slope = (qb - pb) / (qa - pa);
  const double dir = qa > pa ? 1.0 : -1.0;
  for (double a = dir > 0 ? std::ceil(pa) : std::floor(pa); (a - qa) * dir < 0; a += dir) {
    const double b = pb + (a - pa) * slope;
    const double low = std::floor(b);
    if (b == low) continue;
    const double out = before ? low : low + 1, in = before ? low + 1 : low;
    const double w1 = std::fabs(b - out), w2 = std::fabs(b - in);
    if (swap) {
      Blend(dst, dstStep, out, a, in, a, w1, w2);
    } else {
      Blend(dst, dstStep, a, out, a, in, w1, w2);
    }
  }
}

}  // namespace

void ownWarpSmoothEdge_8u_C3(uint8_t* dst, int32_t dstStep, const double* quad, RectCorners clip,
                             int32_t orientation) {
  double p[2 * kClippedQuadPoints];
  const int32_t n = ownClipQuad(quad, clip, p);
  if (n < 3) return;
  for (int32_t i = 0; i < n; ++i) {
    const double px = p[2 * i], py = p[2 * i + 1];
    const double qx = p[2 * ((i + 1) % n)], qy = p[2 * ((i + 1) % n) + 1];
    const double dx = qx - px, dy = qy - py;
    if (dx == 0 || dy == 0) continue;
    // The inside lies to the right of the edge's direction on screen when the
    // corners run clockwise (orientation 1), to its left otherwise.
    const bool clockwise = orientation == 1;
    if (std::fabs(dx) >= std::fabs(dy)) {
      // Crossing rows between (x, low) and (x, low + 1): below is inside
      // when the edge runs right on a clockwise picture.
      Walk(dst, dstStep, px, py, qx, qy, (dx > 0) == clockwise, false);
    } else {
      // Between (low, y) and (low + 1, y): the right one is inside when the
      // edge runs up on a clockwise picture.
      Walk(dst, dstStep, py, px, qy, qx, (dy < 0) == clockwise, true);
    }
  }
}

}  // namespace corvane::CORVANE_VARIANT
