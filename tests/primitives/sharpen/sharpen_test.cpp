// The sharpen of every code path against its formula over every border road
// and memory flag, the closed forms, its scratch sizes, the refusals, and
// corvane_sharpen through the shared object.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>
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

// The export runs the path it detects, so once, its scratch its own.
const bool kExport = [] {
  Row row{"sharpen_client",
          kForm,
          {{"replicate", {}, {}, 1}, {"constant", {}, {}, 6}},
          [](const Frame& f) {
            const corvane_image s{const_cast<uint8_t*>(f.src), f.srcStep, f.roi.width, f.roi.height,
                                  CORVANE_8U_C3};
            const corvane_image d{f.dst, f.dstStep, f.roi.width, f.roi.height, CORVANE_8U_C3};
            EXPECT_EQ(corvane_sharpen(&s, &d, int32_t(f.arg.border), kValue), 0);
          },
          Formula};
  row.variants = 1, row.negativeSteps = true, row.maxWidth = 70;
  return AddRow(row);
}();

// The images are checked before the primitive's own arguments.
TEST(SharpenExport, Refusals) {
  std::vector<uint8_t> pixels(37 * 3 * 23);
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
  const corvane_image whole{pixels.data(), 37 * 3, 37, 23, CORVANE_8U_C3};
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
