// The geometry of the warp family on every code path: coefficients that take
// the rectangle's corners onto the quad, quad shapes against exact integer
// arithmetic, the sizing answer in closed form, the order of the refusals,
// and the row spans of clipped quads against each row's edge crossings.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "harness/test_rng.h"
#include "harness/variant_test.h"
#include "primitives/warp/warp.h"
#include "primitives/warp/warp_geometry.h"
#include "warp_reference.h"

namespace corvane {
namespace {

using primitives::ownGetBilinearCoeffs;
using primitives::ownWarpBilinearBufferSize;
using test::RandomInt;

using ClassifyFn = int32_t (*)(const double*);
using RowRangeFn = int32_t (*)(const double*, RectCorners, int32_t, int32_t*, int32_t*, int32_t*);
#define CORVANE_GEOMETRY_OF(v) {&::corvane::v::ownClassifyQuad, &::corvane::v::ownQuadRowRange},
constexpr struct {
  ClassifyFn classify;
  RowRangeFn rowRange;
} kGeometry[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_GEOMETRY_OF)};

class WarpGeometryTest : public test::VariantTest {
 protected:
  // Four corners around an ellipse, in either turning sense; sometimes bent
  // into a bow-tie or pushed inward past a diagonal.
  void RandomQuad(int64_t* q) {
    const double cx = RandomInt(Rng(), -400, 400), cy = RandomInt(Rng(), -400, 400);
    const double rx = RandomInt(Rng(), 4, 300), ry = RandomInt(Rng(), 4, 300);
    const int sense = RandomInt(Rng(), 0, 1) ? 1 : -1;
    const double start = RandomInt(Rng(), 0, 359) * M_PI / 180;
    for (int i = 0; i < 4; ++i) {
      const double t = start + sense * (i * M_PI / 2 + RandomInt(Rng(), -30, 30) * M_PI / 180);
      q[2 * i] = std::llround(cx + rx * std::cos(t));
      q[2 * i + 1] = std::llround(cy + ry * std::sin(t));
    }
    switch (RandomInt(Rng(), 0, 5)) {
      case 0:  // bow-tie
        std::swap(q[4], q[6]);
        std::swap(q[5], q[7]);
        break;
      case 1: {  // corner 2 pulled across the diagonal 1-3
        const double mx = (q[2] + q[6]) / 2.0, my = (q[3] + q[7]) / 2.0;
        q[4] = std::llround(mx + (mx - double(q[4])) / 2);
        q[5] = std::llround(my + (my - double(q[5])) / 2);
        break;
      }
      default:
        break;
    }
  }

