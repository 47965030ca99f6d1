// The geometry of the warp family on every code path: coefficients that take
// the rectangle's corners onto the quad, quad shapes against exact integer
// arithmetic. How far a row span reaches is the warp row's to show.
#include <gtest/gtest.h>

#include <cmath>

#include "conformance.h"
#include "primitives/warp/warp.h"
#include "primitives/warp/warp_geometry.h"
#include "support/code_path.h"

namespace corvane::test {
namespace {

using primitives::ownGetBilinearCoeffs;

int64_t Orient(const int64_t* a, const int64_t* b, const int64_t* c) {
  return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

// 1 or 0 for a convex quad by the sign of its area, -4 when its diagonals
// don't cross, -5 when three consecutive corners lie on a line.
int32_t ClassifyIntegerQuad(const int64_t* q) {
  const int64_t* p[4] = {q, q + 2, q + 4, q + 6};
  for (int i = 0; i < 4; ++i) {
    if (Orient(p[(i + 3) % 4], p[i], p[(i + 1) % 4]) == 0) return -5;
  }
  // Convex exactly when each diagonal separates the two other corners.
  if ((Orient(p[0], p[2], p[1]) > 0) == (Orient(p[0], p[2], p[3]) > 0) ||
      (Orient(p[1], p[3], p[0]) > 0) == (Orient(p[1], p[3], p[2]) > 0)) {
    return -4;
  }
  return Orient(p[0], p[1], p[2]) + Orient(p[0], p[2], p[3]) > 0 ? 1 : 0;
}

class WarpGeometry : public CodePathTest {};

// Random integer quads, every fourth a parallelogram, every fourth with a
// straight corner at each point in turn: a convex one gets the coefficients
// whose bilinear form takes each corner of the rectangle onto its corner of
// the quad, exactly affine for a parallelogram; any other shape is refused.
TEST_P(WarpGeometry, CoefficientsMapTheCornersAndShapesAreExact) {
  const decltype(&m7::ownClassifyQuad) classify[] = CORVANE_EACH_PATH(ownClassifyQuad);
  int convex = 0, concave = 0, straight = 0;
  for (int round = 0; round < 600; ++round) {
    int64_t iq[8];
    for (int64_t& v : iq) v = RandomInt(Rng(), -300, 300);
    const bool parallelogram = round % 4 == 0;
    if (parallelogram) iq[4] = iq[2] + iq[6] - iq[0], iq[5] = iq[3] + iq[7] - iq[1];
    const int k = round / 4 % 4, before = 2 * ((k + 3) % 4), at = 2 * k, after = 2 * ((k + 1) % 4);
    for (int i = 0; i < 2 && round % 4 == 2; ++i) iq[after + i] = 2 * iq[at + i] - iq[before + i];
    double quad[8];
    for (int i = 0; i < 8; ++i) quad[i] = double(iq[i]);
    const ImageRect rect{RandomInt(Rng(), 0, 500), RandomInt(Rng(), 0, 500),
                         RandomInt(Rng(), 2, 400), RandomInt(Rng(), 2, 400)};
    const int32_t shape = ClassifyIntegerQuad(iq);
    ASSERT_EQ(classify[Variant()](quad), shape) << "round " << round;
    double c[8] = {};
    const PrimitiveStatus status = ownGetBilinearCoeffs(rect, quad, c);
    if (shape < 0) {
      ASSERT_EQ(status, StatusQuad);
      concave += shape == QuadConcave, straight += shape == QuadDegenerate;
      continue;
    }
    ++convex;
    ASSERT_EQ(status, StatusOk);
    EXPECT_TRUE(!parallelogram || (c[0] == 0.0 && c[4] == 0.0)) << "round " << round;
    const double x0 = rect.x, y0 = rect.y, x1 = x0 + rect.width - 1, y1 = y0 + rect.height - 1;
    const double xs[4] = {x0, x1, x1, x0}, ys[4] = {y0, y0, y1, y1};
    for (int i = 0; i < 8; ++i) {
      const double* k = c + 4 * (i % 2);
      const double x = xs[i / 2], y = ys[i / 2];
      const double terms[4] = {k[0] * x * y, k[1] * x, k[2] * y, k[3]};
      const double size = std::fabs(terms[0]) + std::fabs(terms[1]) + std::fabs(terms[2]) +
                          std::fabs(terms[3]) + std::fabs(quad[i]);
      EXPECT_NEAR(terms[0] + terms[1] + terms[2] + terms[3], quad[i], 1e-12 * size)
          << (i % 2 ? "y" : "x") << " of corner " << i / 2 << ", round " << round;
    }
  }
  EXPECT_GT(convex, 100);
  EXPECT_GT(concave, 10);
  EXPECT_GT(straight, 100);
}

CORVANE_INSTANTIATE_CODE_PATHS(WarpGeometry);

}  // namespace
}  // namespace corvane::test
