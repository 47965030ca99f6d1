// BmpReSizeEx through the shared object. The source's pixels name their own
// coordinates, so every destination pixel says which source pixel it took;
// that is compared with the closed form of a nearest-neighbour scale,
// column X -> trunc(x + 0.5 + X·(w - 1)/dW), worked out in integers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <vector>

#include "corvane.h"
#include "harness/test_rng.h"

namespace {

constexpr uint8_t kUntouched = 0x5C;
constexpr size_t kGuard = 64;

// Pixel (x, y) holds x in its low 12 bits and y in its high 12.
struct Bitmap {
  BITMAPINFOHEADER header{};
  std::vector<uint8_t> bits;

  Bitmap(int32_t width, int32_t height) {
    header.biSize = 40;
    header.biWidth = width;
    header.biHeight = height;
    header.biBitCount = 24;
    header.biSizeImage = uint32_t(width * height * 3);
    bits.resize(size_t(width) * height * 3);
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        const uint32_t v = uint32_t(x) | (uint32_t(y) << 12);
        std::memcpy(&bits[(size_t(y) * width + x) * 3], &v, 3);
      }
    }
  }
};

// A destination of `bytes` bytes followed by guard bytes, and its wish.
struct Target {
  BITMAPINFOHEADER header{};
  std::vector<uint8_t> bits;

  Target(int32_t wishW, int32_t wishH, size_t bytes) : bits(bytes + kGuard, kUntouched) {
    header.biWidth = wishW;
    header.biHeight = wishH;
    header.biBitCount = 24;
  }
  int32_t Resize(const Bitmap& src, int32_t x, int32_t y, int32_t w, int32_t h) {
    return BmpReSizeEx(&src.header, src.bits.data(), x, y, w, h, &header, bits.data());
  }
  bool GuardIntact(size_t bytes) const {
    return std::all_of(bits.begin() + bytes, bits.end(), [](uint8_t b) { return b == kUntouched; });
  }
  void Pixel(int32_t X, int32_t Y, int32_t* sx, int32_t* sy) const {
    uint32_t v = 0;
    std::memcpy(&v, &bits[(size_t(Y) * header.biWidth + X) * 3], 3);
    *sx = int32_t(v & 0xFFF);
    *sy = int32_t(v >> 12);
  }
};

// Whether destination index i along one axis took source coordinate `got`:
// trunc(start + 0.5 + i·(len - 1)/n), or one less where that value is an
// exact integer and the rounding of the accumulated position may fall short.
bool TookClosedForm(int32_t got, int32_t start, int32_t len, int32_t n, int32_t i) {
  const int64_t num = (2 * int64_t(start) + 1) * n + 2 * int64_t(i) * (len - 1);
  const int64_t den = 2 * int64_t(n);
  return got == num / den || (num % den == 0 && got == num / den - 1);
}

// Every pixel of a warp-road result against the closed form.
::testing::AssertionResult AllPixelsMatch(const Target& t, int32_t x, int32_t y, int32_t w,
                                          int32_t h) {
  const int32_t dW = t.header.biWidth, dH = t.header.biHeight;
  for (int32_t Y = 0; Y < dH; ++Y) {
    for (int32_t X = 0; X < dW; ++X) {
      int32_t sx = 0, sy = 0;
      t.Pixel(X, Y, &sx, &sy);
      if (!TookClosedForm(sx, x, w, dW, X) || !TookClosedForm(sy, y, h, dH, Y)) {
        return ::testing::AssertionFailure()
               << "pixel (" << X << ", " << Y << ") took (" << sx << ", " << sy << ")";
      }
    }
  }
  return ::testing::AssertionSuccess();
}

