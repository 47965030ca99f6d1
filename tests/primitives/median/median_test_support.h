// What the median tests share: source images framed by real neighbours, the
// six masks with kernels, and a scratch block of exactly the asked size.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "harness/guarded_image.h"
#include "primitives/core/conventions.h"

namespace corvane::test {

constexpr ImageSize kTableMasks[] = {{1, 3}, {1, 5}, {3, 1}, {5, 1}, {3, 3}, {5, 5}};

// A region with `margin` real pixels and rows of random data around it, so
// that any memory flag may be set.
class FramedImage {
 public:
  static constexpr int32_t kMargin = 2;
  FramedImage(ImageSize roi, int32_t pixelBytes, ImageLayout placement, std::mt19937& rng);
  const uint8_t* region() const { return region_; }
  uint8_t* region() { return region_; }
  int32_t step() const { return image_.step(); }
  ::testing::AssertionResult Untouched() const;

 private:
  GuardedImage image_;
  std::vector<uint8_t> copy_;
  uint8_t* region_;
};

// Scratch of exactly `size` bytes (so a sanitizer sees any overrun), filled
// with noise so that nothing can rely on its contents.
std::vector<uint8_t> NoisyScratch(int32_t size, std::mt19937& rng);

std::string Describe(ImageSize roi, ImageSize mask, uint32_t border, const ImageLayout& src,
                     const ImageLayout& dst);

}  // namespace corvane::test
