// ownWarpBilinear_8u_C3R on every code path against a pixel-by-pixel
// reference written from the sampling formulas, over crop-and-scale maps,
// rotations with shear and maps with x·y terms in all four solve modes, on
// sources from one pixel wide; the caller's floating-point state; refusals.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "conformance.h"
#include "primitives/warp/warp.h"
#include "primitives/warp/warp_kernels.h"
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

// Lagrange's weight of the sample at offset -1 (which 0) or 0 (which 1) from
// s = k/512 - 1, scaled by 16384.
int32_t Lagrange(int32_t k, int which) {
  const double s = k / 512.0 - 1;
  return int32_t(
      std::lround((which ? (s + 1) * (s - 1) * (s - 2) / 2 : -s * (s - 1) * (s - 2) / 6) * 16384));
}

template <class R, bool Fused>
R Fma(R a, R b, R c) {
  return Fused ? std::fma(a, b, c) : a * b + c;
}

// The designed samplings of a source image of w x h at a position.
struct Sampling {
  const uint8_t* src;
  int64_t step;
  int32_t w, h, variant;
  int32_t At(int64_t x, int64_t y, int c) const { return src[y * step + 3 * x + c]; }

  // Affine road: the position carries its + 0.5; off it, rounded, ties to even.
  void Nearest(double u, double v, bool affine, uint8_t* d) const {
    const int64_t x = affine ? int64_t(u) : std::clamp<int64_t>(std::lrint(float(u)), 0, w - 1);
    const int64_t y = affine ? int64_t(v) : std::clamp<int64_t>(std::lrint(float(v)), 0, h - 1);
    for (int c = 0; c < 3; ++c) d[c] = uint8_t(At(x, y, c));
  }
  template <class F>
  void Linear(F u, F v, uint8_t* d) const {
    const int64_t x = std::clamp(int32_t(u), 0, w - 2), y = std::clamp(int32_t(v), 0, h - 2);
    const int64_t fx = std::clamp<int64_t>(std::lrint((u - F(x)) * F(16384)), 0, 16384);
    const int64_t fy = std::clamp<int64_t>(std::lrint((v - F(y)) * F(16384)), 0, 16384);
    for (int c = 0; c < 3; ++c) {
      const int64_t top = (At(x, y, c) * (16384 - fx) + At(x + 1, y, c) * fx) >> 8;
      const int64_t bottom = (At(x, y + 1, c) * (16384 - fx) + At(x + 1, y + 1, c) * fx) >> 8;
      d[c] = uint8_t((top * (16384 - fy) + bottom * fy + 0x80000) >> 20);
    }
  }
  void Cubic(float u, float v, uint8_t* d) const {
    if (!(u >= -1 && v >= -1 && u <= w && v <= h)) return;
    int32_t x = std::min(int32_t(u), w - 3), y = std::min(int32_t(v), h - 3);
    x -= x > 0, y -= y > 0;
    const int32_t ku = std::clamp<int32_t>(std::lrint((u - x) * 512.0f), 0, 1536);
    const int32_t kv = std::clamp<int32_t>(std::lrint((v - y) * 512.0f), 0, 1536);
    int32_t wx[4], wy[4];
    for (int i = 0; i < 4; ++i)
      wx[i] = Lagrange(i < 2 ? ku : 1536 - ku, i == 1 || i == 2),
      wy[i] = Lagrange(i < 2 ? kv : 1536 - kv, i == 1 || i == 2);
    for (int c = 0; c < 3; ++c) {
      int32_t sum = 0;
      for (int j = 0; j < 4; ++j) {
        int32_t across = 0;
        for (int i = 0; i < 4; ++i) across += wx[i] * At(x + i, y + j, c);
        sum += wy[j] * int16_t(across >> 8);
      }
      d[c] = uint8_t(std::clamp((sum + 0x80000) >> 20, 0, 255));
    }
  }
  template <class R, bool Fused>
  void CatmullRom(double u, double v, uint8_t* d) const {
    const int64_t x = int64_t(u + 1e-7), y = int64_t(v + 1e-7);
    R wx[4], wy[4];
    for (const auto& [t, wt] : {std::pair{R(u - x), wx}, {R(v - y), wy}}) {
      const R t2 = t * t;
      wt[0] = Fma<R, Fused>(Fma<R, Fused>(-0.5, t2, -0.5), t, t2);
      wt[1] = Fma<R, Fused>(Fma<R, Fused>(1.5, t, -2.5), t2, 1);
      wt[2] = (Fma<R, Fused>(-1.5, t2, 2 * t) + R(0.5)) * t;
      wt[3] = Fma<R, Fused>(t, t, -t) * t * R(0.5);
    }
    for (int c = 0; c < 3; ++c) {
      R value = 0;
      for (int j = 0; j < 4; ++j) {
        const int64_t row = std::clamp<int64_t>(y - 1 + j, 0, h - 1);
        R across = wx[0] * R(At(std::clamp<int64_t>(x - 1, 0, w - 1), row, c));
        for (int i = 1; i < 4; ++i)
          across =
              Fma<R, Fused>(wx[i], R(At(std::clamp<int64_t>(x - 1 + i, 0, w - 1), row, c)), across);
        value = j ? Fma<R, Fused>(wy[j], across, value) : wy[0] * across;
      }
      d[c] = value > 255 ? 255 : value < 0 ? 0 : uint8_t(int32_t(value + R(0.5)));
    }
  }
  void Take(uint32_t mode, double u, double v, bool affine, uint8_t* d) const {
    if (mode == WarpNearest) return Nearest(u, v, affine, d);
    if (mode == WarpLinear) return affine ? Linear(u, v, d) : Linear(float(u), float(v), d);
    if (mode == WarpCubic) return Cubic(float(u), float(v), d);
    if (variant == 0) return CatmullRom<double, false>(u, v, d);
    if (variant < 4) return CatmullRom<float, false>(u, v, d);
    CatmullRom<float, true>(u, v, d);
  }
};

