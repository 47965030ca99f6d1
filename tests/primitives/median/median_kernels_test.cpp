// Every small-mask kernel of every pixel form in every code path, against the
// sorting oracle on memory that holds all neighbours: 8-bit and 16-bit
// elements (signed and unsigned, with the top bit in use), three and four
// channels, the fourth kept; and each kernel's reads held to its mask rows.
#include <gtest/gtest.h>

#include <cstring>

#include "harness/guarded_image.h"
#include "harness/page_buffer.h"
#include "harness/variant_test.h"
#include "median_reference.h"
#include "median_test_support.h"
#include "primitives/median/median_kernel.h"

namespace corvane::test {
namespace {

using TableFn = const MedianKernelTable& (*)();
#define CORVANE_TABLE_OF(v) &::corvane::v::ownMedianKernelTable,
constexpr TableFn kTables[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_TABLE_OF)};
#undef CORVANE_TABLE_OF

ElementForm FormOf(int32_t group) {
  return ElementForm{group < 3 ? 1 : 2, group >= MedianGroup16sC3, group % 3 == 0 ? 3 : 4,
                     group % 3 == 1};
}

// Slots 0 to 5 of a form: 1x3, 1x5, 3x1, 5x1, 3x3, 5x5.
MedianKernel KernelOf(int32_t variant, int32_t group, int32_t slot) {
  const MedianKernels& k = kTables[variant]().group[group];
  return slot < 2 ? k.column : slot < 4 ? k.row : k.square;
}

class MedianKernelTest : public VariantTest {
 protected:
  MedianKernel Kernel(int32_t group, int32_t slot) { return KernelOf(Variant(), group, slot); }

