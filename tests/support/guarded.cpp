#include "support/guarded.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace corvane::test {

// Two guard rows (at most 16 KiB) and 64 bytes on either side, and room to
// start anywhere in a page.
GuardedImage::GuardedImage(const ImageLayout& layout)
    : layout_(layout), pitch_(layout.rowBytes + layout.stepPad) {
  const std::size_t guard = std::min<std::size_t>(2 * std::size_t(pitch_), 16384) + 64;
  storage_.assign(std::size_t(pitch_) * layout.rows + 2 * guard + 8192, kSentinel);
  const uintptr_t base = reinterpret_cast<uintptr_t>(storage_.data()) + guard;
  lowest_ = ((base + 4095) & ~uintptr_t{4095}) + (layout.misalign & 4095) -
            reinterpret_cast<uintptr_t>(storage_.data());
  origin_ =
      storage_.data() + lowest_ + (layout.bottomUp ? std::size_t(pitch_) * (layout.rows - 1) : 0);
}

// The ring: everything before the lowest row, the gap behind each row, and
// everything after the highest.
::testing::AssertionResult GuardedImage::CheckGuards() const {
  std::size_t from = 0;
  for (int32_t memRow = 0; memRow <= layout_.rows; ++memRow) {
    const std::size_t start = lowest_ + std::size_t(pitch_) * memRow;
    const auto end = storage_.begin() + (memRow < layout_.rows ? start : storage_.size());
    const auto stray =
        std::find_if(storage_.begin() + from, end, [](uint8_t b) { return b != kSentinel; });
    if (stray != end) {
      return ::testing::AssertionFailure()
             << "overwrite at " << (stray - storage_.begin()) - int64_t(lowest_)
             << " from the lowest row: " << int{*stray};
    }
    from = start + layout_.rowBytes;
  }
  return ::testing::AssertionSuccess();
}

PageBuffer::PageBuffer(std::size_t size, Edge edge) : size_(size) {
  const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE)),
                    usable = (size + page - 1) / page * page;
  mappingSize_ = usable + page;
  void* m = mmap(nullptr, mappingSize_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (m == MAP_FAILED) throw std::bad_alloc();
  mapping_ = static_cast<uint8_t*>(m);
  mprotect(edge == Edge::End ? mapping_ + usable : mapping_, page, PROT_NONE);
  data_ = edge == Edge::End ? mapping_ + usable - size : mapping_ + page;
}

PageBuffer::~PageBuffer() { munmap(mapping_, mappingSize_); }

::testing::AssertionResult SameRows(const uint8_t* expected, int32_t expectedStep,
                                    const uint8_t* actual, int32_t actualStep, int32_t rowBytes,
                                    int32_t rows) {
  for (int32_t y = 0; y < rows; ++y) {
    const uint8_t* e = expected + intptr_t{y} * expectedStep;
    const uint8_t* a = actual + intptr_t{y} * actualStep;
    const int32_t x = int32_t(std::mismatch(e, e + rowBytes, a).first - e);
    if (x == rowBytes) continue;
    return ::testing::AssertionFailure()
           << "row " << y << " byte " << x << ": expected " << int{e[x]} << ", got " << int{a[x]};
  }
  return ::testing::AssertionSuccess();
}

}  // namespace corvane::test