// Arg: `border` holds the interpolation, `kind` the map: 0 crop and scale,
// 1 rotation with scale and shear, 2..5 maps with x·y terms whose inverse is
// solved in mode kind - 2 (a quad, quads with edges 0-1 and 2-3 or 1-2 and
// 3-0 parallel, a rotation with an x·y term too small to count).
struct Map {
  ImageRect srcRect, dstRect;
  double c[8];
};
Map MapOf(const Frame& f) {
  std::mt19937 r(static_cast<uint32_t>(f.seed));
  auto any = [&r](double lo, double hi) { return lo + (hi - lo) * RandomInt(r, 0, 1000) * 1e-3; };
  const int32_t dw = f.roi.width, dh = f.roi.height;
  Map m{{RandomInt(r, 0, f.srcSize.width - 1), RandomInt(r, 0, f.srcSize.height - 1), 0, 0},
        {0, 0, dw, dh},
        {}};
  m.srcRect.width = RandomInt(r, 2, f.srcSize.width - m.srcRect.x + 20);  // may run past the edge
  m.srcRect.height = RandomInt(r, 2, f.srcSize.height - m.srcRect.y + 20);
  if (RandomInt(r, 0, 1)) {
    m.dstRect = {RandomInt(r, 0, dw - 1), RandomInt(r, 0, dh - 1), 0, 0};
    m.dstRect.width = RandomInt(r, 1, dw - m.dstRect.x);
    m.dstRect.height = RandomInt(r, 1, dh - m.dstRect.y);
  }
  const double x = any(-dw / 2, dw), y = any(-dh / 2, dh);
  if (f.arg.kind == 1 || f.arg.kind == 5) {  // the latter with an x·y term of no weight
    const double angle = any(0, 6.283), cs = std::cos(angle), sn = std::sin(angle);
    const double sx = any(0.2, 3), sy = any(0.2, 3), k = any(-1, 1);
    const double mx = m.srcRect.x + m.srcRect.width / 2.0,
                 my = m.srcRect.y + m.srcRect.height / 2.0;
    const double a[4] = {sx * cs, k * cs - sy * sn, sx * sn, k * sn + sy * cs};
    const double c[8] = {
        f.arg.kind == 5 ? 1e-20 : 0.0, a[0], a[1], x - a[0] * mx - a[1] * my, 0, a[2], a[3],
        y - a[2] * mx - a[3] * my};
    return std::memcpy(m.c, c, sizeof c), m;
  }
  // Whole-pixel corners keep parallel edges parallel and the others clearly not.
  const double lambda = RandomInt(r, 2, 6) / 4.0 + (RandomInt(r, 0, 1) ? 0.0 : 0.25);
  const int32_t qx = int32_t(x), qy = int32_t(y), qw = RandomInt(r, 3, 120),
                qh = RandomInt(r, 3, 120);
  const int32_t sx = f.arg.kind ? RandomInt(r, 1, qw / 3 + 1) * (RandomInt(r, 0, 1) * 2 - 1) : 0;
  const int32_t sy = f.arg.kind ? RandomInt(r, 1, qh / 3 + 1) * (RandomInt(r, 0, 1) * 2 - 1) : 0;
  double q[8] = {double(qx),      double(qy),      double(qx + qw), double(qy + sy),
                 double(qx + qw), double(qy + qh), double(qx + sx), double(qy + qh)};
  if (f.arg.kind == 2) {
    for (int i = 0; i < 8; ++i) q[i] += RandomInt(r, -(i % 2 ? qh : qw) / 7, (i % 2 ? qh : qw) / 7);
  } else if (f.arg.kind >= 3) {
    // Point 2 (or 3) from point 3 (or 0) along edge 0-1 (or 1-2), λ times as long.
    const int to = f.arg.kind == 3 ? 4 : 6, from = f.arg.kind == 3 ? 6 : 0;
    const int e = f.arg.kind == 3 ? 0 : 2;
    for (int i = 0; i < 2; ++i) q[to + i] = q[from + i] + lambda * (q[e + 2 + i] - q[e + i]);
  }
  // Off the pixel grid, where a rounding can't decide whether an edge covers a pixel.
  for (int i = 0; i < 8 && f.arg.kind >= 2; ++i) q[i] += i % 2 ? 0.7071 : 0.3183;
  if (ownGetBilinearCoeffs(m.srcRect, q, m.c) != StatusOk) m.c[1] = 1, m.c[6] = 1;  // identity
  return m;
}

