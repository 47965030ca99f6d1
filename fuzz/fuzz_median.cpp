// corvane_median under hostile arguments: the first bytes of an input choose
// the format (valid or not), the sizes (empty ones too), the mask (even,
// negative, thin, larger than the image, past the 8-bit kernel's tiles), the
// border and its value, the steps (padded, bottom-up, shorter than a row) and
// which pointers are null; the rest are the pixels. A refused call must leave
// dst as it was, an accepted one must give 0; anything else, and any
// sanitizer report, is a find.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "corvane_image.h"

namespace {

// Byte i of the input, 0 past its end.
struct Reader {
  const uint8_t* data;
  size_t size, at = 0;
  uint8_t Next() { return at < size ? data[at++] : 0; }
};

// A mask side: mostly small, odd or not, with the edges of every road.
int32_t MaskSide(uint8_t code) {
  static constexpr int32_t kOdd[] = {0, -1, -3, 257, 189, 255, 99999, 2};
  return code < 224 ? code % 32 : kOdd[code % 8];
}

int32_t ElementBytes(int32_t format) {
  if (format < CORVANE_8U_C3 || format > CORVANE_16S_C4K) return 1;
  return ((format - 1) % 3 == 0 ? 3 : 4) * (format <= CORVANE_8U_C4K ? 1 : 2);
}

// An image of the given shape in `memory`: rows `pad` bytes apart beyond
// their pixels (a negative pad shortens the step), bottom-up when asked.
corvane_image Image(std::vector<uint8_t>& memory, int32_t width, int32_t height, int32_t format,
                    int32_t pad, bool bottomUp, Reader& pixels) {
  const int32_t row = (width > 0 ? width : 0) * ElementBytes(format);
  const int32_t step = row + pad > 0 ? row + pad : 1;
  memory.assign(size_t(step) * (height > 0 ? height : 0) + 64, 0);
  for (uint8_t& byte : memory) byte = pixels.Next() ^ static_cast<uint8_t>(&byte - memory.data());
  uint8_t* origin = memory.data() + (bottomUp && height > 0 ? size_t(step) * (height - 1) : 0);
  return {origin, bottomUp ? -step : step, width, height, format};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Reader in{data, size};
  const int32_t format = in.Next() % 11;  // 0 and 10 are no format
  const uint8_t shape = in.Next();
  const int32_t width = in.Next() % 72, height = in.Next() % 40;
  int32_t maskWidth = MaskSide(in.Next()), maskHeight = MaskSide(in.Next());
  // An input stays fast: the work of a call grows as the mask's values times
  // the pixels, so past 2^20 of it the mask is thinned, one side and then the
  // other. Two huge sides stay, as their scratch is refused before any work.
  const auto work = [&] { return int64_t{maskWidth} * maskHeight * width * height; };
  if (!(maskWidth == 99999 && maskHeight == 99999)) {
    if (work() > (int64_t{1} << 20)) maskHeight = 1;
    if (work() > (int64_t{1} << 20)) maskWidth %= 64;
  }
  const uint8_t borderCode = in.Next();
  const int32_t border = borderCode < 128   ? CORVANE_BORDER_REPLICATE
                         : borderCode < 240 ? CORVANE_BORDER_CONSTANT
                                            : borderCode - 240;
  const uint8_t value[8] = {in.Next(), in.Next(), in.Next(), in.Next(),
                            in.Next(), in.Next(), in.Next(), in.Next()};
  // shape: bits 0-1 padding, 2 bottom-up, 3 dst of another size, 4 dst of
  // another format, 5 a src step shorter than a row, 6 null value, 7 null
  // dst data.
  const int32_t pad = (shape & 3) * 7 - ((shape & 0x20) ? 8 : 0);
  std::vector<uint8_t> srcMemory, dstMemory;
  const corvane_image src = Image(srcMemory, width, height, format, pad, shape & 4, in);
  corvane_image dst = Image(dstMemory, width + ((shape & 8) ? 1 : 0), height,
                            (shape & 0x10) ? format % 9 + 1 : format, shape & 3, false, in);
  if (shape & 0x80) dst.data = nullptr;
  const std::vector<uint8_t> before = dstMemory;
  const int32_t status =
      corvane_median(&src, &dst, maskWidth, maskHeight, border, (shape & 0x40) ? nullptr : value);
  if (status != CORVANE_STATUS_OK && dstMemory != before) std::abort();  // a refusal wrote
  if (status > 0) std::abort();                                          // no warning is designed
  return 0;
}
