// The copies with border of every code path against their closed form: a
// destination pixel outside the source rectangle repeats the source pixel at
// the clamped position, or is the constant pixel. Also the in-place form,
// the plain copy of the 1x1 mask, and the refusal order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "harness/guarded_image.h"
#include "harness/variant_test.h"
#include "primitives/core/border.h"

namespace corvane::test {
namespace {

using ReplicateFn = PrimitiveStatus (*)(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t,
                                        ImageSize, int32_t, int32_t);
using InPlaceFn = PrimitiveStatus (*)(uint8_t*, int32_t, ImageSize, ImageSize, int32_t, int32_t);
using Const8Fn = PrimitiveStatus (*)(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t,
                                     ImageSize, int32_t, int32_t, const uint8_t*);
using Const16Fn = PrimitiveStatus (*)(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t,
                                      ImageSize, int32_t, int32_t, const uint16_t*);

struct Forms {
  ReplicateFn replicate[4];
  InPlaceFn inPlace[4];
  Const8Fn const8[2];
  Const16Fn const16[2];
};
#define CORVANE_FORMS_OF(v)                                                                   \
  Forms{{&v::ownCopyReplicateBorder_8u_C3R, &v::ownCopyReplicateBorder_8u_C4R,                \
         &v::ownCopyReplicateBorder_16_C3R, &v::ownCopyReplicateBorder_16_C4R},               \
        {&v::ownCopyReplicateBorderInPlace_8u_C3R, &v::ownCopyReplicateBorderInPlace_8u_C4R,  \
         &v::ownCopyReplicateBorderInPlace_16_C3R, &v::ownCopyReplicateBorderInPlace_16_C4R}, \
        {&v::ownCopyConstBorder_8u_C3R, &v::ownCopyConstBorder_8u_C4R},                       \
        {&v::ownCopyConstBorder_16_C3R, &v::ownCopyConstBorder_16_C4R}},
const Forms kForms[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_FORMS_OF)};
#undef CORVANE_FORMS_OF

constexpr int32_t kPixelBytes[4] = {3, 4, 6, 8};
const uint16_t kValue[4] = {0x1234, 0xBEEF, 0x00FF, 0x8001};

// The destination as the definition gives it.
std::vector<uint8_t> Expected(const uint8_t* src, int32_t srcStep, ImageSize srcRoi,
                              ImageSize dstRoi, int32_t top, int32_t left, int32_t px,
                              const uint8_t* value) {
  std::vector<uint8_t> out(static_cast<size_t>(dstRoi.width) * dstRoi.height * px);
  for (int32_t y = 0; y < dstRoi.height; ++y) {
    for (int32_t x = 0; x < dstRoi.width; ++x) {
      const int32_t sx = x - left, sy = y - top;
      const bool outside = sx < 0 || sy < 0 || sx >= srcRoi.width || sy >= srcRoi.height;
      const uint8_t* from =
          outside && value
              ? value
              : src + static_cast<intptr_t>(std::clamp(sy, 0, srcRoi.height - 1)) * srcStep +
                    std::clamp(sx, 0, srcRoi.width - 1) * px;
      std::memcpy(&out[(static_cast<size_t>(y) * dstRoi.width + x) * px], from, px);
    }
  }
  return out;
}

class BorderCopyTest : public VariantTest {};

TEST_P(BorderCopyTest, EveryFormMatchesItsDefinition) {
  const Forms& f = kForms[Variant()];
  for (int32_t form = 0; form < 4; ++form) {
    const int32_t px = kPixelBytes[form];
    for (int32_t i = 0; i < 40; ++i) {
      const ImageSize srcRoi{RandomInt(Rng(), 1, 30), RandomInt(Rng(), 1, 6)};
      const int32_t top = RandomInt(Rng(), 0, 3), left = RandomInt(Rng(), 0, 3);
      const ImageSize dstRoi{srcRoi.width + left + RandomInt(Rng(), 0, 3),
                             srcRoi.height + top + RandomInt(Rng(), 0, 3)};
      ImageLayout srcPlace = RandomLayout(Rng(), 1, 1), dstPlace = RandomLayout(Rng(), 1, 1);
      srcPlace.bottomUp = dstPlace.bottomUp = false;  // the copies want positive steps
      srcPlace.rowBytes = srcRoi.width * px, srcPlace.rows = srcRoi.height;
      dstPlace.rowBytes = dstRoi.width * px, dstPlace.rows = dstRoi.height;
      GuardedImage src(srcPlace), dst(dstPlace);
      src.Fill(Pattern::Random, Rng());
      const bool constant = i % 2 == 1;
      const uint8_t* value = reinterpret_cast<const uint8_t*>(kValue);
      PrimitiveStatus status;
      if (!constant) {
        status = f.replicate[form](src.data(), src.step(), srcRoi, dst.data(), dst.step(), dstRoi,
                                   top, left);
      } else if (form < 2) {
        status = f.const8[form](src.data(), src.step(), srcRoi, dst.data(), dst.step(), dstRoi, top,
                                left, value);
      } else {
        status = f.const16[form - 2](src.data(), src.step(), srcRoi, dst.data(), dst.step(), dstRoi,
                                     top, left, kValue);
      }
      ASSERT_EQ(status, StatusOk);
      const auto expected = Expected(src.data(), src.step(), srcRoi, dstRoi, top, left, px,
                                     constant ? value : nullptr);
      const std::string what = "form " + std::to_string(form) + (constant ? " constant" : "");
      EXPECT_TRUE(SameRows(expected.data(), dstRoi.width * px, dst.data(), dst.step(),
                           dstRoi.width * px, dstRoi.height))
          << what;
      EXPECT_TRUE(dst.CheckGuards()) << what;

      // The same border grown in place around a source already placed.
      std::vector<uint8_t> image(static_cast<size_t>(dst.step()) * dstRoi.height, 0xA5);
      for (int32_t y = 0; y < srcRoi.height; ++y) {
        std::memcpy(&image[static_cast<size_t>(y + top) * dst.step() + left * px], src.row(y),
                    srcRoi.width * px);
      }
      uint8_t* placed = image.data() + static_cast<size_t>(top) * dst.step() + left * px;
      ASSERT_EQ(f.inPlace[form](placed, dst.step(), srcRoi, dstRoi, top, left), StatusOk);
      const auto replicated =
          Expected(src.data(), src.step(), srcRoi, dstRoi, top, left, px, nullptr);
      EXPECT_TRUE(SameRows(replicated.data(), dstRoi.width * px, image.data(), dst.step(),
                           dstRoi.width * px, dstRoi.height))
          << what << " in place";
    }
  }
}

TEST_P(BorderCopyTest, RefusesInOrder) {
  const Forms& f = kForms[Variant()];
  std::vector<uint8_t> src(64, 1), dst(256, 0xEE);
  const ImageSize s{2, 2}, d{4, 4};
  struct Case {
    const char* what;
    const uint8_t* src;
    uint8_t* dst;
    int32_t srcStep, dstStep;
    ImageSize srcRoi, dstRoi;
    int32_t top, left;
    PrimitiveStatus expected;
  } cases[] = {
      {"null src", nullptr, dst.data(), 0, 0, {0, 0}, d, -1, 0, StatusNullPointer},
      {"null dst", src.data(), nullptr, 6, 12, s, d, 1, 1, StatusNullPointer},
      {"zero step before sizes", src.data(), dst.data(), 0, 12, {0, 0}, d, 1, 1, StatusStep},
      {"negative dst step", src.data(), dst.data(), 6, -12, s, d, 1, 1, StatusStep},
      {"empty source", src.data(), dst.data(), 6, 12, {0, 2}, d, 1, 1, StatusSize},
      {"negative top", src.data(), dst.data(), 6, 12, s, d, -1, 1, StatusSize},
      {"too narrow", src.data(), dst.data(), 6, 12, s, {3, 4}, 1, 2, StatusSize},
      {"too low", src.data(), dst.data(), 6, 12, s, {4, 2}, 1, 0, StatusSize},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(f.replicate[0](c.src, c.srcStep, c.srcRoi, c.dst, c.dstStep, c.dstRoi, c.top, c.left),
              c.expected)
        << c.what;
    EXPECT_EQ(f.const8[0](c.src, c.srcStep, c.srcRoi, c.dst, c.dstStep, c.dstRoi, c.top, c.left,
                          src.data()),
              c.expected)
        << c.what << " (constant)";
  }
  EXPECT_EQ(f.const8[0](src.data(), 6, s, dst.data(), 12, d, 1, 1, nullptr), StatusNullPointer);
  EXPECT_EQ(f.const16[1](src.data(), 16, s, dst.data(), 32, d, 1, 1, nullptr), StatusNullPointer);
  EXPECT_EQ(f.inPlace[0](nullptr, 12, s, d, 1, 1), StatusNullPointer);
  EXPECT_EQ(f.inPlace[0](dst.data(), 0, s, d, 1, 1), StatusStep);
  EXPECT_EQ(f.inPlace[0](dst.data() + 15, 12, s, {2, 4}, 1, 1), StatusSize);
  EXPECT_EQ(dst, std::vector<uint8_t>(dst.size(), 0xEE));
}

using CopyFn = PrimitiveStatus (*)(const uint8_t*, int32_t, uint8_t*, int32_t, ImageSize);
#define CORVANE_COPY_OF(v) &v::ownCopy_8u_C3R,
constexpr CopyFn kCopies[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_COPY_OF)};
#undef CORVANE_COPY_OF

