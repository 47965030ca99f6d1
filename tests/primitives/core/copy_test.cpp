// The row copies of every code path against a plain row-by-row copy, and the
// block copies of the wide paths against memcpy: lengths and widths across
// every vector edge, over-reads caught at a protected page, and each road of
// each path reached on purpose at the exact edges of its thresholds.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "harness/guarded_image.h"
#include "harness/page_buffer.h"
#include "harness/test_rng.h"
#include "harness/variant_test.h"
#include "primitives/core/cache_query.h"
#include "primitives/core/copy.h"

namespace corvane::primitives {
namespace {

using test::GuardedImage;
using test::ImageLayout;
using test::RandomInt;

using CopyRowsFn = void (*)(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t);
#define CORVANE_COPY_ROWS_OF(v) &::corvane::v::ownCopyRows,
constexpr CopyRowsFn kCopyRows[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_COPY_ROWS_OF)};
// Only l9 and k0 have block copies.
using BlockFn = void* (*)(const void*, void*, int32_t);
using ShortFn = void (*)(const void*, void*, int32_t);
constexpr BlockFn kBlock[6] = {nullptr, nullptr,           nullptr,
                               nullptr, &l9::ownCopyBlock, &k0::ownCopyBlock};
constexpr ShortFn kShort[6] = {nullptr, nullptr,           nullptr,
                               nullptr, &l9::ownCopyShort, &k0::ownCopyShort};

std::vector<int32_t> roads;
void RecordRoad(int32_t road) { roads.push_back(road); }

// Reports the first road a copy takes; the cache size the thresholds see is
// set by each test.
class CopyTest : public test::VariantTest {
 protected:
  void SetUp() override {
    VariantTest::SetUp();
    if (IsSkipped()) return;
    ResetCacheQueryForTesting();
    copyRoadProbe = &RecordRoad;
  }
  void TearDown() override {
    copyRoadProbe = nullptr;
    ResetCacheQueryForTesting();
    VariantTest::TearDown();
  }
  static int32_t FirstRoad() { return roads.empty() ? 0 : roads.front(); }
};

// ---- ownCopyRows, every path ----

class CopyRowsTest : public CopyTest {
 protected:
  // Copies a random image of layout `from` into a fresh one of layout `to`;
  // returns the first road.
  int32_t CopyAndCheck(const ImageLayout& from, const ImageLayout& to) {
    GuardedImage src(from), want(from), dst(to);
    src.Fill(test::Pattern::Random, Rng());
    for (int32_t y = 0; y < from.rows; ++y) std::memcpy(want.row(y), src.row(y), from.rowBytes);
    dst.FillValue(0x11);
    roads.clear();
    kCopyRows[Variant()](src.data(), src.step(), dst.data(), dst.step(), from.rowBytes, from.rows);
    EXPECT_TRUE(
        test::SameRows(want.data(), want.step(), dst.data(), dst.step(), from.rowBytes, from.rows))
        << from << " -> " << to;
    EXPECT_TRUE(dst.CheckGuards()) << from << " -> " << to;
    return FirstRoad();
  }
};

// Every width across a vector edge, then random widths up to 5000; random
// steps, directions and offsets, one run in five.
TEST_P(CopyRowsTest, MatchesRowCopyOnAnyLayout) {
  std::vector<int32_t> widths = test::VectorEdgeWidths(1100);
  for (int i = 0; i < 150; ++i) widths.push_back(RandomInt(Rng(), 1, i < 100 ? 700 : 5000));
  for (size_t i = 0; i < widths.size(); ++i) {
    ImageLayout from = test::RandomLayout(Rng(), 1, 9), to = test::RandomLayout(Rng(), 1, 1);
    from.rowBytes = to.rowBytes = widths[i];
    to.rows = from.rows;
    if (i % 5 == 0) from.stepPad = to.stepPad = 0;
    CopyAndCheck(from, to);
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
    {"e9 above 2 MiB and half the cache", kE9, 1024, 2049, 8, 8, 3, 17, 1 * kMiB,
     CopyRoadRowsStream},
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
    SetCacheSizeForTesting(c.cacheSize, c.cacheSize < 0 ? StatusCpuUnsupported : StatusOk);
    EXPECT_EQ(CopyAndCheck({c.rowBytes, c.rows, c.srcPad, false, c.srcOff},
                           {c.rowBytes, c.rows, c.dstPad, false, c.dstOff}),
              c.road)
        << c.what;
  }
  EXPECT_GT(ran, 0);
}

CORVANE_INSTANTIATE_VARIANT_TESTS(CopyRowsTest);

// ---- ownCopyBlock and ownCopyShort, l9 and k0 ----

class CopyBlockTest : public CopyTest {
 protected:
  // Copies n bytes and checks them and the untouched destination around;
  // returns the road. The source sits at the given offset in its page, as
  // near its buffer's protected end as that allows, or (offset -1) ends
  // exactly there, so that an over-read faults.
  int32_t CopyAt(int32_t n, int32_t srcPageOffset, int32_t dstPageOffset, bool viaShort = false) {
    const size_t page = 4096, srcSpan = (n + 2 * page - 1) / page * page;
    test::PageBuffer src(srcSpan);
    size_t start = srcSpan - n;
    if (srcPageOffset >= 0) start -= (start - srcPageOffset) % page;
    const uint8_t* s = src.data() + start;
    const size_t dstSpan = page + (dstPageOffset + n + 64 + page - 1) / page * page;
    test::PageBuffer dst(dstSpan);
    uint8_t* d = dst.data() + page + dstPageOffset;
    test::FillPattern(src.data(), srcSpan, test::Pattern::Random, Rng());
    std::vector<uint8_t> want(dstSpan, 0x5C);
    std::memcpy(want.data() + (d - dst.data()), s, n);
    std::memset(dst.data(), 0x5C, dstSpan);
    roads.clear();
    if (viaShort) {
      kShort[Variant()](s, d, n);
    } else {
      EXPECT_EQ(kBlock[Variant()](s, d, n), d);
    }
    EXPECT_TRUE(test::SameRows(want.data(), 0, dst.data(), 0, int32_t(dstSpan), 1))
        << "length " << n << ", page offsets " << (reinterpret_cast<uintptr_t>(s) & 4095) << " -> "
        << dstPageOffset << " (destination bytes from " << (d - dst.data()) << ")";
    return FirstRoad();
  }
};

TEST_P(CopyBlockTest, LengthsAcrossEveryThreshold) {
  std::vector<int32_t> lengths = test::VectorEdgeWidths(300);
  for (int32_t n : {0, 255, 256, 257, 319, 320, 16383, 16384, 16385, 16447, 32767, 32768, 32769,
                    40000, 70001}) {
    lengths.push_back(n);
  }
  for (int32_t n : lengths) {
    const int32_t dstOffset = RandomInt(Rng(), 0, 4095);
    CopyAt(n, -1, dstOffset);
    CopyAt(n, RandomInt(Rng(), 0, 4095), dstOffset);
    if (n < 32768) CopyAt(n, -1, dstOffset, /*viaShort=*/true);
  }
}

TEST_P(CopyBlockTest, ShortBelow32768ThenPageOffsetsChooseTheDirection) {
  EXPECT_EQ(CopyAt(32767, 0, 0), CopyRoadShort);
  struct Case {
    int32_t srcOff, dstOff, road;
  };
  for (const Case& c : {Case{100, 260, CopyRoadBlockForward}, Case{100, 259, CopyRoadBlockBackward},
                        Case{100, 100, CopyRoadBlockBackward}, Case{100, 99, CopyRoadBlockForward},
                        Case{4000, 60, CopyRoadBlockForward}, Case{7, 13, CopyRoadBlockBackward}}) {
    for (int32_t n : {32768, 32768 + 63, 50001}) {
      EXPECT_EQ(CopyAt(n, c.srcOff, c.dstOff), c.road)
          << n << " bytes, offsets " << c.srcOff << " -> " << c.dstOff;
    }
  }
}

TEST_P(CopyBlockTest, StreamingStartsAbove4MiBAndHalfTheCache) {
  SetCacheSizeForTesting(1 << 20, StatusOk);
  EXPECT_NE(CopyAt(0x400000, 0, 300), CopyRoadBlockStream);
  EXPECT_EQ(CopyAt(0x400001, 0, 300), CopyRoadBlockStream);
  EXPECT_EQ(CopyAt(0x400001, 5, 0), CopyRoadBlockStream) << "aligned destination";
  SetCacheSizeForTesting(0x800004, StatusOk);  // half is 0x400002
  EXPECT_NE(CopyAt(0x400001, 0, 300), CopyRoadBlockStream);
  SetCacheSizeForTesting(-1, StatusCpuUnsupported);
  EXPECT_NE(CopyAt(0x400001, 0, 300), CopyRoadBlockStream);
}

INSTANTIATE_TEST_SUITE_P(WideVariants, CopyBlockTest,
                         ::testing::Values<int32_t>(CpuVariantL9, CpuVariantK0),
                         test::VariantParamName);

}  // namespace
}  // namespace corvane::primitives
