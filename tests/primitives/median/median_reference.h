// The plain oracle of the median tests: for every output and channel, gather
// the mask's values and sort them. No network, no vector, no shared code with
// the library.
#pragma once

#include <cstdint>
#include <vector>

#include "primitives/core/conventions.h"

namespace corvane::test {

// A source pixel of the virtual image around a region: (x, y) relative to the
// region's first pixel, channel c. Sides with their memory flag set read the
// memory beyond the region; clear sides make pixels by the border mode.
struct BorderedSource {
  const uint8_t* origin;  // region's first pixel
  int32_t step;
  ImageSize roi;
  uint32_t flags;        // high nibble of the border type
  bool replicate;        // else constant
  const uint8_t* value;  // three bytes, constant mode
  uint8_t At(int32_t x, int32_t y, int32_t c) const;
};

// Expected 8-bit three-channel output, width * 3 bytes a row.
std::vector<uint8_t> ReferenceMedian8uC3(const BorderedSource& source, ImageSize mask);

// Expected output of a kernel that reads every neighbour from memory, for a
// pixel form of `elementBytes` (1, or 2 as signed or unsigned) with
// `channels` elements a pixel; `keepFourth` takes the fourth element of each
// output pixel from `before`, dst as it was. Rows of width * pixel bytes.
struct ElementForm {
  int32_t elementBytes;
  bool isSigned;
  int32_t channels;
  bool keepFourth;
};
std::vector<uint8_t> ReferenceMedianDirect(const uint8_t* src, int32_t srcStep, ImageSize roi,
                                           ImageSize mask, ElementForm form,
                                           const std::vector<uint8_t>& before);

}  // namespace corvane::test
