// Crop and scale. Source pixels name their own coordinates, so every pixel of
// a scaled crop says which one it took: that is held against the closed form
// column X -> trunc(x + 0.5 + X·(w - 1)/dW) of a nearest-neighbour scale.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <vector>

#include "bitmap/bitmap.h"

namespace {

using corvane::bitmap::CropAndScale;
constexpr uint8_t kUntouched = 0x5C;

// A w x h bitmap. A source's pixel (x, y) holds x | y << 12; a destination
// wishes for w x h and has `room` bytes of kUntouched, and 64 more behind.
struct Image {
  BITMAPINFOHEADER header;
  std::vector<uint8_t> bits;
  Image(int32_t w, int32_t h, size_t room = 0)
      : header{40, w, h, 1, 24, 0, uint32_t(w) * h * 3, 0, 0, 0, 0},
        bits(room ? room + 64 : size_t(w) * h * 3, kUntouched) {
    for (int32_t i = 0; room == 0 && i < w * h; ++i)
      At(i % w, i / w) = uint32_t(i % w) | i / w << 12;
  }
  struct Pixel {
    uint8_t* p;
    operator uint32_t() const { return p[0] | p[1] << 8 | p[2] << 16; }
    void operator=(uint32_t v) { std::memcpy(p, &v, 3); }
  };
  Pixel At(int32_t X, int32_t Y) { return {&bits[(size_t(Y) * header.biWidth + X) * 3]}; }
  int32_t From(Image& src, int32_t x, int32_t y, int32_t w, int32_t h) {
    return CropAndScale(&src.header, src.bits.data(), x, y, w, h, &header, bits.data());
  }
  bool UntouchedFrom(size_t offset) const {
    return std::all_of(bits.begin() + offset, bits.end(),
                       [](uint8_t b) { return b == kUntouched; });
  }
};

// trunc(start + 0.5 + i·(len - 1)/n) in integers, or one less where that is
// exact and the accumulated position may fall short of it.
bool TookClosedForm(int32_t got, int32_t start, int32_t len, int32_t n, int32_t i) {
  const int64_t num = (2 * int64_t(start) + 1) * n + 2 * int64_t(i) * (len - 1), den = 2 * n;
  return got == num / den || (num % den == 0 && got == num / den - 1);
}

TEST(CropAndScale, EveryPixelTakesTheClosedForm) {
  Image src(403, 299);
  for (const int32_t w : {2, 3, 16, 101, 403}) {
    for (const int32_t h : {2, 7, 55, 299}) {
      for (const auto& [wishW, wishH] : {std::pair{8, 8}, {15, -40}, {64, 9}, {-1003, 41}}) {
        SCOPED_TRACE(::testing::Message() << w << "x" << h << " into " << wishW << "x" << wishH);
        const int32_t x = (403 - w) / 3, y = (299 - h) / 2;
        const int32_t dW = std::abs(wishW) & ~7, dH = std::abs(wishH) & ~7;
        const size_t bytes = size_t(dW) * dH * 3;
        Image dst(wishW, wishH, size_t(std::abs(wishW)) * std::abs(wishH) * 3);
        ASSERT_EQ(dst.From(src, x, y, w, h), 1);
        ASSERT_EQ(std::tuple(dst.header.biWidth, dst.header.biHeight, dst.header.biSizeImage),
                  std::tuple(dW, dH, uint32_t(bytes)));
        EXPECT_TRUE(dst.UntouchedFrom(bytes)) << "a write past the picture";
        for (int32_t Y = 0; Y < dH; ++Y) {
          for (int32_t X = 0; X < dW; ++X) {
            const uint32_t v = dst.At(X, Y);
            ASSERT_TRUE(TookClosedForm(v & 0xFFF, x, w, dW, X) &&
                        TookClosedForm(v >> 12, y, h, dH, Y))
                << "pixel (" << X << ", " << Y << ") took " << std::hex << v;
          }
        }
      }
    }
  }
}

// The other results and the header they leave; a 1 here is the copy road: the source unscaled.
struct Case {
  const char* name;
  int32_t srcH, x, y, w, h, wishW, wishH, result, dW, dH;
  uint16_t bitCount = 24;
} const kCases[] = {
    {"wish below 8 wide", 48, 3, 2, 40, 30, 7, 16, 0, 0, 16},
    {"wish below 8 high", 48, 3, 2, 40, 30, 16, -5, 0, 16, 0},
    {"crop of width 0", 48, 3, 2, 0, 30, 16, 16, 1, 16, 16},
    {"crop of height 0", 48, 3, 2, 10, 0, -20, 16, 1, 16, 16},
    {"crop of width 1", 48, 3, 2, 1, 30, 16, 16, 0, 16, 16},
    {"crop of height 1", 48, 3, 2, 10, 1, 16, 16, 0, 16, 16},
    {"a column past the edge", 48, 25, 2, 40, 30, 24, 16, 1, 24, 16},
    {"a row past the edge", 48, 2, 19, 40, 30, 24, 16, 1, 24, 16},
    {"negative x inside the image", 48, -3, 2, 40, 30, 16, 16, 0, 16, 16},
    {"negative source height", -48, 3, 2, 40, 30, 16, 16, 1, 16, 16},
    {"scratch beyond 31 bits", 48, 3, 2, 40, 30, 1 << 28, 8, ResultBadArgument, 1 << 28, 8},
    {"16-bit source", 48, 0, 0, 16, 8, 16, 16, 0, 16, 16, 16},
};

TEST(CropAndScale, ResultsHeadersAndRoads) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    Image src(64, 48), dst(c.wishW, c.wishH, 64 * 48 * 3);
    src.header.biHeight = c.srcH;
    src.header.biBitCount = c.bitCount;
    ASSERT_EQ(dst.From(src, c.x, c.y, c.w, c.h), c.result);
    EXPECT_EQ(std::tuple(dst.header.biWidth, dst.header.biHeight, dst.header.biSizeImage),
              std::tuple(c.dW, c.dH, uint32_t(int32_t(24u * c.dW * c.dH) / 8)));
    const size_t copied = c.result == 1 ? src.bits.size() : 0;
    EXPECT_EQ(0, std::memcmp(dst.bits.data(), src.bits.data(), copied));
    EXPECT_TRUE(dst.UntouchedFrom(copied));
  }
  // A null pointer gives 0 and writes nothing, header included.
  Image src(32, 16), dst(-20, 16, 4096);
  for (int null = 0; null < 4; ++null) {
    EXPECT_EQ(
        0, CropAndScale(null == 0 ? nullptr : &src.header, null == 1 ? nullptr : src.bits.data(), 0,
                        0, 8, 8, null == 2 ? nullptr : &dst.header,
                        null == 3 ? nullptr : dst.bits.data()));
  }
  EXPECT_EQ(dst.header.biWidth, -20);
  EXPECT_TRUE(dst.UntouchedFrom(0));
  // The copy road copies what the source's size field says, nothing more.
  src.header.biSizeImage = 100;
  ASSERT_EQ(dst.From(src, 0, 0, 0, 8), 1);
  EXPECT_EQ(0, std::memcmp(dst.bits.data(), src.bits.data(), 100));
  EXPECT_TRUE(dst.UntouchedFrom(100));
}

}  // namespace
