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

// This thread's tally of checked pictures, which must come in the clip's
// order from `next`: all rows but the caller's last, unless filtered or
// `full`. A callback may reset its own session.
struct Checked {
  const Clip* clip = nullptr;
  size_t next = 0;
  bool full = false, resetInside = false;
  int delivered = 0, wrong = 0;
};
inline thread_local Checked t_checked;
inline void CheckPicture(const uint8_t* pixels, int width, int height) {
  Checked& c = t_checked;
  const Picture* p = c.next < c.clip->pictures.size() ? &c.clip->pictures[c.next++] : nullptr;
  ++c.delivered;
  c.wrong +=
      !p || width != p->width || height != p->height ||
      FirstDifferingRow(pixels, p->bgr.data(), width, height - !(c.clip->filter || c.full)) != -1;
}
inline void OnPicture(const CodecFrameRecord* r) {
  CheckPicture(r->pixels, r->width, r->height);
  if (t_checked.resetInside) H264CodecReset(r->session);
}
// Packet `n` into a buffer of one picture or through the frame callback. A
// call that succeeds writes the picture's fields over the caller's header,
// or none, and leaves a plain picture's last row alone without `full`.
inline int32_t FeedChecked(CodecHandle session, const Clip& clip, size_t n, bool callback,
                           BITMAPINFOHEADER* header = nullptr) {
  BITMAPINFOHEADER own = Filled(0xEE, false);
  header = header ? header : &own;
  BITMAPINFOHEADER caller = *header;
  const int w = clip.recipe.width, before = t_checked.delivered;
  t_checked.clip = &clip;
  std::vector<uint8_t> out(callback ? 0 : size_t(w) * clip.recipe.height * 3, 0xA5);
  H264CodecSetCallback(session, OnPicture);
  const int32_t result =
      clip.decompress()(session, clip.packets[n].data(), int32_t(clip.packets[n].size()), header,
                        out.data(), int32_t(out.size()));
  if (!callback && result == 0 && header->biSize == 40) {
    CheckPicture(out.data(), header->biWidth, header->biHeight);
    t_checked.wrong +=
        !(clip.filter || t_checked.full) && std::count(out.end() - w * 3, out.end(), 0xA5) != w * 3;
  }
  caller.biXPelsPerMeter = caller.biYPelsPerMeter = 0;
  if (t_checked.delivered > before) caller = Sized(caller, w, clip.recipe.height);
  t_checked.wrong += result == 0 && !(*header == caller);
  return result;
}

// Packets `from` to the end: each gives its picture, FFmpeg's own.
inline void ExpectClipFrom(CodecHandle session, const Clip& clip, size_t from = 0,
                           bool callback = false, bool full = false) {
  t_checked = {&clip, from, full};
  for (size_t n = from; n < clip.packets.size(); ++n)
    EXPECT_EQ(FeedChecked(session, clip, n, callback), 0) << n;
  EXPECT_EQ(std::pair(t_checked.delivered, t_checked.wrong),
            std::pair(int(clip.packets.size() - from), 0));
}

}  // namespace corvane::test
