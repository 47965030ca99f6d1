// The bilinear road, for maps with x·y terms: the inverse of the map as
// eleven parameters, a solve mode and a root sign; the kernels that turn each
// row into source positions (floats, in the work area) and hand them to a row
// sampler; and the nearest-neighbour row sampler. Built once per code path,
// in plain double arithmetic, so that every path computes the same positions.
//
// With B = P0·X + P1·Y + P2, C = P4·X + P6·Y + P8 and G = P5·X + P7·Y + P9,
// each accumulated along the row from its value at the row's first column:
//   mode 0: s = B ± sqrt(B² - C) (+ for root sign 1), u = s + P10, v = P3·s + G
//   mode 1: u = C/B + P10, v = G        (edges 0-1 and 2-3 parallel)
//   mode 2: u = C, v = G/B + P10        (edges 1-2 and 3-0 parallel)
//   mode 3: u = C, v = G                (both pairs parallel)
#include <immintrin.h>

#include <cmath>
#include <cstring>

#include "primitives/warp/warp_kernels.h"

namespace corvane::CORVANE_VARIANT {
namespace {

#include "primitives/warp/warp_pixels.inc"

// d, or 0 where it is negligible beside the product m it came from (n, the
// other product, when m itself vanishes): two limits, as for the affine
// determinant.
double Negligible(double d, double m, double n) {
  if (std::fabs(m) <= 1e-200) return std::fabs(n) <= 1e-10 ? 0.0 : d;
  return std::fabs(d / m) <= 1e-10 ? 0.0 : d;
}

using Sampler = void (*)(const uint8_t*, int32_t, int32_t, int32_t, const float*, const float*,
                         int32_t, uint8_t*);

template <int32_t Mode>
void RowPositions(const BilinearInverse& b, double x, double y, int32_t count, float* u, float* v) {
  const double* p = b.p;
  double bb = p[0] * x + p[1] * y + p[2];
  double c = p[4] * x + p[6] * y + p[8];
  double g = p[5] * x + p[7] * y + p[9];
  for (int32_t k = 0; k < count; ++k, bb += p[0], c += p[4], g += p[5]) {
    double su = c, sv = g;
    if (Mode == 0) {
      const double root = std::sqrt(bb * bb - c);
      const double s = b.rootSign ? bb + root : bb - root;
      su = s + p[10];
      sv = p[3] * s + g;
    } else if (Mode == 1) {
      su = c / bb + p[10];
    } else if (Mode == 2) {
      sv = g / bb + p[10];
    }
    u[k] = float(su);
    v[k] = float(sv);
  }
}

void Draw(Sampler sample, const uint8_t* src, uint8_t* dstRow, int32_t srcStep, int32_t dstStep,
          int32_t yMin, int32_t yMax, const int32_t* rowTable, const BilinearInverse& b,
          uint8_t* workArea, int32_t lastColumn, int32_t lastRow) {
  constexpr void (*kPositions[4])(const BilinearInverse&, double, double, int32_t, float*,
                                  float*) = {RowPositions<0>, RowPositions<1>, RowPositions<2>,
                                             RowPositions<3>};
  const auto positions = kPositions[b.solveMode & 3];
  const int64_t rows = int64_t(yMax) - yMin + 1;
  for (int64_t r = 0; r < rows; ++r, dstRow += dstStep) {
    const int32_t left = rowTable[2 * r], right = rowTable[2 * r + 1];
    if (right < left) continue;
    const int32_t count = right - left + 1;
    float* u = reinterpret_cast<float*>(workArea);
    float* v = u + count;
    positions(b, double(left), double(yMin + r), count, u, v);
    sample(src, srcStep, lastColumn, lastRow, u, v, count, dstRow + 3 * int64_t(left));
  }
}

}  // namespace

void ownBilinearInverse(const double* q, RectCorners rect, int32_t orientation,
                        BilinearInverse* out) {
  const double x0 = double(rect.x0), y0 = double(rect.y0);
  const double w = double(rect.x1 - rect.x0), h = double(rect.y1 - rect.y0);
  const double qx0 = q[0], qy0 = q[1];
  const double dx01 = q[2] - q[0], dx12 = q[4] - q[2], dx23 = q[6] - q[4], dx30 = q[0] - q[6];
  const double dy01 = q[3] - q[1], dy12 = q[5] - q[3], dy23 = q[7] - q[5], dy30 = q[1] - q[7];
  const double sx = dx23 + dx01, sy = dy23 + dy01, e = dx30 * dy01 - dy30 * dx01;
  // Edges 0-1 and 2-3 parallel (d1 = 0), edges 1-2 and 3-0 parallel (d2 = 0).
  const double d1 = Negligible(dx23 * dy01 - dy23 * dx01, dy23 * dx01, dx23 * dy01);
  const double d2 = Negligible(dx12 * dy30 - dy12 * dx30, dy12 * dx30, dx12 * dy30);
  const double a = d1 / w, b = d2 / h;
  double* p = out->p;
  out->solveMode = (d1 == 0.0 ? 1 : 0) + (d2 == 0.0 ? 2 : 0);
  switch (out->solveMode) {
    case 0:
      p[0] = -sy / (2 * a), p[1] = sx / (2 * a), p[2] = -e / (2 * a) - qx0 * p[0] - qy0 * p[1];
      p[3] = -a / b, p[4] = dy30 * w / a, p[5] = -sy / b, p[6] = -dx30 * w / a, p[7] = sx / b;
      break;
    case 1:
      p[0] = sy, p[1] = -sx, p[2] = e - qx0 * p[0] - qy0 * p[1];
      p[3] = 0, p[4] = -dy30 * w, p[5] = -sy / b, p[6] = dx30 * w, p[7] = sx / b;
      break;
    case 2:
      p[0] = sy, p[1] = -sx, p[2] = -e - qx0 * p[0] - qy0 * p[1];
      p[3] = 0, p[4] = -sy / a, p[5] = dy01 * h, p[6] = sx / a, p[7] = -dx01 * h;
      break;
    default:
      p[0] = p[1] = p[2] = p[3] = 0;
      p[4] = -dy30 * w / e, p[5] = -dy01 * h / e, p[6] = dx30 * w / e, p[7] = dx01 * h / e;
      break;
  }
  const double g = p[4] * qx0 + p[6] * qy0, k = p[5] * qx0 + p[7] * qy0;
  switch (out->solveMode) {
    case 0:
    case 1:
      p[8] = -g, p[9] = y0 - k, p[10] = x0;
      break;
    case 2:
      p[8] = x0 - g, p[9] = -k, p[10] = y0;
      break;
    default:
      p[8] = x0 - g, p[9] = y0 - k, p[10] = 0;
      break;
  }
  out->rootSign = (orientation == 1 && d1 > 0.0) || (orientation == 0 && d1 < 0.0) ? 1 : 0;
}

void ownWarpRowNearest_8u_C3(const uint8_t* src, int32_t srcStep, int32_t lastColumn,
                             int32_t lastRow, const float* u, const float* v, int32_t count,
                             uint8_t* dst) {
  const __m128i last = _mm_setr_epi32(lastColumn, lastRow, 0, 0);
  for (int32_t k = 0; k < count; ++k, dst += 3) {
    // Rounded to nearest, ties to even, no 0.5 added; kept inside the image.
    const __m128 uv = _mm_unpacklo_ps(_mm_load_ss(u + k), _mm_load_ss(v + k));
    const __m128i at = Clamp32(_mm_cvtps_epi32(uv), _mm_setzero_si128(), last);
    const int64_t offset = int64_t(_mm_cvtsi128_si32(_mm_shuffle_epi32(at, 0x55))) * srcStep +
                           3 * int64_t(_mm_cvtsi128_si32(at));
    std::memcpy(dst, src + offset, 3);
  }
}

#define CORVANE_BILINEAR_KERNEL(name, sampler)                                                   \
  void name(const uint8_t* src, uint8_t* dstRow, int32_t srcStep, int32_t dstStep, int32_t yMin, \
            int32_t yMax, const int32_t* rowTable, const BilinearInverse* inverse,               \
            uint8_t* workArea, int32_t lastColumn, int32_t lastRow) {                            \
    Draw(&sampler, src, dstRow, srcStep, dstStep, yMin, yMax, rowTable, *inverse, workArea,      \
         lastColumn, lastRow);                                                                   \
  }
CORVANE_BILINEAR_KERNEL(ownWarpBilinearNearest_8u_C3, ownWarpRowNearest_8u_C3)
CORVANE_BILINEAR_KERNEL(ownWarpBilinearLinear_8u_C3, ownWarpRowLinear_8u_C3)
CORVANE_BILINEAR_KERNEL(ownWarpBilinearCubic_8u_C3, ownWarpRowCubic_8u_C3)
#undef CORVANE_BILINEAR_KERNEL

}  // namespace corvane::CORVANE_VARIANT
