#include "decoder/decoding.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace corvane::test {

namespace {

// FFmpeg reports every damaged packet the tests feed on purpose.
const bool kQuietFfmpeg = (av_log_set_level(AV_LOG_QUIET), true);

constexpr uint8_t kHeaderFill = 0xEE;

uint8_t FillByte(size_t call, size_t i) { return static_cast<uint8_t>(i * 31 + call * 7 + 1); }

}  // namespace

const StreamSpec kBaseline176 = {"baseline_176x144.h264",
                                 176,
                                 144,
                                 8,
                                 "-c:v libx264 -profile:v baseline -bf 0 -pix_fmt yuv420p",
                                 "testsrc2",
                                 27};
const StreamSpec kHigh320 = {"high_slices_320x240.h264",
                             320,
                             240,
                             6,
                             "-c:v libx264 -profile:v high -bf 0 -pix_fmt yuv420p "
                             "-x264-params slices=4",
                             "testsrc2",
                             27};
const StreamSpec kHevc176 = {
    "main_176x144.hevc", 176, 144, 6, "-c:v libx265 -x265-params bframes=0:log-level=error",
    "testsrc2",          173};
const StreamSpec kOdd175x143 = {
    "high444_175x143.h264", 175, 143, 5, "-c:v libx264 -pix_fmt yuv444p -bf 0", "testsrc", 27};

std::vector<Packet> LoadPackets(const StreamSpec& spec) {
  return SplitAccessUnits(
      MakeStream(spec.file, spec.width, spec.height, spec.frames, spec.args, spec.source),
      spec.codecId);
}

std::string TestName(const StreamSpec& spec) {
  std::string name = spec.file;
  for (char& c : name)
    if (!isalnum(static_cast<unsigned char>(c))) c = '_';
  return name;
}

std::vector<Picture> ExpectedPictures(const std::vector<Packet>& packets, int codecId, bool drain) {
  return ReferenceDecode(packets, codecId, drain, [](AVCodecContext* context) {
    context->thread_count = 0;
    context->thread_type = FF_THREAD_SLICE;
    context->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
    context->flags2 |= AV_CODEC_FLAG2_FAST | AV_CODEC_FLAG2_SHOW_ALL;
  });
}

Picture Median3x3(const Picture& p) {
  Picture m = p;
  uint8_t nine[9];
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x)
      for (int c = 0; c < 3; ++c) {
        int k = 0;
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx) {
            const int sy = std::clamp(y + dy, 0, p.height - 1);
            const int sx = std::clamp(x + dx, 0, p.width - 1);
            nine[k++] = p.bgr[(static_cast<size_t>(sy) * p.width + sx) * 3 + c];
          }
        std::sort(nine, nine + 9);
        m.bgr[(static_cast<size_t>(y) * p.width + x) * 3 + c] = nine[4];
      }
  return m;
}

DecompressFn DecompressFor(int codecId) {
  return codecId == 173 ? H265CodecDecompress : H264CodecDecompress;
}

int32_t Feed(CodecHandle session, int codecId, const Packet& packet, BITMAPINFOHEADER* header,
             uint8_t* out, int32_t outSize) {
  return DecompressFor(codecId)(session, packet.data(), static_cast<int32_t>(packet.size()), header,
                                out, outSize);
}

std::string HeaderText(const BITMAPINFOHEADER& h) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&h);
  std::string text;
  for (size_t i = 0; i < sizeof(h); ++i) {
    char byte[4];
    std::snprintf(byte, sizeof(byte), i % 4 ? "%02x" : " %02x", bytes[i]);
    text += byte;
  }
  return text;
}

BITMAPINFOHEADER Filled(uint8_t fill) {
  BITMAPINFOHEADER h;
  std::memset(&h, fill, sizeof(h));
  return h;
}

BITMAPINFOHEADER Untouched(uint8_t fill) {
  BITMAPINFOHEADER h = Filled(fill);
  h.biXPelsPerMeter = h.biYPelsPerMeter = 0;
  return h;
}

BITMAPINFOHEADER SizeHeader(int width, int height) {
  BITMAPINFOHEADER h{};
  h.biSize = 40;
  h.biWidth = width;
  h.biHeight = height;
  h.biPlanes = 1;
  h.biBitCount = 24;
  h.biSizeImage = static_cast<uint32_t>(width) * static_cast<uint32_t>(height) * 3u;
  return h;
}

Delivered DecodeAll(CodecHandle session, DecompressFn decompress,
                    const std::vector<Packet>& packets, int width, int height) {
  Delivered delivered;
  const size_t rowBytes = static_cast<size_t>(width) * 3;
  std::vector<uint8_t> out(rowBytes * height);
  for (size_t call = 0; call < packets.size(); ++call) {
    for (size_t i = 0; i < out.size(); ++i) out[i] = FillByte(call, i);
    BITMAPINFOHEADER header = Filled(kHeaderFill);
    delivered.results.push_back(decompress(session, packets[call].data(),
                                           static_cast<int32_t>(packets[call].size()), &header,
                                           out.data(), static_cast<int32_t>(out.size())));
    // A picture's header: the fields of the picture path, the rest the caller's.
    BITMAPINFOHEADER expected = Untouched(kHeaderFill);
    if (header.biSize == sizeof(BITMAPINFOHEADER)) {
      expected.biSize = 40;
      expected.biWidth = header.biWidth;
      expected.biHeight = header.biHeight;
      expected.biPlanes = 1;
      expected.biBitCount = 24;
      expected.biSizeImage = static_cast<uint32_t>(header.biWidth * header.biHeight * 3);
    }
    if (std::memcmp(&header, &expected, sizeof(header)) != 0) ++delivered.badHeaders;
    if (header.biSize != sizeof(BITMAPINFOHEADER)) continue;  // no picture this call
    for (size_t i = out.size() - rowBytes; i < out.size(); ++i)
      if (out[i] != FillByte(call, i)) {
        ++delivered.lastRowOverwritten;
        break;
      }
    delivered.pictures.push_back(Picture{header.biWidth, header.biHeight, out});
  }
  return delivered;
}

std::string ComparePictures(const std::vector<Picture>& got, const std::vector<Picture>& expected,
                            bool lastRow) {
  if (got.size() != expected.size())
    return std::to_string(got.size()) + " pictures, expected " + std::to_string(expected.size());
  for (size_t n = 0; n < got.size(); ++n) {
    const Picture& a = got[n];
    const Picture& b = expected[n];
    if (a.width != b.width || a.height != b.height)
      return "picture " + std::to_string(n) + " is " + std::to_string(a.width) + "x" +
             std::to_string(a.height);
    const int row =
        FirstDifferingRow(a.bgr.data(), b.bgr.data(), a.width, lastRow ? a.height : a.height - 1);
    if (row >= 0)
      return "picture " + std::to_string(n) + " differs first in row " + std::to_string(row);
  }
  return "";
}

}  // namespace corvane::test
