// The geometry of the warp family on every code path: coefficients that take
// the rectangle's corners onto the quad, quad shapes against exact integer
// arithmetic, the sizing answer in closed form, and how far a row span
// reaches.
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

// Random integer quads, every fourth a parallelogram: a convex one gets the
// coefficients whose bilinear form takes each corner of the rectangle onto
// its corner of the quad, exactly affine for a parallelogram; any other
// shape is refused.
TEST_P(WarpGeometry, CoefficientsMapTheCornersAndShapesAreExact) {
  const decltype(&m7::ownClassifyQuad) classify[] = CORVANE_EACH_PATH(ownClassifyQuad);
  int convex = 0, concave = 0;
  for (int round = 0; round < 600; ++round) {
    int64_t iq[8];
    for (int64_t& v : iq) v = RandomInt(Rng(), -300, 300);
    const bool parallelogram = round % 4 == 0;
    if (parallelogram) iq[4] = iq[2] + iq[6] - iq[0], iq[5] = iq[3] + iq[7] - iq[1];
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
      concave += shape == QuadConcave;
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
  // A rectangle onto a square, exact numbers.
  const double square[8] = {0, 0, 8, 0, 8, 8, 0, 8}, want[8] = {0, 2, 0, -4, 0, 0, 4, -12};
  double c[8];
  ASSERT_EQ(ownGetBilinearCoeffs({2, 3, 5, 3}, square, c), StatusOk);
  for (int k = 0; k < 8; ++k) EXPECT_EQ(c[k], want[k]) << "c" << k;
  // A straight corner at each point in turn, the other three convex.
  const double straight[4][8] = {{4, 4, 8, 0, 8, 8, 0, 8},
                                 {0, 0, 4, 4, 8, 8, 0, 8},
                                 {0, 0, 8, 0, 4, 4, 0, 8},
                                 {0, 0, 8, 0, 8, 8, 4, 4}};
  for (const double* q : straight) EXPECT_EQ(classify[Variant()](q), QuadDegenerate) << q[4];
}

// The picture of a 40x30 image scaled by 2 covers rows 0..58 of a 100x100
// destination, so the sizing answer is known in closed form.
TEST_P(WarpGeometry, SizingAnswers) {
  const double scale[8] = {0, 2, 0, 0, 0, 0, 2, 0}, bent[8] = {0.01, 2, 0, 0, 0, 0, 2, 0};
  const ImageRect all{0, 0, 40, 30};
  const int32_t forward = ((58 * 8 + 55) & ~31) + 100 * 8 + 128;
  const struct {
    ImageRect srcRect;
    int32_t direction;
    const double* c;
    uint32_t mode;
    int32_t size;
  } cases[] = {
      {all, 0, scale, WarpNearest, forward},
      {all, 0, scale, WarpSmoothEdge | WarpNearest, forward},  // the top bit sizes nothing
      {{0, 0, 400, 300}, 0, scale, WarpNearest, forward},      // narrowed first
      {all, 0, bent, WarpCubic, forward},
      {all, 1, bent, WarpLinear, 100 * 8 + 128},
      {all, 1, scale, WarpNearest, 14 * 8 + 88},  // x/2 covers rows 0..14
      {all, 1, scale, WarpCubic, 14 * 8 + 88 + 100 * 8 + 64},
  };
  for (const auto& c : cases) {
    int32_t size = -1;
    EXPECT_EQ(primitives::ownWarpBilinearBufferSize({40, 30}, c.srcRect, {0, 0, 100, 100},
                                                    c.direction, c.c, c.mode, &size),
              StatusOk);
    EXPECT_EQ(size, c.size) << "direction " << c.direction << ", mode " << c.mode;
  }
}

// A boundary within 1e-13 of a column reaches it; corners on the clip keep
// their sides; quads wholly left of, below or between rows give nothing.
TEST_P(WarpGeometry, RowSpansReachAndExactCorners) {
  const decltype(&m7::ownQuadRowRange) rowRange[] = CORVANE_EACH_PATH(ownQuadRowRange);
  const struct {
    double leftX, rightX;
    int32_t wantLeft, wantRight;
  } cases[] = {{4 + 1e-14, 20 - 1e-14, 4, 20},
               {4 + 1e-12, 20 - 1e-12, 5, 19},
               {0, 30, 0, 30},
               {-7.5, 40.25, 0, 30}};
  for (const auto& c : cases) {
    const double quad[8] = {c.leftX, 0, c.rightX, 0, c.rightX, 10, c.leftX, 10};
    int32_t yMin = 0, yMax = 0, table[22];
    ASSERT_EQ(rowRange[Variant()](quad, {0, 0, 30, 10}, 1, table, &yMin, &yMax), 1);
    EXPECT_TRUE(yMin == 0 && yMax == 10);
    for (int r = 0; r < 11; ++r) {
      EXPECT_TRUE(table[2 * r] == c.wantLeft && table[2 * r + 1] == c.wantRight)
          << "edges " << c.leftX << ", " << c.rightX << ": row " << r << " spans " << table[2 * r]
          << ".." << table[2 * r + 1];
    }
  }
  const double left[8] = {-20, 0, -10, 0, -10, 5, -20, 5}, below[8] = {0, 40, 5, 40, 5, 45, 0, 45};
  const double thin[8] = {0, 2.25, 5, 2.25, 5, 2.75, 0, 2.75};
  int32_t yMin = 0, yMax = 0;
  for (const double* q : {left, below, thin}) {
    EXPECT_EQ(rowRange[Variant()](q, {0, 0, 30, 10}, 1, nullptr, &yMin, &yMax), 0);
  }
}

CORVANE_INSTANTIATE_CODE_PATHS(WarpGeometry);

}  // namespace
}  // namespace corvane::test
