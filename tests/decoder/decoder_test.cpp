// The decoder through its exports: every picture against FFmpeg's own decode
// and BGR24 conversion, the results and headers of every road, what the
// first-frames step reads of a stream's first packets.
#include <gtest/gtest.h>

#include <climits>
#include <map>

#include "decoder/decoding.h"
#include "support/h264_writer.h"

namespace corvane::test {
namespace {

// One session meets every stream in turn, with no reset between two runs
// unless a run asks or the codec changes: the conversion and the filter
// scratch follow every change of size, layout and filter (176x96 to 176x144:
// only taller; 160x144 to 176x144: only wider; median to sharpen and back).
// A median picture is the 3x3 median of FFmpeg's, a sharpened one its
// sharpen, every row.
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
    const Delivered got =
        DecodeAll(session, c.decompress(), c.packets, c.recipe.width, c.recipe.height);
    EXPECT_EQ(got.results, std::vector<int32_t>(c.packets.size(), 0));
    EXPECT_EQ(Compare(got.pictures, c.pictures, filter != 0), "");
    EXPECT_EQ(std::pair(got.badHeaders, got.lastRowsWritten), std::pair(0, 0));
  }
  EXPECT_EQ(H264CodecClose(session), 1);
}

struct CallbackLog {
  int calls = 0;
  bool resetOwnSession = false;
  CodecFrameRecord record{};
  std::vector<uint8_t> pixels;
} g_log;

void LogCallback(const CodecFrameRecord* record) {
  ++g_log.calls, g_log.record = *record;
  g_log.pixels.assign(record->pixels, record->pixels + record->size);
  EXPECT_EQ(g_log.resetOwnSession ? H264CodecReset(record->session) : 1, 1);
}

// The buffer's size picks the road: into it, through the frame callback (into
// a buffer of the library's own, zero in the row it doesn't convert), or a
// refusal. The callback outlives resets, and may reset its own session.
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
    g_log = CallbackLog{0, bool(reset), {}, {}};
    std::vector<uint8_t> out(kBytes, 0xC3);
    BITMAPINFOHEADER header = Filled(0x5A, false);
    EXPECT_EQ(Feed(session, packets[0], &header, out.data(), size), result);
    EXPECT_EQ(header, result ? Filled(0x5A) : Sized(Filled(0x5A), 176, 144));
    EXPECT_EQ(g_log.calls, throughCallback);
    const std::vector<uint8_t>& shown = throughCallback ? g_log.pixels : out;
    EXPECT_EQ(FirstDifferingRow(shown.data(), picture.bgr.data(), 176, 143), result ? 0 : -1);
    if (throughCallback) {
      const CodecFrameRecord& r = g_log.record;
      EXPECT_EQ(
          std::tuple(r.session, r.width, r.height, r.bitCount, r.reserved0, r.reserved1, r.size),
          std::tuple(session, 176, 144, 24, 0, 0, kBytes));
      EXPECT_EQ(std::count(shown.end() - 176 * 3, shown.end(), 0) +
                    std::count(out.begin(), out.end(), 0xC3),
                176 * 3 + kBytes);
    }
    // A P packet decodes on, unless the callback's reset took.
    EXPECT_EQ(Feed(session, packets[1], &header, out.data(), kBytes),
              reset ? ResultNoParameters : 0);
    EXPECT_EQ(H264CodecClose(session), 1);
  }
}

