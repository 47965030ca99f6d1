// Placeholder row copy; replaced by the per-family kernels.
#include <cstring>

#include "primitives/core/copy.h"

namespace corvane::CORVANE_VARIANT {

void ownCopyRows(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                 int32_t rowBytes, int32_t rows) {
  for (int32_t y = 0; y < rows; ++y) {
    std::memmove(dst + static_cast<intptr_t>(y) * dstStep, src + static_cast<intptr_t>(y) * srcStep,
                 static_cast<size_t>(rowBytes));
  }
}

#if CORVANE_VARIANT_INDEX >= 4
void* ownCopyBlock(const void* src, void* dst, int32_t length) {
  if (length > 0) std::memmove(dst, src, static_cast<size_t>(length));
  return dst;
}
void ownCopyShort(const void* src, void* dst, int32_t length) {
  if (length > 0) std::memcpy(dst, src, static_cast<size_t>(length));
}
#endif

}  // namespace corvane::CORVANE_VARIANT
