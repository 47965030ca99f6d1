// Images with a sentinel ring: spare rows above and below, spare bytes left
// and right of every row (and in the gap of a step wider than the row). After
// a call the ring is checked; a failure names the stray byte as row(y)[x].
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <random>
#include <vector>

#include "harness/test_rng.h"

namespace corvane::test {

struct ImageLayout {
  int32_t rowBytes = 1;  // bytes of one row that belong to the image
  int32_t rows = 1;
  int32_t stepPad = 0;    // extra bytes between rows: |step| = rowBytes + stepPad
  bool bottomUp = false;  // negative step: row 0 is the last row in memory
  int32_t misalign = 0;   // offset of the lowest byte from a page (4096) boundary
};

std::ostream& operator<<(std::ostream& out, const ImageLayout& l);

class GuardedImage {
 public:
  static constexpr uint8_t kSentinel = 0xAA;
  static constexpr int32_t kGuardRows = 2;
  static constexpr int32_t kGuardBytes = 64;

  explicit GuardedImage(const ImageLayout& layout);

  uint8_t* data() { return origin_; }
  const uint8_t* data() const { return origin_; }
  int32_t step() const { return step_; }
  uint8_t* row(int32_t y) { return origin_ + static_cast<intptr_t>(y) * step_; }
  const uint8_t* row(int32_t y) const { return origin_ + static_cast<intptr_t>(y) * step_; }
  const ImageLayout& layout() const { return layout_; }

  void Fill(Pattern pattern, std::mt19937& rng);
  void FillValue(uint8_t value);

  // Success, or the first overwritten ring byte as row(y)[x] in the caller's
  // row numbering: y below 0 or past the last row is above or below the
  // image, x of rowBytes or more is right of the row (left of the next).
  ::testing::AssertionResult CheckGuards() const;

 private:
  ImageLayout layout_;
  int32_t pitch_;  // |step|
  int32_t step_;
  std::vector<uint8_t> storage_;
  std::size_t firstRowOffset_;  // of the lowest row in memory
  uint8_t* origin_;
};

// Compares two regions row by row; names the first differing row and byte.
::testing::AssertionResult SameRows(const uint8_t* expected, int32_t expectedStep,
                                    const uint8_t* actual, int32_t actualStep, int32_t rowBytes,
                                    int32_t rows);

// A random layout: rows and rowBytes in the given ranges, a step pad of 0 or
// up to 70 bytes, either direction, any offset from a 64-byte boundary.
ImageLayout RandomLayout(std::mt19937& rng, int32_t maxRowBytes, int32_t maxRows);

// Widths that cross each vector width by one either side: 1..9, then
// 15 16 17 31 32 33 ... up to `limit`.
std::vector<int32_t> VectorEdgeWidths(int32_t limit);

}  // namespace corvane::test
