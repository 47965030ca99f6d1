// What the decoder's tests share: the streams most of them decode, FFmpeg's
// pictures of them, and calls whose pictures are held against those.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "corvane.h"
#include "corvane_ext.h"
#include "corvane_image.h"
#include "support/clips.h"

extern "C" {
#include <libavutil/log.h>
}

inline bool operator==(const BITMAPINFOHEADER& a, const BITMAPINFOHEADER& b) {
  return !std::memcmp(&a, &b, sizeof a);
}

namespace corvane::test {

// Damaged packets come on purpose: FFmpeg would report every one.
inline const bool kQuietFfmpeg = (av_log_set_level(AV_LOG_QUIET), true);

#define X264 "-c:v libx264 -pix_fmt yuv420p "
#define X265 "-x265-params log-level=error:bframes="
// clang-format off
inline const StreamRecipe kStreams[] = {  // no reordering: each packet gives its picture
    {"baseline_176x144.h264", 176, 144, 8, X264 "-profile:v baseline -bf 0"},
    {"main_176x144.hevc", 176, 144, 6, "-c:v libx265 " X265 "0", "testsrc2", 173},
    {"high_slices_320x240.h264", 320, 240, 6, X264 "-profile:v high -bf 0 -x264-params slices=4"},
    {"high444_175x143.h264", 175, 143, 5, "-c:v libx264 -pix_fmt yuv444p -bf 0", "testsrc"},
    {"main_174x142.h264", 174, 142, 4, X264 "-profile:v main -bf 0"},  // cropped by the decoder
    {"main444_175x143.hevc", 175, 143, 4, "-c:v libx265 -pix_fmt yuv444p " X265 "0", "testsrc",
     173},
    {"main_162x120.h264", 162, 120, 3, X264 "-profile:v main -bf 0"},  // not in 16-pixel groups
    {"high444_321x241.h264", 321, 241, 4, "-c:v libx264 -pix_fmt yuv444p -bf 0 -slices 3",
     "testsrc"},
    {"high422_176x144.h264", 176, 144, 4, "-c:v libx264 -pix_fmt yuv422p -bf 0"},
    {"main_176x96.h264", 176, 96, 3, X264 "-profile:v main -bf 0"},
    {"high444_192x131.h264", 192, 131, 3, "-c:v libx264 -pix_fmt yuv444p -bf 0", "testsrc"},
    {"main_160x144.h264", 160, 144, 3, X264 "-profile:v main -bf 0"}};
// clang-format on
#define BPYR "-bf 3 -x264-params b-pyramid=normal"
// B-frames in a pyramid: the decoder holds the first pictures back.
inline const StreamRecipe kReordered = {"ff_main_bpyr_176x144.h264", 176, 144, 10,
                                        X264 "-profile:v main " BPYR};

using Decompress = int32_t (*)(CodecHandle, const uint8_t*, int32_t, BITMAPINFOHEADER*, uint8_t*,
                               int32_t);
inline Decompress For(int codecId) {
  return codecId == 173 ? H265CodecDecompress : H264CodecDecompress;
}
inline int32_t Feed(CodecHandle session, const Packet& p, BITMAPINFOHEADER* header, uint8_t* out,
                    int32_t size, int codecId = 27) {
  return For(codecId)(session, p.data(), int32_t(p.size()), header, out, size);
}

// `fill` in every byte; `cleared`: as every call leaves it, pels-per-meter 0.
inline BITMAPINFOHEADER Filled(uint8_t fill, bool cleared = true) {
  BITMAPINFOHEADER h;
  std::memset(&h, fill, sizeof h);
  if (cleared) h.biXPelsPerMeter = h.biYPelsPerMeter = 0;
  return h;
}
// The fields a picture (over the caller's header) and the first-frames step
// (over a zero one) write; the image size is w × h × 3 × 8 / 8 in 32 bits.
inline BITMAPINFOHEADER Sized(BITMAPINFOHEADER h, int w, int height) {
  h.biSize = 40, h.biWidth = w, h.biHeight = height, h.biPlanes = 1, h.biBitCount = 24;
  h.biSizeImage = uint32_t(int32_t(uint32_t(w) * uint32_t(height) * 24u) / 8);
  return h;
}

struct Delivered {
  std::vector<Picture> pictures;
  std::vector<int32_t> results;
  int badHeaders = 0, lastRowsWritten = 0;  // the plain path leaves the caller's last row
};
// Every packet into a buffer of one picture, patterned anew for each call.
inline Delivered DecodeAll(CodecHandle session, Decompress decompress,
                           const std::vector<Packet>& packets, int w, int h) {
  Delivered d;
  std::vector<uint8_t> out(size_t(w) * h * 3), pattern(out.size());
  for (size_t call = 0; call < packets.size(); ++call) {
    for (size_t i = 0; i < out.size(); ++i) out[i] = pattern[i] = uint8_t(i * 31 + call * 7);
    BITMAPINFOHEADER header = Filled(0xEE, false);
    d.results.push_back(decompress(session, packets[call].data(), int32_t(packets[call].size()),
                                   &header, out.data(), int32_t(out.size())));
    const bool picture = header.biSize == 40;
    d.badHeaders += !(
        header == (picture ? Sized(Filled(0xEE), header.biWidth, header.biHeight) : Filled(0xEE)));
    const bool filtered =
        decompress == H264CodecDecompressMedian || decompress == corvane_codec_decompress_sharpen;
    d.lastRowsWritten +=
        picture && !filtered && !std::equal(out.end() - w * 3, out.end(), pattern.end() - w * 3);
    if (picture) d.pictures.push_back({header.biWidth, header.biHeight, out});
  }
  return d;
}

// "" if equal picture for picture (all rows, or all but the caller's last).
inline std::string Compare(const std::vector<Picture>& got, const std::vector<Picture>& expected,
                           bool lastRow = false) {
  if (got.size() != expected.size()) return std::to_string(got.size()) + " pictures";
  for (size_t n = 0; n < got.size(); ++n) {
    const Picture &a = got[n], &b = expected[n];
    if (a.width != b.width || a.height != b.height)
      return "picture " + std::to_string(n) + "'s size";
    if (FirstDifferingRow(a.bgr.data(), b.bgr.data(), a.width, a.height - !lastRow) >= 0)
      return "picture " + std::to_string(n);
  }
  return "";
}

// Per channel, the middle of the nine values around each pixel, borders replicated.
inline Picture Median3x3(Picture p) {
  const std::vector<uint8_t> in = p.bgr;
  for (int i = 0; i < p.width * p.height * 3; ++i) {
    uint8_t nine[9], *v = nine;
    for (int y = i / 3 / p.width - 1; y <= i / 3 / p.width + 1; ++y)
      for (int x = i / 3 % p.width - 1; x <= i / 3 % p.width + 1; ++x)
        *v++ = in[(std::clamp(y, 0, p.height - 1) * p.width + std::clamp(x, 0, p.width - 1)) * 3 +
                  i % 3];
    std::sort(nine, nine + 9);
    p.bgr[i] = nine[4];
  }
  return p;
}

// The library's sharpen of a picture, borders replicated: the filter is
// checked against its formula on every code path elsewhere, the roads that
// reach it here.
inline Picture Sharpen3x3(Picture p) {
  const std::vector<uint8_t> in = p.bgr;
  const corvane_image src{const_cast<uint8_t*>(in.data()), p.width * 3, p.width, p.height,
                          CORVANE_8U_C3};
  corvane_image dst = src;
  dst.data = p.bgr.data();
  EXPECT_EQ(corvane_sharpen(&src, &dst, CORVANE_BORDER_REPLICATE, nullptr), 0);
  return p;
}

// A clip and FFmpeg's pictures of it as a session decodes it (one a packet
// unless drained), plain or through a filter stage (1 median, 2 sharpen).
struct Clip {
  explicit Clip(const StreamRecipe& r, int filter = 0, bool drain = false)
      : recipe(r),
        filter(filter),
        packets(LoadPackets(r)),
        pictures(ReferenceDecode(packets, r.codecId, true, drain)) {
    for (Picture& p : pictures) p = filter == 1 ? Median3x3(p) : filter == 2 ? Sharpen3x3(p) : p;
  }
  Decompress decompress() const {
    return filter == 1   ? H264CodecDecompressMedian
           : filter == 2 ? corvane_codec_decompress_sharpen
                         : For(recipe.codecId);
  }
  const StreamRecipe& recipe;
  int filter;
  std::vector<Packet> packets;
  std::vector<Picture> pictures;
};

// This thread's tally of checked calls: a picture must be the one expected,
// all rows but the caller's last unless filtered. A callback may reset its
// own session.
struct Checked {
  const Picture* expected = nullptr;
  int rows = 0, delivered = 0, wrong = 0;
  bool resetInside = false;
};
inline thread_local Checked t_checked;
inline void CheckPicture(const uint8_t* pixels, int width, int height) {
  const Picture* p = t_checked.expected;
  ++t_checked.delivered;
  t_checked.wrong += width != p->width || height != p->height ||
                     FirstDifferingRow(pixels, p->bgr.data(), width, t_checked.rows) != -1;
}
inline void OnPicture(const CodecFrameRecord* r) {
  CheckPicture(r->pixels, r->width, r->height);
  if (t_checked.resetInside) H264CodecReset(r->session);
}
// Packet `n` into a buffer of one picture, or through the frame callback.
inline int32_t FeedChecked(CodecHandle session, const Clip& clip, size_t n, bool callback,
                           BITMAPINFOHEADER* header = nullptr) {
  BITMAPINFOHEADER own{};
  header = header ? header : &own;
  const Picture& p = clip.pictures[n];
  t_checked.expected = &p, t_checked.rows = clip.filter ? p.height : p.height - 1;
  std::vector<uint8_t> out(callback ? 0 : p.bgr.size());
  H264CodecSetCallback(session, OnPicture);
  const int32_t result =
      clip.decompress()(session, clip.packets[n].data(), int32_t(clip.packets[n].size()), header,
                        out.data(), int32_t(out.size()));
  if (!callback && result == 0 && header->biSize == 40)
    CheckPicture(out.data(), header->biWidth, header->biHeight);
  return result;
}

}  // namespace corvane::test