// Packets refused by a session that decodes, and a null header, refused before
// anything happens: nothing written but the cleared pels-per-meter words, and
// the next packet decodes as FFmpeg's.
TEST(Refusals, LeaveHeaderAndBufferAndTheSessionDecodesOn) {
  for (const StreamRecipe& s : {kStreams[0], kStreams[1]}) {
    const std::vector<Packet> stream = LoadPackets(s);
    const std::vector<Picture> pictures = ReferenceDecode(stream, s.codecId, true, false);
    const uint8_t keyUnit = s.codecId == 27 ? 0x67 : 0x26;
    const Packet broken = {0, 0, 0, 1, keyUnit, 1, 0xFF, 0xFF, 0xFF, 0xFF};
    // clang-format off
    const std::tuple<const Packet*, int32_t, bool, int32_t> cases[] = {
        // bytes (null: none), size, header, result
        {&broken, 10, 1, ResultDecodeFailed}, {nullptr, 0, 1, ResultDecodeFailed},
        {&stream[1], 0, 1, ResultDecodeFailed}, {&stream[1], -1, 1, ResultDecodeFailed},
        {&stream[1], INT_MIN, 1, ResultDecodeFailed},
        {&stream[1], int32_t(stream[1].size()), 0, ResultBadArgument}};
    // clang-format on
    for (const auto& [bytes, size, header, result] : cases) {
      SCOPED_TRACE(std::string(s.file) + ", size " + std::to_string(size) +
                   (header ? "" : ", no header"));
      CodecHandle session = H264CodecOpen();
      std::vector<uint8_t> out(s.width * s.height * 3);
      BITMAPINFOHEADER h;
      ASSERT_EQ(Feed(session, stream[0], &h, out.data(), int32_t(out.size()), s.codecId), 0);
      std::fill(out.begin(), out.end(), 0xA7), h = Filled(0x5A, false);
      EXPECT_EQ(For(s.codecId)(session, bytes ? bytes->data() : nullptr, size,
                               header ? &h : nullptr, out.data(), int32_t(out.size())),
                result);
      EXPECT_EQ(h, Filled(0x5A, header));
      EXPECT_EQ(std::count(out.begin(), out.end(), 0xA7), int(out.size()));
      // A damaged key picture spoils what follows it: the stream starts over at one.
      const size_t next = bytes == &broken && s.codecId == 173 ? 0 : 1;
      EXPECT_EQ(Feed(session, stream[next], &h, out.data(), int32_t(out.size()), s.codecId), 0);
      EXPECT_EQ(FirstDifferingRow(out.data(), pictures[next].bgr.data(), s.width, s.height - 1),
                -1);
      EXPECT_EQ(H264CodecClose(session), 1);
    }
  }
}

