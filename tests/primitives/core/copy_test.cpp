// The copies of every code path against their closed forms: aligned blocks;
// the row and block copies against memcpy across the thresholds of their
// roads; the copies with border, where a made pixel repeats the source pixel
// at the clamped position or is the constant pixel and the in-place forms
// give the same picture; the plain checked copy; the refusals of all.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>

#include "conformance.h"
#include "primitives/core/aligned_memory.h"
#include "primitives/core/border.h"
#include "primitives/core/cache_query.h"
#include "primitives/core/copy.h"

namespace corvane::test {
namespace {

using namespace primitives;

TEST(AlignedMemory, RefusesWhatItCannotServeAndAlignsTheRest) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
  for (int32_t n : {0, -1, std::numeric_limits<int32_t>::min(), kMax, kMax - 71}) {
    EXPECT_EQ(ownMallocAligned(n), nullptr) << n;
  }
  ownFreeAligned(nullptr);
  for (int32_t n = 1; n < 3000; n += 7) {
    auto* p = static_cast<uint8_t*>(ownMallocAligned(n));
    ASSERT_NE(p, nullptr) << n;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u) << n;
    std::memset(p, 0x5A, static_cast<size_t>(n));  // a sanitizer checks the extent
    ownFreeAligned(p);
  }
}

void ByMemcpy(const Frame& f) {
  for (int32_t y = 0; y < f.roi.height; ++y) {
    std::memcpy(f.dst + intptr_t{y} * f.dstStep, f.src + intptr_t{y} * f.srcStep, f.roi.width);
  }
}

// Kind 1: the cache query answers 1 MiB, which opens the non-temporal roads
// of every path to the large sizes, whatever this processor's cache.
const decltype(&m7::ownCopyRows) kCopyRows[] = CORVANE_EACH_PATH(ownCopyRows);

void CopyRows(const Frame& f) {
  if (f.arg.kind == 1) SetCacheSizeForTesting(1 << 20, StatusOk);
  kCopyRows[f.variant](f.src, f.srcStep, f.dst, f.dstStep, f.roi.width, f.roi.height);
  ResetCacheQueryForTesting();
}

// l9 and k0 only, row by row. Kind 2 takes the short copy below its limit.
void CopyBlock(const Frame& f) {
  if (f.arg.kind == 1) SetCacheSizeForTesting(1 << 20, StatusOk);
  const bool wide = f.variant == CpuVariantK0, isShort = f.arg.kind == 2 && f.roi.width < 32768;
  for (int32_t y = 0; y < f.roi.height; ++y) {
    const uint8_t* s = f.src + intptr_t{y} * f.srcStep;
    uint8_t* d = f.dst + intptr_t{y} * f.dstStep;
    if (isShort) {
      (wide ? k0::ownCopyShort : l9::ownCopyShort)(s, d, f.roi.width);
    } else {
      (wide ? k0::ownCopyBlock : l9::ownCopyBlock)(s, d, f.roi.width);
    }
  }
  ResetCacheQueryForTesting();
}

const bool kCopies = [] {
  const Arg asked{"cache as asked"}, small{"cache of 1 MiB", {}, {}, 0, 1};
  Row rows{"copy_rows", {1, 1}, {asked, small}, CopyRows, ByMemcpy};
  rows.negativeSteps = true, rows.maxWidth = 1100;
  rows.sizes = {{255, 3}, {511, 9}, {512, 3}, {1023, 5}, {1024, 5}, {1056, 3000}};
  Row block{"copy_block", {1, 1}, {asked, small, {"short", {}, {}, 0, 2}}, CopyBlock, ByMemcpy};
  block.variants = 1 << CpuVariantL9 | 1 << CpuVariantK0, block.maxWidth = 300;
  block.sizes = {{255, 2},   {16384, 2}, {16447, 1},   {32767, 1},
                 {32768, 1}, {50001, 1}, {0x400001, 1}};
  return AddRow(rows) && AddRow(block);
}();