TEST(BmpReSizeExTest, RandomCropsTakeTheClosedFormPixel) {
  std::mt19937 rng = corvane::test::MakeTestRng();
  using corvane::test::RandomInt;
  for (int round = 0; round < 150; ++round) {
    const Bitmap src(RandomInt(rng, 2, 400), RandomInt(rng, 2, 300));
    const int32_t w = RandomInt(rng, 2, src.header.biWidth);
    const int32_t h = RandomInt(rng, 2, src.header.biHeight);
    const int32_t x = RandomInt(rng, 0, src.header.biWidth - w);
    const int32_t y = RandomInt(rng, 0, src.header.biHeight - h);
    const int32_t wishW = RandomInt(rng, 8, 700) * (RandomInt(rng, 0, 3) == 0 ? -1 : 1);
    const int32_t wishH = RandomInt(rng, 8, 500) * (RandomInt(rng, 0, 3) == 0 ? -1 : 1);
    const int32_t dW = (wishW < 0 ? -wishW : wishW) & ~7, dH = (wishH < 0 ? -wishH : wishH) & ~7;
    const size_t bytes = size_t(dW) * dH * 3;
    Target dst(wishW, wishH, bytes);
    SCOPED_TRACE(::testing::Message() << "crop (" << x << ", " << y << ") " << w << "x" << h
                                      << " of " << src.header.biWidth << "x" << src.header.biHeight
                                      << ", wish " << wishW << "x" << wishH);
    ASSERT_EQ(dst.Resize(src, x, y, w, h), 1);
    EXPECT_EQ(dst.header.biWidth, dW);
    EXPECT_EQ(dst.header.biHeight, dH);
    EXPECT_EQ(dst.header.biSizeImage, bytes);
    EXPECT_TRUE(dst.GuardIntact(bytes)) << "write past the destination";
    ASSERT_TRUE(AllPixelsMatch(dst, x, y, w, h));
  }
}

// Single pixels worked by hand, which pin the closed form itself: the last
// column takes trunc(x + 0.5 + (w - 1)·(dW - 1)/dW), short of the crop's
// last pixel, and a 1:1 crop is still a scale by (w - 1)/w, doubling a
// column halfway.
TEST(BmpReSizeExTest, WorkedPixels) {
  struct Case {
    int32_t x, y, w, h, dW, dH;
    int32_t X, Y, sx, sy;
  } const cases[] = {
      {13, 7, 101, 55, 64, 32, 1, 1, 15, 9}, {13, 7, 101, 55, 64, 32, 63, 31, 111, 59},
      {5, 6, 16, 16, 16, 16, 7, 0, 12, 6},   {5, 6, 16, 16, 16, 16, 9, 0, 13, 6},
      {5, 6, 16, 16, 16, 16, 10, 0, 14, 6},  {5, 6, 16, 16, 16, 16, 15, 15, 19, 20},
  };
  const Bitmap src(160, 90);
  for (const Case& c : cases) {
    Target dst(c.dW, c.dH, size_t(c.dW) * c.dH * 3);
    ASSERT_EQ(dst.Resize(src, c.x, c.y, c.w, c.h), 1);
    int32_t sx = 0, sy = 0;
    dst.Pixel(c.X, c.Y, &sx, &sy);
    EXPECT_EQ(sx, c.sx) << "pixel (" << c.X << ", " << c.Y << ") of " << c.w << "x" << c.h;
    EXPECT_EQ(sy, c.sy) << "pixel (" << c.X << ", " << c.Y << ") of " << c.w << "x" << c.h;
    EXPECT_TRUE(AllPixelsMatch(dst, c.x, c.y, c.w, c.h));
  }
}

enum class Road { Scaled, CopiedWhole, Untouched };

struct EdgeCase {
  const char* name;
  int32_t srcW, srcH;  // srcH becomes biHeight as it stands, negative included
  int32_t x, y, w, h;
  int32_t wishW, wishH;
  int32_t result;
  int32_t dW, dH;  // header after the call
  Road road;
  uint16_t bitCount = 24;
};

const EdgeCase kEdgeCases[] = {
    {"negative wish comes back positive", 64, 48, 3, 2, 40, 30, -1003, 16, 1, 1000, 16,
     Road::Scaled},
    {"wish below 8 wide", 64, 48, 3, 2, 40, 30, 7, 16, 0, 0, 16, Road::Untouched},
    {"wish below 8 high", 64, 48, 3, 2, 40, 30, 16, -5, 0, 16, 0, Road::Untouched},
    {"crop of width 0", 64, 48, 3, 2, 0, 30, 16, 16, 1, 16, 16, Road::CopiedWhole},
    {"crop of height 0", 64, 48, 3, 2, 10, 0, 16, 16, 1, 16, 16, Road::CopiedWhole},
    {"crop of width 1", 64, 48, 3, 2, 1, 30, 16, 16, 0, 16, 16, Road::Untouched},
    {"crop of height 1", 64, 48, 3, 2, 10, 1, 16, 16, 0, 16, 16, Road::Untouched},
    {"crop one column past the edge", 64, 48, 25, 2, 40, 30, 24, 16, 1, 24, 16, Road::CopiedWhole},
    {"crop one row past the edge", 64, 48, 2, 19, 40, 30, 24, 16, 1, 24, 16, Road::CopiedWhole},
    {"negative x inside the image", 64, 48, -3, 2, 40, 30, 16, 16, 0, 16, 16, Road::Untouched},
    {"negative source height", 64, -48, 3, 2, 40, 30, 16, 16, 1, 16, 16, Road::CopiedWhole},
    {"scratch size beyond 31 bits", 64, 48, 3, 2, 40, 30, 1 << 28, 8, ResultBadArgument, 1 << 28, 8,
     Road::Untouched},
    {"sixteen-bit source refused on the warp road", 32, 16, 0, 0, 16, 8, 16, 16, 0, 16, 16,
     Road::Untouched, 16},
};