TEST_P(BorderCopyTest, PlainCopy) {
  for (int32_t i = 0; i < 30; ++i) {
    ImageLayout from = RandomLayout(Rng(), 1, 1), to = RandomLayout(Rng(), 1, 1);
    const ImageSize roi{RandomInt(Rng(), 1, 200), RandomInt(Rng(), 1, 9)};
    from.rowBytes = to.rowBytes = roi.width * 3;
    from.rows = to.rows = roi.height;
    GuardedImage src(from), dst(to);
    src.Fill(Pattern::Random, Rng());
    ASSERT_EQ(kCopies[Variant()](src.data(), src.step(), dst.data(), dst.step(), roi), StatusOk);
    EXPECT_TRUE(
        SameRows(src.data(), src.step(), dst.data(), dst.step(), roi.width * 3, roi.height));
    EXPECT_TRUE(dst.CheckGuards());
  }
  uint8_t px[3] = {};
  EXPECT_EQ(kCopies[Variant()](nullptr, 3, px, 3, {1, 1}), StatusNullPointer);
  EXPECT_EQ(kCopies[Variant()](px, 3, px + 0, 3, {1, 0}), StatusSize);
}

CORVANE_INSTANTIATE_VARIANT_TESTS(BorderCopyTest);

}  // namespace
}  // namespace corvane::test
