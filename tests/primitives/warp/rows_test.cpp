// ownQuadRowRange on every code path: the rows and spans of clipped quads
// against the crossings of each row with the quad's edges, and the reach of a
// boundary a hair past a column.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "harness/test_rng.h"
#include "harness/variant_test.h"
#include "primitives/warp/warp_geometry.h"
#include "warp_reference.h"

namespace corvane {
namespace {

using test::RandomInt;

using RowRangeFn = int32_t (*)(const double*, RectCorners, int32_t, int32_t*, int32_t*, int32_t*);
#define CORVANE_ROW_RANGE_OF(v) &::corvane::v::ownQuadRowRange,
constexpr RowRangeFn kRowRange[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_ROW_RANGE_OF)};

class WarpRowsTest : public test::VariantTest {
 protected:
  // Rows and the table of a quad; false when nothing remains.
  bool Rows(const double* quad, RectCorners clip, int32_t* yMin, int32_t* yMax,
            std::vector<int32_t>* table) {
    const int32_t orientation = ClockwiseOnScreen(quad);
    if (!kRowRange[Variant()](quad, clip, orientation, nullptr, yMin, yMax)) return false;
    table->assign(2 * size_t(*yMax - *yMin + 1), 0x7777);
    int32_t again[2];
    EXPECT_EQ(kRowRange[Variant()](quad, clip, orientation, table->data(), &again[0], &again[1]),
              1);
    EXPECT_EQ(again[0], *yMin);
    EXPECT_EQ(again[1], *yMax);
    return true;
  }
  static int32_t ClockwiseOnScreen(const double* q) {
    double area = 0;
    for (int i = 0; i < 4; ++i)
      area += q[2 * i] * q[(2 * i + 3) % 8] - q[(2 * i + 2) % 8] * q[2 * i + 1];
    return area > 0 ? 1 : 0;
  }
};

TEST_P(WarpRowsTest, SpansMatchTheEdgeCrossings) {
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

TEST_P(WarpRowsTest, BoundaryReachAndExactCorners) {
  struct Case {
    double leftX, rightX;
    int32_t wantLeft, wantRight;
  } const cases[] = {
      {4 + 1e-14, 20 - 1e-14, 4, 20},
      {4 + 1e-12, 20 - 1e-12, 5, 19},
      {0, 30, 0, 30},  // corners on the clip: nothing clipped, sides kept
      {-7.5, 40.25, 0, 30},
  };
  for (const Case& c : cases) {
    const double quad[8] = {c.leftX, 0, c.rightX, 0, c.rightX, 10, c.leftX, 10};
    int32_t yMin = 0, yMax = 0;
    std::vector<int32_t> table;
    ASSERT_TRUE(Rows(quad, {0, 0, 30, 10}, &yMin, &yMax, &table));
    EXPECT_EQ(yMin, 0);
    EXPECT_EQ(yMax, 10);
    for (size_t r = 0; r < table.size() / 2; ++r) {
      EXPECT_EQ(table[2 * r], c.wantLeft) << "left x " << c.leftX << ", row " << r;
      EXPECT_EQ(table[2 * r + 1], c.wantRight) << "right x " << c.rightX << ", row " << r;
    }
  }
  // Wholly left of the clip, wholly below it, or between two rows.
  const double left[8] = {-20, 0, -10, 0, -10, 5, -20, 5};
  const double below[8] = {0, 40, 5, 40, 5, 45, 0, 45};
  const double thin[8] = {0, 2.25, 5, 2.25, 5, 2.75, 0, 2.75};
  int32_t yMin = 0, yMax = 0;
  for (const double* q : {left, below, thin}) {
    EXPECT_EQ(kRowRange[Variant()](q, {0, 0, 30, 10}, 1, nullptr, &yMin, &yMax), 0);
  }
}

CORVANE_INSTANTIATE_VARIANT_TESTS(WarpRowsTest);

}  // namespace
}  // namespace corvane