  // Rows and the table of a quad; false when nothing remains. The sizing
  // call (no table) and the drawing call must agree on the rows.
  bool Rows(const double* quad, RectCorners clip, int32_t* yMin, int32_t* yMax,
            std::vector<int32_t>* table) {
    double area = 0;
    for (int i = 0; i < 8; i += 2) {
      area += quad[i] * quad[(i + 3) % 8] - quad[(i + 2) % 8] * quad[i + 1];
    }
    const int32_t orientation = area > 0 ? 1 : 0;
    const RowRangeFn rowRange = kGeometry[Variant()].rowRange;
    if (!rowRange(quad, clip, orientation, nullptr, yMin, yMax)) return false;
    table->assign(2 * size_t(*yMax - *yMin + 1), 0x7777);
    int32_t again[2];
    EXPECT_EQ(rowRange(quad, clip, orientation, table->data(), &again[0], &again[1]), 1);
    EXPECT_EQ(again[0], *yMin);
    EXPECT_EQ(again[1], *yMax);
    return true;
  }
};

// A convex quad gets the coefficients whose bilinear form takes each corner
// of the rectangle onto its corner of the quad; any other shape is refused.
TEST_P(WarpGeometryTest, CoefficientsMapTheCornersAndShapesAreExact) {
  int convex = 0, concave = 0;
  for (int round = 0; round < 400; ++round) {
    int64_t iq[8];
    RandomQuad(iq);
    double quad[8];
    for (int i = 0; i < 8; ++i) quad[i] = double(iq[i]);
    const ImageRect rect{RandomInt(Rng(), 0, 500), RandomInt(Rng(), 0, 500),
                         RandomInt(Rng(), 2, 400), RandomInt(Rng(), 2, 400)};
    const int32_t shape = test::ClassifyIntegerQuad(iq);
    ASSERT_EQ(kGeometry[Variant()].classify(quad), shape) << "round " << round;
    double c[8] = {};
    const PrimitiveStatus status = ownGetBilinearCoeffs(rect, quad, c);
    if (shape < 0) {
      ASSERT_EQ(status, StatusQuad);
      concave += shape == QuadConcave;
      continue;
    }
    ++convex;
    ASSERT_EQ(status, StatusOk);
    const double x0 = rect.x, y0 = rect.y, x1 = x0 + rect.width - 1, y1 = y0 + rect.height - 1;
    const double xs[4] = {x0, x1, x1, x0}, ys[4] = {y0, y0, y1, y1};
    for (int i = 0; i < 8; ++i) {
      const double* k = c + 4 * (i % 2);
      const double x = xs[i / 2], y = ys[i / 2];
      const double terms[4] = {k[0] * x * y, k[1] * x, k[2] * y, k[3]};
      const double magnitude = std::fabs(terms[0]) + std::fabs(terms[1]) + std::fabs(terms[2]) +
                               std::fabs(terms[3]) + std::fabs(quad[i]);
      EXPECT_NEAR(terms[0] + terms[1] + terms[2] + terms[3], quad[i], 1e-12 * magnitude)
          << (i % 2 ? "y" : "x") << " of corner " << i / 2 << ", round " << round;
    }
  }
  EXPECT_GT(convex, 100);
  EXPECT_GT(concave, 10);
}

// Opposite edges that are equal vectors give an exactly affine set; a
// rectangle onto a square, exact numbers.
TEST_P(WarpGeometryTest, ParallelogramsAreAffine) {
  for (int round = 0; round < 200; ++round) {
    const double ox = RandomInt(Rng(), -300, 300), oy = RandomInt(Rng(), -300, 300);
    const double ux = RandomInt(Rng(), 1, 200), uy = RandomInt(Rng(), -50, 50);
    const double vx = RandomInt(Rng(), -50, 50), vy = RandomInt(Rng(), 1, 200);
    if (ux * vy == uy * vx) continue;  // flat
    const double quad[8] = {ox, oy, ox + ux, oy + uy, ox + ux + vx, oy + uy + vy, ox + vx, oy + vy};
    const ImageRect rect{RandomInt(Rng(), 0, 99), RandomInt(Rng(), 0, 99), RandomInt(Rng(), 2, 99),
                         RandomInt(Rng(), 2, 99)};
    double c[8];
    ASSERT_EQ(ownGetBilinearCoeffs(rect, quad, c), StatusOk);
    EXPECT_EQ(c[0], 0.0);
    EXPECT_EQ(c[4], 0.0);
  }
  const double square[8] = {0, 0, 8, 0, 8, 8, 0, 8};
  double c[8];
  ASSERT_EQ(ownGetBilinearCoeffs({2, 3, 5, 3}, square, c), StatusOk);
  const double want[8] = {0, 2, 0, -4, 0, 0, 4, -12};
  for (int k = 0; k < 8; ++k) EXPECT_EQ(c[k], want[k]) << "c" << k;
}

TEST_P(WarpGeometryTest, CoefficientRefusalsInOrder) {
  const double good[8] = {0, 0, 8, 0, 8, 8, 0, 8};
  const double bowTie[8] = {0, 0, 8, 0, 0, 8, 8, 8};
  const double repeated[8] = {0, 0, 8, 0, 8, 0, 0, 8};
  const double flat[8] = {0, 0, 0, 0, 0, 8, 0, 8};  // a wish below 8 wide
  double c[8];
  struct Case {
    ImageRect rect;
    const double* quad;
    double* out;
    PrimitiveStatus want;
  } const cases[] = {
      {{0, 0, 4, 4}, nullptr, c, StatusNullPointer},
      {{0, 0, 4, 4}, good, nullptr, StatusNullPointer},
      {{-1, 0, 4, 4}, bowTie, c, StatusSize},
      {{0, 0, 0, 4}, good, c, StatusSize},
      {{0, 0, 1, 4}, bowTie, c, StatusQuad},
      {{0, 0, 4, 4}, repeated, c, StatusQuad},
      {{0, 0, 4, 4}, flat, c, StatusQuad},
      {{0, 0, 1, 4}, good, c, StatusRectangle},
      {{0, 0, 4, 1}, good, c, StatusRectangle},
  };
  for (const Case& k : cases) {
    EXPECT_EQ(ownGetBilinearCoeffs(k.rect, k.quad, k.out), k.want)
        << "rect " << k.rect.x << "," << k.rect.y << " " << k.rect.width << "x" << k.rect.height;
  }
}

// The picture of a crop scaled onto dW x dH covers rows 0..dH-1, so the
// sizing answer is known in closed form.
TEST_P(WarpGeometryTest, SizingAnswersAndRefusals) {
  const double scale[8] = {0, 2, 0, 0, 0, 0, 2, 0};  // x' = 2x, y' = 2y
  const double bent[8] = {0.01, 2, 0, 0, 0, 0, 2, 0};
  const double singular[8] = {0, 2, 4, 0, 0, 1, 2, 0};
  const ImageSize img{40, 30};
  const ImageRect all{0, 0, 40, 30}, dst{0, 0, 100, 100};
  const int32_t rows = 2 * 29;  // picture rows 0..58
  const int32_t closed = (((rows * 8 + 55) & ~31) + 100 * 8 + 128);
  int32_t size = -1;
  struct Case {
    ImageSize srcSize;
    ImageRect srcRect, dstRect;
    int32_t direction;
    const double* c;
    uint32_t mode;
    int32_t* out;
    PrimitiveStatus want;
    int32_t wantSize;
  } const cases[] = {
      {img, all, dst, 0, scale, 1, nullptr, StatusNullPointer, -1},
      {img, all, dst, 0, nullptr, 1, &size, StatusNullPointer, -1},
      {{0, 30}, all, dst, 0, scale, 1, &size, StatusSize, -1},
      {img, {-1, 0, 4, 4}, dst, 9, scale, 1, &size, StatusSize, -1},
      {img, all, {0, 0, 0, 10}, 9, scale, 1, &size, StatusSize, -1},
      {img, all, dst, 2, scale, 1, &size, StatusDirection, -1},
      {img, all, dst, 0, scale, 3, &size, StatusInterpolation, -1},
      {img, all, dst, 0, bent, WarpCatmullRom, &size, StatusInterpolation, -1},
      {img, all, dst, 1, scale, WarpCatmullRom, &size, StatusInterpolation, -1},
      {img, {40, 0, 4, 4}, dst, 0, singular, 1, &size, StatusTransform, -1},
      {img, {40, 0, 4, 4}, dst, 0, scale, 1, &size, StatusRectangleOutside, -1},
      {img, {39, 0, 4, 4}, dst, 0, scale, 1, &size, StatusRectangle, -1},
      {img, all, {200, 200, 10, 10}, 0, scale, 1, &size, StatusNoOverlap, -1},
      {img, all, dst, 0, scale, 1, &size, StatusOk, closed},
      {img, all, dst, 0, scale, WarpSmoothEdge | WarpNearest, &size, StatusOk, closed},
      {img, {0, 0, 400, 300}, dst, 0, scale, 1, &size, StatusOk, closed},  // narrowed first
      {img, all, dst, 1, bent, 2, &size, StatusOk, 100 * 8 + 128},
      {img, all, dst, 1, scale, 1, &size, StatusOk, 14 * 8 + 88},  // x/2 covers rows 0..14
      {img, all, dst, 1, scale, 4, &size, StatusOk, 14 * 8 + 88 + 100 * 8 + 64},
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    const Case& k = cases[i];
    size = -1;
    EXPECT_EQ(
        ownWarpBilinearBufferSize(k.srcSize, k.srcRect, k.dstRect, k.direction, k.c, k.mode, k.out),
        k.want)
        << "case " << i;
    EXPECT_EQ(size, k.wantSize) << "case " << i;
  }
}

TEST_P(WarpGeometryTest, RowSpansMatchTheEdgeCrossings) {
  int checkedRows = 0;
  for (int round = 0; round < 300; ++round) {
    const double cx = RandomInt(Rng(), 0, 150) + 0.37, cy = RandomInt(Rng(), 0, 150) + 0.61;
    const double rx = RandomInt(Rng(), 2, 120) * 1.013, ry = RandomInt(Rng(), 2, 120) * 0.987;
    const int sense = RandomInt(Rng(), 0, 1) ? 1 : -1;
    double quad[8];
    for (int i = 0; i < 4; ++i) {
      const double t = sense * (i * M_PI / 2 + RandomInt(Rng(), -400, 400) * 1e-3) + round;
      quad[2 * i] = cx + rx * std::cos(t);
      quad[2 * i + 1] = cy + ry * std::sin(t);
    }
    const RectCorners clip{RandomInt(Rng(), 0, 60), RandomInt(Rng(), 0, 60),
                           RandomInt(Rng(), 60, 160), RandomInt(Rng(), 60, 160)};
    int32_t yMin = 0, yMax = 0;
    std::vector<int32_t> table;
    const bool any = Rows(quad, clip, &yMin, &yMax, &table);
    for (int64_t y = clip.y0; y <= clip.y1; ++y) {
      int32_t left = 0, right = -1;
      bool near = false;
      const bool hit = test::SpanOfRow(quad, double(y), double(clip.x0), double(clip.x1), true,
                                       &left, &right, &near);
      if (near) continue;  // a boundary on a column: rounding decides
      const bool inTable = any && y >= yMin && y <= yMax;
      const int32_t gotLeft = inTable ? table[2 * (y - yMin)] : 0;
      const int32_t gotRight = inTable ? table[2 * (y - yMin) + 1] : -1;
      if (!hit || right < left) {
        EXPECT_LT(gotRight, gotLeft) << "row " << y << " should be empty, round " << round;
        continue;
      }
      ++checkedRows;
      ASSERT_TRUE(inTable) << "row " << y << " missing, round " << round;
      EXPECT_EQ(gotLeft, left) << "row " << y << ", round " << round;
      EXPECT_EQ(gotRight, right) << "row " << y << ", round " << round;
    }
  }
  EXPECT_GT(checkedRows, 1000);
}

// A boundary within 1e-13 of a column reaches it; corners on the clip keep
// their sides; quads wholly left of, below or between rows give nothing.
TEST_P(WarpGeometryTest, RowBoundaryReachAndExactCorners) {
  struct Case {
    double leftX, rightX;
    int32_t wantLeft, wantRight;
  } const cases[] = {
      {4 + 1e-14, 20 - 1e-14, 4, 20},
      {4 + 1e-12, 20 - 1e-12, 5, 19},
      {0, 30, 0, 30},
      {-7.5, 40.25, 0, 30},
  };
  for (const Case& c : cases) {
    const double quad[8] = {c.leftX, 0, c.rightX, 0, c.rightX, 10, c.leftX, 10};
    int32_t yMin = 0, yMax = 0;
    std::vector<int32_t> table;
    ASSERT_TRUE(Rows(quad, {0, 0, 30, 10}, &yMin, &yMax, &table));
    EXPECT_EQ(yMin, 0);
    EXPECT_EQ(yMax, 10);
    for (size_t r = 0; r < table.size(); r += 2) {
      EXPECT_EQ(table[r], c.wantLeft) << "left x " << c.leftX << ", row " << r / 2;
      EXPECT_EQ(table[r + 1], c.wantRight) << "right x " << c.rightX << ", row " << r / 2;
    }
  }
  const double left[8] = {-20, 0, -10, 0, -10, 5, -20, 5};
  const double below[8] = {0, 40, 5, 40, 5, 45, 0, 45};
  const double thin[8] = {0, 2.25, 5, 2.25, 5, 2.75, 0, 2.75};
  int32_t yMin = 0, yMax = 0;
  for (const double* q : {left, below, thin}) {
    EXPECT_EQ(kGeometry[Variant()].rowRange(q, {0, 0, 30, 10}, 1, nullptr, &yMin, &yMax), 0);
  }
}

CORVANE_INSTANTIATE_VARIANT_TESTS(WarpGeometryTest);

}  // namespace
}  // namespace corvane