  void Check(int32_t group, int32_t slot, ImageSize roi, const ImageLayout& srcPlace,
             ImageLayout dstPlace) {
    const ImageSize mask = kTableMasks[slot];
    const ElementForm form = FormOf(group);
    const int32_t px = form.elementBytes * form.channels;
    FramedImage src(roi, px, srcPlace, Rng());
    dstPlace.rowBytes = roi.width * px;
    dstPlace.rows = roi.height;
    GuardedImage dst(dstPlace);
    dst.Fill(Pattern::Random, Rng());
    std::vector<uint8_t> before;
    for (int32_t y = 0; y < roi.height; ++y) {
      before.insert(before.end(), dst.row(y), dst.row(y) + dstPlace.rowBytes);
    }
    const std::vector<uint8_t> expected =
        ReferenceMedianDirect(src.region(), src.step(), roi, mask, form, before);
    Kernel(group, slot)(src.region(), src.step(), dst.data(), dst.step(), roi, mask, nullptr);
    const std::string what = "group " + std::to_string(group) + " " +
                             Describe(roi, mask, BorderMemoryAll, srcPlace, dstPlace);
    EXPECT_TRUE(SameRows(expected.data(), dstPlace.rowBytes, dst.data(), dst.step(),
                         dstPlace.rowBytes, roi.height))
        << what;
    EXPECT_TRUE(dst.CheckGuards()) << what;
    EXPECT_TRUE(src.Untouched()) << what;
  }
};

TEST_P(MedianKernelTest, EveryFormMatchesSort) {
  for (int32_t group = 0; group < kMedianGroupCount; ++group) {
    for (int32_t slot = 0; slot < 6; ++slot) {
      ASSERT_NE(Kernel(group, slot), nullptr) << "group " << group << " slot " << slot;
      for (int32_t i = 0; i < 12; ++i) {
        const ImageSize roi{RandomInt(Rng(), 1, i % 4 == 0 ? 150 : 40), RandomInt(Rng(), 1, 7)};
        ImageLayout dstPlace = RandomLayout(Rng(), 1, 1);
        // Every other case keeps dst rows on 32-byte steps, where the wide
        // column kernels take two rows a pass.
        if (i % 2 == 0) {
          const int32_t px = FormOf(group).elementBytes * FormOf(group).channels;
          dstPlace.stepPad = (32 - roi.width * px % 32) % 32 + 32 * RandomInt(Rng(), 0, 1);
          dstPlace.misalign = 32 * RandomInt(Rng(), 0, 1);
        }
        Check(group, slot, roi, RandomLayout(Rng(), 1, 1), dstPlace);
        if (HasFailure()) return;
      }
    }
  }
}

TEST_P(MedianKernelTest, VectorEdgeWidthsOfTheHotForm) {
  for (int32_t slot = 0; slot < 6; ++slot) {
    for (int32_t w : VectorEdgeWidths(140)) {
      for (int32_t misalign : {0, 1, 17}) {
        Check(MedianGroup8uC3, slot, {w, 3}, ImageLayout{1, 1, 0, false, misalign},
              ImageLayout{1, 1, 0, false, misalign * 3});
        if (HasFailure()) return;
      }
    }
  }
}

// Regions large enough for the square kernels' long roads: rows that end a
// byte either side of a kilobyte chunk and just past one, and heights either
// side of a 32-row band, over rows shorter than a vector too.
TEST_P(MedianKernelTest, ChunkAndBandEdges) {
  constexpr ImageSize kSizes[] = {{341, 2}, {342, 3}, {347, 1}, {352, 2}, {683, 2},
                                  {130, 3}, {12, 31}, {11, 32}, {13, 33}, {40, 65},
                                  {1, 40},  {2, 37},  {5, 34},  {10, 66}};
  for (int32_t group : {MedianGroup8uC3, MedianGroup8uC4Keep, MedianGroup16uC4, MedianGroup16sC3}) {
    for (int32_t slot : {4, 5}) {
      for (const ImageSize roi : kSizes) {
        Check(group, slot, roi, RandomLayout(Rng(), 1, 1), RandomLayout(Rng(), 1, 1));
        if (HasFailure()) return;
      }
    }
  }
}

// A kernel reads from the first byte its top mask row needs to the last its
// bottom row needs, and no further: the image is exactly that span of memory,
// against an inaccessible page at either end.
TEST_P(MedianKernelTest, ReadsOnlyTheMaskRows) {
  for (int32_t group = 0; group < kMedianGroupCount; ++group) {
    const ElementForm form = FormOf(group);
    const int32_t px = form.elementBytes * form.channels;
    for (int32_t slot = 0; slot < 6; ++slot) {
      const ImageSize mask = kTableMasks[slot];
      const int32_t xr = mask.width / 2, yr = mask.height / 2;
      for (int32_t w : {1, 2, 5, 6, 11, 16, 33}) {
        for (PageBuffer::Edge edge : {PageBuffer::Edge::End, PageBuffer::Edge::Start}) {
          // Taller regions let the short-row roads run ahead of the last rows.
          const ImageSize roi{w, w % 2 ? 3 : 9};
          const int32_t step = (w + 2 * xr) * px;
          const int32_t rows = roi.height + 2 * yr;
          PageBuffer src(static_cast<size_t>(step) * rows, edge);
          FillPattern(src.data(), src.size(), Pattern::Random, Rng());
          const uint8_t* first = src.data() + yr * step + xr * px;
          std::vector<uint8_t> dst(static_cast<size_t>(w) * px * roi.height);
          FillPattern(dst.data(), dst.size(), Pattern::Random, Rng());
          const std::vector<uint8_t> expected =
              ReferenceMedianDirect(first, step, roi, mask, form, dst);
          KernelOf(Variant(), group, slot)(first, step, dst.data(), w * px, roi, mask, nullptr);
          EXPECT_EQ(dst, expected)
              << "group " << group << " slot " << slot << " region " << w << "x" << roi.height;
        }
      }
    }
  }
}

// Values that only an exact order gets right: runs, extremes, alternations.
TEST_P(MedianKernelTest, ValuePatterns) {
  for (Pattern pattern : kAllPatterns) {
    for (int32_t group : {MedianGroup8uC3, MedianGroup16uC4Keep, MedianGroup16sC3}) {
      for (int32_t slot = 0; slot < 6; ++slot) {
        const ElementForm form = FormOf(group);
        const int32_t px = form.elementBytes * form.channels;
        const ImageSize roi{37, 4};
        const int32_t step = (roi.width + 4) * px;
        std::vector<uint8_t> src(static_cast<size_t>(step) * (roi.height + 4));
        FillPattern(src.data(), src.size(), pattern, Rng());
        const uint8_t* first = src.data() + 2 * step + 2 * px;
        std::vector<uint8_t> dst(static_cast<size_t>(roi.width) * px * roi.height, 0x42);
        const std::vector<uint8_t> expected =
            ReferenceMedianDirect(first, step, roi, kTableMasks[slot], form, dst);
        KernelOf(Variant(), group, slot)(first, step, dst.data(), roi.width * px, roi,
                                         kTableMasks[slot], nullptr);
        EXPECT_EQ(dst, expected) << PatternName(pattern) << " group " << group << " slot " << slot;
      }
    }
  }
}

CORVANE_INSTANTIATE_VARIANT_TESTS(MedianKernelTest);

}  // namespace
}  // namespace corvane::test
