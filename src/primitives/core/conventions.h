// Shared vocabulary of the image primitives: result codes, image records and
// type codes. Plain data only, so that every code path may include it without
// compiling any function of its own.
#pragma once

#include <cstdint>

namespace corvane {

// Result of a primitive: 0 success, negative a refusal, positive a warning or
// a condition of the processor or the cache query.
using PrimitiveStatus = int32_t;

enum : PrimitiveStatus {
  StatusOk = 0,
  StatusSize = -6,
  StatusNullPointer = -8,
  StatusStep = -16,
  StatusInterpolation = -23,
  StatusMaskSize = -33,
  StatusChannels = -53,
  StatusTransform = -56,
  StatusRectangle = -57,
  StatusQuad = -58,
  StatusPixelType = -59,
  StatusBorder = -225,
  StatusDirection = -231,
  StatusSizeOverflow = -232,
  StatusCpuVendor = 20,
  StatusRectangleOutside = 29,
  StatusNoOverlap = 30,
  StatusCpuUnsupported = 36,
  StatusCacheUnknown = 37,
  StatusFeatureState = 49,
  StatusFeatureGap = 51,
};

// A region of interest or a mask: width then height, in pixels.
struct ImageSize {
  int32_t width;
  int32_t height;
};

// A rectangle in image coordinates, in pixels; x and y are at least 0.
struct ImageRect {
  int32_t x;
  int32_t y;
  int32_t width;
  int32_t height;
};

// Element type code read by the sizing entries. PixelType8u is the element of
// every `_8u_` primitive.
using PixelType = int32_t;
enum : PixelType {
  PixelType8u = 1,    // 1 byte
  PixelType16u = 5,   // 2 bytes, median sizing only
  PixelType16s = 7,   // 2 bytes
  PixelType32f = 13,  // 4 bytes; one channel only in the median
};

// Border description: the low nibble says how a missing neighbour is made, the
// high nibble on which sides real neighbours exist in memory. Only the low
// 8 bits may be set.
using BorderType = uint32_t;
enum : BorderType {
  BorderReplicate = 0x1,
  BorderConstant = 0x6,
  BorderMemoryTop = 0x10,
  BorderMemoryBottom = 0x20,
  BorderMemoryLeft = 0x40,
  BorderMemoryRight = 0x80,
  BorderMemoryAll = 0xF0,  // the only valid value with a low nibble of 0
};

}  // namespace corvane
