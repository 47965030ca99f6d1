#include "median_reference.h"

#include <algorithm>
#include <cstring>

namespace corvane::test {

uint8_t BorderedSource::At(int32_t x, int32_t y, int32_t c) const {
  const bool leftOut = x < 0 && !(flags & BorderMemoryLeft);
  const bool rightOut = x >= roi.width && !(flags & BorderMemoryRight);
  const bool topOut = y < 0 && !(flags & BorderMemoryTop);
  const bool bottomOut = y >= roi.height && !(flags & BorderMemoryBottom);
  if ((leftOut || rightOut || topOut || bottomOut) && !replicate) return value[c];
  // Replicate clamps a coordinate on a clear side only.
  if (leftOut) x = 0;
  if (rightOut) x = roi.width - 1;
  if (topOut) y = 0;
  if (bottomOut) y = roi.height - 1;
  return origin[static_cast<intptr_t>(y) * step + static_cast<intptr_t>(x) * 3 + c];
}

std::vector<uint8_t> ReferenceMedian8uC3(const BorderedSource& source, ImageSize mask) {
  const int32_t xr = mask.width / 2, yr = mask.height / 2;
  std::vector<uint8_t> out(static_cast<size_t>(source.roi.width) * 3 * source.roi.height);
  std::vector<uint8_t> values;
  for (int32_t y = 0; y < source.roi.height; ++y) {
    for (int32_t x = 0; x < source.roi.width; ++x) {
      for (int32_t c = 0; c < 3; ++c) {
        values.clear();
        for (int32_t dy = -yr; dy <= yr; ++dy) {
          for (int32_t dx = -xr; dx <= xr; ++dx) values.push_back(source.At(x + dx, y + dy, c));
        }
        std::sort(values.begin(), values.end());
        out[(static_cast<size_t>(y) * source.roi.width + x) * 3 + c] = values[values.size() / 2];
      }
    }
  }
  return out;
}

namespace {

int32_t ReadElement(const uint8_t* p, const ElementForm& form) {
  if (form.elementBytes == 1) return *p;
  uint16_t raw;
  std::memcpy(&raw, p, 2);
  return form.isSigned ? static_cast<int32_t>(static_cast<int16_t>(raw))
                       : static_cast<int32_t>(raw);
}

void WriteElement(uint8_t* p, int32_t v, const ElementForm& form) {
  if (form.elementBytes == 1) {
    *p = static_cast<uint8_t>(v);
    return;
  }
  const uint16_t raw = static_cast<uint16_t>(v);
  std::memcpy(p, &raw, 2);
}

}  // namespace

std::vector<uint8_t> ReferenceMedianDirect(const uint8_t* src, int32_t srcStep, ImageSize roi,
                                           ImageSize mask, ElementForm form,
                                           const std::vector<uint8_t>& before) {
  const int32_t xr = mask.width / 2, yr = mask.height / 2;
  const int32_t pixelBytes = form.elementBytes * form.channels;
  const size_t rowBytes = static_cast<size_t>(roi.width) * pixelBytes;
  std::vector<uint8_t> out(before);
  std::vector<int32_t> values;
  for (int32_t y = 0; y < roi.height; ++y) {
    for (int32_t x = 0; x < roi.width; ++x) {
      for (int32_t c = 0; c < form.channels; ++c) {
        if (form.keepFourth && c == 3) continue;
        values.clear();
        for (int32_t dy = -yr; dy <= yr; ++dy) {
          for (int32_t dx = -xr; dx <= xr; ++dx) {
            const uint8_t* p = src + static_cast<intptr_t>(y + dy) * srcStep +
                               static_cast<intptr_t>(x + dx) * pixelBytes + c * form.elementBytes;
            values.push_back(ReadElement(p, form));
          }
        }
        std::sort(values.begin(), values.end());
        WriteElement(
            &out[y * rowBytes + static_cast<size_t>(x) * pixelBytes + c * form.elementBytes],
            values[values.size() / 2], form);
      }
    }
  }
  return out;
}

}  // namespace corvane::test
