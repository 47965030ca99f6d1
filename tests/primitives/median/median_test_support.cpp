#include "median_test_support.h"

#include <cstring>
#include <sstream>

namespace corvane::test {

FramedImage::FramedImage(ImageSize roi, int32_t pixelBytes, ImageLayout placement,
                         std::mt19937& rng)
    : image_([&] {
        placement.rowBytes = (roi.width + 2 * kMargin) * pixelBytes;
        placement.rows = roi.height + 2 * kMargin;
        return placement;
      }()) {
  image_.Fill(Pattern::Random, rng);
  region_ = image_.row(kMargin) + kMargin * pixelBytes;
  const ImageLayout& l = image_.layout();
  for (int32_t y = 0; y < l.rows; ++y)
    copy_.insert(copy_.end(), image_.row(y), image_.row(y) + l.rowBytes);
}

::testing::AssertionResult FramedImage::Untouched() const {
  const ImageLayout& l = image_.layout();
  auto guards = image_.CheckGuards();
  if (!guards) return guards << " (source)";
  return SameRows(copy_.data(), l.rowBytes, image_.row(0), image_.step(), l.rowBytes, l.rows)
         << " (source changed)";
}

std::vector<uint8_t> NoisyScratch(int32_t size, std::mt19937& rng) {
  std::vector<uint8_t> scratch(static_cast<size_t>(size > 0 ? size : 1));
  FillPattern(scratch.data(), scratch.size(), Pattern::Random, rng);
  return scratch;
}

std::string Describe(ImageSize roi, ImageSize mask, uint32_t border, const ImageLayout& src,
                     const ImageLayout& dst) {
  std::ostringstream s;
  s << "region " << roi.width << "x" << roi.height << " mask " << mask.width << "x" << mask.height
    << " border 0x" << std::hex << border << std::dec << " src pad " << src.stepPad
    << (src.bottomUp ? " up" : "") << " off " << src.misalign << " dst pad " << dst.stepPad
    << (dst.bottomUp ? " up" : "") << " off " << dst.misalign;
  return s.str();
}

}  // namespace corvane::test
