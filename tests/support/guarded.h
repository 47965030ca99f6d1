// Memory that catches a primitive out of bounds: images with a sentinel ring
// (spare rows above and below, spare bytes beside every row and in the gap of
// a step wider than the row), and buffers that end or start at an
// inaccessible page, so that a read one byte too far faults at once.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane::test {

struct ImageLayout {
  int32_t rowBytes = 1;  // bytes of one row that belong to the image
  int32_t rows = 1;
  int32_t stepPad = 0;    // |step| = rowBytes + stepPad
  bool bottomUp = false;  // negative step: row 0 is the last row in memory
  int32_t misalign = 0;   // offset of the lowest row from a page boundary
};

class GuardedImage {
 public:
  static constexpr uint8_t kSentinel = 0xAA;
  explicit GuardedImage(const ImageLayout& layout);
  uint8_t* data() { return origin_; }
  int32_t step() const { return layout_.bottomUp ? -pitch_ : pitch_; }
  uint8_t* row(int32_t y) { return origin_ + intptr_t{y} * step(); }
  // The first overwritten ring byte, as an offset from the lowest row.
  ::testing::AssertionResult CheckGuards() const;

 private:
  ImageLayout layout_;
  int32_t pitch_;
  std::vector<uint8_t> storage_;
  std::size_t lowest_;  // offset of the lowest row in memory
  uint8_t* origin_;
};

class PageBuffer {
 public:
  enum class Edge { End, Start };
  // `size` bytes whose last (End) or first (Start) byte touches a protected page.
  explicit PageBuffer(std::size_t size, Edge edge = Edge::End);
  ~PageBuffer();
  PageBuffer(const PageBuffer&) = delete;
  PageBuffer& operator=(const PageBuffer&) = delete;
  uint8_t* data() { return data_; }
  std::size_t size() const { return size_; }

 private:
  std::size_t mappingSize_, size_;
  uint8_t *mapping_, *data_;
};

// Compares two regions row by row; names the first differing row and byte.
::testing::AssertionResult SameRows(const uint8_t* expected, int32_t expectedStep,
                                    const uint8_t* actual, int32_t actualStep, int32_t rowBytes,
                                    int32_t rows);

}  // namespace corvane::test
