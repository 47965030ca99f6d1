// Scratch sizing of the median filter, one build per code path: the room for
// one extended strip (or the whole extended image when the mask is as large as
// the region) and, on the one-channel road, what the general kernels of this
// path work in.
#include "primitives/median/median.h"

namespace corvane::CORVANE_VARIANT {
namespace {

// Products and roundings that the size is made of wrap like the signed 32-bit
// values they are; unsigned arithmetic keeps that defined.
int32_t Mul32(int32_t x, int32_t y) {
  return static_cast<int32_t>(static_cast<uint32_t>(x) * static_cast<uint32_t>(y));
}
int32_t Add32(int32_t x, int32_t y) {
  return static_cast<int32_t>(static_cast<uint32_t>(x) + static_cast<uint32_t>(y));
}
int32_t RoundUp32(int32_t n) {
  return static_cast<int32_t>((static_cast<uint32_t>(n) + 31u) & ~31u);
}
int32_t Max32(int32_t x, int32_t y) { return x > y ? x : y; }

bool IsOdd(int32_t v) { return (v & 1) != 0; }

int32_t ElementBytes(PixelType type) {
  switch (type) {
    case PixelType8u:
      return 1;
    case PixelType16u:
    case PixelType16s:
      return 2;
    default:
      return 4;
  }
}

#if CORVANE_VARIANT_INDEX >= 2
int32_t RoundUp16(int32_t n) {
  return static_cast<int32_t>((static_cast<uint32_t>(n) + 15u) & ~15u);
}

// Working room of the general kernels for 32-bit float elements: a sorting
// network or, for larger masks, a sort with a radix pass.
int32_t SortTerm(int32_t a, int32_t b) {
  const int32_t area = a * b;
  int32_t term;
  if (a == 1 || b == 1) {
    term = area * 4;
  } else if (area < 625) {
    term = RoundUp16(Max32(a, b)) * 4 + RoundUp16(area) * 12;
  } else {
    term = ((area + 15) >> 4) * 128 + 28672;
  }
  if (area >= 51 && area <= 624) term += area * 4 + (CORVANE_VARIANT_INDEX >= 4 ? 20576 : 20480);
  return term;
}
#endif

int32_t GeneralWorkTerm(int32_t a, int32_t b, PixelType type, int32_t px) {
#if CORVANE_VARIANT_INDEX == 0
  (void)type;
  (void)px;
  return a * b * 4;
#elif CORVANE_VARIANT_INDEX == 1
  (void)type;
  return px == 2 ? a * b * 8 : a * b * 4;
#else
  return type == PixelType32f ? SortTerm(a, b) : a * b * 4 * px;
#endif
}

// The one-channel road: general kernel room plus the strips and edge copies
// of the single-channel planner. Negative when the sum passes 31 bits.
int64_t OneChannelSize(ImageSize roi, ImageSize mask, PixelType type, bool small, bool tiny) {
  const int32_t W = roi.width, H = roi.height, a = mask.width, b = mask.height;
  const int32_t xr = a >> 1, yr = b >> 1, Ew = W + a - 1, Eh = H + b - 1;
  const int32_t px = ElementBytes(type);
  const bool plain = small && (a == 1 || b == 1 || a == b);
  const int64_t work = plain ? 0 : RoundUp32(GeneralWorkTerm(a, b, type, px));
  int64_t total;
  if (tiny) {
    total = work + RoundUp32(Mul32(Mul32(Ew, Eh), px));
  } else {
    const int64_t rows = int64_t{b} * 2 * RoundUp32(Mul32(W, px));
    const int64_t edges =
        2 * (int64_t{RoundUp32(Mul32(Mul32(W, yr), px))} + RoundUp32(Mul32(Mul32(H, xr), px)));
    const int32_t strip = Max32(Mul32(Mul32(Ew, b + yr), px), Mul32(Mul32(a + xr, Eh), px));
    total = work + rows + edges + RoundUp32(strip);
  }
  return total < 0x80000000LL ? total : -1;
}

#if CORVANE_VARIANT_INDEX >= 4
int64_t RoundUp64(int64_t n) { return (n + 63) & ~int64_t{63}; }

// The wide paths also serve a volume form of a few 16-bit masks, whose sort
// tables need more room than the plane road.
bool HasVolumeForm(ImageSize mask, PixelType type, int32_t channels) {
  if (type != PixelType16s || channels != 1) return false;
  const int32_t a = mask.width, b = mask.height;
  return (a == 7 && b == 7) || (a == 1 && b == 15) || (a == 15 && b == 1) || (a == 15 && b == 15);
}

int32_t VolumeSize(ImageSize roi, ImageSize mask, int64_t planeSize) {
  const int32_t W = roi.width, H = roi.height, a = mask.width, b = mask.height;
  const int32_t xr = a >> 1, yr = b >> 1, Ew = W + a - 1, Eh = H + b - 1;
  const int32_t area = a * b;
  int32_t pow2 = 1;
  while (pow2 < area) pow2 <<= 1;
  const int32_t m = Max32(Max32(Mul32(Ew, Eh), Mul32(Ew, b + yr - 1)), Mul32(a + xr - 1, Eh));
  const int64_t volume =
      RoundUp64(2 * int64_t{m}) + 32 + RoundUp64(int64_t{area} * 8) + int64_t{pow2} * 512;
  const int32_t size2 = planeSize < 0 ? 0 : static_cast<int32_t>(planeSize);
  const int32_t size3 = static_cast<int32_t>(volume);
  return Add32(80, planeSize < 0 ? size3 : Max32(size2, size3));
}
#endif

}  // namespace

PrimitiveStatus ownFilterMedianBorderGetBufferSize(ImageSize roi, ImageSize mask,
                                                   PixelType pixelType, int32_t channels,
                                                   int32_t* size) {
  if (size == nullptr) return StatusNullPointer;
  if (roi.width < 1 || roi.height < 1) return StatusSize;
  if (mask.width <= 0 || mask.height <= 0 || !IsOdd(mask.width) || !IsOdd(mask.height)) {
    return StatusMaskSize;
  }
  const bool anyType =
      pixelType == PixelType8u || pixelType == PixelType16u || pixelType == PixelType16s;
  if (channels == 1 && !anyType && pixelType != PixelType32f) return StatusPixelType;
  if (channels != 1 && channels != 3 && channels != 4) return StatusChannels;
  if (channels != 1 && !anyType) return StatusPixelType;

  const int32_t W = roi.width, H = roi.height, a = mask.width, b = mask.height;
  const int32_t xr = a >> 1, yr = b >> 1, Ew = W + a - 1, Eh = H + b - 1;
  const bool small = a < 6 && b < 6;
  const bool tiny = W <= a || H <= b;

  if (channels == 1) {
    const int64_t plane = OneChannelSize(roi, mask, pixelType, small, tiny);
#if CORVANE_VARIANT_INDEX >= 4
    if (HasVolumeForm(mask, pixelType, channels)) {
      *size = VolumeSize(roi, mask, plane);
      return StatusOk;
    }
#endif
    if (plane < 0) {
      *size = 0;
      return StatusSizeOverflow;
    }
    *size = static_cast<int32_t>(plane);
    return StatusOk;
  }

  const int32_t n = tiny ? Mul32(Mul32(Ew, channels), Eh)
                         : Mul32(channels, Max32(Mul32(Ew, b + yr - 1), Mul32(a + xr - 1, Eh)));
  if (pixelType == PixelType8u) {
    *size = RoundUp32(n);
    return StatusOk;
  }
  int32_t wide = RoundUp32(Mul32(n, 2));
  if (!small || a + b == 8) wide = Add32(wide, Mul32(Mul32(a, b), 8));
  *size = wide;
  return StatusOk;
}

}  // namespace corvane::CORVANE_VARIANT
