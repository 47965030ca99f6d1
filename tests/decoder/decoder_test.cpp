// The decoder through its exports: pictures against FFmpeg's, the roads, the
// refusals and what the first-frames step reads.
#include <gtest/gtest.h>

#include <climits>
#include <map>

#include "decoder/decoding.h"
#include "support/h264_writer.h"

namespace corvane::test {
namespace {

// One session meets every stream in turn: the conversion and filter scratch
// follow each change of size (only taller, only wider), layout and filter.
TEST(Delivery, EveryPictureIsFfmpegsAcrossStreamsCodecsModesAndResets) {
  // clang-format off
  const int runs[][3] = {  // stream, filter (1 median, 2 sharpen), reset
      {0, 0, 0}, {2, 0, 0}, {1, 0, 0}, {3, 0, 0}, {4, 0, 0}, {5, 0, 0}, {6, 0, 0}, {7, 0, 0},
      {8, 0, 0}, {9, 0, 0}, {11, 0, 0}, {0, 0, 0}, {0, 1, 0}, {2, 1, 0}, {9, 1, 0}, {0, 1, 0},
      {3, 1, 1}, {2, 1, 1}, {8, 1, 0}, {10, 1, 0}, {9, 0, 0}, {1, 0, 0}, {0, 2, 0}, {0, 1, 0},
      {0, 2, 0}, {9, 2, 0}, {7, 2, 0}, {3, 2, 1}, {2, 2, 0}, {8, 2, 0}};
  // clang-format on
  std::map<std::pair<int, int>, Clip> clips;
  CodecHandle session = H264CodecOpen();
  for (const auto& [n, filter, reset] : runs) {
    const Clip& c = clips.try_emplace({n, filter}, kStreams[n], filter).first->second;
    SCOPED_TRACE(std::string(c.recipe.file) + ", filter " + std::to_string(filter) +
                 (reset ? ", reset" : ""));
    EXPECT_EQ(reset ? H264CodecReset(session) : 1, 1);
    ExpectClipFrom(session, c);
  }
  EXPECT_EQ(H264CodecClose(session), 1);
}

CodecFrameRecord g_record;
std::vector<uint8_t> g_pixels;
bool g_resetInside;
void LogCallback(const CodecFrameRecord* r) {
  g_record = *r, g_pixels.assign(r->pixels, r->pixels + r->size);
  if (g_resetInside) H264CodecReset(r->session);
}

// The buffer's size picks the road: into it, through the frame callback (into
// a buffer of the library's own, zero in the row it doesn't convert), or a
// refusal that writes nothing. The callback outlives resets, and may reset
// its own session.
TEST(Roads, BufferSizeChoosesBufferCallbackOrRefusal) {
  constexpr int32_t kBytes = 176 * 144 * 3;
  const std::vector<Packet> packets = LoadPackets(kStreams[0]);
  const Picture picture = ReferenceDecode(packets, 27, true, false)[0];
  // clang-format off
  const int32_t roads[][4] = {  // size, callback, a reset in it, result
      {kBytes, 0, 0, 0}, {kBytes, 1, 0, 0}, {kBytes + 100, 1, 0, 0}, {kBytes - 1, 1, 0, 0},
      {0, 1, 0, 0}, {-1, 1, 0, 0}, {0, 1, 1, 0}, {kBytes - 1, 0, 0, ResultBufferTooSmall},
      {-kBytes, 0, 0, ResultBufferTooSmall}};
  // clang-format on
  for (const auto& [size, callback, reset, result] : roads) {
    SCOPED_TRACE(std::to_string(size) + (callback ? " bytes, callback" : " bytes"));
    const bool throughCallback = result == 0 && size < kBytes;
    CodecHandle session = H264CodecOpen();
    ASSERT_EQ(H264CodecSetCallback(session, callback ? LogCallback : nullptr), 0);
    EXPECT_EQ(H264CodecReset(session) + H264CodecResetEx(session), 2);
    g_record = {}, g_pixels.assign(kBytes, 0), g_resetInside = reset;
    std::vector<uint8_t> out(kBytes, 0xC3);
    BITMAPINFOHEADER header = Filled(0x5A, false);
    EXPECT_EQ(Feed(session, packets[0], &header, out.data(), size), result);
    EXPECT_EQ(header, result ? Filled(0x5A) : Sized(Filled(0x5A), 176, 144));
    EXPECT_EQ(std::tuple(g_record.session, g_record.width, g_record.height, g_record.bitCount,
                         g_record.reserved0, g_record.reserved1, g_record.size),
              throughCallback ? std::tuple(session, 176, 144, 24, 0, 0, kBytes)
                              : std::tuple(CodecHandle{}, 0, 0, 0, 0, 0, 0));
    const std::vector<uint8_t>& shown = throughCallback ? g_pixels : out;
    EXPECT_EQ(FirstDifferingRow(shown.data(), picture.bgr.data(), 176, 143), result ? 0 : -1);
    const auto untouched = throughCallback || result ? out.begin() : out.end() - 176 * 3;
    EXPECT_EQ(std::count(untouched, out.end(), 0xC3), out.end() - untouched);
    EXPECT_EQ(std::count(g_pixels.end() - 176 * 3, g_pixels.end(), 0), 176 * 3);
    // A P packet decodes on, unless the callback's reset took.
    EXPECT_EQ(Feed(session, packets[1], &header, out.data(), kBytes),
              reset ? ResultNoParameters : 0);
    EXPECT_EQ(H264CodecClose(session), 1);
  }
}

// Packets refused by a session that decodes, and a null header: nothing
// written but the cleared pels-per-meter words, and the next packet decodes.
TEST(Refusals, LeaveHeaderAndBufferAndTheSessionDecodesOn) {
  for (const Clip& clip : {Clip(kStreams[0]), Clip(kStreams[1])}) {
    const Packet& p = clip.packets[1];
    Packet broken = {0, 0, 0, 1, 0x67, 1, 0xFF, 0xFF, 0xFF, 0xFF};  // a damaged key unit
    if (clip.recipe.codecId == 173) broken[4] = 0x26;
    // clang-format off
    const std::tuple<const uint8_t*, int32_t, bool, int32_t> cases[] = {
        // bytes, size, header, result
        {broken.data(), 10, 1, ResultDecodeFailed}, {nullptr, 0, 1, ResultDecodeFailed},
        {p.data(), 0, 1, ResultDecodeFailed}, {p.data(), -1, 1, ResultDecodeFailed},
        {p.data(), INT_MIN, 1, ResultDecodeFailed}, {p.data(), int32_t(p.size()), 0, ResultBadArgument}};
    // clang-format on
    for (const auto& [bytes, size, header, result] : cases) {
      SCOPED_TRACE(std::string(clip.recipe.file) + ", size " + std::to_string(size));
      CodecHandle session = H264CodecOpen();
      t_checked = {&clip};
      ASSERT_EQ(FeedChecked(session, clip, 0, false), 0);
      std::vector<uint8_t> out(size_t(clip.recipe.width) * clip.recipe.height * 3, 0xA7);
      BITMAPINFOHEADER h = Filled(0x5A, false);
      EXPECT_EQ(clip.decompress()(session, bytes, size, header ? &h : nullptr, out.data(),
                                  int32_t(out.size())),
                result);
      EXPECT_EQ(h, Filled(0x5A, header));
      EXPECT_EQ(std::count(out.begin(), out.end(), 0xA7), int(out.size()));
      // A damaged key picture spoils what follows it: the stream starts over at one.
      t_checked.next = bytes == broken.data() && clip.recipe.codecId == 173 ? 0 : 1;
      EXPECT_EQ(FeedChecked(session, clip, t_checked.next, false), 0);
      EXPECT_EQ(std::pair(t_checked.delivered, t_checked.wrong), std::pair(2, 0));
      EXPECT_EQ(H264CodecClose(session), 1);
    }
  }
}

// What the first-frames step makes of a stream's first packets: refused with
// a zero header unless it opens with set 0 (the session still binding after),
// read no further than its first 1000 bytes; a failed decode settles too.
TEST(FirstFrames, RefusesUnlessTheFirstUnitIsSetZeroWithinItsFirst1000Bytes) {
  const std::vector<Packet> stream = LoadPackets(kReordered);
  auto units = [first = SplitNalUnits(stream[0])](std::initializer_list<int> types) {
    std::vector<Packet> picked;  // of the first access unit, in this order
    for (int type : types)
      for (const Packet& u : first)
        if (NalType(u) == type) picked.push_back(u);
    return Join(picked);
  };
  SpsRecipe id1;
  id1.seq_parameter_set_id = 1;
  const Packet badSlice = {0, 0, 0, 1, 0x65, 0xC0, 0, 0, 0x40, 0xFF, 0xFF, 0xFF};  // PPS far out
  const BITMAPINFOHEADER none{}, key = Sized({}, 176, 144);
  // clang-format off
  std::vector<std::tuple<std::string, Packet, int32_t, bool, int32_t, BITMAPINFOHEADER>> cases = {
      // what, packet, size (0: all of it), reset first, result, header
      {"delimiter", Join({{0, 0, 0, 1, 9, 0x10}, stream[0]}), 0, 1, ResultNoParameters, none},
      {"a zero byte first", Join({{0}, stream[0]}), 0, 0, ResultNoParameters, none},
      {"SEI first", units({6, 7, 8, 5}), 0, 0, ResultNoParameters, none},
      {"later access unit", stream[1], 0, 0, ResultNoParameters, none},
      {"parameter set 1", WriteSps(id1), 0, 0, ResultNoParameters, none},
      {"size -1", stream[0], -1, 0, ResultNoParameters, none},
      {"size 3", stream[0], 3, 0, ResultNoParameters, none},
      {"then the key picture", stream[0], 0, 0, 0, key},
      {"a slice that fails", Join({units({7, 8}), badSlice}), 0, 1, ResultDecodeFailed, key},
      {"then the key picture, held back", units({6, 5}), 0, 0, 0, Filled(0x5A)}};
  // clang-format on
  // A set alone: its size is known though nothing decodes; the 32-bit image size wraps.
  SpsRecipe r;
  r.pic_width_in_mbs_minus1 = r.pic_height_in_map_units_minus1 = 4095;
  cases.push_back(
      {"4096 macroblocks", WriteSps(r), 0, 1, ResultDecodeFailed, Sized({}, 65536, 65536)});
  // frame_mbs_only_flag pushed to byte 999 or 1000 by a long cycle of offsets
  // (codes of 37 bits, then of 3; never two zero bytes in a row).
  r = {}, r.pic_order_cnt_type = 1;
  for (size_t offset : {999u, 1000u}) {
    size_t at = 0;
    while (WriteSps(r, &at), at < offset)
      r.offsetForRefFrame.push_back(at + 8 < offset ? (1 << 18) - 1 : 1);
    ASSERT_EQ(at, offset);
    cases.push_back({"flag at " + std::to_string(offset), WriteSps(r), 0, 1,
                     offset < 1000 ? ResultDecodeFailed : ResultNoParameters,
                     offset < 1000 ? Sized({}, 320, 240) : none});
  }
  CodecHandle session = H264CodecOpen();
  for (const auto& [what, packet, size, reset, result, expected] : cases) {
    SCOPED_TRACE(what);
    ASSERT_EQ(reset ? H264CodecReset(session) : 1, 1);
    BITMAPINFOHEADER header = Filled(0x5A, false);
    EXPECT_EQ(H264CodecDecompress(session, packet.data(), size ? size : int32_t(packet.size()),
                                  &header, nullptr, 0),
              result);
    EXPECT_EQ(header, expected);
  }
  EXPECT_EQ(H264CodecClose(session), 1);
}

}  // namespace
}  // namespace corvane::test