class BmpReSizeExEdgeTest : public ::testing::TestWithParam<EdgeCase> {};

TEST_P(BmpReSizeExEdgeTest, ResultHeaderAndPixels) {
  const EdgeCase& c = GetParam();
  Bitmap src(c.srcW, c.srcH < 0 ? -c.srcH : c.srcH);
  src.header.biHeight = c.srcH;
  src.header.biBitCount = c.bitCount;
  size_t room = std::max(src.bits.size(), size_t(4096));
  if (c.road == Road::Scaled) room = std::max(room, size_t(c.dW) * c.dH * 3);
  Target dst(c.wishW, c.wishH, room);
  ASSERT_EQ(dst.Resize(src, c.x, c.y, c.w, c.h), c.result);
  EXPECT_EQ(dst.header.biWidth, c.dW);
  EXPECT_EQ(dst.header.biHeight, c.dH);
  EXPECT_EQ(dst.header.biSizeImage,
            uint32_t(int32_t(uint32_t(24) * uint32_t(c.dW) * uint32_t(c.dH)) / 8));
  switch (c.road) {
    case Road::Scaled:
      EXPECT_TRUE(AllPixelsMatch(dst, c.x, c.y, c.w, c.h));
      EXPECT_TRUE(dst.GuardIntact(size_t(c.dW) * c.dH * 3));
      break;
    case Road::CopiedWhole:
      EXPECT_EQ(0, std::memcmp(dst.bits.data(), src.bits.data(), src.bits.size()));
      EXPECT_TRUE(dst.GuardIntact(src.bits.size()));
      break;
    case Road::Untouched:
      EXPECT_TRUE(dst.GuardIntact(0));
      break;
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, BmpReSizeExEdgeTest, ::testing::ValuesIn(kEdgeCases),
                         [](const ::testing::TestParamInfo<EdgeCase>& info) {
                           std::string name = info.param.name;
                           for (char& ch : name) {
                             if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
                           }
                           return name;
                         });

TEST(BmpReSizeExTest, CopyRoadCopiesTheSourceSizeField) {
  Bitmap src(32, 16);
  src.header.biSizeImage = 100;  // the field decides, not the picture
  Target dst(16, 16, 4096);
  ASSERT_EQ(dst.Resize(src, 0, 0, 0, 8), 1);
  EXPECT_EQ(0, std::memcmp(dst.bits.data(), src.bits.data(), 100));
  EXPECT_TRUE(dst.GuardIntact(100));
  src.header.biSizeImage = 0;
  Target none(16, 16, 4096);
  EXPECT_EQ(none.Resize(src, 0, 0, 0, 8), 1);
  EXPECT_TRUE(none.GuardIntact(0));
}

TEST(BmpReSizeExTest, NullPointersWriteNothing) {
  const Bitmap src(32, 16);
  Target dst(-20, 20, 4096);
  BITMAPINFOHEADER* const h = &dst.header;
  uint8_t* const d = dst.bits.data();
  EXPECT_EQ(BmpReSizeEx(nullptr, src.bits.data(), 0, 0, 8, 8, h, d), 0);
  EXPECT_EQ(BmpReSizeEx(&src.header, nullptr, 0, 0, 8, 8, h, d), 0);
  EXPECT_EQ(BmpReSizeEx(&src.header, src.bits.data(), 0, 0, 8, 8, nullptr, d), 0);
  EXPECT_EQ(BmpReSizeEx(&src.header, src.bits.data(), 0, 0, 8, 8, h, nullptr), 0);
  EXPECT_EQ(dst.header.biWidth, -20);
  EXPECT_TRUE(dst.GuardIntact(0));
}

TEST(BmpStubsTest, ReturnNotImplemented) {
  EXPECT_EQ(BmpReSize(), ResultNotImplemented);
  EXPECT_EQ(BmpStretchDIB(), ResultNotImplemented);
  EXPECT_EQ(BmpStretchDIBEx(), ResultNotImplemented);
  EXPECT_EQ(BmpStretchDIBEx2(), ResultNotImplemented);
}

}  // namespace