// Packet by packet on one session, reset before each case: results and headers.
TEST(FirstFramesPackets, WhatTheSessionReadsOfItsFirstPackets) {
  enum { kIdr = 5, kSei = 6, kSps = 7, kPps = 8, kAud = 9 };
  const std::vector<Packet> stream = LoadPackets(kReordered);
  auto units = [first = SplitNalUnits(stream[0])](std::initializer_list<int> types) {
    std::vector<Packet> picked;  // of the first access unit, in this order
    for (int type : types)
      for (const Packet& u : first)
        if (NalType(u) == type) picked.push_back(u);
    return Join(picked);
  };
  const Packet delimited = Join({{0, 0, 0, 1, kAud, 0x10}, stream[0]});
  SpsRecipe id1;
  id1.seq_parameter_set_id = 1;
  Packet leadingZero = stream[0];
  leadingZero.insert(leadingZero.begin(), 0);
  struct Step {
    Packet packet;
    int32_t size, result;
    BITMAPINFOHEADER header;
  };
  auto step = [](const Packet& p, int32_t result, BITMAPINFOHEADER h, int32_t size = INT_MAX) {
    return Step{p, size == INT_MAX ? int32_t(p.size()) : size, result, h};
  };
  std::vector<std::pair<std::string, std::vector<Step>>> cases;
  // Refused twice with a zero header; the session, still binding, then takes
  // the first packet from the start, on a new decoder.
  // clang-format off
  const std::tuple<const char*, Packet, int32_t> unbound[] = {
      {"access unit delimiter", delimited, INT_MAX},
      {"SEI", units({kSei, kSps, kPps, kIdr}), INT_MAX},
      {"picture parameter set", units({kPps, kSps, kSei, kIdr}), INT_MAX},
      {"key slice", units({kIdr, kSps, kPps}), INT_MAX}, {"later access unit", stream[1], INT_MAX},
      {"parameter set 1", WriteSps(id1), INT_MAX}, {"a zero byte first", leadingZero, INT_MAX},
      {"size -1", stream[0], -1}, {"size INT_MIN", stream[0], INT_MIN}, {"size 0", stream[0], 0},
      {"size 3: a start code cut short", stream[0], 3}};
  // clang-format on
  for (const auto& [what, packet, size] : unbound) {
    const Step refused = step(packet, ResultNoParameters, {}, size);
    cases.push_back({what, {refused, refused, step(stream[0], 0, Sized({}, 176, 144))}});
  }
  // A slice naming a picture parameter set far out of range: nothing to
  // decode, yet the session settles; the key picture then goes to the same
  // decoder, which holds it back and leaves the header.
  const Packet broken = {0, 0, 0, 1, 0x65, 0xC0, 0, 0, 0x40, 0xFF, 0xFF, 0xFF};
  cases.push_back(
      {"decoder error",
       {step(Join({units({kSps, kPps}), broken}), ResultDecodeFailed, Sized({}, 176, 144)),
        step(units({kSei, kIdr}), 0, Filled(0x5A))}});
  // Only the first 1000 bytes are read: set 0 of 40 x 23 macroblocks, its
  // scaling lists of deltas of 51, 19 and 3 bits (each 1 modulo 256, so that
  // no scale reaches 0) laid out so that frame_mbs_only_flag lands at
  // `offset` (some 130 long deltas put it near byte 1000). FFmpeg refuses the
  // lists, but the size is known all the same.
  for (size_t offset : {998u, 999u, 1000u, 1001u}) {
    SpsRecipe r;
    r.pic_width_in_mbs_minus1 = 39, r.pic_height_in_map_units_minus1 = 22;
    size_t at = 0;
    for (int longDeltas = 120; longDeltas <= 224 && at != offset; ++longDeltas)
      for (int mid = 0; longDeltas + mid <= 224 && (mid == 0 || at < offset); ++mid) {
        r.scalingDeltas.assign(8, {});
        for (int n = 0; n < 224; ++n)
          r.scalingDeltas[n < 96 ? n / 16 : 6 + (n - 96) / 64].push_back(n < longDeltas ? 0x1000001
                                                                         : n < longDeltas + mid
                                                                             ? 257
                                                                             : 1);
        WriteSps(r, &at);
      }
    ASSERT_EQ(at, offset) << "no layout puts the flag there";
    cases.push_back({"frame_mbs_only_flag at byte " + std::to_string(offset),
                     {step(Join({WriteSps(r), units({kPps, kSei, kIdr})}),
                           offset < 1000 ? ResultDecodeFailed : ResultNoParameters,
                           offset < 1000 ? Sized({}, 640, 368) : BITMAPINFOHEADER{})}});
  }
  // Sizes straight out of the set: map units not doubled for field coding,
  // the image size in 32 bits (1000 x 1000 macroblocks wrap, 4096 x 4096 give 0).
  const uint32_t sizes[][3] = {
      {11, 9, 1}, {120, 34, 0}, {1, 1, 1}, {1000, 1000, 1}, {4096, 4096, 1}};
  for (const auto& [w, h, frameMbsOnly] : sizes) {
    SpsRecipe r;
    r.pic_width_in_mbs_minus1 = w - 1, r.pic_height_in_map_units_minus1 = h - 1,
    r.frame_mbs_only_flag = frameMbsOnly;
    cases.push_back({"set alone, " + std::to_string(w) + " macroblocks wide",
                     {step(WriteSps(r), ResultDecodeFailed, Sized({}, 16 * w, 16 * h))}});
  }
  CodecHandle session = H264CodecOpen();
  for (const auto& [what, steps] : cases) {
    SCOPED_TRACE(what);
    ASSERT_EQ(H264CodecReset(session), 1);
    for (const Step& step : steps) {
      BITMAPINFOHEADER header = Filled(0x5A, false);
      EXPECT_EQ(H264CodecDecompress(session, step.packet.data(), step.size, &header, nullptr, 0),
                step.result);
      EXPECT_EQ(header, step.header);
    }
  }
  EXPECT_EQ(H264CodecClose(session), 1);
}

}  // namespace
}  // namespace corvane::test
