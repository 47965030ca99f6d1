// The warp's four ways in — corvane_warp, corvane_warp_quad, corvane_resize
// and BmpReSizeEx — under hostile arguments: images from none to 64 pixels a
// side with steps short and long, rectangles anywhere (any 32-bit value now
// and then), coefficients and quads with NaN, infinities, huge, tiny and
// negative-zero values, every interpolation word, smooth edge or not. Each
// image is allocated to exactly the rows it declares, so a read or write
// past what the call was given is a sanitizer report; any status is an
// answer, a crash or report is a find. The first byte picks the call, the
// rest are read as below, zeros past the end.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "corvane.h"
#include "corvane_image.h"

namespace {

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  template <class T>
  T Raw() {
    T value{};
    uint8_t bytes[sizeof(T)];
    for (uint8_t& b : bytes) b = Byte();
    std::memcpy(&value, bytes, sizeof(T));
    return value;
  }
  // Mostly small, now and then any value of all 32 bits.
  int32_t Int() {
    const uint8_t tag = Byte();
    return tag < 224 ? tag % 80 - 8 : Raw<int32_t>();
  }
  // A side of an image: -2..64, 0 and below refused.
  int32_t Side() { return Byte() % 67 - 2; }
  // A coefficient or corner: multiples of 1/scale, small x·y terms, the
  // values that break arithmetic, or any 64 bits.
  double Real(double scale) {
    static const double kOdd[8] = {std::numeric_limits<double>::quiet_NaN(),
                                   std::numeric_limits<double>::infinity(),
                                   -std::numeric_limits<double>::infinity(),
                                   -0.0,
                                   1e300,
                                   -1e-300,
                                   std::numeric_limits<double>::denorm_min(),
                                   1e-20};
    const uint8_t tag = Byte();
    if (tag < 140) return static_cast<int8_t>(Byte()) / scale;
    if (tag < 200) return static_cast<int8_t>(Byte()) / 16384.0;
    if (tag < 236) return kOdd[Byte() % 8];
    return Raw<double>();
  }
  const uint8_t* Rest(size_t* size) {
    *size = size_ - at_;
    return data_ + at_;
  }

 private:
  const uint8_t* data_;
  size_t size_, at_ = 0;
};

// An image of width x height with `slack` bytes more (or fewer) a row than
// its pixels take; the block holds exactly the rows it declares.
struct Image {
  std::vector<uint8_t> block;
  corvane_image image{};
  Image(int32_t width, int32_t height, int32_t slack, const uint8_t* fill, size_t fillSize) {
    const int32_t step = 3 * width + slack;
    image = {nullptr, step, width, height, CORVANE_8U_C3};
    if (width < 1 || height < 1) return;
    // A step too small is refused before a row is read; give it one row then.
    const size_t rows = step >= 3 * width ? size_t(height) : 1;
    block.resize(size_t(step > 0 ? step : 0) * (rows - 1) + size_t(3) * width);
    for (size_t i = 0; i < block.size(); ++i)
      block[i] = fillSize ? fill[i % fillSize] : uint8_t(i * 37);
    image.data = block.data();
  }
};

corvane_rect Rect(Reader& in) { return {in.Int(), in.Int(), in.Int(), in.Int()}; }

uint32_t Interpolation(Reader& in) {
  static const uint32_t kModes[8] = {1, 2, 4, 6, 0, 3, 5, 7};
  const uint8_t tag = in.Byte();
  if (tag >= 240) return in.Raw<uint32_t>();
  return kModes[tag % 8] | (tag & 8 ? CORVANE_SMOOTH_EDGE : 0u);
}

void Crop(Reader& in) {
  const uint8_t form = in.Byte();
  BITMAPINFOHEADER srcHeader{}, dstHeader{};
  srcHeader.biSize = dstHeader.biSize = 40;
  srcHeader.biWidth = in.Side();
  srcHeader.biHeight = in.Side() * (form & 1 ? -1 : 1);
  srcHeader.biBitCount = dstHeader.biBitCount = form & 2 ? 32 : 24;
  if (srcHeader.biWidth < 1 || srcHeader.biHeight == 0) return;
  const int32_t rowBytes = srcHeader.biBitCount / 8 * srcHeader.biWidth;
  srcHeader.biSizeImage = uint32_t(rowBytes * std::abs(srcHeader.biHeight));
  const int32_t x = in.Int(), y = in.Int(), width = in.Int(), height = in.Int();
  // The destination must hold what it asks for (its sides, rounded down to
  // a multiple of 8) and a copy of the source.
  dstHeader.biWidth = in.Int();
  dstHeader.biHeight = in.Int();
  if (std::abs(int64_t{dstHeader.biWidth}) > 200 || std::abs(int64_t{dstHeader.biHeight}) > 200)
    return;
  const size_t dstBytes = size_t(std::abs(dstHeader.biWidth) & ~7) *
                          (std::abs(dstHeader.biHeight) & ~7) * dstHeader.biBitCount / 8;
  size_t fillSize = 0;
  const uint8_t* fill = in.Rest(&fillSize);
  std::vector<uint8_t> src(srcHeader.biSizeImage),
      dst(std::max<size_t>(dstBytes, srcHeader.biSizeImage));
  for (size_t i = 0; i < src.size(); ++i) src[i] = fillSize ? fill[i % fillSize] : uint8_t(i);
  BmpReSizeEx(&srcHeader, src.data(), x, y, width, height, &dstHeader, dst.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Reader in(data, size);
  const uint8_t call = in.Byte() % 4;
  if (call == 3) return Crop(in), 0;
  const uint32_t mode = Interpolation(in);
  const int32_t sw = in.Side(), sh = in.Side(), sSlack = in.Byte() % 16 - 4;
  const int32_t dw = in.Side(), dh = in.Side(), dSlack = in.Byte() % 16 - 4;
  const corvane_rect srcRect = Rect(in), dstRect = Rect(in);
  double values[8];
  for (double& v : values) v = in.Real(call == 1 ? 1.0 : 16.0);
  size_t fillSize = 0;
  const uint8_t* fill = in.Rest(&fillSize);
  const Image src(sw, sh, sSlack, fill, fillSize), dst(dw, dh, dSlack, nullptr, 0);
  // A null image now and then, the rest as made.
  const corvane_image* s = sw == 0 && sh == 0 ? nullptr : &src.image;
  if (call == 0) corvane_warp(s, srcRect, &dst.image, dstRect, values, mode);
  if (call == 1) {
    double quad[4][2];
    std::memcpy(quad, values, sizeof quad);
    corvane_warp_quad(s, srcRect, &dst.image, quad, mode);
  }
  if (call == 2) corvane_resize(s, srcRect, &dst.image, mode);
  return 0;
}
