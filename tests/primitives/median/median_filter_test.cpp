// The median entry of every code path against the sorting oracle: random
// regions, steps and alignments, every border flag combination in both
// modes, guard bytes around the output, and regions that end at an
// inaccessible page.
#include <gtest/gtest.h>

#include <cstring>

#include "harness/guarded_image.h"
#include "harness/page_buffer.h"
#include "harness/variant_test.h"
#include "median_reference.h"
#include "median_test_support.h"
#include "primitives/median/median.h"

namespace corvane::test {
namespace {

using primitives::ownFilterMedianBorder_8u_C3R;
using primitives::ownFilterMedianBorderGetBufferSize;

constexpr uint8_t kValue[3] = {10, 200, 77};

class MedianFilterTest : public VariantTest {
 protected:
  // Filters a framed source into a guarded destination and compares.
  void Check(ImageSize roi, ImageSize mask, uint32_t border, const ImageLayout& srcPlace,
             ImageLayout dstPlace) {
    const std::string what = Describe(roi, mask, border, srcPlace, dstPlace);
    FramedImage src(roi, 3, srcPlace, Rng());
    dstPlace.rowBytes = roi.width * 3;
    dstPlace.rows = roi.height;
    GuardedImage dst(dstPlace);
    int32_t size = -1;
    ASSERT_EQ(ownFilterMedianBorderGetBufferSize(roi, mask, PixelType8u, 3, &size), StatusOk);
    std::vector<uint8_t> scratch = NoisyScratch(size, Rng());
    ASSERT_EQ(ownFilterMedianBorder_8u_C3R(src.region(), src.step(), dst.data(), dst.step(), roi,
                                           mask, border, kValue, scratch.data()),
              StatusOk)
        << what;
    const BorderedSource oracle{
        src.region(), src.step(), roi, border & 0xF0, (border & 0xF) == BorderReplicate, kValue};
    const std::vector<uint8_t> expected = ReferenceMedian8uC3(oracle, mask);
    EXPECT_TRUE(
        SameRows(expected.data(), roi.width * 3, dst.data(), dst.step(), roi.width * 3, roi.height))
        << what;
    EXPECT_TRUE(dst.CheckGuards()) << what;
    EXPECT_TRUE(src.Untouched()) << what;
  }
};

TEST_P(MedianFilterTest, MatchesSortOnRandomRegions) {
  for (int32_t i = 0; i < 90; ++i) {
    const ImageSize mask = kTableMasks[i % 6];
    const bool wide = i % 3 == 0;
    const ImageSize roi{RandomInt(Rng(), 1, wide ? 320 : 48), RandomInt(Rng(), 1, wide ? 12 : 48)};
    const uint32_t flags = static_cast<uint32_t>(RandomInt(Rng(), 0, 15)) << 4;
    const uint32_t mode = RandomInt(Rng(), 0, 1) ? BorderReplicate : BorderConstant;
    const ImageLayout srcPlace = RandomLayout(Rng(), 1, 1);
    const ImageLayout dstPlace = RandomLayout(Rng(), 1, 1);
    Check(roi, mask, flags | mode, srcPlace, dstPlace);
    if (HasFatalFailure() || HasNonfatalFailure()) return;
  }
}

TEST_P(MedianFilterTest, EveryFlagCombinationInBothModes) {
  // Sizes that take the whole-image road (the mask as large as the region)
  // and the strip road, with a centre both narrow and a few vectors wide.
  const ImageSize sizes[] = {{1, 1}, {3, 5}, {5, 3}, {6, 7}, {23, 9}, {70, 6}};
  for (const ImageSize mask : kTableMasks) {
    for (const ImageSize roi : sizes) {
      for (uint32_t flags = 0; flags <= 0xF0; flags += 0x10) {
        for (uint32_t mode : {BorderReplicate, BorderConstant}) {
          Check(roi, mask, flags | mode, ImageLayout{1, 1, 5, false, 3},
                ImageLayout{1, 1, 0, false, 0});
          if (HasFatalFailure() || HasNonfatalFailure()) return;
        }
      }
      Check(roi, mask, BorderMemoryAll, ImageLayout{1, 1, 0, true, 1},
            ImageLayout{1, 1, 9, true, 7});
    }
  }
}

// With no memory flag, nothing outside the region is read: the region is the
// whole allocation and touches an inaccessible page at its end or start.
TEST_P(MedianFilterTest, ReadsNothingOutsideTheRegion) {
  const int32_t heights[] = {1, 2, 5, 6, 9};
  for (const ImageSize mask : kTableMasks) {
    for (int32_t w : VectorEdgeWidths(70)) {
      for (int32_t h : heights) {
        for (PageBuffer::Edge edge : {PageBuffer::Edge::End, PageBuffer::Edge::Start}) {
          const ImageSize roi{w, h};
          const int32_t step = w * 3;
          PageBuffer src(static_cast<size_t>(step) * h, edge);
          PageBuffer dst(static_cast<size_t>(step) * h, edge);
          FillPattern(src.data(), src.size(), Pattern::Random, Rng());
          int32_t size = 0;
          ASSERT_EQ(ownFilterMedianBorderGetBufferSize(roi, mask, PixelType8u, 3, &size), StatusOk);
          PageBuffer scratch(static_cast<size_t>(size), edge);
          const uint32_t border = (w + h) % 2 ? BorderReplicate : BorderConstant;
          ASSERT_EQ(ownFilterMedianBorder_8u_C3R(src.data(), step, dst.data(), step, roi, mask,
                                                 border, kValue, scratch.data()),
                    StatusOk);
          const BorderedSource oracle{src.data(), step, roi, 0, border == BorderReplicate, kValue};
          EXPECT_TRUE(
              SameRows(ReferenceMedian8uC3(oracle, mask).data(), step, dst.data(), step, step, h))
              << Describe(roi, mask, border, {}, {});
        }
      }
    }
  }
}

// Outcomes that follow from the definition alone.
TEST_P(MedianFilterTest, ClosedFormCases) {
  uint8_t scratch[4096];
  // Constant (10, 20, 30) around a 5x5 zero region, 3x3: a corner sees five
  // border pixels of nine, an edge pixel only three.
  {
    const uint8_t value[3] = {10, 20, 30};
    std::vector<uint8_t> src(75, 0), dst(75, 0xEE);
    ASSERT_EQ(ownFilterMedianBorder_8u_C3R(src.data(), 15, dst.data(), 15, {5, 5}, {3, 3},
                                           BorderConstant, value, scratch),
              StatusOk);
    for (int32_t i : {0, 4, 20, 24}) {
      EXPECT_EQ(dst[i * 3 + 0], 10);
      EXPECT_EQ(dst[i * 3 + 1], 20);
      EXPECT_EQ(dst[i * 3 + 2], 30);
    }
    for (int32_t i : {1, 2, 3, 5, 9, 12, 21}) EXPECT_EQ(dst[i * 3 + 1], 0) << "pixel " << i;
  }
  // 3x1 over (1, 9, 5), (2, 7, 9), (3, 8, 1): per channel, (2, 8, 5).
  {
    const uint8_t src[9] = {1, 9, 5, 2, 7, 9, 3, 8, 1};
    uint8_t dst[9] = {};
    ASSERT_EQ(ownFilterMedianBorder_8u_C3R(src, 9, dst, 9, {3, 1}, {3, 1}, BorderReplicate, nullptr,
                                           scratch),
              StatusOk);
    EXPECT_EQ(dst[3], 2);
    EXPECT_EQ(dst[4], 8);
    EXPECT_EQ(dst[5], 5);
  }
  // Replicate on a constant image keeps it, even under a mask larger than it.
  for (const ImageSize mask : kTableMasks) {
    std::vector<uint8_t> src(2 * 2 * 3, 0x5C), dst(12, 0);
    ASSERT_EQ(ownFilterMedianBorder_8u_C3R(src.data(), 6, dst.data(), 6, {2, 2}, mask,
                                           BorderReplicate, nullptr, scratch),
              StatusOk);
    EXPECT_EQ(dst, src);
  }
  // The 1x1 mask is a plain copy in every mode and leaves the scratch alone.
  for (uint32_t border : {0x01u, 0x06u, 0xF0u, 0x51u}) {
    std::vector<uint8_t> src(7 * 4 * 3), dst(src.size(), 0);
    FillPattern(src.data(), src.size(), Pattern::Random, Rng());
    std::memset(scratch, 0x3C, 64);
    ASSERT_EQ(ownFilterMedianBorder_8u_C3R(src.data(), 21, dst.data(), 21, {7, 4}, {1, 1}, border,
                                           kValue, scratch),
              StatusOk);
    EXPECT_EQ(dst, src);
    for (int32_t i = 0; i < 64; ++i) ASSERT_EQ(scratch[i], 0x3C);
  }
}

// Masks without a kernel yet are refused before anything is touched.
TEST_P(MedianFilterTest, GeneralMasksAreNotServedYet) {
  const ImageSize masks[] = {{3, 5}, {5, 3}, {7, 7}, {1, 7}, {9, 1}, {21, 21}};
  for (const ImageSize mask : masks) {
    const ImageSize roi{40, 30};
    int32_t size = 0;
    ASSERT_EQ(ownFilterMedianBorderGetBufferSize(roi, mask, PixelType8u, 3, &size), StatusOk);
    std::vector<uint8_t> src(40 * 30 * 3, 1), dst(src.size(), 0xEE), scratch(size, 0x77);
    EXPECT_EQ(ownFilterMedianBorder_8u_C3R(src.data(), 120, dst.data(), 120, roi, mask,
                                           BorderReplicate, nullptr, scratch.data()),
              StatusMaskSize)
        << mask.width << "x" << mask.height;
    EXPECT_EQ(dst, std::vector<uint8_t>(src.size(), 0xEE));
    EXPECT_EQ(scratch, std::vector<uint8_t>(size, 0x77));
  }
}

CORVANE_INSTANTIATE_VARIANT_TESTS(MedianFilterTest);

}  // namespace
}  // namespace corvane::test
