// ownWarpBilinear_8u_C3R: the entry and the cores of its two roads, the
// affine one and the bilinear one for maps with x·y terms, with their kernel
// tables. Built once per code path.
#include <xmmintrin.h>

#include <cstdint>

#include "primitives/core/conventions.h"
#include "primitives/warp/fused.h"
#include "primitives/warp/warp.h"
#include "primitives/warp/warp_geometry.h"
#include "primitives/warp/warp_kernels.h"

namespace corvane::CORVANE_VARIANT {
namespace {

// Format code: layout (0 one channel, 1 three, 4 four) + 8 · type (0 8-bit,
// 1 float, 2 16-bit); the entry passes three 8-bit channels.
constexpr int32_t kFormat8uC3 = 1;

using AffineKernel = void (*)(const uint8_t*, uint8_t*, int32_t, int32_t, int32_t, int32_t,
                              const int32_t*, const double*, int32_t, int32_t, uint8_t*);
using BilinearKernel = void (*)(const uint8_t*, uint8_t*, int32_t, int32_t, int32_t, int32_t,
                                const int32_t*, const BilinearInverse*, uint8_t*, int32_t, int32_t);

// The affine road's kernels of one sample format, by interpolation mode: the
// designed slot of a kernel is group · 4 + (mode >> 1).
struct AffineKernels {
  AffineKernel nearest;     // mode 1
  AffineKernel linear;      // mode 2
  AffineKernel cubic;       // mode 4
  AffineKernel catmullRom;  // mode 6
};

// The bilinear road's: slot group · 3 + (mode >> 1).
struct BilinearKernels {
  BilinearKernel nearest;  // mode 1
  BilinearKernel linear;   // mode 2
  BilinearKernel cubic;    // mode 4
};

// 18 groups, group = layout + 6 · type; only three 8-bit channels are built.
struct KernelTable {
  AffineKernels affine[18];
  BilinearKernels bilinear[18];
};

constexpr KernelTable MakeKernels() {
  KernelTable t{};
  t.affine[1] = {&ownWarpAffineNearest_8u_C3, &ownWarpAffineLinear_8u_C3, &ownWarpAffineCubic_8u_C3,
                 &ownWarpAffineCatmullRom_8u_C3};
  t.bilinear[1] = {&ownWarpBilinearNearest_8u_C3, &ownWarpBilinearLinear_8u_C3,
                   &ownWarpBilinearCubic_8u_C3};
  return t;
}

constexpr KernelTable kKernels = MakeKernels();

int32_t GroupOf(int32_t format) { return (format & 7) + 6 * (format >> 3); }

AffineKernel AffineKernelFor(int32_t format, uint32_t mode) {
  const AffineKernels& k = kKernels.affine[GroupOf(format)];
  switch (mode) {
    case WarpNearest:
      return k.nearest;
    case WarpLinear:
      return k.linear;
    case WarpCubic:
      return k.cubic;
    default:
      return k.catmullRom;
  }
}

BilinearKernel BilinearKernelFor(int32_t format, uint32_t mode) {
  const BilinearKernels& k = kKernels.bilinear[GroupOf(format)];
  return mode == WarpNearest ? k.nearest : mode == WarpLinear ? k.linear : k.cubic;
}

// What a small source image can carry: one row or column leaves nothing to
// interpolate, and cubic needs four.
uint32_t LoweredMode(uint32_t mode, ImageSize srcSize) {
  if (srcSize.width == 1 || srcSize.height == 1) return WarpNearest;
  if (mode == WarpCubic && (srcSize.width < 4 || srcSize.height < 4)) return WarpLinear;
  return mode;
}

PrimitiveStatus ClippedSource(ImageSize srcSize, ImageRect* rect) {
  if (PrimitiveStatus s = ownClipSourceRect(srcSize, rect)) return s;
  return rect->width < 2 || rect->height < 2 ? StatusRectangle : StatusOk;
}

bool IsConvex(const double* quad) {
  const int32_t shape = ownClassifyQuad(quad);
  return shape != QuadDegenerate && shape != QuadConcave;
}

// The work area: the first multiple of 64 at or behind the end of the row
// table.
uint8_t* WorkAreaOf(uint8_t* scratch, int32_t yMin, int32_t yMax) {
  const uintptr_t base = reinterpret_cast<uintptr_t>(scratch);
  const uintptr_t area = (base + (uint64_t(yMax) - uint64_t(yMin)) * 8 + 8 + 63) & ~uintptr_t(63);
  return scratch + (area - base);
}

// Runs a kernel with underflow exceptions masked, and gives the caller back
// its own mask and sticky underflow flag.
void RunMasked(AffineKernel kernel, const uint8_t* src, uint8_t* dstRow, int32_t srcStep,
               int32_t dstStep, int32_t yMin, int32_t yMax, const int32_t* rowTable,
               const double* inverse, ImageSize srcSize, uint8_t* workArea) {
  const unsigned int saved = _mm_getcsr();
  _mm_setcsr(saved | _MM_MASK_UNDERFLOW);
  kernel(src, dstRow, srcStep, dstStep, yMin, yMax, rowTable, inverse, srcSize.width - 1,
         srcSize.height - 1, workArea);
  constexpr unsigned int kKept = _MM_MASK_UNDERFLOW | _MM_EXCEPT_UNDERFLOW;
  _mm_setcsr((_mm_getcsr() & ~kKept) | (saved & kKept));
}

// The smooth-edge pass where the interpolation asks for it.
void SmoothEdge(uint32_t interpolation, uint8_t* dst, int32_t dstStep, const double* quad,
                ImageRect dstRect, int32_t orientation) {
  if (interpolation & WarpSmoothEdge) {
    ownWarpSmoothEdge_8u_C3(dst, dstStep, quad, ownRectCorners(dstRect), orientation);
  }
}

PrimitiveStatus ownWarpAffineCore(const uint8_t* src, ImageSize srcSize, int32_t srcStep,
                                  ImageRect srcRect, uint8_t* dst, int32_t dstStep,
                                  ImageRect dstRect, int32_t format, const double* a,
                                  uint32_t interpolation, uint8_t* scratch) {
  if (!src || !dst || !a || !scratch) return StatusNullPointer;
  if (PrimitiveStatus s = ownCheckWarpImages(srcSize, srcRect, dstRect)) return s;
  uint32_t mode = interpolation & ~WarpSmoothEdge;
  if (PrimitiveStatus s = ownCheckWarpMode(mode, true)) return s;
  if (PrimitiveStatus s = ownAffineDeterminantStatus(a[0] * a[4], a[1] * a[3])) return s;
  mode = LoweredMode(mode, srcSize);
  ImageRect rect = srcRect;
  if (PrimitiveStatus s = ClippedSource(srcSize, &rect)) return s;
  const RectCorners rc = ownRectCorners(rect);
  double q[8];
  ownAffineQuad(rc, a, q);
  if (!IsConvex(q)) return StatusTransform;

  // The inverse from the rectangle and its picture, not from the matrix.
  const double w = double(rc.x1 - rc.x0), h = double(rc.y1 - rc.y0);
  const double ex = q[2] - q[0], ey = q[3] - q[1], fx = q[4] - q[2], fy = q[5] - q[3];
  const double det = FusedMulAdd(ex, fy, -(fx * ey));
  const double d = 1.0 / det, s = w * d, t = h * d;
  double inverse[6];
  inverse[0] = fy * s;
  inverse[1] = -(s * fx);
  inverse[2] = double(rc.x0) - inverse[0] * q[0] - inverse[1] * q[1];
  inverse[3] = -(ey * t);
  inverse[4] = t * ex;
  inverse[5] = double(rc.y0) - inverse[3] * q[0] - inverse[4] * q[1];
  const int32_t orientation = det > 0.0 ? 1 : 0;

  int32_t* rowTable = reinterpret_cast<int32_t*>(scratch);
  int32_t yMin = 0, yMax = 0;
  if (!ownQuadRowRange(q, ownRectCorners(dstRect), orientation, rowTable, &yMin, &yMax)) {
    return StatusNoOverlap;
  }
  RunMasked(AffineKernelFor(format, mode), src, dst + int64_t(yMin) * dstStep, srcStep, dstStep,
            yMin, yMax, rowTable, inverse, srcSize, WorkAreaOf(scratch, yMin, yMax));
  SmoothEdge(interpolation, dst, dstStep, q, dstRect, orientation);
  return StatusOk;
}

// The road of transforms with x·y terms; the floating-point state is the
// caller's.
PrimitiveStatus ownWarpBilinearCore(const uint8_t* src, ImageSize srcSize, int32_t srcStep,
                                    ImageRect srcRect, uint8_t* dst, int32_t dstStep,
                                    ImageRect dstRect, int32_t format, const double* c,
                                    uint32_t interpolation, uint8_t* scratch) {
  if (!src || !dst || !c || !scratch) return StatusNullPointer;
  if (PrimitiveStatus s = ownCheckWarpImages(srcSize, srcRect, dstRect)) return s;
  if (srcStep < 1 || dstStep < 1) return StatusStep;
  uint32_t mode = interpolation & ~WarpSmoothEdge;
  if (PrimitiveStatus s = ownCheckWarpMode(mode, false)) return s;
  mode = LoweredMode(mode, srcSize);
  ImageRect rect = srcRect;
  if (PrimitiveStatus s = ClippedSource(srcSize, &rect)) return s;
  const RectCorners rc = ownRectCorners(rect);
  double q[8];
  ownBilinearQuad(rc, c, q);
  if (!IsConvex(q)) return StatusTransform;
  const int32_t orientation = ownQuadOrientation(q);
  BilinearInverse inverse;
  ownBilinearInverse(q, rc, orientation, &inverse);
  int32_t* rowTable = reinterpret_cast<int32_t*>(scratch);
  int32_t yMin = 0, yMax = 0;
  if (!ownQuadRowRange(q, ownRectCorners(dstRect), orientation, rowTable, &yMin, &yMax)) {
    return StatusNoOverlap;
  }
  BilinearKernelFor(format, mode)(src, dst + int64_t(yMin) * dstStep, srcStep, dstStep, yMin, yMax,
                                  rowTable, &inverse, WorkAreaOf(scratch, yMin, yMax),
                                  srcSize.width - 1, srcSize.height - 1);
  SmoothEdge(interpolation, dst, dstStep, q, dstRect, orientation);
  return StatusOk;
}

}  // namespace

PrimitiveStatus ownWarpBilinear_8u_C3R(const uint8_t* src, ImageSize srcSize, int32_t srcStep,
                                       ImageRect srcRect, uint8_t* dst, int32_t dstStep,
                                       ImageRect dstRect, const double* c, uint32_t interpolation,
                                       uint8_t* scratch) {
  if (!c) return StatusNullPointer;
  if (c[0] == 0.0 && c[4] == 0.0) {
    if (srcStep < 1 || dstStep < 1) return StatusStep;
    const double affine[6] = {c[1], c[2], c[3], c[5], c[6], c[7]};
    return ownWarpAffineCore(src, srcSize, srcStep, srcRect, dst, dstStep, dstRect, kFormat8uC3,
                             affine, interpolation, scratch);
  }
  return ownWarpBilinearCore(src, srcSize, srcStep, srcRect, dst, dstStep, dstRect, kFormat8uC3, c,
                             interpolation, scratch);
}

}  // namespace corvane::CORVANE_VARIANT
