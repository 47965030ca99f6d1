// ownCopyBlock and ownCopyShort of the wide code paths against memcpy:
// lengths across every threshold, both ends of a page for over-reads, the
// direction and streaming decisions at their exact edges.
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

using BlockFn = void* (*)(const void*, void*, int32_t);
using ShortFn = void (*)(const void*, void*, int32_t);
// Only l9 and k0 have block copies; the other slots stay empty.
constexpr BlockFn kBlock[6] = {nullptr, nullptr, nullptr, nullptr, &l9::ownCopyBlock,
                               &k0::ownCopyBlock};
constexpr ShortFn kShort[6] = {nullptr, nullptr, nullptr, nullptr, &l9::ownCopyShort,
                               &k0::ownCopyShort};

std::vector<int32_t> roads;
void RecordRoad(int32_t road) { roads.push_back(road); }

class CopyBlockTest : public test::VariantTest {
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

  // Copies n bytes and checks the bytes and the untouched surroundings;
  // returns the road. The source sits at the given offset in its page, as
  // near its buffer's protected end as that allows, or (offset -1) ends
  // exactly there, so that an over-read faults.
  int32_t CopyAt(int32_t n, int32_t srcPageOffset, int32_t dstPageOffset, bool viaShort = false) {
    const std::size_t page = 4096;
    const std::size_t srcSpan = (n + 2 * page - 1) / page * page;
    test::PageBuffer src(srcSpan);
    std::size_t start = srcSpan - n;
    if (srcPageOffset >= 0) start -= (start - srcPageOffset) % page;
    uint8_t* s = src.data() + start;
    const std::size_t dstSpan = page + (dstPageOffset + n + 64 + page - 1) / page * page;
    test::PageBuffer dst(dstSpan);
    uint8_t* d = dst.data() + page + dstPageOffset;
    test::FillPattern(src.data(), srcSpan, test::Pattern::Random, Rng());
    std::memset(dst.data(), 0x5C, dstSpan);
    roads.clear();
    if (viaShort) {
      kShort[Variant()](s, d, n);
    } else {
      EXPECT_EQ(kBlock[Variant()](s, d, n), d);
    }
    const std::string what = "length " + std::to_string(n) + ", source page offset " +
                             std::to_string(reinterpret_cast<uintptr_t>(s) & 4095) +
                             ", destination page offset " +
                             std::to_string(reinterpret_cast<uintptr_t>(d) & 4095);
    EXPECT_EQ(std::memcmp(s, d, n), 0) << what;
    for (uint8_t* p = dst.data(); p < dst.data() + dstSpan; ++p) {
      if (p >= d && p < d + n) continue;
      if (*p != 0x5C) {
        ADD_FAILURE() << what << ": write outside at " << (p - d);
        break;
      }
    }
    return roads.empty() ? 0 : roads.front();
  }
};

TEST_P(CopyBlockTest, LengthsAcrossEveryThreshold) {
  std::vector<int32_t> lengths = test::VectorEdgeWidths(300);
  for (int32_t n : {0, 255, 256, 257, 319, 320, 16383, 16384, 16385, 16447, 32767, 32768, 32769,
                    40000, 70001}) {
    lengths.push_back(n);
  }
  for (int32_t n : lengths) {
    const int32_t doff = test::RandomInt(Rng(), 0, 4095);
    CopyAt(n, -1, doff);
    CopyAt(n, test::RandomInt(Rng(), 0, 4095), doff);
    if (n < 32768) CopyAt(n, -1, doff, /*viaShort=*/true);
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

// The block copies exist in l9 and k0 only.
INSTANTIATE_TEST_SUITE_P(WideVariants, CopyBlockTest,
                         ::testing::Values<int32_t>(CpuVariantL9, CpuVariantK0),
                         test::VariantParamName);

}  // namespace
}  // namespace corvane::primitives
