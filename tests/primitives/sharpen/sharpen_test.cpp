// The sharpen of every code path against its formula over every border road
// and memory flag, the closed forms, its scratch sizes, the refusals, and
// corvane_sharpen through the shared object.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "conformance.h"
#include "corvane_image.h"
#include "primitives/sharpen/sharpen.h"
#include "support/code_path.h"
#include "support/guarded.h"

namespace corvane::test {
namespace {

using primitives::ownFilterSharpenBorder_8u_C3R;
using primitives::ownFilterSharpenBorderGetBufferSize;

constexpr uint8_t kValue[3] = {10, 20, 30};
constexpr PixelForm kForm{1, 3};

// Twice a byte less an eighth of its eight neighbours: v = 17p - (the nine
// summed), limited at 0, then v / 8 to nearest, ties to even, at most 255.
void Formula(const Frame& f) {
  for (int32_t y = 0; y < f.roi.height; ++y) {
    for (int32_t i = 0; i < f.roi.width * 3; ++i) {
      const int32_t x = i / 3, c = i % 3;
      int32_t nine = 0;
      for (int32_t dy = -1; dy <= 1; ++dy)
        for (int32_t dx = -1; dx <= 1; ++dx) nine += Neighbour(f, kForm, kValue, x + dx, y + dy, c);
      const int32_t v = std::max(0, 17 * Neighbour(f, kForm, kValue, x, y, c) - nine);
      f.dst[intptr_t{y} * f.dstStep + i] = uint8_t(std::min(255L, std::lrint(v / 8.0)));
    }
  }
}

// The scratch as asked, ending at a protected page, with noise in it.
void Filter(const Frame& f) {
  int32_t size = 0;
  ASSERT_EQ(ownFilterSharpenBorderGetBufferSize(f.roi, 33, PixelType8u, PixelType8u, 3, &size), 0);
  PageBuffer scratch(size);
  std::mt19937 noise(static_cast<uint32_t>(f.seed));
  FillPattern(scratch.data(), scratch.size(), Pattern::Random, noise);
  EXPECT_EQ(
      ownFilterSharpenBorder_8u_C3R(f.src, f.srcStep, f.dst, f.dstStep, f.roi, 33, f.arg.border,
                                    f.arg.kind ? nullptr : kValue, scratch.data()),
      StatusOk);
}

// Every memory flag with both modes, every flag without a mode, 0xF6 with no
// value (kind 1). Real pixels lie around the region on flagged sides only.
const bool kFilter = [] {
  std::vector<Arg> args;
  for (uint32_t b = 0x01; b <= 0xF6; b += b % 16 == 1 ? 5 : 11) {
    args.push_back({"border " + std::to_string(b), {b & 0xC0 ? 1 : 0, b & 0x30 ? 1 : 0}, {}, b});
  }
  args.push_back({"border 0xF0", {1, 1}, {}, 0xF0});
  args.push_back({"border 0xF6, no value", {1, 1}, {}, 0xF6, 1});
  Row row{"sharpen_filter_8u_C3", kForm, args, Filter, Formula};
  // Either side of the roads' edge: 3 is the whole image, 4 x 4 strips.
  row.negativeSteps = true, row.sizes = {{3, 9}, {9, 3}, {4, 4}, {4, 9}, {683, 4}};
  return AddRow(row);
}();

class Sharpen : public CodePathTest {};

// A 3 x 3 block (the same in each channel) around the region's first pixel:
// every output byte `want`.
TEST_P(Sharpen, ClosedForms) {
  const struct {
    const char* what;
    uint8_t block[9];
    uint32_t border;
    ImageSize roi;
    uint8_t want;
  } cases[] = {
      {"flat, 1x1", {9, 9, 9, 9, 77, 9, 9, 9, 9}, 0x01, {1, 1}, 77},
      {"bright pixel", {0, 0, 0, 0, 255, 0, 0, 0, 0}, 0xF0, {1, 1}, 255},  // v = 4080
      {"beside a bright one", {0, 0, 0, 0, 0, 255, 0, 0, 0}, 0xF0, {1, 1}, 0},
      {"dark pixel", {255, 255, 255, 255, 0, 255, 255, 255, 255}, 0xF0, {1, 1}, 0},
      {"beside a dark one", {255, 255, 255, 255, 255, 0, 255, 255, 255}, 0xF0, {1, 1}, 255},
      {"v = 4", {7, 7, 7, 7, 4, 8, 8, 8, 8}, 0xF0, {1, 1}, 0},
      {"v = 12", {6, 6, 6, 6, 4, 7, 7, 7, 7}, 0xF0, {1, 1}, 2},
      {"v = 20", {5, 5, 5, 5, 4, 6, 6, 6, 6}, 0xF0, {1, 1}, 2},
      {"constant border around zeros", {0, 0, 0, 0, 0, 0, 0, 0, 0}, 0x06, {5, 5}, 0},
  };
  for (const auto& c : cases) {
    const int32_t w = c.roi.width + 2, h = c.roi.height + 2;
    std::vector<uint8_t> src(size_t(w) * h * 3), dst(size_t(w) * h * 3, 1), scratch(4096);
    for (size_t i = 0; i < src.size(); ++i) src[i] = c.block[i / 3 / w % 3 * 3 + i / 3 % w % 3];
    EXPECT_EQ(ownFilterSharpenBorder_8u_C3R(&src[w * 3 + 3], w * 3, dst.data(), w * 3, c.roi, 33,
                                            c.border, kValue, scratch.data()),
              0);
    EXPECT_EQ(std::count(dst.begin(), dst.end(), c.want), int32_t(c.roi.width * c.roi.height * 3))
        << c.what;
  }
}

TEST_P(Sharpen, Sizes) {
  const std::tuple<ImageSize, PixelType, int32_t, int32_t> cases[] = {
      {{1920, 1080}, PixelType8u, 3, 28896},  // the longer side in strips
      {{3, 100}, PixelType8u, 3, 1600},       // the whole extended image
      {{4, 4}, PixelType8u, 3, 160},         {{100, 50}, PixelType16s, 4, 4128},
      {{2, 2}, PixelType32f, 1, 128},        {{200000000, 5}, PixelType32f, 4, 0}};
  for (const auto& [roi, type, channels, want] : cases) {
    int32_t size = -1;
    EXPECT_EQ(ownFilterSharpenBorderGetBufferSize(roi, 33, type, type, channels, &size),
              want ? StatusOk : StatusSizeOverflow);
    EXPECT_EQ(size, want) << roi.width << "x" << roi.height << " type " << type;
  }
}

CORVANE_INSTANTIATE_CODE_PATHS(Sharpen);

struct FilterCall {
  const uint8_t* src;
  uint8_t* dst;
  int32_t w, h, mask;
  uint32_t border;
  const uint8_t* value;
  uint8_t* buffer;
};
using F = FilterCall&;
FilterCall GoodFilter(const Outputs& o) {
  return {o.src, o.dst, 4, 4, 33, BorderReplicate, kValue, o.scratch};
}
PrimitiveStatus Filtering(const FilterCall& c) {
  return ownFilterSharpenBorder_8u_C3R(c.src, 48, c.dst, 48, {c.w, c.h}, c.mask, c.border, c.value,
                                       c.buffer);
}

struct SizeCall {
  int32_t w, h, mask, type, dstType, channels;
  int32_t* size;
};
using S = SizeCall&;
SizeCall GoodSizing(const Outputs& o) { return {5, 5, 33, 1, 1, 3, o.size}; }
PrimitiveStatus Sizing(const SizeCall& c) {
  return ownFilterSharpenBorderGetBufferSize({c.w, c.h}, c.mask, c.type, c.dstType, c.channels,
                                             c.size);
}

// Each row breaks its own check and later ones.
const bool kRefusals =
    AddRefusals<FilterCall>(
        "sharpen_filter", GoodFilter, Filtering,
        {{"null src", -8, [](F c) { c.src = nullptr, c.w = 0, c.mask = 55, c.border = 0x106; }},
         {"null dst", -8, [](F c) { c.dst = nullptr, c.h = -1; }},
         {"null buffer", -8, [](F c) { c.buffer = nullptr, c.border = 0x32; }},
         {"empty region", -6, [](F c) { c.h = 0, c.mask = 55, c.border = 0x106; }},
         {"mask 55", -33, [](F c) { c.mask = 55, c.border = 0x106, c.value = nullptr; }},
         {"border above 0xFF", -225, [](F c) { c.border = 0x106, c.value = nullptr; }},
         {"0x06 without a value", -8, [](F c) { c.border = 0x06, c.value = nullptr; }},
         {"0x76 without a value", -8, [](F c) { c.border = 0x76, c.value = nullptr; }},
         {"flags without a mode", -225, [](F c) { c.border = 0x10; }},
         {"unknown mode", -225, [](F c) { c.border = 0xF2; }},
         {"0xF6 without a value", 0, [](F c) { c.border = 0xF6, c.value = nullptr; }}}) &&
    AddRefusals<SizeCall>(
        "sharpen_sizing", GoodSizing, Sizing,
        {{"mask 55", -33, [](S c) { c.mask = 55, c.size = nullptr, c.w = 0, c.channels = 2; }},
         {"null size", -8, [](S c) { c.size = nullptr, c.w = 0, c.type = 5; }},
         {"empty region", -6, [](S c) { c.h = -3, c.type = 5, c.channels = 2; }},
         {"16u, which the median takes", -59, [](S c) { c.type = c.dstType = 5, c.channels = 2; }},
         {"types differ", -59, [](S c) { c.dstType = 7, c.channels = 2; }},
         {"two channels", -53, [](S c) { c.channels = 2; }}});

// The export: the primitive on the best path, its scratch allocated by the
// call, statuses passed through, refusals of the images first.
TEST(SharpenExport, FilterAndRefusals) {
  std::mt19937 rng = MakeTestRng();
  GuardedImage src({37 * 3, 23, 5}), dst({37 * 3, 23, 0, true}), want({37 * 3, 23});
  for (int32_t y = 0; y < 23; ++y) FillPattern(src.row(y), 37 * 3, Pattern::Random, rng);
  for (uint32_t border : {CORVANE_BORDER_REPLICATE, CORVANE_BORDER_CONSTANT}) {
    const Arg arg{"", {}, {}, border};
    Formula({src.data(), src.step(), {37, 23}, want.data(), want.step(), {37, 23}, arg, 0, 0});
    corvane_image s{src.data(), src.step(), 37, 23, CORVANE_8U_C3};
    corvane_image d{dst.data(), dst.step(), 37, 23, CORVANE_8U_C3};
    EXPECT_EQ(corvane_sharpen(&s, &d, int32_t(border), kValue), 0);
    EXPECT_TRUE(SameRows(want.data(), want.step(), dst.data(), dst.step(), 37 * 3, 23));
    EXPECT_TRUE(dst.CheckGuards());
  }
  // Edits of both images but the one of dst's height. 4 x 238609271 asks for
  // 2^31 - 64 bytes, more than a block can hold.
  const std::tuple<void (*)(corvane_image&), bool, int32_t> broken[] = {
      {[](corvane_image& i) { i.data = nullptr, i.format = 0; }, false, -8},
      {[](corvane_image& i) { i.format = CORVANE_8U_C4, i.width = 0; }, true, -59},
      {[](corvane_image& i) { i.width = 0, i.step = 0; }, true, -6},
      {[](corvane_image& i) { i.height = 22; }, false, -6},
      {[](corvane_image& i) { i.step = -110; }, false, -16},
      {[](corvane_image& i) { i.width = 4, i.height = 238609271; }, true, -9},
      {[](corvane_image& i) { i.width = 200000000, i.step = 600000000; }, true, -232}};
  const corvane_image whole{src.data(), src.step(), 37, 23, CORVANE_8U_C3};
  for (const auto& [edit, both, status] : broken) {
    corvane_image s = whole, d = whole;
    edit(d);
    if (both) edit(s);
    EXPECT_EQ(corvane_sharpen(&s, &d, 1, kValue), status);
  }
  EXPECT_EQ(corvane_sharpen(nullptr, nullptr, 1, kValue), -8);
  EXPECT_EQ(corvane_sharpen(&whole, &whole, 0xF1, kValue), -225);  // no pixels beyond an image
}

}  // namespace
}  // namespace corvane::test
