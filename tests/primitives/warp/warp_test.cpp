// ownWarpBilinear_8u_C3R and its nearest-neighbour kernel on every code path
// against a pixel-by-pixel reference that finds each row's span from the
// crossings of the picture's edges: crop-and-scale maps and rotations,
// pictures partly outside the destination rectangle, the caller's
// floating-point state kept; and the refusals of the warp family.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "conformance.h"
#include "primitives/warp/warp.h"
#include "primitives/warp/warp_nearest.h"
#include "support/guarded.h"

namespace corvane::test {
namespace {

using primitives::ownGetBilinearCoeffs;
using primitives::ownWarpBilinear_8u_C3R;
using primitives::ownWarpBilinearBufferSize;

// First and last covered column of row y of a convex quad clipped to columns
// x0..x1, from the crossings of its edges, a boundary reaching a column up to
// 1e-13 beyond it where `reach`; false when the row misses the quad.
bool SpanOfRow(const double* q, double y, double x0, double x1, bool reach, int32_t* left,
               int32_t* right) {
  double lo = HUGE_VAL, hi = -HUGE_VAL;
  for (int i = 0; i < 8; i += 2) {
    const double px = q[i], py = q[i + 1], qx = q[(i + 2) % 8], qy = q[(i + 3) % 8];
    if (py == y) lo = std::min(lo, px), hi = std::max(hi, px);
    if (py == qy || y < std::min(py, qy) || y > std::max(py, qy)) continue;
    const double x = px + (y - py) * (qx - px) / (qy - py);
    lo = std::min(lo, x), hi = std::max(hi, x);
  }
  lo = std::max(lo, x0), hi = std::min(hi, x1);
  if (lo > hi) return false;
  const double l = std::ceil(lo), r = std::floor(hi);
  *left = int32_t(reach && lo + 1.0 - l < 1e-13 ? l - 1 : l);
  *right = int32_t(reach && 1.0 - hi + r < 1e-13 ? r + 1 : r);
  return true;
}

// The affine warp a (x' = a0·x + a1·y + a2, y' = a3·x + a4·y + a5), pixel by
// pixel: each destination pixel of a row's span takes the source pixel at
// its position through the inverse, positions accumulated along the row and
// down the rows from the first.
void ReferenceWarp(const uint8_t* src, ImageSize srcSize, int32_t srcStep, ImageRect rect,
                   uint8_t* dst, int32_t dstStep, ImageRect dstRect, const double* a) {
  rect.width = std::min(rect.width, srcSize.width - rect.x);
  rect.height = std::min(rect.height, srcSize.height - rect.y);
  const double x0 = rect.x, y0 = rect.y, x1 = x0 + rect.width - 1, y1 = y0 + rect.height - 1;
  const double cx[4] = {x0, x1, x1, x0}, cy[4] = {y0, y0, y1, y1};
  double q[8];
  for (int i = 0; i < 4; ++i) {
    q[2 * i] = a[0] * cx[i] + a[1] * cy[i] + a[2];
    q[2 * i + 1] = a[3] * cx[i] + a[4] * cy[i] + a[5];
  }
  // The inverse from the rectangle and its picture.
  const double ex = q[2] - q[0], ey = q[3] - q[1], fx = q[4] - q[2], fy = q[5] - q[3];
  const double d = 1.0 / (ex * fy - fx * ey), s = (x1 - x0) * d, t = (y1 - y0) * d;
  const double i0 = fy * s, i1 = -(s * fx), i3 = -(ey * t), i4 = t * ex;
  const double i2 = x0 - i0 * q[0] - i1 * q[1], i5 = y0 - i3 * q[0] - i4 * q[1];
  const double minY = std::max(std::min({q[1], q[3], q[5], q[7]}), double(dstRect.y));
  const double maxY =
      std::min(std::max({q[1], q[3], q[5], q[7]}), dstRect.y + dstRect.height - 1.0);
  // Clipped to no height, the picture is a bare segment: no reach.
  const bool segment = minY == maxY;
  double baseU = std::ceil(minY) * i1 + i2, baseV = std::ceil(minY) * i4 + i5;
  for (double y = std::ceil(minY); y <= std::floor(maxY); y += 1.0, baseU += i1, baseV += i4) {
    int32_t left = 0, right = -1;
    if (!SpanOfRow(q, y, dstRect.x, dstRect.x + dstRect.width - 1, !segment, &left, &right)) {
      continue;
    }
    double u = left * i0 + baseU + 0.5, v = left * i3 + baseV + 0.5;
    for (int32_t x = left; x <= right; ++x, u += i0, v += i3) {
      const int32_t su = int32_t(u), sv = int32_t(v);
      ASSERT_TRUE(su >= rect.x && su <= x1 && sv >= rect.y && sv <= y1)
          << "reference position (" << u << ", " << v << ") outside the rectangle";
      std::memcpy(dst + int64_t(y) * dstStep + 3 * x, src + int64_t(sv) * srcStep + 3 * su, 3);
    }
  }
}

// The rectangles and the transform of a case, from its seed: the map of a
// crop onto a rectangle through the coefficients primitive (exact ratios,
// ties included), or a rotation with scale, the picture somewhere about a
// destination rectangle that is the whole image or part of it.
struct Map {
  ImageRect srcRect, dstRect;
  double c[8];
};
Map MapOf(const Frame& f) {
  std::mt19937 r(static_cast<uint32_t>(f.seed));
  const int32_t dw = f.roi.width, dh = f.roi.height;
  Map m{{RandomInt(r, 0, f.srcSize.width - 2), RandomInt(r, 0, f.srcSize.height - 2), 0, 0},
        {0, 0, dw, dh},
        {}};
  m.srcRect.width = RandomInt(r, 2, f.srcSize.width - m.srcRect.x + 20);  // may run past the edge
  m.srcRect.height = RandomInt(r, 2, f.srcSize.height - m.srcRect.y + 20);
  if (RandomInt(r, 0, 1)) {
    m.dstRect = {RandomInt(r, 0, dw - 1), RandomInt(r, 0, dh - 1), 0, 0};
    m.dstRect.width = RandomInt(r, 1, dw - m.dstRect.x);
    m.dstRect.height = RandomInt(r, 1, dh - m.dstRect.y);
  }
  if (f.arg.kind == 0) {
    const double x = RandomInt(r, -dw / 2, dw - 1), y = RandomInt(r, -dh / 2, dh - 1);
    const double w = RandomInt(r, 1, 120), h = RandomInt(r, 1, 120);
    const double quad[8] = {x, y, x + w, y, x + w, y + h, x, y + h};
    EXPECT_EQ(ownGetBilinearCoeffs(m.srcRect, quad, m.c), StatusOk);
    return m;
  }
  const double angle = RandomInt(r, 0, 6283) * 1e-3, cs = std::cos(angle), sn = std::sin(angle);
  const double sx = RandomInt(r, 200, 3000) * 1e-3, sy = RandomInt(r, 200, 3000) * 1e-3;
  const double mx = m.srcRect.x + m.srcRect.width / 2.0, my = m.srcRect.y + m.srcRect.height / 2.0;
  const double tx = RandomInt(r, 0, dw * 1000) * 1e-3, ty = RandomInt(r, 0, dh * 1000) * 1e-3;
  const double c[8] = {0, sx * cs, -sy * sn, tx - (sx * cs * mx - sy * sn * my),
                       0, sx * sn, sy * cs,  ty - (sx * sn * mx + sy * cs * my)};
  std::memcpy(m.c, c, sizeof c);
  return m;
}

// Source and destination regions are whole images, pixel (0, 0) first.
void Warp(const Frame& f) {
  const Map m = MapOf(f);
  int32_t size = 0;
  const PrimitiveStatus sized =
      ownWarpBilinearBufferSize(f.srcSize, m.srcRect, m.dstRect, 0, m.c, WarpNearest, &size);
  ASSERT_TRUE(sized == StatusOk || sized == StatusNoOverlap) << sized;
  PageBuffer scratch(sized == StatusOk ? size_t(size) : 64);
  // The caller's underflow mask and sticky flag come back as they were.
  constexpr unsigned kUnderflow = _MM_MASK_UNDERFLOW | _MM_EXCEPT_UNDERFLOW;
  const unsigned saved = _mm_getcsr(), state = (saved & ~kUnderflow) | (f.seed & kUnderflow);
  _mm_setcsr(state);
  const PrimitiveStatus status =
      ownWarpBilinear_8u_C3R(f.src, f.srcSize, f.srcStep, m.srcRect, f.dst, f.dstStep, m.dstRect,
                             m.c, WarpNearest, scratch.data());
  const unsigned after = _mm_getcsr();
  _mm_setcsr(saved);
  EXPECT_EQ(status, sized);
  EXPECT_EQ(after & kUnderflow, state & kUnderflow);
}

void WarpReference(const Frame& f) {
  const Map m = MapOf(f);
  const double a[6] = {m.c[1], m.c[2], m.c[3], m.c[5], m.c[6], m.c[7]};
  ReferenceWarp(f.src, f.srcSize, f.srcStep, m.srcRect, f.dst, f.dstStep, m.dstRect, a);
}

// A source image of random size, from the case's seed.
template <int32_t Least>
ImageSize SourceOf(ImageSize, const Arg&, uint64_t seed) {
  std::mt19937 r(static_cast<uint32_t>(seed >> 32));
  return {RandomInt(r, Least, 90), RandomInt(r, Least, 90)};
}

// The kernel alone, with row tables of any shape: spans that start and end
// anywhere, empty rows, maps without rotation (each span's positions reused
// down the rows) and with it; every position stays inside the source.
struct Spans {
  int32_t yMin;
  std::vector<int32_t> table;
  double i[6];
};
Spans SpansOf(const Frame& f) {
  std::mt19937 r(static_cast<uint32_t>(f.seed));
  const int32_t dw = f.roi.width, rows = f.roi.height;
  Spans t{RandomInt(r, 0, rows - 1), {}, {}};
  for (int32_t y = t.yMin; y < rows; ++y) {
    t.table.push_back(RandomInt(r, 0, dw - 1));
    t.table.push_back(RandomInt(r, t.table.back() - 3, dw - 1));  // some rows empty
  }
  const double turn = f.arg.kind ? 0.25 : 0.0;
  const double i0 = (f.srcSize.width - 1.0) / (dw + turn * rows) * 0.999;
  const double i4 = (f.srcSize.height - 1.0) / (rows + turn * dw) * 0.999;
  const double inverse[6] = {i0, turn * i0, 0.0, turn * i4, i4, 0.0};
  std::memcpy(t.i, inverse, sizeof inverse);
  return t;
}

const decltype(&m7::ownWarpAffineNearest_8u_C3) kNearest[] =
    CORVANE_EACH_PATH(ownWarpAffineNearest_8u_C3);

void Kernel(const Frame& f) {
  const Spans t = SpansOf(f);
  std::vector<uint8_t> work(size_t(f.roi.width) * 8 + 64);
  uint8_t* area = work.data() + (64 - reinterpret_cast<uintptr_t>(work.data()) % 64) % 64;
  kNearest[f.variant](f.src, f.dst + intptr_t{t.yMin} * f.dstStep, f.srcStep, f.dstStep, t.yMin,
                      f.roi.height - 1, t.table.data(), t.i, f.srcSize.width - 1,
                      f.srcSize.height - 1, area);
}

// The designed sums, done plainly.
void KernelReference(const Frame& f) {
  const Spans t = SpansOf(f);
  double bu = t.yMin * t.i[1] + t.i[2], bv = t.yMin * t.i[4] + t.i[5];
  for (int32_t y = t.yMin; y < f.roi.height; ++y, bu += t.i[1], bv += t.i[4]) {
    const int32_t left = t.table[2 * (y - t.yMin)], right = t.table[2 * (y - t.yMin) + 1];
    double u = left * t.i[0] + bu + 0.5, v = left * t.i[3] + bv + 0.5;
    for (int32_t x = left; x <= right; ++x, u += t.i[0], v += t.i[3]) {
      std::memcpy(f.dst + intptr_t{y} * f.dstStep + 3 * x,
                  f.src + int64_t(v) * f.srcStep + 3 * int64_t(u), 3);
    }
  }
}

const bool kRows = [] {
  Row warp{"warp_nearest_8u_C3",
           {1, 3},
           {{"crop and scale"}, {"rotation", {}, {}, 0, 1}},
           Warp,
           WarpReference};
  Row kernel{"warp_affine_nearest_kernel",
             {1, 3},
             {{"axis-aligned"}, {"turned", {}, {}, 0, 1}},
             Kernel,
             KernelReference};
  warp.source = SourceOf<2>, kernel.source = SourceOf<1>;
  return AddRow(warp) && AddRow(kernel);
}();

const double kScale[8] = {0, 1.5, 0, 0, 0, 0, 1.5, 0}, kBent[8] = {1e-3, 1.5, 0, 0, 0, 0, 1.5, 0};
const double kSingular[8] = {-0.0, 1, 2, 0, 0.0, 1, 2, 0};  // -0.0 takes the affine road
const double kAway[8] = {0, 1, 0, -100, 0, 0, 1, 0};
const double kBentAway[8] = {1e-3, 1.5, 0, -100, 0, 0, 1.5, 0};
const double kSquare[8] = {0, 0, 8, 0, 8, 8, 0, 8}, kBowTie[8] = {0, 0, 8, 0, 0, 8, 8, 8};
const double kRepeated[8] = {0, 0, 8, 0, 8, 0, 0, 8}, kFlat[8] = {0, 0, 0, 0, 0, 8, 0, 8};

// Arguments of a call, the rectangles flat: a source image w x h, a source
// rectangle (x, y, rw, rh), a destination rectangle (dx, dy, dw, dh).
struct Call {
  const uint8_t* src;
  int32_t w, h, srcStep, x, y, rw, rh;
  uint8_t* dst;
  int32_t dstStep, dx, dy, dw, dh;
  const double* c;
  uint32_t mode;
  uint8_t* scratch;
  int32_t direction;
  int32_t* size;
  double* coeffs;
};
using W = Call&;
Call Good(const Outputs& o) {
  return {o.src, 16, 16, 48, 0,      0, 16,        16, o.dst,  o.dstStep,
          0,     0,  16, 16, kScale, 1, o.scratch, 0,  o.size, o.values};
}
PrimitiveStatus Coefficients(const Call& c) {
  return ownGetBilinearCoeffs({c.x, c.y, c.rw, c.rh}, c.c, c.coeffs);
}
PrimitiveStatus Sizing(const Call& c) {
  return ownWarpBilinearBufferSize({c.w, c.h}, {c.x, c.y, c.rw, c.rh}, {c.dx, c.dy, c.dw, c.dh},
                                   c.direction, c.c, c.mode, c.size);
}
PrimitiveStatus Warping(const Call& c) {
  return ownWarpBilinear_8u_C3R(c.src, {c.w, c.h}, c.srcStep, {c.x, c.y, c.rw, c.rh}, c.dst,
                                c.dstStep, {c.dx, c.dy, c.dw, c.dh}, c.c, c.mode, c.scratch);
}

// Each row breaks its own check and later ones: -8 null pointer, -6 size,
// -16 step, -23 interpolation, -56 transform, -57 rectangle, -58 quad,
// -231 direction, 29 rectangle outside, 30 no overlap. The coefficients take
// the rectangle onto the quad in `c`.
const bool kRefusals =
    AddRefusals<Call>("warp_coefficients",
                      [](const Outputs& o) {
                        Call c = Good(o);
                        return c.c = kSquare, c.rw = c.rh = 4, c;
                      },
                      Coefficients,
                      {{"null quad", -8, [](W c) { c.c = nullptr, c.x = -1; }},
                       {"null output", -8, [](W c) { c.coeffs = nullptr; }},
                       {"negative x", -6, [](W c) { c.x = -1, c.c = kBowTie; }},
                       {"no width", -6, [](W c) { c.rw = 0; }},
                       {"bow-tie", -58, [](W c) { c.rw = 1, c.c = kBowTie; }},
                       {"repeated corner", -58, [](W c) { c.c = kRepeated; }},
                       {"flat", -58, [](W c) { c.c = kFlat; }},
                       {"one column", -57, [](W c) { c.rw = 1; }},
                       {"one row", -57, [](W c) { c.rh = 1; }}}) &&
    AddRefusals<Call>("warp_sizing", Good, Sizing,
                      {{"null size", -8, [](W c) { c.size = nullptr, c.w = 0; }},
                       {"null coefficients", -8, [](W c) { c.c = nullptr; }},
                       {"empty image", -6, [](W c) { c.w = 0, c.direction = 9; }},
                       {"negative rectangle", -6, [](W c) { c.x = -1, c.direction = 9; }},
                       {"empty destination", -6, [](W c) { c.dw = 0, c.direction = 9; }},
                       {"direction 2", -231, [](W c) { c.direction = 2, c.mode = 3; }},
                       {"mode 3", -23, [](W c) { c.mode = 3, c.c = kSingular; }},
                       {"Catmull-Rom, x·y terms", -23, [](W c) { c.c = kBent, c.mode = 6; }},
                       {"Catmull-Rom backwards", -23, [](W c) { c.direction = 1, c.mode = 6; }},
                       {"no inverse", -56, [](W c) { c.x = 16, c.c = kSingular; }},
                       {"outside", 29, [](W c) { c.x = 16; }},
                       {"one column left", -57, [](W c) { c.x = 15; }},
                       {"misses the destination", 30, [](W c) { c.c = kAway; }}}) &&
    AddRefusals<Call>(
        "warp", Good, Warping,
        {{"null coefficients", -8, [](W c) { c.c = nullptr, c.srcStep = 0; }},
         {"stride 0", -16, [](W c) { c.src = nullptr, c.srcStep = 0; }},
         {"null source", -8, [](W c) { c.src = nullptr, c.w = 0; }},
         {"null scratch", -8, [](W c) { c.scratch = nullptr; }},
         {"empty image", -6, [](W c) { c.h = 0, c.mode = 3; }},
         {"negative rectangle", -6, [](W c) { c.y = -1; }},
         {"empty destination", -6, [](W c) { c.dh = 0, c.mode = 3; }},
         {"mode 3", -23, [](W c) { c.mode = 3, c.c = kSingular; }},
         {"no inverse", -56, [](W c) { c.x = 16, c.c = kSingular; }},
         {"outside", 29, [](W c) { c.x = 16; }},
         {"one column left", -57, [](W c) { c.x = 15; }},
         {"one-column image", -57, [](W c) { c.w = 1, c.mode = 2; }},
         {"misses the destination", 30, [](W c) { c.c = kAway; }},
         {"linear not served yet", -23, [](W c) { c.mode = WarpLinear; }},
         {"smooth edge not served yet", -23, [](W c) { c.mode |= WarpSmoothEdge; }},
         {"x·y terms: null scratch", -8, [](W c) { c.c = kBent, c.scratch = nullptr; }},
         {"x·y terms: stride 0", -16, [](W c) { c.c = kBent, c.dstStep = 0, c.mode = 3; }},
         {"x·y terms: mode 6", -23, [](W c) { c.c = kBent, c.mode = 6; }},
         {"x·y terms: misses", 30, [](W c) { c.c = kBentAway; }},
         {"x·y terms not served yet", -23, [](W c) { c.c = kBent; }}},
        false);  // the scratch means nothing after a call

}  // namespace
}  // namespace corvane::test