// Where the source lands in the destination region, from the case's seed:
// up to three made pixels or rows on each side; none for the plain copy.
struct Place {
  int32_t top, left, right, bottom;
};
Place PlaceOf(ImageSize dst, const Arg& arg, uint64_t seed) {
  std::mt19937 r(static_cast<uint32_t>(seed));
  const int32_t most = arg.kind == 3 ? 0 : 3;
  const int32_t top = RandomInt(r, 0, std::min(most, dst.height - 1));
  const int32_t left = RandomInt(r, 0, std::min(most, dst.width - 1));
  return {top, left, RandomInt(r, 0, std::min(most, dst.width - 1 - left)),
          RandomInt(r, 0, std::min(most, dst.height - 1 - top))};
}

const uint16_t kValue16[4] = {0x1234, 0xBEEF, 0x00FF, 0x8001};
const uint8_t* const kValue = reinterpret_cast<const uint8_t*>(kValue16);

template <class V>
struct Copies {
  PrimitiveStatus (*replicate[6])(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t, ImageSize,
                                  int32_t, int32_t);
  PrimitiveStatus (*constant[6])(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t, ImageSize,
                                 int32_t, int32_t, const V*);
  PrimitiveStatus (*inPlace[6])(uint8_t*, int32_t, ImageSize, ImageSize, int32_t, int32_t);
};
const decltype(&m7::ownCopy_8u_C3R) kPlain[] = CORVANE_EACH_PATH(ownCopy_8u_C3R);

// A `size` source into a `roi` destination at (left, top) by the copy of
// `kind`: replicate, constant, in place (dst is where the source already
// lies), plain (of the source's size).
struct CopyCall {
  const uint8_t* src;
  int32_t srcStep;
  ImageSize size;
  uint8_t* dst;
  int32_t dstStep;
  ImageSize roi;
  int32_t top, left;
  int32_t variant, kind;
  const uint8_t* value = kValue;
};

template <class V>
PrimitiveStatus Copy(const Copies<V>& c, const CopyCall& a) {
  const int32_t v = a.variant;
  switch (a.kind) {
    case 0:
      return c.replicate[v](a.src, a.srcStep, a.size, a.dst, a.dstStep, a.roi, a.top, a.left);
    case 1:
      return c.constant[v](a.src, a.srcStep, a.size, a.dst, a.dstStep, a.roi, a.top, a.left,
                           reinterpret_cast<const V*>(a.value));
    case 2:
      return c.inPlace[v](a.dst, a.dstStep, a.size, a.roi, a.top, a.left);
    default:
      return kPlain[v](a.src, a.srcStep, a.dst, a.dstStep, a.size);
  }
}

template <class V>
bool AddCopies(const char* name, int32_t channels, const Copies<V>& c) {
  const int32_t px = channels * int32_t(sizeof(V));
  std::vector<Arg> args = {{"replicate"}, {"constant", {}, {}, 0, 1}, {"in place", {}, {}, 0, 2}};
  if (px == 3) args.push_back({"plain copy", {}, {}, 0, 3});
  auto run = [c, px](const Frame& f) {
    const Place p = PlaceOf(f.roi, f.arg, f.seed);
    CopyCall call{f.src, f.srcStep, f.srcSize, f.dst,     f.dstStep,
                  f.roi, p.top,     p.left,    f.variant, f.arg.kind};
    if (f.arg.kind == 2) {
      call.dst += intptr_t{p.top} * f.dstStep + p.left * px;
      for (int32_t y = 0; y < f.srcSize.height; ++y) {
        std::memcpy(call.dst + intptr_t{y} * f.dstStep, f.src + intptr_t{y} * f.srcStep,
                    f.srcSize.width * px);
      }
    }
    EXPECT_EQ(Copy(c, call), StatusOk);
  };
  auto closedForm = [px](const Frame& f) {
    const Place p = PlaceOf(f.roi, f.arg, f.seed);
    const int32_t w = f.srcSize.width, h = f.srcSize.height;
    for (int32_t y = 0; y < f.roi.height; ++y) {
      for (int32_t x = 0; x < f.roi.width; ++x) {
        const int32_t sx = x - p.left, sy = y - p.top;
        const bool made = sx < 0 || sy < 0 || sx >= w || sy >= h;
        const uint8_t* from = made && f.arg.kind == 1
                                  ? kValue
                                  : f.src + intptr_t{std::clamp(sy, 0, h - 1)} * f.srcStep +
                                        std::clamp(sx, 0, w - 1) * px;
        std::memcpy(f.dst + intptr_t{y} * f.dstStep + x * px, from, px);
      }
    }
  };
  Row row{name, {int32_t(sizeof(V)), channels}, args, run, closedForm};
  row.source = [](ImageSize dst, const Arg& arg, uint64_t seed) {
    const Place p = PlaceOf(dst, arg, seed);
    return ImageSize{dst.width - p.left - p.right, dst.height - p.top - p.bottom};
  };
  return AddRow(row);
}

