// ownGetBilinearCoeffs and ownWarpBilinearBufferSize on every code path:
// coefficients against a linear solve, classification against exact integer
// geometry, and the order of the refusals.
#include <gtest/gtest.h>

#include <cmath>

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
#define CORVANE_CLASSIFY_OF(v) &::corvane::v::ownClassifyQuad,
constexpr ClassifyFn kClassify[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_CLASSIFY_OF)};

class WarpCoeffsTest : public test::VariantTest {
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
};

TEST_P(WarpCoeffsTest, MatchTheSolveAndTheExactShape) {
  int shapes[3] = {0, 0, 0};
  for (int round = 0; round < 400; ++round) {
    int64_t iq[8];
    RandomQuad(iq);
    double quad[8];
    for (int i = 0; i < 8; ++i) quad[i] = double(iq[i]);
    const ImageRect rect{RandomInt(Rng(), 0, 500), RandomInt(Rng(), 0, 500),
                         RandomInt(Rng(), 2, 400), RandomInt(Rng(), 2, 400)};
    const int32_t shape = test::ClassifyIntegerQuad(iq);
    ASSERT_EQ(kClassify[Variant()](quad), shape) << "round " << round;
    double got[8] = {};
    const PrimitiveStatus status = ownGetBilinearCoeffs(rect, quad, got);
    if (shape < 0) {
      ASSERT_EQ(status, StatusQuad);
      ++shapes[shape == -4 ? 1 : 2];
      continue;
    }
    ++shapes[0];
    ASSERT_EQ(status, StatusOk);
    double want[8];
    test::SolveBilinear(rect, quad, want);
    // Each coefficient is judged by what it adds to a mapped point at the
    // rectangle's far corner, against the size of all the terms there.
    const double x1 = rect.x + rect.width - 1, y1 = rect.y + rect.height - 1;
    const double weight[4] = {x1 * y1, x1, y1, 1.0};
    for (int k = 0; k < 8; ++k) {
      const double* row = want + (k / 4) * 4;
      double terms = 1.0;
      for (int j = 0; j < 4; ++j) terms += std::fabs(row[j]) * weight[j];
      EXPECT_NEAR(got[k], want[k], 1e-10 * terms / weight[k % 4])
          << "c" << k << ", round " << round;
    }
  }
  EXPECT_GT(shapes[0], 100);
  EXPECT_GT(shapes[1], 10);
}

// Opposite edges that are equal vectors give an exactly affine set.
TEST_P(WarpCoeffsTest, ParallelogramsAreAffine) {
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
}

TEST_P(WarpCoeffsTest, WorkedRectangle) {
  const double quad[8] = {0, 0, 8, 0, 8, 8, 0, 8};
  double c[8];
  ASSERT_EQ(ownGetBilinearCoeffs({2, 3, 5, 3}, quad, c), StatusOk);
  const double want[8] = {0, 2, 0, -4, 0, 0, 4, -12};
  for (int k = 0; k < 8; ++k) EXPECT_EQ(c[k], want[k]) << "c" << k;
}

TEST_P(WarpCoeffsTest, RefusalsInOrder) {
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
TEST_P(WarpCoeffsTest, SizingAnswersAndRefusals) {
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

CORVANE_INSTANTIATE_VARIANT_TESTS(WarpCoeffsTest);

}  // namespace
}  // namespace corvane