// The picture of the clipped source rectangle and how its pixels sample:
// the reference's own affine inverse, the library's parameters off it.
void WarpReference(const Frame& f) {
  Map m = MapOf(f);
  ImageRect& rect = m.srcRect;
  rect.width = std::min(rect.width, f.srcSize.width - rect.x);
  rect.height = std::min(rect.height, f.srcSize.height - rect.y);
  if (rect.width < 2 || rect.height < 2) return;
  uint32_t mode = f.arg.border;
  if (f.srcSize.width == 1 || f.srcSize.height == 1) mode = WarpNearest;
  if (mode == WarpCubic && (f.srcSize.width < 4 || f.srcSize.height < 4)) mode = WarpLinear;
  const double* c = m.c;
  const bool affine = c[0] == 0 && c[4] == 0;
  const double x0 = rect.x, y0 = rect.y, x1 = x0 + rect.width - 1, y1 = y0 + rect.height - 1;
  const double cx[4] = {x0, x1, x1, x0}, cy[4] = {y0, y0, y1, y1};
  double q[8];
  for (int i = 0; i < 4; ++i) {
    q[2 * i] = affine ? c[1] * cx[i] + c[2] * cy[i] + c[3]
                      : (c[0] * cy[i] + c[1]) * cx[i] + (c[2] * cy[i] + c[3]);
    q[2 * i + 1] = affine ? c[5] * cx[i] + c[6] * cy[i] + c[7]
                          : (c[4] * cy[i] + c[5]) * cx[i] + (c[6] * cy[i] + c[7]);
  }
  if (m7::ownClassifyQuad(q) < 0) return;
  // The inverse from the rectangle and its picture.
  const double ex = q[2] - q[0], ey = q[3] - q[1], fx = q[4] - q[2], fy = q[5] - q[3];
  const double d = 1.0 / (ex * fy - fx * ey), s = (x1 - x0) * d, t = (y1 - y0) * d;
  const double i0 = fy * s, i1 = -(s * fx), i3 = -(ey * t), i4 = t * ex;
  const double i2 = x0 - i0 * q[0] - i1 * q[1], i5 = y0 - i3 * q[0] - i4 * q[1];
  BilinearInverse b;
  m7::ownBilinearInverse(q, {rect.x, rect.y, int64_t(x1), int64_t(y1)}, m7::ownQuadOrientation(q),
                         &b);
  const double* p = b.p;
  const Sampling sampling{f.src, f.srcStep, f.srcSize.width, f.srcSize.height, f.variant};
  const double minY = std::max(std::min({q[1], q[3], q[5], q[7]}), double(m.dstRect.y));
  const double maxY =
      std::min(std::max({q[1], q[3], q[5], q[7]}), m.dstRect.y + m.dstRect.height - 1.0);
  const bool segment = minY == maxY;  // clipped to no height: no reach
  double baseU = std::ceil(minY) * i1 + i2, baseV = std::ceil(minY) * i4 + i5;
  for (double y = std::ceil(minY); y <= std::floor(maxY); y += 1.0, baseU += i1, baseV += i4) {
    int32_t left = 0, right = -1;
    SpanOfRow(q, y, m.dstRect.x, m.dstRect.x + m.dstRect.width - 1, !segment, &left, &right);
    const double half = mode == WarpNearest ? 0.5 : 0.0;
    double u = left * i0 + baseU + half, v = left * i3 + baseV + half;
    double bb = p[0] * left + p[1] * y + p[2], cc = p[4] * left + p[6] * y + p[8];
    double gg = p[5] * left + p[7] * y + p[9];
    for (int32_t x = left; x <= right; ++x, u += i0, v += i3, bb += p[0], cc += p[4], gg += p[5]) {
      if (!affine) {
        const double root = std::sqrt(bb * bb - cc), s = b.rootSign ? bb + root : bb - root;
        const int sm = b.solveMode;
        u = sm == 0 ? s + p[10] : sm == 1 ? cc / bb + p[10] : cc;
        v = sm == 0 ? p[3] * s + gg : sm == 2 ? gg / bb + p[10] : gg;
        ASSERT_NEAR((c[0] * v + c[1]) * u + c[2] * v + c[3], x, 1e-6) << "mode " << sm;
        ASSERT_NEAR((c[4] * v + c[5]) * u + c[6] * v + c[7], y, 1e-6) << "mode " << sm;
      }
      sampling.Take(mode, u, v, affine, f.dst + int64_t(y) * f.dstStep + 3 * x);
    }
  }
}