#define CORVANE_COPIES_(suffix)                                   \
  {                                                               \
    CORVANE_EACH_PATH(ownCopyReplicateBorder_##suffix),           \
        CORVANE_EACH_PATH(ownCopyConstBorder_##suffix),           \
        CORVANE_EACH_PATH(ownCopyReplicateBorderInPlace_##suffix) \
  }
const Copies<uint8_t> k8uC3 = CORVANE_COPIES_(8u_C3R);
const bool kBorderCopies = AddCopies("border_copy_8u_C3", 3, k8uC3) &&
                           AddCopies<uint8_t>("border_copy_8u_C4", 4, CORVANE_COPIES_(8u_C4R)) &&
                           AddCopies<uint16_t>("border_copy_16_C3", 3, CORVANE_COPIES_(16_C3R)) &&
                           AddCopies<uint16_t>("border_copy_16_C4", 4, CORVANE_COPIES_(16_C4R));

// 2x2 of 3-byte pixels into 4x4 at (1, 1). -8 null pointer, -16 step, -6 size.
template <int32_t kKind>
CopyCall Good(const Outputs& o) {
  uint8_t* at = kKind == 2 ? o.dst + o.dstStep + 3 : o.dst;
  return {o.src, 6, {2, 2}, at, o.dstStep, {4, 4}, 1, 1, o.variant, kKind, o.src};
}
PrimitiveStatus Run(const CopyCall& c) { return Copy(k8uC3, c); }

using C = CopyCall&;
const std::vector<Broken<CopyCall>> kBroken = {
    {"null src", -8, [](C c) { c.src = nullptr, c.srcStep = c.dstStep = c.size.width = 0; }},
    {"null dst", -8, [](C c) { c.dst = nullptr, c.srcStep = 0; }},
    {"zero step", -16, [](C c) { c.srcStep = c.size.width = 0, c.top = -1; }},
    {"negative dst step", -16, [](C c) { c.dstStep = -c.dstStep; }},
    {"empty source", -6, [](C c) { c.size.width = 0; }},
    {"negative top", -6, [](C c) { c.top = -1; }},
    {"too narrow", -6, [](C c) { c.roi.width = 3, c.left = 2; }},
    {"too low", -6, [](C c) { c.roi.height = 2, c.left = 0; }},
};
std::vector<Broken<CopyCall>> WithNullValue(std::vector<Broken<CopyCall>> rows) {
  rows.push_back({"null value last", -8, [](C c) { c.value = nullptr; }});
  return rows;
}

const bool kRefusals =
    AddRefusals<CopyCall>("border_copy_replicate", Good<0>, Run, kBroken) &&
    AddRefusals<CopyCall>("border_copy_constant", Good<1>, Run, WithNullValue(kBroken)) &&
    AddRefusals<CopyCall>("border_copy_in_place", Good<2>, Run,
                          {{"null image", -8, [](C c) { c.dst = nullptr, c.dstStep = 0; }},
                           {"zero step", -16, [](C c) { c.dstStep = 0, c.top = -1; }},
                           {"too narrow", -6, [](C c) { c.roi.width = 2; }}}) &&
    AddRefusals<CopyCall>("copy", Good<3>, Run,
                          {{"null src", -8, [](C c) { c.src = nullptr, c.size.width = 0; }},
                           {"empty", -6, [](C c) { c.size.height = 0; }}});

}  // namespace
}  // namespace corvane::test
