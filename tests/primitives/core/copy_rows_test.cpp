// ownCopyRows of every code path against a plain row-by-row copy: random
// layouts, and each road of each path reached on purpose by setting the
// cache size the thresholds see.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "harness/guarded_image.h"
#include "harness/variant_test.h"
#include "primitives/core/cache_query.h"
#include "primitives/core/copy.h"

namespace corvane::primitives {
namespace {

using test::GuardedImage;
using test::ImageLayout;

using CopyRowsFn = void (*)(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t);
#define CORVANE_COPY_ROWS_OF(v) &::corvane::v::ownCopyRows,
constexpr CopyRowsFn kCopyRows[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_COPY_ROWS_OF)};

std::vector<int32_t> roadsTaken;
void RecordRoad(int32_t road) { roadsTaken.push_back(road); }

class CopyRowsTest : public test::VariantTest {
 protected:
  void SetUp() override {
    VariantTest::SetUp();
    if (IsSkipped()) return;
    ResetCacheQueryForTesting();
    roadsTaken.clear();
    copyRoadProbe = &RecordRoad;
  }
  void TearDown() override {
    copyRoadProbe = nullptr;
    ResetCacheQueryForTesting();
    VariantTest::TearDown();
  }

  // Copies src into a fresh destination of layout `to` and checks the rows,
  // the destination's ring and the untouched source.
  void CopyAndCheck(const ImageLayout& from, const ImageLayout& to, const std::string& what) {
    GuardedImage src(from);
    src.Fill(test::Pattern::Random, Rng());
    GuardedImage before(from);
    for (int32_t y = 0; y < from.rows; ++y) std::memcpy(before.row(y), src.row(y), from.rowBytes);
    GuardedImage dst(to);
    dst.FillValue(0x11);
    kCopyRows[Variant()](src.data(), src.step(), dst.data(), dst.step(), from.rowBytes, from.rows);
    EXPECT_TRUE(test::SameRows(before.data(), before.step(), dst.data(), dst.step(), from.rowBytes,
                               from.rows))
        << what;
    EXPECT_TRUE(dst.CheckGuards()) << what;
    EXPECT_TRUE(src.CheckGuards()) << what << " (source)";
    EXPECT_TRUE(test::SameRows(before.data(), before.step(), src.data(), src.step(), from.rowBytes,
                               from.rows))
        << what << " (source changed)";
  }
};

std::string Describe(const ImageLayout& from, const ImageLayout& to) {
  return "rowBytes " + std::to_string(from.rowBytes) + " rows " + std::to_string(from.rows) +
         " srcPad " + std::to_string(from.stepPad) + (from.bottomUp ? " up" : "") + " srcOff " +
         std::to_string(from.misalign) + " dstPad " + std::to_string(to.stepPad) +
         (to.bottomUp ? " up" : "") + " dstOff " + std::to_string(to.misalign);
}

TEST_P(CopyRowsTest, MatchesRowCopyOnRandomLayouts) {
  for (int i = 0; i < 150; ++i) {
    ImageLayout from = test::RandomLayout(Rng(), i < 100 ? 700 : 5000, 9);
    ImageLayout to = test::RandomLayout(Rng(), 1, 1);
    to.rowBytes = from.rowBytes;
    to.rows = from.rows;
    if (i % 5 == 0) from.stepPad = to.stepPad = 0;  // one run
    CopyAndCheck(from, to, Describe(from, to));
  }
}

TEST_P(CopyRowsTest, VectorEdgeWidths) {
  for (int32_t w : test::VectorEdgeWidths(1100)) {
    for (int32_t off : {0, 1, 31}) {
      const ImageLayout from{w, 3, 5, false, off};
      const ImageLayout to{w, 3, 7, false, (off * 7) & 63};
      CopyAndCheck(from, to, Describe(from, to));
    }
  }
}

struct RoadCase {
  const char* what;
  uint32_t variants;  // bit per code path
  int32_t rowBytes, rows, srcPad, dstPad, srcOff, dstOff;
  int32_t cacheSize;  // < 0: the query fails
  int32_t road;       // first road reported
};

constexpr uint32_t kM7 = 1, kN8Y8 = 2 | 4, kE9 = 8, kWide = 16 | 32;
constexpr int32_t kMiB = 1 << 20;

const RoadCase kRoadCases[] = {
    {"m7 at 1 MiB stays cached", kM7, 1024, 1024, 64, 0, 0, 0, -1, CopyRoadRowsForward},
    {"m7 above 1 MiB streams, cache unknown", kM7, 1025, 1024, 3, 5, 1, 9, -1, CopyRoadRowsStream},
    {"m7 one run above 1 MiB", kM7, 4100, 300, 0, 0, 7, 3, -1, CopyRoadRowsStream},
    {"n8/y8 below half the cache", kN8Y8, 1000, 200, 8, 8, 0, 0, 1 * kMiB, CopyRoadRowsForward},
    {"n8/y8 above half the cache", kN8Y8, 1000, 600, 8, 8, 5, 3, 1 * kMiB, CopyRoadRowsStream},
    {"n8/y8 runs below 64 bytes", kN8Y8, 63, 9000, 1, 1, 0, 0, 1 * kMiB, CopyRoadRowsForward},
    {"n8/y8 at 0x20000", kN8Y8, 1024, 128, 8, 8, 0, 0, 1 * kMiB / 8, CopyRoadRowsForward},
    {"n8/y8 without lookup", kN8Y8, 1000, 600, 8, 8, 0, 0, -1, CopyRoadRowsForward},
    {"e9 rows below 1024", kE9, 1023, 3000, 8, 8, 0, 0, 1 * kMiB, CopyRoadRowsForward},
    {"e9 above 2 MiB and half the cache", kE9, 1024, 2049, 8, 8, 3, 17, 1 * kMiB, CopyRoadRowsStream},
    {"e9 at 2 MiB", kE9, 1024, 2048, 8, 8, 0, 0, 1 * kMiB, CopyRoadRowsForward},
    {"e9 cache larger than twice the region", kE9, 1024, 2100, 8, 8, 0, 0, 8 * kMiB,
     CopyRoadRowsForward},
    {"wide one run, short", kWide, 100, 300, 0, 0, 1, 2, -1, CopyRoadShort},
    {"wide one run, forward", kWide, 1000, 100, 0, 0, 0, 200, -1, CopyRoadBlockForward},
    {"wide one run, backward", kWide, 1000, 100, 0, 0, 0, 100, -1, CopyRoadBlockBackward},
    {"wide one run, streaming", kWide, 4096, 1100, 0, 0, 3, 9, 4 * kMiB, CopyRoadBlockStream},
    {"wide narrow rows", kWide, 511, 9000, 1, 3, 5, 7, 1 * kMiB, CopyRoadRowsNarrow},
    {"wide aligned rows forward", kWide, 1024, 100, 32, 64, 0, 192, -1, CopyRoadRowsForward},
    {"wide aligned rows, odd 32s", kWide, 608, 100, 32, 32, 4, 0, -1, CopyRoadRowsForward},
    {"wide aligned rows backward", kWide, 608, 100, 32, 32, 0, 96, -1, CopyRoadRowsBackward},
    {"wide unaligned rows", kWide, 1000, 100, 3, 5, 1, 2, -1, CopyRoadRowsUnaligned},
    {"wide streams aligned", kWide, 1056, 3000, 32, 96, 0, 64, 1 * kMiB, CopyRoadRowsStream},
    {"wide streams unaligned", kWide, 1001, 3200, 3, 5, 1, 7, 1 * kMiB,
     CopyRoadRowsStreamUnaligned},
    {"wide at 0x300000 stays cached", kWide, 1024, 3072, 32, 64, 0, 0, 1 * kMiB,
     CopyRoadRowsForward},
    {"wide below half the cache", kWide, 1024, 3100, 32, 64, 0, 0, 8 * kMiB, CopyRoadRowsForward},
};

TEST_P(CopyRowsTest, EveryRoadOfThisPath) {
  int ran = 0;
  for (const RoadCase& c : kRoadCases) {
    if ((c.variants & (1u << Variant())) == 0) continue;
    ++ran;
    if (c.cacheSize < 0) {
      SetCacheSizeForTesting(-1, StatusCpuUnsupported);
    } else {
      SetCacheSizeForTesting(c.cacheSize, StatusOk);
    }
    roadsTaken.clear();
    const ImageLayout from{c.rowBytes, c.rows, c.srcPad, false, c.srcOff};
    const ImageLayout to{c.rowBytes, c.rows, c.dstPad, false, c.dstOff};
    CopyAndCheck(from, to, c.what);
    ASSERT_FALSE(roadsTaken.empty()) << c.what;
    EXPECT_EQ(roadsTaken.front(), c.road) << c.what;
  }
  EXPECT_GT(ran, 0);
}

CORVANE_INSTANTIATE_VARIANT_TESTS(CopyRowsTest);

}  // namespace
}  // namespace corvane::primitives
