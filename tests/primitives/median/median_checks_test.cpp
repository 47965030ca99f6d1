// Refusal order of the median entry and of its sizing, and the sizes
// themselves, in every code path: each row names the first failing test and
// the result it must give, with nothing written before it.
#include <gtest/gtest.h>

#include <vector>

#include "harness/variant_test.h"
#include "primitives/median/median.h"

namespace corvane::test {
namespace {

using primitives::ownFilterMedianBorder_8u_C3R;
using primitives::ownFilterMedianBorderGetBufferSize;

class MedianChecksTest : public VariantTest {};

struct FilterCase {
  const char* what;
  bool nullSrc, nullDst, nullBuffer;
  ImageSize roi, mask;
  uint32_t border;
  bool nullValue;
  PrimitiveStatus expected;
};

const FilterCase kFilterCases[] = {
    {"null src before everything",
     true,
     false,
     false,
     {0, 0},
     {2, 2},
     0x106,
     true,
     StatusNullPointer},
    {"null dst", false, true, false, {4, 4}, {3, 3}, 1, false, StatusNullPointer},
    {"null buffer, even for 1x1", false, false, true, {4, 4}, {1, 1}, 1, false, StatusNullPointer},
    {"zero width before the mask", false, false, false, {0, 4}, {2, 3}, 1, false, StatusSize},
    {"negative height", false, false, false, {4, -1}, {3, 3}, 1, false, StatusSize},
    {"even mask width before the border",
     false,
     false,
     false,
     {4, 4},
     {2, 3},
     0x106,
     true,
     StatusMaskSize},
    {"even mask height", false, false, false, {4, 4}, {3, 2}, 1, false, StatusMaskSize},
    {"zero mask", false, false, false, {4, 4}, {0, 3}, 1, false, StatusMaskSize},
    {"negative odd mask", false, false, false, {4, 4}, {3, -1}, 1, false, StatusMaskSize},
    {"border above 0xFF before the value",
     false,
     false,
     false,
     {4, 4},
     {3, 3},
     0x106,
     true,
     StatusBorder},
    {"border above 0xFF with a 1x1 mask",
     false,
     false,
     false,
     {4, 4},
     {1, 1},
     0x101,
     false,
     StatusBorder},
    {"flags without a mode", false, false, false, {4, 4}, {3, 3}, 0x10, false, StatusBorder},
    {"low nibble 0 alone", false, false, false, {4, 4}, {3, 3}, 0x00, false, StatusBorder},
    {"unknown mode", false, false, false, {4, 4}, {3, 3}, 0x32, false, StatusBorder},
    {"bad mode with a 1x1 mask", false, false, false, {4, 4}, {1, 1}, 0x07, false, StatusBorder},
    {"constant without a value",
     false,
     false,
     false,
     {4, 4},
     {3, 3},
     0x06,
     true,
     StatusNullPointer},
    {"0xF6 without a value", false, false, false, {4, 4}, {3, 3}, 0xF6, true, StatusNullPointer},
    {"0xF1 without a value", false, false, false, {4, 4}, {3, 3}, 0xF1, true, StatusOk},
    {"0xF0 without a value", false, false, false, {4, 4}, {3, 3}, 0xF0, true, StatusOk},
    {"replicate without a value", false, false, false, {4, 4}, {5, 5}, 0x01, true, StatusOk},
    {"1x1 constant", false, false, false, {4, 4}, {1, 1}, 0x96, false, StatusOk},
};

TEST_P(MedianChecksTest, FilterRefusesInOrder) {
  // A framed 4x4 region with real neighbours, so that every accepted row may
  // read around it.
  constexpr int32_t kStep = 12 * 3;
  std::vector<uint8_t> src(kStep * 12, 9);
  const uint8_t value[3] = {1, 2, 3};
  for (const FilterCase& c : kFilterCases) {
    std::vector<uint8_t> dst(kStep * 12, 0xEE), buffer(4096, 0x55);
    const PrimitiveStatus status = ownFilterMedianBorder_8u_C3R(
        c.nullSrc ? nullptr : src.data() + 4 * kStep + 12, kStep,
        c.nullDst ? nullptr : dst.data() + 4 * kStep + 12, kStep, c.roi, c.mask, c.border,
        c.nullValue ? nullptr : value, c.nullBuffer ? nullptr : buffer.data());
    EXPECT_EQ(status, c.expected) << c.what;
    if (c.expected != StatusOk) {
      EXPECT_EQ(dst, std::vector<uint8_t>(dst.size(), 0xEE)) << c.what << ": dst written";
      EXPECT_EQ(buffer, std::vector<uint8_t>(buffer.size(), 0x55)) << c.what << ": scratch written";
    }
  }
}

struct SizeCase {
  const char* what;
  ImageSize roi, mask;
  PixelType type;
  int32_t channels;
  PrimitiveStatus expected;
  int32_t size[6];  // m7 n8 y8 e9 l9 k0; the caller's value when refused
};

constexpr int32_t kKept = 12345;
#define SAME(v) \
  { v, v, v, v, v, v }

const SizeCase kSizeCases[] = {
    {"null size first", {0, 0}, {2, 2}, 99, 2, StatusNullPointer, SAME(kKept)},
    {"zero region", {0, 5}, {2, 2}, 99, 2, StatusSize, SAME(kKept)},
    {"even mask", {5, 5}, {3, 2}, 99, 2, StatusMaskSize, SAME(kKept)},
    {"one channel, unknown type", {5, 5}, {3, 3}, 2, 1, StatusPixelType, SAME(kKept)},
    {"two channels", {5, 5}, {3, 3}, 99, 2, StatusChannels, SAME(kKept)},
    {"three channels of float", {5, 5}, {3, 3}, PixelType32f, 3, StatusPixelType, SAME(kKept)},
    // One strip, not an extended copy of the picture.
    {"1080p 3x3 BGR", {1920, 1080}, {3, 3}, PixelType8u, 3, StatusOk, SAME(17312)},
    {"3x3 region, whole image", {3, 3}, {3, 3}, PixelType8u, 3, StatusOk, SAME(96)},
    {"1x1 mask still sized", {10, 4}, {1, 1}, PixelType8u, 3, StatusOk, SAME(0)},
    {"16-bit 3x5, four channels", {100, 50}, {3, 5}, PixelType16u, 4, StatusOk, SAME(5016)},
    {"16-bit 5x5 small", {10, 10}, {5, 5}, PixelType16s, 3, StatusOk, SAME(512)},
    {"16-bit 7x7", {20, 20}, {7, 7}, PixelType16s, 3, StatusOk, SAME(1800)},
    {"one channel 3x3", {100, 50}, {3, 3}, PixelType8u, 1, StatusOk, SAME(1568)},
    {"one channel float 7x7",
     {100, 50},
     {7, 7},
     PixelType32f,
     1,
     StatusOk,
     {13952, 13952, 14560, 14560, 14560, 14560}},
    {"one channel float 9x9, radix area",
     {100, 50},
     {9, 9},
     PixelType32f,
     1,
     StatusOk,
     {18272, 18272, 39968, 39968, 40064, 40064}},
    {"one channel 16-bit 7x7",
     {100, 50},
     {7, 7},
     PixelType16u,
     1,
     StatusOk,
     {7360, 7552, 7552, 7552, 7552, 7552}},
    {"volume form in the wide paths",
     {100, 50},
     {7, 7},
     PixelType16s,
     1,
     StatusOk,
     {7360, 7552, 7552, 7552, 45232, 45232}},
    {"one channel past 31 bits",
     {200000, 200000},
     {1001, 1001},
     PixelType32f,
     1,
     StatusSizeOverflow,
     SAME(0)},
};
#undef SAME

TEST_P(MedianChecksTest, SizingRefusesInOrderAndSizes) {
  for (const SizeCase& c : kSizeCases) {
    int32_t size = kKept;
    const bool nullSize = c.expected == StatusNullPointer;
    EXPECT_EQ(ownFilterMedianBorderGetBufferSize(c.roi, c.mask, c.type, c.channels,
                                                 nullSize ? nullptr : &size),
              c.expected)
        << c.what;
    EXPECT_EQ(size, c.size[Variant()]) << c.what;
  }
}

CORVANE_INSTANTIATE_VARIANT_TESTS(MedianChecksTest);

}  // namespace
}  // namespace corvane::test
