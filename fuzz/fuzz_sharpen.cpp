// corvane_sharpen under hostile images and borders, on every code path this
// processor runs, each checked byte for byte against the plain m7 path; and
// the sizing entry under sizes, types and channel counts taken raw.
//
// Input: a header of 16 bytes, then pixels. The header picks the code path,
// width and height (a few beyond zero on either side), each image's step (the
// row, a little more or less, either sign), a dst of another size now and
// then, the border (32 bits as given), and whether a border value is passed.
// The images are allocated to exactly the bytes their steps reach, so any
// read or write outside them is a sanitizer report.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "corvane_image.h"
#include "primitives/core/cpu_dispatch.h"
#include "primitives/sharpen/sharpen.h"

namespace {

using namespace corvane;

// An image of the header's shape: `bytes` exactly as long as the rows its
// step reaches, data at pixel (0, 0), the last row first for a negative step.
struct Image {
  std::vector<uint8_t> bytes;
  corvane_image view{};

  Image(int32_t width, int32_t height, int32_t stepDelta, bool upward, const uint8_t* fill,
        size_t fillSize) {
    const int32_t row = width > 0 ? width * 3 : 0, step = row + stepDelta;
    const size_t rows = height > 0 ? size_t(height) : 0;
    const size_t size = rows > 0 && step > 0 ? size_t(step) * (rows - 1) + size_t(row) : 1;
    bytes.resize(size > 0 ? size : 1);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = fillSize ? fill[i % fillSize] : 0;
    uint8_t* first = bytes.data();
    if (upward && rows > 0 && step > 0) first += size_t(step) * (rows - 1);
    view = {first, upward ? -step : step, width, height, CORVANE_8U_C3};
  }
};

int32_t Run(const Image& src, Image& dst, uint32_t border, const uint8_t* value) {
  return corvane_sharpen(&src.view, &dst.view, int32_t(border), value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 16) return 0;
  const uint8_t* h = data;
  const uint8_t* pixels = data + 16;
  const size_t pixelBytes = size - 16;

  // Raw sizing: any size, mask, types and channels.
  int32_t raw[4];
  std::memcpy(raw, h, sizeof raw);
  int32_t scratch = 0;
  primitives::ownFilterSharpenBorderGetBufferSize(
      {raw[0], raw[1]}, h[8] & 1 ? kSharpenMask3x3 : raw[2], PixelType(h[9] % 8),
      PixelType(h[10] % 8), int32_t(h[11] % 6), &scratch);

  // Width and height from -2 to 125, most of them small.
  const int32_t width = int32_t(h[0] % 128) - 2, height = int32_t(h[1] % 128) - 2;
  const int32_t srcDelta = int32_t(h[2] % 16) - 4, dstDelta = int32_t(h[3] % 16) - 4;
  const bool srcUp = h[4] & 1, dstUp = h[4] & 2, otherSize = (h[4] & 0x1C) == 0x1C;
  uint32_t border;
  std::memcpy(&border, h + 5, 4);
  // Most inputs take one of the two borders an image call serves; the rest
  // stay raw (the primitive's memory flags among them, which a whole image
  // has no pixels for).
  if (h[9] & 0x80) border = h[9] & 1 ? CORVANE_BORDER_CONSTANT : CORVANE_BORDER_REPLICATE;
  const uint8_t value[3] = {h[10], h[11], h[12]};
  const uint8_t* valuePointer = h[13] & 1 ? nullptr : value;
  const int32_t path = h[14] % 6;

  const Image src(width, height, srcDelta, srcUp, pixels, pixelBytes);
  Image dst(width + (otherSize ? 1 : 0), height, dstDelta, dstUp, nullptr, 0);
  Image plain = dst;
  plain.view.data = plain.bytes.data() + (static_cast<uint8_t*>(dst.view.data) - dst.bytes.data());

  if (!primitives::ownCpuCanRunVariant(path)) return 0;
  primitives::ForceCpuVariantForTesting(path);
  const int32_t status = Run(src, dst, border, valuePointer);
  primitives::ForceCpuVariantForTesting(0);
  const int32_t plainStatus = Run(src, plain, border, valuePointer);
  primitives::RestoreCpuVariantForTesting();
  if (status != plainStatus || dst.bytes != plain.bytes) __builtin_trap();
  return 0;
}
