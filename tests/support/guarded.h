// Memory that catches a primitive out of bounds: images with a sentinel ring
// (spare rows above and below, spare bytes beside every row and in the gap of
// a step wider than the row), and buffers that end or start at an
// inaccessible page, so that a read one byte too far faults at once.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
#include <vector>

#include "support/rng.h"

namespace corvane::test {

struct ImageLayout {
  int32_t rowBytes = 1;  // bytes of one row that belong to the image
  int32_t rows = 1;
  int32_t stepPad = 0;    // |step| = rowBytes + stepPad
  bool bottomUp = false;  // negative step: row 0 is the last row in memory
  int32_t misalign = 0;   // offset of the lowest row from a page boundary
};
std::ostream& operator<<(std::ostream& out, const ImageLayout& l);

// A random layout of the given size: a step pad of 0, up to 70 bytes, or up
// to the next multiple of 64; bottom-up where `negative` allows; an offset
// from a 64-byte boundary of 0, 32 or any.
ImageLayout RandomLayout(std::mt19937& rng, int32_t rowBytes, int32_t rows, bool negative);

class GuardedImage {
 public:
  static constexpr uint8_t kSentinel = 0xAA;
  explicit GuardedImage(const ImageLayout& layout);

  uint8_t* data() { return origin_; }
  int32_t step() const { return step_; }
  uint8_t* row(int32_t y) { return origin_ + static_cast<intptr_t>(y) * step_; }
  const ImageLayout& layout() const { return layout_; }

  // The first overwritten ring byte as row(y)[x] in the caller's numbering.
  ::testing::AssertionResult CheckGuards() const;

 private:
  ImageLayout layout_;
  int32_t pitch_, step_;
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
  void* mapping_;
  std::size_t mappingSize_, size_;
  uint8_t* data_;
};

// Compares two regions row by row; names the first differing row and byte.
::testing::AssertionResult SameRows(const uint8_t* expected, int32_t expectedStep,
                                    const uint8_t* actual, int32_t actualStep, int32_t rowBytes,
                                    int32_t rows);

}  // namespace corvane::test
