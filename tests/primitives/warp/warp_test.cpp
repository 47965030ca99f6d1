// ownWarpBilinear_8u_C3R on every code path against the pixel-by-pixel
// reference: crop-and-scale maps and rotations, pictures partly outside the
// destination rectangle, sources that end at a protected page, guard rings;
// the caller's floating-point state kept; then the order of the entry's
// refusals, none of which writes a pixel.
#include "primitives/warp/warp.h"

#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "harness/guarded_image.h"
#include "harness/page_buffer.h"
#include "harness/test_rng.h"
#include "harness/variant_test.h"
#include "primitives/core/aligned_memory.h"
#include "primitives/warp/warp_nearest.h"
#include "warp_reference.h"

namespace corvane {
namespace {

using primitives::ownWarpBilinear_8u_C3R;
using primitives::ownWarpBilinearBufferSize;
using test::GuardedImage;
using test::ImageLayout;
using test::RandomInt;

class WarpTest : public test::VariantTest {
 protected:
  // Either the map of a crop onto a rectangle (through the coefficients
  // primitive, exact ratios, ties included) or a rotation with scale, with
  // the picture somewhere about the w x h destination.
  bool RandomMap(ImageRect rect, int32_t dstW, int32_t dstH, double* c) {
    if (RandomInt(Rng(), 0, 1)) {
      const double ox = RandomInt(Rng(), -dstW / 2, dstW - 1),
                   oy = RandomInt(Rng(), -dstH / 2, dstH - 1);
      const double w = RandomInt(Rng(), 1, 120), h = RandomInt(Rng(), 1, 120);
      const double quad[8] = {ox, oy, ox + w, oy, ox + w, oy + h, ox, oy + h};
      return primitives::ownGetBilinearCoeffs(rect, quad, c) == StatusOk;
    }
    const double angle = RandomInt(Rng(), 0, 6283) * 1e-3;
    const double sx = RandomInt(Rng(), 200, 3000) * 1e-3, sy = RandomInt(Rng(), 200, 3000) * 1e-3;
    const double cs = std::cos(angle), sn = std::sin(angle);
    // The rectangle's centre goes to a random point of the destination.
    const double mx = rect.x + rect.width / 2.0, my = rect.y + rect.height / 2.0;
    const double tx = RandomInt(Rng(), 0, dstW * 1000) * 1e-3,
                 ty = RandomInt(Rng(), 0, dstH * 1000) * 1e-3;
    const double a[6] = {sx * cs, -sy * sn, tx - (sx * cs * mx - sy * sn * my),
                         sx * sn, sy * cs,  ty - (sx * sn * mx + sy * cs * my)};
    const double out[8] = {0, a[0], a[1], a[2], 0, a[3], a[4], a[5]};
    std::memcpy(c, out, sizeof out);
    return true;
  }
};

TEST_P(WarpTest, MatchesReference) {
  int drawn = 0;
  for (int round = 0; round < 120; ++round) {
    const ImageSize srcSize{RandomInt(Rng(), 2, 90), RandomInt(Rng(), 2, 90)};
    const int32_t srcStep = srcSize.width * 3 + RandomInt(Rng(), 0, 1) * RandomInt(Rng(), 1, 40);
    // The source ends at a protected page: a read past its last pixel faults.
    test::PageBuffer srcBuffer(size_t(srcSize.height - 1) * srcStep + srcSize.width * 3);
    test::FillPattern(srcBuffer.data(), srcBuffer.size(), test::Pattern::Random, Rng());
    ImageRect srcRect{RandomInt(Rng(), 0, srcSize.width - 2),
                      RandomInt(Rng(), 0, srcSize.height - 2), 0, 0};
    srcRect.width = RandomInt(Rng(), 2, srcSize.width - srcRect.x + 20);  // may run past the edge
    srcRect.height = RandomInt(Rng(), 2, srcSize.height - srcRect.y + 20);
    ImageLayout layout = test::RandomLayout(Rng(), 100, 100);
    layout.rowBytes = RandomInt(Rng(), 1, 100) * 3;
    layout.bottomUp = false;  // the warp takes positive steps only
    GuardedImage dst(layout), expected(layout);
    dst.Fill(test::Pattern::Random, Rng());
    for (int32_t y = 0; y < layout.rows; ++y) {
      std::memcpy(expected.row(y), dst.row(y), layout.rowBytes);
    }
    const int32_t dstW = layout.rowBytes / 3;
    ImageRect dstRect{RandomInt(Rng(), 0, dstW - 1), RandomInt(Rng(), 0, layout.rows - 1), 0, 0};
    dstRect.width = RandomInt(Rng(), 1, dstW - dstRect.x);
    dstRect.height = RandomInt(Rng(), 1, layout.rows - dstRect.y);
    if (RandomInt(Rng(), 0, 1)) dstRect = {0, 0, dstW, layout.rows};
    double c[8];
    if (!RandomMap(srcRect, dstW, layout.rows, c)) continue;

    int32_t size = 0;
    const PrimitiveStatus sized =
        ownWarpBilinearBufferSize(srcSize, srcRect, dstRect, 0, c, WarpNearest, &size);
    ASSERT_TRUE(sized == StatusOk || sized == StatusNoOverlap) << sized;
    test::PageBuffer scratch(sized == StatusOk ? size_t(size) : 64);
    // The caller's underflow mask and sticky flag come back as they were.
    constexpr unsigned int kUnderflow = _MM_MASK_UNDERFLOW | _MM_EXCEPT_UNDERFLOW;
    const unsigned int saved = _mm_getcsr();
    const unsigned int state = (saved & ~kUnderflow) | (round & 1 ? _MM_MASK_UNDERFLOW : 0) |
                               (round & 2 ? _MM_EXCEPT_UNDERFLOW : 0);
    _mm_setcsr(state);
    const PrimitiveStatus status =
        ownWarpBilinear_8u_C3R(srcBuffer.data(), srcSize, srcStep, srcRect, dst.data(), dst.step(),
                               dstRect, c, WarpNearest, scratch.data());
    const unsigned int after = _mm_getcsr();
    _mm_setcsr(saved);
    ASSERT_EQ(status, sized) << "round " << round;
    EXPECT_EQ(after & kUnderflow, state & kUnderflow) << "round " << round;
    const double a[6] = {c[1], c[2], c[3], c[5], c[6], c[7]};
    const bool any = test::ReferenceWarp(srcBuffer.data(), srcSize, srcStep, srcRect,
                                         expected.data(), expected.step(), dstRect, a);
    drawn += any;
    ASSERT_TRUE(dst.CheckGuards()) << "round " << round;
    ASSERT_TRUE(test::SameRows(expected.data(), expected.step(), dst.data(), dst.step(),
                               layout.rowBytes, layout.rows))
        << "round " << round << ": source " << srcSize.width << "x" << srcSize.height << ", map "
        << c[1] << " " << c[2] << " " << c[3] << " / " << c[5] << " " << c[6] << " " << c[7];
  }
  EXPECT_GT(drawn, 40);
}

TEST_P(WarpTest, RefusalsInOrderWriteNothing) {
  std::vector<uint8_t> src(20 * 20 * 3, 7);
  ImageLayout layout;
  layout.rowBytes = 30 * 3;
  layout.rows = 30;
  GuardedImage dst(layout);
  dst.FillValue(0x33);
  void* block = primitives::ownMallocAligned(4096);
  uint8_t* const scratch = static_cast<uint8_t*>(block);
  const uint8_t* const s = src.data();
  const double scale[8] = {0, 1.5, 0, 0, 0, 0, 1.5, 0};
  const double bent[8] = {1e-3, 1.5, 0, 0, 0, 0, 1.5, 0};
  const double singular[8] = {-0.0, 1, 2, 0, 0.0, 1, 2, 0};
  const double away[8] = {0, 1, 0, -100, 0, 0, 1, 0};
  const double bentAway[8] = {1e-3, 1.5, 0, -100, 0, 0, 1.5, 0};
  const ImageSize img{20, 20};
  const ImageRect all{0, 0, 20, 20}, out{0, 0, 30, 30};
  const int32_t step = 20 * 3;
  struct Case {
    const char* what;
    const uint8_t* src;
    ImageSize size;
    int32_t srcStep;
    ImageRect srcRect, dstRect;
    const double* c;
    uint32_t mode;
    uint8_t* scratch;
    PrimitiveStatus want;
  } const cases[] = {
      {"null coefficients", s, img, 0, all, out, nullptr, 1, scratch, StatusNullPointer},
      {"stride 0 before null source", nullptr, img, 0, all, out, scale, 1, scratch, StatusStep},
      {"null source", nullptr, img, step, all, out, scale, 1, scratch, StatusNullPointer},
      {"null scratch", s, img, step, all, out, scale, 1, nullptr, StatusNullPointer},
      {"empty image", s, {0, 20}, step, all, out, scale, 1, scratch, StatusSize},
      {"negative rectangle", s, img, step, {-1, 0, 5, 5}, out, scale, 1, scratch, StatusSize},
      {"empty destination", s, img, step, all, {0, 0, 5, 0}, scale, 3, scratch, StatusSize},
      {"mode 3", s, img, step, all, out, singular, 3, scratch, StatusInterpolation},
      {"no inverse", s, img, step, {20, 0, 5, 5}, out, singular, 1, scratch, StatusTransform},
      {"outside", s, img, step, {20, 0, 5, 5}, out, scale, 2, scratch, StatusRectangleOutside},
      {"one column left", s, img, step, {19, 0, 5, 5}, out, scale, 1, scratch, StatusRectangle},
      {"one-column image", s, {1, 20}, step, all, out, scale, 2, scratch, StatusRectangle},
      {"misses the destination", s, img, step, all, out, away, 1, scratch, StatusNoOverlap},
      {"linear not served yet", s, img, step, all, out, scale, 2, scratch, StatusInterpolation},
      {"smooth edge not served yet", s, img, step, all, out, scale, WarpSmoothEdge | 1, scratch,
       StatusInterpolation},
      {"bilinear: null scratch", s, img, step, all, out, bent, 1, nullptr, StatusNullPointer},
      {"bilinear: stride 0", s, img, 0, all, out, bent, 1, scratch, StatusStep},
      {"bilinear: mode 6", s, img, step, all, out, bent, 6, scratch, StatusInterpolation},
      {"bilinear: misses", s, img, step, all, out, bentAway, 1, scratch, StatusNoOverlap},
      {"bilinear not served yet", s, img, step, all, out, bent, 1, scratch, StatusInterpolation},
  };
  const std::vector<uint8_t> untouched(layout.rowBytes, 0x33);
  for (const Case& k : cases) {
    EXPECT_EQ(ownWarpBilinear_8u_C3R(k.src, k.size, k.srcStep, k.srcRect, dst.data(), dst.step(),
                                     k.dstRect, k.c, k.mode, k.scratch),
              k.want)
        << k.what;
    ASSERT_TRUE(
        test::SameRows(untouched.data(), 0, dst.data(), dst.step(), layout.rowBytes, layout.rows))
        << k.what;
  }
  EXPECT_TRUE(dst.CheckGuards());
  primitives::ownFreeAligned(block);
}

// The kernel alone, with row tables of any shape: spans that start and end
// anywhere, empty rows, maps without rotation (each span's positions reused
// down the rows) and with it, against the designed sums done plainly.
TEST_P(WarpTest, NearestKernelFollowsAnyRowTable) {
  using KernelFn = void (*)(const uint8_t*, uint8_t*, int32_t, int32_t, int32_t, int32_t,
                            const int32_t*, const double*, int32_t, int32_t, uint8_t*);
#define CORVANE_NEAREST_OF(v) &::corvane::v::ownWarpAffineNearest_8u_C3,
  constexpr KernelFn kKernels[] = {CORVANE_FOR_EACH_VARIANT(CORVANE_NEAREST_OF)};
#undef CORVANE_NEAREST_OF
  for (int round = 0; round < 60; ++round) {
    const int32_t sw = RandomInt(Rng(), 1, 60), sh = RandomInt(Rng(), 1, 60), sstep = sw * 3 + 5;
    test::PageBuffer src(size_t(sh - 1) * sstep + sw * 3);
    test::FillPattern(src.data(), src.size(), test::Pattern::Random, Rng());
    const int32_t dw = RandomInt(Rng(), 1, 80), rows = RandomInt(Rng(), 1, 40);
    const int32_t yMin = RandomInt(Rng(), 0, 20);
    ImageLayout layout;
    layout.rowBytes = dw * 3;
    layout.rows = yMin + rows;
    GuardedImage dst(layout), expected(layout);
    dst.FillValue(0x44);
    expected.FillValue(0x44);
    std::vector<int32_t> table(2 * size_t(rows));
    for (int32_t r = 0; r < rows; ++r) {
      table[2 * r] = RandomInt(Rng(), 0, dw - 1);
      table[2 * r + 1] = RandomInt(Rng(), table[2 * r] - 3, dw - 1);  // some rows empty
    }
    // Keeps every position of the destination inside the source.
    const bool turned = RandomInt(Rng(), 0, 2) == 0;
    const double t = turned ? 0.25 : 0.0;
    const double i0 = (sw - 1.0) / (dw + t * (yMin + rows)) * 0.999,
                 i4 = (sh - 1.0) / (yMin + rows + t * dw) * 0.999;
    const double inverse[6] = {i0, t * i0, 0.0, t * i4, i4, 0.0};
    std::vector<uint8_t> work(size_t(dw) * 8 + 64);
    uint8_t* area = work.data() + (64 - reinterpret_cast<uintptr_t>(work.data()) % 64) % 64;
    kKernels[Variant()](src.data(), dst.row(yMin), sstep, dst.step(), yMin, yMin + rows - 1,
                        table.data(), inverse, sw - 1, sh - 1, area);
    double bu = yMin * inverse[1] + inverse[2], bv = yMin * inverse[4] + inverse[5];
    for (int32_t r = 0; r < rows; ++r, bu += inverse[1], bv += inverse[4]) {
      double u = table[2 * r] * inverse[0] + bu + 0.5, v = table[2 * r] * inverse[3] + bv + 0.5;
      for (int32_t x = table[2 * r]; x <= table[2 * r + 1]; ++x, u += inverse[0], v += inverse[3]) {
        std::memcpy(expected.row(yMin + r) + 3 * x,
                    src.data() + int64_t(v) * sstep + 3 * int64_t(u), 3);
      }
    }
    ASSERT_TRUE(dst.CheckGuards()) << "round " << round;
    ASSERT_TRUE(test::SameRows(expected.data(), expected.step(), dst.data(), dst.step(),
                               layout.rowBytes, layout.rows))
        << "round " << round << (turned ? ", turned" : "");
  }
}

CORVANE_INSTANTIATE_VARIANT_TESTS(WarpTest);

}  // namespace
}  // namespace corvane
