#include "harness/guarded_image.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace corvane::test {

GuardedImage::GuardedImage(const ImageLayout& layout)
    : layout_(layout), pitch_(layout.rowBytes + layout.stepPad) {
  step_ = layout.bottomUp ? -pitch_ : pitch_;
  // Guard rows above and below, guard bytes before the first and after the
  // last row, and room to place the first byte at any offset in a page.
  const std::size_t body = static_cast<std::size_t>(pitch_) * layout.rows;
  const std::size_t guard = static_cast<std::size_t>(kGuardRows) * pitch_ + kGuardBytes;
  storage_.assign(body + 2 * guard + 2 * 4096, kSentinel);
  const uintptr_t base = reinterpret_cast<uintptr_t>(storage_.data()) + guard;
  const uintptr_t aligned = (base + 4095) & ~static_cast<uintptr_t>(4095);
  firstRowOffset_ = aligned + static_cast<uintptr_t>(layout.misalign & 4095) -
                    reinterpret_cast<uintptr_t>(storage_.data());
  uint8_t* lowest = storage_.data() + firstRowOffset_;
  origin_ = layout.bottomUp ? lowest + static_cast<std::size_t>(pitch_) * (layout.rows - 1) : lowest;
}

void GuardedImage::Fill(Pattern pattern, std::mt19937& rng) {
  for (int32_t y = 0; y < layout_.rows; ++y) FillPattern(row(y), layout_.rowBytes, pattern, rng);
}

void GuardedImage::FillValue(uint8_t value) {
  for (int32_t y = 0; y < layout_.rows; ++y) std::memset(row(y), value, layout_.rowBytes);
}

::testing::AssertionResult GuardedImage::CheckGuards() const {
  const uint8_t* s = storage_.data();
  const std::size_t first = firstRowOffset_;
  const std::size_t end = first + static_cast<std::size_t>(pitch_) * layout_.rows;
  for (std::size_t i = 0; i < storage_.size(); ++i) {
    if (i >= first && i < end && static_cast<int32_t>((i - first) % pitch_) < layout_.rowBytes) {
      continue;  // inside the image
    }
    if (s[i] == kSentinel) continue;
    auto failure = ::testing::AssertionFailure();
    // Rows are named as the caller sees them; with a negative step the
    // lowest row in memory is the last one.
    auto name = [&](std::size_t memRow) {
      return layout_.bottomUp ? layout_.rows - 1 - static_cast<int32_t>(memRow)
                              : static_cast<int32_t>(memRow);
    };
    if (i < first) {
      if (first - i <= static_cast<std::size_t>(kGuardBytes)) {
        failure << "overwrite left of row " << name(0) << ", " << (first - i) << " bytes before it";
      } else {
        failure << "overwrite above the image, " << (first - i) << " bytes before its first byte";
      }
    } else if (i >= end) {
      if (i - end < static_cast<std::size_t>(kGuardBytes)) {
        failure << "overwrite right of row " << name(layout_.rows - 1) << " at byte "
                << (i - end + pitch_);
      } else {
        failure << "overwrite below the image, " << (i - end) << " bytes after its last row";
      }
    } else {
      const std::size_t memRow = (i - first) / pitch_;
      const int32_t offset = static_cast<int32_t>((i - first) % pitch_);
      failure << "overwrite right of row " << name(memRow) << " at byte " << offset;
      if (memRow + 1 < static_cast<std::size_t>(layout_.rows)) {
        failure << " (left of row " << name(memRow + 1) << ")";
      }
      failure << ", row " << layout_.rowBytes << " bytes, step " << step_;
    }
    char found[48];
    std::snprintf(found, sizeof found, ": 0x%02X instead of 0x%02X", s[i], kSentinel);
    return failure << found;
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult SameRows(const uint8_t* expected, int32_t expectedStep,
                                    const uint8_t* actual, int32_t actualStep, int32_t rowBytes,
                                    int32_t rows) {
  for (int32_t y = 0; y < rows; ++y) {
    const uint8_t* e = expected + static_cast<intptr_t>(y) * expectedStep;
    const uint8_t* a = actual + static_cast<intptr_t>(y) * actualStep;
    if (std::memcmp(e, a, rowBytes) == 0) continue;
    int32_t x = 0;
    while (e[x] == a[x]) ++x;
    return ::testing::AssertionFailure() << "row " << y << " byte " << x << ": expected "
                                         << int{e[x]} << ", got " << int{a[x]};
  }
  return ::testing::AssertionSuccess();
}

ImageLayout RandomLayout(std::mt19937& rng, int32_t maxRowBytes, int32_t maxRows) {
  ImageLayout l;
  l.rowBytes = RandomInt(rng, 1, maxRowBytes);
  l.rows = RandomInt(rng, 1, maxRows);
  l.stepPad = RandomInt(rng, 0, 1) ? RandomInt(rng, 1, 70) : 0;
  l.bottomUp = RandomInt(rng, 0, 3) == 0;
  l.misalign = RandomInt(rng, 0, 63);
  return l;
}

std::vector<int32_t> VectorEdgeWidths(int32_t limit) {
  std::vector<int32_t> widths;
  for (int32_t w = 1; w <= std::min(limit, 9); ++w) widths.push_back(w);
  for (int32_t v = 16; v - 1 <= limit; v += 16) {
    for (int32_t w : {v - 1, v, v + 1}) {
      if (w > 9 && w <= limit) widths.push_back(w);
    }
  }
  return widths;
}

}  // namespace corvane::test
