// The median entry of one code path: argument checks, then the planner that
// splits the region into border strips and a centre. A kernel reads the whole
// mask around every output; the planner gives it neighbours that exist:
// memory where a border flag says so, else pixels made in the scratch. Only
// edge pixels pay for a copy; the centre is read where it lies.
#include "primitives/median/border_extend.h"
#include "primitives/median/median.h"

namespace corvane::CORVANE_VARIANT {
namespace {

constexpr uint32_t kTop = BorderMemoryTop, kBottom = BorderMemoryBottom;
constexpr uint32_t kLeft = BorderMemoryLeft, kRight = BorderMemoryRight;

int32_t RoundUp32(int32_t n) { return (n + 31) & ~31; }
int32_t Larger(int32_t x, int32_t y) { return x > y ? x : y; }
bool IsOdd(int32_t v) { return (v & 1) != 0; }

// The rectangle still to filter, and what every pass needs.
struct Plan {
  const uint8_t* src;
  int32_t srcStep;
  uint8_t* dst;
  int32_t dstStep;
  int32_t width, height;
  ImageSize mask;
  int32_t xr, yr;
  int32_t pixelBytes;
  uint32_t flags;
  const uint8_t* value;  // null: replicate
  MedianKernel kernel;
  uint8_t* strip;  // start of the scratch
  uint8_t* work;   // behind the strip room
};

const uint8_t* Offset(const uint8_t* p, int32_t rows, int32_t step, int32_t pixels, int32_t px) {
  return p + static_cast<intptr_t>(rows) * step + static_cast<intptr_t>(pixels) * px;
}
uint8_t* Offset(uint8_t* p, int32_t rows, int32_t step, int32_t pixels, int32_t px) {
  return p + static_cast<intptr_t>(rows) * step + static_cast<intptr_t>(pixels) * px;
}

// Runs the kernel on an extended strip of stripWidth pixels, from the strip
// pixel (xr, yr), into `out` of `size`.
void FilterStrip(const Plan& p, int32_t stripWidth, uint8_t* out, ImageSize size) {
  const int32_t step = stripWidth * p.pixelBytes;
  p.kernel(Offset(p.strip, p.yr, step, p.xr, p.pixelBytes), step, out, p.dstStep, size, p.mask,
           p.work);
}

// Top and bottom strips: b - 1 real rows and yr made ones. Their real part
// reaches into the left and right memory where those flags are set, so the
// corners are theirs.
void HorizontalStrip(Plan& p, bool top) {
  const int32_t b = p.mask.height, px = p.pixelBytes;
  const int32_t ew = p.width + p.mask.width - 1;
  const bool leftMemory = (p.flags & kLeft) != 0, rightMemory = (p.flags & kRight) != 0;
  const int32_t realWidth = ew - (leftMemory ? 0 : p.xr) - (rightMemory ? 0 : p.xr);
  const int32_t firstRow = top ? 0 : p.height - b + 1;
  const uint8_t* real = Offset(p.src, firstRow, p.srcStep, leftMemory ? -p.xr : 0, px);
  ownExtendWithBorder(real, p.srcStep, ImageSize{realWidth, b - 1}, p.strip, ew * px,
                      ImageSize{ew, b - 1 + p.yr}, top ? p.yr : 0, leftMemory ? 0 : p.xr, px,
                      p.value);
  if (top) {
    FilterStrip(p, ew, p.dst, ImageSize{p.width, p.yr});
    p.src = Offset(p.src, p.yr, p.srcStep, 0, px);
    p.dst = Offset(p.dst, p.yr, p.dstStep, 0, px);
  } else {
    FilterStrip(p, ew, Offset(p.dst, p.height - p.yr, p.dstStep, 0, px), ImageSize{p.width, p.yr});
  }
  p.height -= p.yr;
}

// Left and right strips: a - 1 real columns over the rows that exist by now
// (the region's, or memory's beside a flagged side), and xr made ones.
void VerticalStrip(Plan& p, bool left) {
  const int32_t a = p.mask.width, px = p.pixelBytes;
  const int32_t lw = a + p.xr - 1, lh = p.height + p.mask.height - 1;
  const int32_t firstColumn = left ? 0 : p.width - a + 1;
  const uint8_t* real = Offset(p.src, -p.yr, p.srcStep, firstColumn, px);
  ownExtendWithBorder(real, p.srcStep, ImageSize{a - 1, lh}, p.strip, lw * px, ImageSize{lw, lh}, 0,
                      left ? p.xr : 0, px, p.value);
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
void WholeImage(const Plan& p) {
  const int32_t px = p.pixelBytes;
  const int32_t ew = p.width + p.mask.width - 1, eh = p.height + p.mask.height - 1;
  const uint8_t* from = p.src;
  ImageSize real{p.width, p.height};
  int32_t top = p.yr, left = p.xr;
  if (p.flags & kTop) from = Offset(from, -p.yr, p.srcStep, 0, px), real.height += p.yr, top = 0;
  if (p.flags & kBottom) real.height += p.yr;
  if (p.flags & kLeft) from = Offset(from, 0, 0, -p.xr, px), real.width += p.xr, left = 0;
  if (p.flags & kRight) real.width += p.xr;
  ownExtendWithBorder(from, p.srcStep, real, p.strip, ew * px, ImageSize{ew, eh}, top, left, px,
                      p.value);
  const int32_t step = ew * px;
  p.kernel(Offset(p.strip, p.yr, step, p.xr, px), step, p.dst, p.dstStep,
           ImageSize{p.width, p.height}, p.mask, p.strip + RoundUp32(ew * eh * px));
}

// Slot of the group for a mask other than 1x1; the flags a shape implies
// (no horizontal neighbours for a column mask, no vertical ones for a row
// mask) are added to `flags`.
int32_t ChooseSlot(ImageSize mask, uint32_t& flags) {
  const int32_t a = mask.width, b = mask.height;
  if (a == 1) {
    flags |= kLeft | kRight;
    return b == 3 ? MedianSlotColumn3 : b == 5 ? MedianSlotColumn5 : MedianSlotGeneral;
  }
  if (b == 1) {
    flags |= kTop | kBottom;
    return a == 3 ? MedianSlotRow3 : a == 5 ? MedianSlotRow5 : MedianSlotGeneral;
  }
  if (a == 3 && b == 3) return MedianSlotSquare3;
  if (a == 5 && b == 5) return MedianSlotSquare5;
  return MedianSlotGeneral;
}

// The planner for a group's pixel form, once the arguments have passed.
PrimitiveStatus FilterPlanned(int32_t group, int32_t pixelBytes, const uint8_t* src,
                              int32_t srcStep, uint8_t* dst, int32_t dstStep, ImageSize roi,
                              ImageSize mask, BorderType border, const uint8_t* value,
                              uint8_t* buffer) {
  uint32_t flags = border & 0xF0;
  const int32_t slot = ChooseSlot(mask, flags);
  const MedianKernel kernel = ownMedianKernelTable()[group * kMedianSlotCount + slot];
  // The general masks have no kernel yet; refused before anything is touched.
  if (kernel == nullptr) return StatusMaskSize;

  const int32_t a = mask.width, b = mask.height, xr = a >> 1, yr = b >> 1;
  const int32_t ew = roi.width + a - 1, eh = roi.height + b - 1;
  const int32_t stripRoom = RoundUp32(pixelBytes * Larger(ew * (b + yr - 1), (a + xr - 1) * eh));
  Plan p{src,        srcStep,   dst,
         dstStep,    roi.width, roi.height,
         mask,       xr,        yr,
         pixelBytes, flags,     (border & 0xF) == BorderReplicate ? nullptr : value,
         kernel,     buffer,    buffer + stripRoom};

  if (flags == BorderMemoryAll) {
    kernel(src, srcStep, dst, dstStep, roi, mask, buffer);
  } else if (a >= roi.width || b >= roi.height) {
    WholeImage(p);
  } else {
    if (!(flags & kTop)) HorizontalStrip(p, true);
    if (!(flags & kBottom)) HorizontalStrip(p, false);
    if (!(flags & kLeft)) VerticalStrip(p, true);
    if (!(flags & kRight)) VerticalStrip(p, false);
    kernel(p.src, p.srcStep, p.dst, p.dstStep, ImageSize{p.width, p.height}, mask, buffer);
  }
  return StatusOk;
}

}  // namespace

PrimitiveStatus ownFilterMedianBorder_8u_C3R(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                             int32_t dstStep, ImageSize roi, ImageSize mask,
                                             BorderType border, const uint8_t* borderValue,
                                             uint8_t* buffer) {
  if (src == nullptr || dst == nullptr || buffer == nullptr) return StatusNullPointer;
  if (roi.width <= 0 || roi.height <= 0) return StatusSize;
  if (mask.width <= 0 || mask.height <= 0 || !IsOdd(mask.width) || !IsOdd(mask.height)) {
    return StatusMaskSize;
  }
  if (border > 0xFF) return StatusBorder;
  if (border != BorderMemoryAll) {
    const uint32_t mode = border & 0xF;
    if (mode == BorderConstant && borderValue == nullptr) return StatusNullPointer;
    if (mode != BorderConstant && mode != BorderReplicate) return StatusBorder;
  }
  if (mask.width == 1 && mask.height == 1) return ownCopy_8u_C3R(src, srcStep, dst, dstStep, roi);
  return FilterPlanned(MedianGroup8uC3, 3, src, srcStep, dst, dstStep, roi, mask, border,
                       borderValue, buffer);
}

}  // namespace corvane::CORVANE_VARIANT
