// The border planner, one build per code path. A kernel reads the whole mask
// around every output; the planner gives it neighbours that exist: memory
// where a border flag says so, else pixels made in the scratch. Only edge
// pixels pay for a copy; the centre is read where it lies.
#include "primitives/core/border.h"

namespace corvane::CORVANE_VARIANT {
namespace {

constexpr uint32_t kTop = BorderMemoryTop, kBottom = BorderMemoryBottom;
constexpr uint32_t kLeft = BorderMemoryLeft, kRight = BorderMemoryRight;

int32_t RoundUp32(int32_t n) { return (n + 31) & ~31; }
int32_t Larger(int32_t x, int32_t y) { return x > y ? x : y; }

// The rectangle still to filter, and what every pass needs.
struct Pass {
  const uint8_t* src;
  uint8_t* dst;
  int32_t width, height;
  int32_t xr, yr;
  uint32_t flags;
  const uint8_t* value;  // null: replicate
  uint8_t* work;         // kernel work on a strip
  const BorderPlan& plan;
};

const uint8_t* Offset(const uint8_t* p, int32_t rows, int32_t step, int32_t pixels, int32_t px) {
  return p + static_cast<intptr_t>(rows) * step + static_cast<intptr_t>(pixels) * px;
}
uint8_t* Offset(uint8_t* p, int32_t rows, int32_t step, int32_t pixels, int32_t px) {
  return p + static_cast<intptr_t>(rows) * step + static_cast<intptr_t>(pixels) * px;
}

// Runs the kernel on an extended strip of stripWidth pixels, from the strip
// pixel (xr, yr), into `out` of `size`.
void FilterStrip(const Pass& p, int32_t stripWidth, uint8_t* out, ImageSize size) {
  const BorderPlan& q = p.plan;
  const int32_t step = stripWidth * q.pixelBytes;
  q.kernel(Offset(q.strips, p.yr, step, p.xr, q.pixelBytes), step, out, q.dstStep, size, q.mask,
           p.work);
}

// Top and bottom strips: b - 1 real rows and yr made ones. Their real part
// reaches into the left and right memory where those flags are set, so the
// corners are theirs.
void HorizontalStrip(Pass& p, bool top) {
  const BorderPlan& q = p.plan;
  const int32_t b = q.mask.height, px = q.pixelBytes;
  const int32_t ew = p.width + q.mask.width - 1;
  const bool leftMemory = (p.flags & kLeft) != 0, rightMemory = (p.flags & kRight) != 0;
  const int32_t realWidth = ew - (leftMemory ? 0 : p.xr) - (rightMemory ? 0 : p.xr);
  const int32_t firstRow = top ? 0 : p.height - b + 1;
  const uint8_t* real = Offset(p.src, firstRow, q.srcStep, leftMemory ? -p.xr : 0, px);
  ownExtendWithBorder(real, q.srcStep, ImageSize{realWidth, b - 1}, q.strips, ew * px,
                      ImageSize{ew, b - 1 + p.yr}, top ? p.yr : 0, leftMemory ? 0 : p.xr, px,
                      p.value);
  if (top) {
    FilterStrip(p, ew, p.dst, ImageSize{p.width, p.yr});
    p.src = Offset(p.src, p.yr, q.srcStep, 0, px);
    p.dst = Offset(p.dst, p.yr, q.dstStep, 0, px);
  } else {
    FilterStrip(p, ew, Offset(p.dst, p.height - p.yr, q.dstStep, 0, px), ImageSize{p.width, p.yr});
  }
  p.height -= p.yr;
}

// Left and right strips: a - 1 real columns over the rows that exist by now
// (the region's, or memory's beside a flagged side), and xr made ones.
void VerticalStrip(Pass& p, bool left) {
  const BorderPlan& q = p.plan;
  const int32_t a = q.mask.width, px = q.pixelBytes;
  const int32_t lw = a + p.xr - 1, lh = p.height + q.mask.height - 1;
  const int32_t firstColumn = left ? 0 : p.width - a + 1;
  const uint8_t* real = Offset(p.src, -p.yr, q.srcStep, firstColumn, px);
  ownExtendWithBorder(real, q.srcStep, ImageSize{a - 1, lh}, q.strips, lw * px, ImageSize{lw, lh},
                      0, left ? p.xr : 0, px, p.value);
  if (left) {
    FilterStrip(p, lw, p.dst, ImageSize{p.xr, p.height});
    p.src = Offset(p.src, 0, 0, p.xr, px);
    p.dst = Offset(p.dst, 0, 0, p.xr, px);
  } else {
    FilterStrip(p, lw, Offset(p.dst, 0, 0, p.width - p.xr, px), ImageSize{p.xr, p.height});
  }
  p.width -= p.xr;
}

// The mask is as large as the region: extend the whole source at once.
void WholeImage(const Pass& p) {
  const BorderPlan& q = p.plan;
  const int32_t px = q.pixelBytes;
  const int32_t ew = p.width + q.mask.width - 1, eh = p.height + q.mask.height - 1;
  const uint8_t* from = p.src;
  ImageSize real{p.width, p.height};
  int32_t top = p.yr, left = p.xr;
  if (p.flags & kTop) from = Offset(from, -p.yr, q.srcStep, 0, px), real.height += p.yr, top = 0;
  if (p.flags & kBottom) real.height += p.yr;
  if (p.flags & kLeft) from = Offset(from, 0, 0, -p.xr, px), real.width += p.xr, left = 0;
  if (p.flags & kRight) real.width += p.xr;
  ownExtendWithBorder(from, q.srcStep, real, q.strips, ew * px, ImageSize{ew, eh}, top, left, px,
                      p.value);
  const int32_t step = ew * px;
  q.kernel(Offset(q.strips, p.yr, step, p.xr, px), step, p.dst, q.dstStep,
           ImageSize{p.width, p.height}, q.mask,
           q.work ? q.work : q.strips + RoundUp32(ew * eh * px));
}

}  // namespace

int32_t ownBorderStripBytes(ImageSize roi, ImageSize mask, int32_t pixelBytes) {
  const int32_t a = mask.width, b = mask.height, xr = a >> 1, yr = b >> 1;
  const int32_t ew = roi.width + a - 1, eh = roi.height + b - 1;
  return RoundUp32(pixelBytes * Larger(ew * (b + yr - 1), (a + xr - 1) * eh));
}

void ownFilterWithBorder(const BorderPlan& q) {
  const int32_t a = q.mask.width, b = q.mask.height, xr = a >> 1, yr = b >> 1;
  uint32_t flags = q.border & 0xF0;
  // A mask one pixel wide has no horizontal neighbours, one row high no
  // vertical ones: those sides need no strip.
  if (a == 1) flags |= kLeft | kRight;
  if (b == 1) flags |= kTop | kBottom;
  uint8_t* const centreWork = q.work ? q.work : q.strips;
  Pass p{q.src,
         q.dst,
         q.roi.width,
         q.roi.height,
         xr,
         yr,
         flags,
         (q.border & 0xF) == BorderReplicate ? nullptr : q.value,
         q.work ? q.work : q.strips + ownBorderStripBytes(q.roi, q.mask, q.pixelBytes),
         q};
  if (flags == BorderMemoryAll) {
    q.kernel(q.src, q.srcStep, q.dst, q.dstStep, q.roi, q.mask, centreWork);
  } else if (a >= q.roi.width || b >= q.roi.height) {
    WholeImage(p);
  } else {
    if (!(flags & kTop)) HorizontalStrip(p, true);
    if (!(flags & kBottom)) HorizontalStrip(p, false);
    if (!(flags & kLeft)) VerticalStrip(p, true);
    if (!(flags & kRight)) VerticalStrip(p, false);
    q.kernel(p.src, q.srcStep, p.dst, q.dstStep, ImageSize{p.width, p.height}, q.mask, centreWork);
  }
}

}  // namespace corvane::CORVANE_VARIANT
