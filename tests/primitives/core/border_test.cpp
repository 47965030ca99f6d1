// The copies with border of every pixel form and code path against their
// closed form: a made pixel repeats the source pixel at the clamped position,
// or is the constant pixel; the in-place forms give the same picture. Also
// the plain checked copy, and the refusals of both.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "conformance.h"
#include "primitives/core/border.h"

namespace corvane::test {
namespace {

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

template <class V>
bool AddCopies(const char* name, int32_t channels, const Copies<V>& c) {
  const int32_t px = channels * int32_t(sizeof(V));
  std::vector<Arg> args = {{"replicate"}, {"constant", {}, {}, 0, 1}, {"in place", {}, {}, 0, 2}};
  if (px == 3) args.push_back({"plain copy", {}, {}, 0, 3});
  auto run = [c, px](const Frame& f) {
    const Place p = PlaceOf(f.roi, f.arg, f.seed);
    uint8_t* at = f.dst + intptr_t{p.top} * f.dstStep + p.left * px;
    const int32_t v = f.variant;
    PrimitiveStatus s = StatusOk;
    if (f.arg.kind == 0) {
      s = c.replicate[v](f.src, f.srcStep, f.srcSize, f.dst, f.dstStep, f.roi, p.top, p.left);
    } else if (f.arg.kind == 1) {
      s = c.constant[v](f.src, f.srcStep, f.srcSize, f.dst, f.dstStep, f.roi, p.top, p.left,
                        reinterpret_cast<const V*>(kValue));
    } else if (f.arg.kind == 2) {
      for (int32_t y = 0; y < f.srcSize.height; ++y) {
        std::memcpy(at + intptr_t{y} * f.dstStep, f.src + intptr_t{y} * f.srcStep,
                    f.srcSize.width * px);
      }
      s = c.inPlace[v](at, f.dstStep, f.srcSize, f.roi, p.top, p.left);
    } else {
      s = kPlain[v](f.src, f.srcStep, f.dst, f.dstStep, f.roi);
    }
    EXPECT_EQ(s, StatusOk);
  };
  auto closedForm = [px](const Frame& f) {
    const Place p = PlaceOf(f.roi, f.arg, f.seed);
    for (int32_t y = 0; y < f.roi.height; ++y) {
      for (int32_t x = 0; x < f.roi.width; ++x) {
        const int32_t sx = x - p.left, sy = y - p.top, w = f.srcSize.width, h = f.srcSize.height;
        const bool made = sx < 0 || sy < 0 || sx >= w || sy >= h;
        const uint8_t* from = made && f.arg.kind == 1
                                  ? kValue
                                  : f.src + intptr_t{std::clamp(sy, 0, h - 1)} * f.srcStep +
                                        std::clamp(sx, 0, w - 1) * px;
        std::memcpy(f.dst + intptr_t{y} * f.dstStep + x * px, from, px);
      }
    }
  };
  auto source = [](ImageSize dst, const Arg& arg, uint64_t seed) {
    const Place p = PlaceOf(dst, arg, seed);
    return ImageSize{dst.width - p.left - p.right, dst.height - p.top - p.bottom};
  };
  Row row{name, {int32_t(sizeof(V)), channels}, args, run, closedForm};
  row.source = source;
  return AddRow(row);
}

#define CORVANE_COPIES_(suffix)                                   \
  {                                                               \
    CORVANE_EACH_PATH(ownCopyReplicateBorder_##suffix),           \
        CORVANE_EACH_PATH(ownCopyConstBorder_##suffix),           \
        CORVANE_EACH_PATH(ownCopyReplicateBorderInPlace_##suffix) \
  }
const bool kCopies = AddCopies<uint8_t>("border_copy_8u_C3", 3, CORVANE_COPIES_(8u_C3R)) &&
                     AddCopies<uint8_t>("border_copy_8u_C4", 4, CORVANE_COPIES_(8u_C4R)) &&
                     AddCopies<uint16_t>("border_copy_16_C3", 3, CORVANE_COPIES_(16_C3R)) &&
                     AddCopies<uint16_t>("border_copy_16_C4", 4, CORVANE_COPIES_(16_C4R));

// A w x h source into a dw x dh destination at (left, top): 2x2 into 4x4 at
// (1, 1); the in-place form grows it around the source placed there, the
// plain copy copies it. -8 null pointer, -16 step, -6 size.
struct CopyCall {
  const uint8_t* src;
  int32_t srcStep, w, h;
  uint8_t* dst;
  int32_t dstStep, dw, dh, top, left;
  const uint8_t* value;
  int32_t variant;
};
using C = CopyCall&;
CopyCall Good(const Outputs& o) {
  return {o.src, 6, 2, 2, o.dst, o.dstStep, 4, 4, 1, 1, o.src, o.variant};
}
const Copies<uint8_t> k8uC3 = CORVANE_COPIES_(8u_C3R);
PrimitiveStatus Replicate(const CopyCall& c) {
  return k8uC3.replicate[c.variant](c.src, c.srcStep, {c.w, c.h}, c.dst, c.dstStep, {c.dw, c.dh},
                                    c.top, c.left);
}
PrimitiveStatus Constant(const CopyCall& c) {
  return k8uC3.constant[c.variant](c.src, c.srcStep, {c.w, c.h}, c.dst, c.dstStep, {c.dw, c.dh},
                                   c.top, c.left, c.value);
}
PrimitiveStatus InPlace(const CopyCall& c) {
  uint8_t* at = c.dst ? c.dst + c.dstStep + 3 : nullptr;
  return k8uC3.inPlace[c.variant](at, c.dstStep, {c.w, c.h}, {c.dw, c.dh}, c.top, c.left);
}
PrimitiveStatus Plain(const CopyCall& c) {
  return kPlain[c.variant](c.src, c.srcStep, c.dst, c.dstStep, {c.w, c.h});
}

const std::vector<Broken<CopyCall>> kBroken = {
    {"null src", -8, [](C c) { c.src = nullptr, c.srcStep = c.dstStep = c.w = 0; }},
    {"null dst", -8, [](C c) { c.dst = nullptr, c.srcStep = 0; }},
    {"zero step", -16, [](C c) { c.srcStep = c.w = 0, c.top = -1; }},
    {"negative dst step", -16, [](C c) { c.dstStep = -c.dstStep; }},
    {"empty source", -6, [](C c) { c.w = 0; }},
    {"negative top", -6, [](C c) { c.top = -1; }},
    {"too narrow", -6, [](C c) { c.dw = 3, c.left = 2; }},
    {"too low", -6, [](C c) { c.dh = 2, c.left = 0; }},
};

std::vector<Broken<CopyCall>> WithNullValue(std::vector<Broken<CopyCall>> rows) {
  rows.push_back({"null value last", -8, [](C c) { c.value = nullptr; }});
  return rows;
}

const bool kRefusals =
    AddRefusals<CopyCall>("border_copy_replicate", Good, Replicate, kBroken) &&
    AddRefusals<CopyCall>("border_copy_constant", Good, Constant, WithNullValue(kBroken)) &&
    AddRefusals<CopyCall>("border_copy_in_place", Good, InPlace,
                          {{"null image", -8, [](C c) { c.dst = nullptr, c.dstStep = 0; }},
                           {"zero step", -16, [](C c) { c.dstStep = 0, c.top = -1; }},
                           {"too narrow", -6, [](C c) { c.dw = 2; }}}) &&
    AddRefusals<CopyCall>("copy", Good, Plain,
                          {{"null src", -8, [](C c) { c.src = nullptr, c.w = 0; }},
                           {"empty", -6, [](C c) { c.h = 0; }}});

}  // namespace
}  // namespace corvane::test