void Warp(const Frame& f) {
  const Map m = MapOf(f);
  int32_t size = 0;
  const PrimitiveStatus sized =
      ownWarpBilinearBufferSize(f.srcSize, m.srcRect, m.dstRect, 0, m.c, f.arg.border, &size);
  PageBuffer scratch(sized == StatusOk ? size_t(size) : 64);
  // The caller's underflow mask and sticky flag come back as they were.
  constexpr unsigned kUnderflow = _MM_MASK_UNDERFLOW | _MM_EXCEPT_UNDERFLOW;
  const unsigned saved = _mm_getcsr(), state = (saved & ~kUnderflow) | (f.seed & kUnderflow);
  _mm_setcsr(state);
  const PrimitiveStatus status =
      ownWarpBilinear_8u_C3R(f.src, f.srcSize, f.srcStep, m.srcRect, f.dst, f.dstStep, m.dstRect,
                             m.c, f.arg.border, scratch.data());
  const unsigned after = _mm_getcsr();
  _mm_setcsr(saved);
  EXPECT_EQ(status, sized);
  EXPECT_EQ(after & kUnderflow, state & kUnderflow);
}

// A source image of random size, often at most 4 pixels wide or high.
ImageSize SourceOf(ImageSize, const Arg&, uint64_t seed) {
  std::mt19937 r(static_cast<uint32_t>(seed >> 32));
  const int32_t w = RandomInt(r, 1, RandomInt(r, 0, 3) ? 90 : 4);
  return {w, RandomInt(r, 1, RandomInt(r, 0, 3) ? 90 : 4)};
}

const bool kRows = [] {
  const char* modes[] = {"", "nearest", "linear", "", "cubic", "", "Catmull-Rom"};
  const char* maps[] = {"crop and scale", "rotation",     "quad",
                        "trapezoid",      "trapezoid up", "rotation with a hair of x·y"};
  std::vector<Arg> warps;
  for (uint32_t mode : {1, 2, 4, 6}) {
    for (int32_t kind = 0; kind < (mode == 6 ? 2 : 6); ++kind)
      warps.push_back({std::string(modes[mode]) + ", " + maps[kind], {}, {}, mode, kind});
  }
  Row warp{"warp_8u_C3", {1, 3}, warps, Warp, WarpReference};
  warp.source = SourceOf;
  return AddRow(warp);
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
                       {"empty destination", -6, [](W c) { c.dw = 0, c.direction = 9; }},
                       {"direction 2", -231, [](W c) { c.direction = 2, c.mode = 3; }},
                       {"mode 3", -23, [](W c) { c.mode = 3, c.c = kSingular; }},
                       {"Catmull-Rom, x·y terms", -23, [](W c) { c.c = kBent, c.mode = 6; }},
                       {"Catmull-Rom backwards", -23, [](W c) { c.direction = 1, c.mode = 6; }},
                       {"no inverse", -56, [](W c) { c.x = 16, c.c = kSingular; }},
                       {"outside", 29, [](W c) { c.x = 16; }},
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
         {"x·y terms: null scratch", -8, [](W c) { c.c = kBent, c.scratch = nullptr; }},
         {"x·y terms: stride 0", -16, [](W c) { c.c = kBent, c.dstStep = 0, c.mode = 3; }},
         {"x·y terms: mode 6", -23, [](W c) { c.c = kBent, c.mode = 6; }},
         {"x·y terms: misses", 30, [](W c) { c.c = kBentAway; }}},
        false);  // the scratch means nothing after a call

}  // namespace
}  // namespace corvane::test
