#include "harness/guarded_image.h"

#include <algorithm>
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
  origin_ = lowest + (layout.bottomUp ? static_cast<std::size_t>(pitch_) * (layout.rows - 1) : 0);
}

void GuardedImage::Fill(Pattern pattern, std::mt19937& rng) {
  for (int32_t y = 0; y < layout_.rows; ++y) FillPattern(row(y), layout_.rowBytes, pattern, rng);
}

void GuardedImage::FillValue(uint8_t value) {
  for (int32_t y = 0; y < layout_.rows; ++y) std::memset(row(y), value, layout_.rowBytes);
}

::testing::AssertionResult GuardedImage::CheckGuards() const {
  for (std::size_t i = 0; i < storage_.size(); ++i) {
    // Position relative to the lowest row in memory, floored to a row.
    const int64_t rel = static_cast<int64_t>(i) - static_cast<int64_t>(firstRowOffset_);
    const int64_t memRow = (rel >= 0 ? rel : rel - pitch_ + 1) / pitch_;
    const int64_t x = rel - memRow * pitch_;
    if (memRow >= 0 && memRow < layout_.rows && x < layout_.rowBytes) continue;
    if (storage_[i] == kSentinel) continue;
    const int64_t y = layout_.bottomUp ? layout_.rows - 1 - memRow : memRow;
    return ::testing::AssertionFailure()
           << "overwrite at row(" << y << ")[" << x << "] of " << layout_ << ": "
           << int{storage_[i]} << " instead of " << int{kSentinel};
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
    return ::testing::AssertionFailure()
           << "row " << y << " byte " << x << ": expected " << int{e[x]} << ", got " << int{a[x]};
  }
  return ::testing::AssertionSuccess();
}

std::ostream& operator<<(std::ostream& out, const ImageLayout& l) {
  return out << l.rowBytes << " bytes x " << l.rows << " rows, pad " << l.stepPad
             << (l.bottomUp ? ", bottom-up" : "") << ", offset " << l.misalign;
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
