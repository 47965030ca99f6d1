// Crop and scale as a warp of the crop rectangle onto the whole destination.
#include <cstring>

#include "bitmap/bitmap.h"
#include "primitives/core/aligned_memory.h"
#include "primitives/warp/warp.h"

namespace corvane::bitmap {

namespace {

namespace prim = corvane::primitives;

// Header arithmetic is 32-bit and wraps, like the fields it fills.
int32_t Add32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int32_t Mul32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// |wish| rounded down to a multiple of 8, which also keeps a 24-bit row a
// multiple of 8 bytes.
int32_t RoundedSide(int32_t wish) {
  const uint32_t magnitude = wish < 0 ? 0u - static_cast<uint32_t>(wish) : uint32_t(wish);
  return static_cast<int32_t>(magnitude & ~7u);
}

int32_t RowBytes(const BITMAPINFOHEADER& h) { return Mul32(h.biBitCount, h.biWidth) / 8; }

// The crop {x, y, width, height} drawn over the whole dW x dH destination.
// 1 when done, 0 when a primitive refused, ResultBadArgument for a scratch
// size that isn't positive.
int32_t ScaleCrop(const BITMAPINFOHEADER& srcHeader, const uint8_t* srcBits, ImageRect srcRect,
                  const BITMAPINFOHEADER& dstHeader, uint8_t* dstBits) {
  // The warp moves three-byte pixels: another bit count would walk off the rows.
  if (srcHeader.biBitCount != 24 || dstHeader.biBitCount != 24) return 0;
  const ImageSize srcSize{srcHeader.biWidth, srcHeader.biHeight};
  const ImageRect dstRect{0, 0, dstHeader.biWidth, dstHeader.biHeight};
  const double dW = dstRect.width, dH = dstRect.height;
  // The far corner is (dW, dH), one past the last pixel.
  const double quad[8] = {0.0, 0.0, dW, 0.0, dW, dH, 0.0, dH};
  double coeffs[8];
  if (prim::ownGetBilinearCoeffs(srcRect, quad, coeffs) != StatusOk) return 0;
  int32_t size = 0;
  if (prim::ownWarpBilinearBufferSize(srcSize, srcRect, dstRect, WarpSourceToDestination, coeffs,
                                      WarpNearest, &size) != StatusOk) {
    return 0;
  }
  if (size <= 0) return ResultBadArgument;
  // No memory gives a null block, which the warp refuses.
  auto* scratch = static_cast<uint8_t*>(prim::ownMallocAligned(size));
  const PrimitiveStatus status =
      prim::ownWarpBilinear_8u_C3R(srcBits, srcSize, RowBytes(srcHeader), srcRect, dstBits,
                                   RowBytes(dstHeader), dstRect, coeffs, WarpNearest, scratch);
  prim::ownFreeAligned(scratch);
  return status == StatusOk ? 1 : 0;
}

}  // namespace

int32_t CropAndScale(const BITMAPINFOHEADER* srcHeader, const uint8_t* srcBits, int32_t x,
                     int32_t y, int32_t width, int32_t height, BITMAPINFOHEADER* dstHeader,
                     uint8_t* dstBits) {
  if (!srcHeader || !srcBits || !dstHeader || !dstBits) return 0;
  // A crop that runs past the image, or has no width or height, is not
  // scaled: the whole source is copied as it stands.
  const bool copyWhole = Add32(x, width) > srcHeader->biWidth ||
                         Add32(y, height) > srcHeader->biHeight || width == 0 || height == 0;
  // The size produced, written back on either road and whatever follows.
  dstHeader->biWidth = RoundedSide(dstHeader->biWidth);
  dstHeader->biHeight = RoundedSide(dstHeader->biHeight);
  dstHeader->biSizeImage = static_cast<uint32_t>(
      Mul32(Mul32(dstHeader->biBitCount, dstHeader->biWidth), dstHeader->biHeight) / 8);
  if (copyWhole) {
    std::memmove(dstBits, srcBits, srcHeader->biSizeImage);
    return 1;
  }
  return ScaleCrop(*srcHeader, srcBits, ImageRect{x, y, width, height}, *dstHeader, dstBits);
}

}  // namespace corvane::bitmap
