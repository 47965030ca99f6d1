#include "support/guarded.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace corvane::test {

std::ostream& operator<<(std::ostream& out, const ImageLayout& l) {
  return out << l.rowBytes << " bytes x " << l.rows << " rows, pad " << l.stepPad
             << (l.bottomUp ? ", bottom-up" : "") << ", offset " << l.misalign;
}

ImageLayout RandomLayout(std::mt19937& rng, int32_t rowBytes, int32_t rows, bool negative) {
  const int32_t pads[] = {0, RandomInt(rng, 1, 70), (64 - rowBytes % 64) % 64};
  const int32_t offsets[] = {0, 32, RandomInt(rng, 1, 63)};
  return {rowBytes, rows, pads[RandomInt(rng, 0, 2)], negative && RandomInt(rng, 0, 3) == 0,
          offsets[RandomInt(rng, 0, 2)]};
}

GuardedImage::GuardedImage(const ImageLayout& layout)
    : layout_(layout), pitch_(layout.rowBytes + layout.stepPad) {
  step_ = layout.bottomUp ? -pitch_ : pitch_;
  // Two guard rows (at most 16 KiB) and 64 bytes on either side, and room to
  // start anywhere in a page.
  const std::size_t guard = std::min<std::size_t>(2 * static_cast<std::size_t>(pitch_), 16384) + 64;
  storage_.assign(static_cast<std::size_t>(pitch_) * layout.rows + 2 * guard + 8192, kSentinel);
  const uintptr_t base = reinterpret_cast<uintptr_t>(storage_.data()) + guard;
  lowest_ = ((base + 4095) & ~uintptr_t{4095}) + (layout.misalign & 4095) -
            reinterpret_cast<uintptr_t>(storage_.data());
  origin_ = storage_.data() + lowest_ +
            (layout.bottomUp ? static_cast<std::size_t>(pitch_) * (layout.rows - 1) : 0);
}

::testing::AssertionResult GuardedImage::CheckGuards() const {
  // The ring: everything before the lowest row, the gap behind each row, and
  // everything after the highest.
  std::size_t from = 0;
  for (int32_t memRow = 0; memRow <= layout_.rows; ++memRow) {
    const std::size_t start = lowest_ + static_cast<std::size_t>(pitch_) * memRow;
    const std::size_t to = memRow < layout_.rows ? start : storage_.size();
    const auto stray = std::find_if(storage_.begin() + from, storage_.begin() + to,
                                    [](uint8_t b) { return b != kSentinel; });
    if (stray != storage_.begin() + to) {
      const int64_t rel = int64_t(stray - storage_.begin()) - int64_t(lowest_);
      const int64_t r = (rel >= 0 ? rel : rel - pitch_ + 1) / pitch_;
      return ::testing::AssertionFailure()
             << "overwrite at row(" << (layout_.bottomUp ? layout_.rows - 1 - r : r) << ")["
             << rel - r * pitch_ << "] of " << layout_ << ": " << int{*stray};
    }
    from = start + layout_.rowBytes;
  }
  return ::testing::AssertionSuccess();
}

PageBuffer::PageBuffer(std::size_t size, Edge edge) : size_(size) {
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t usable = (size + page - 1) / page * page;
  mappingSize_ = usable + page;
  mapping_ =
      mmap(nullptr, mappingSize_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping_ == MAP_FAILED) throw std::bad_alloc();
  auto* base = static_cast<uint8_t*>(mapping_);
  mprotect(edge == Edge::End ? base + usable : base, page, PROT_NONE);
  data_ = edge == Edge::End ? base + usable - size : base + page;
}

PageBuffer::~PageBuffer() { munmap(mapping_, mappingSize_); }

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

}  // namespace corvane::test
