// What a call reports while the decoder holds a stream's first pictures back:
// the size of sequence parameter set 0 in whole macroblocks, against
// libavcodec's coded size; then every picture is FFmpeg's own. And the bounds
// of what the session reads: only set 0, only a unit opening the packet, only
// the packet's first 1000 bytes.
#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

#include "decoder/decoding.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace corvane::test {
namespace {

constexpr uint8_t kFill = 0x5A;
enum UnitType { kIdr = 5, kSei = 6, kSps = 7, kPps = 8, kAud = 9 };

// The units of an Annex B packet, each with its own start code.
std::vector<Packet> SplitNalUnits(const Packet& p) {
  std::vector<size_t> starts;
  for (size_t i = 0; i + 2 < p.size(); ++i)
    if (p[i] == 0 && p[i + 1] == 0 && p[i + 2] == 1)
      starts.push_back(i > 0 && p[i - 1] == 0 ? i - 1 : i);
  starts.push_back(p.size());
  std::vector<Packet> units;
  for (size_t n = 0; n + 1 < starts.size(); ++n)
    units.emplace_back(p.begin() + static_cast<std::ptrdiff_t>(starts[n]),
                       p.begin() + static_cast<std::ptrdiff_t>(starts[n + 1]));
  return units;
}

int NalType(const Packet& unit) { return unit[unit[2] == 1 ? 3 : 4] & 0x1F; }

Packet Join(const std::vector<Packet>& units) {
  Packet joined;
  for (const Packet& u : units) joined.insert(joined.end(), u.begin(), u.end());
  return joined;
}

struct FirstFramesCase {
  StreamSpec stream;
  bool fieldCoded;  // frame_mbs_only_flag 0: the header shows map units, half the height
  bool reorders;    // the first packet gives no picture
};

void PrintTo(const FirstFramesCase& c, std::ostream* os) { *os << c.stream.file; }

#define BPYR "-c:v libx264 -pix_fmt yuv420p -bf 3 -x264-params b-pyramid=normal"
const StreamSpec kReordered = {"ff_main_bpyr_176x144.h264", 176,        144, 10,
                               "-profile:v main " BPYR,     "testsrc2", 27};
const FirstFramesCase kCases[] = {
    {kBaseline176, false, false},
    {kReordered, false, true},
    {{"ff_high_bpyr_320x240.h264", 320, 240, 8, "-profile:v high " BPYR ":slices=2", "testsrc2",
      27},
     false,
     true},
    {{"ff_high444_bf_175x143.h264", 175, 143, 6,
      "-c:v libx264 -pix_fmt yuv444p -bf 3 -x264-params b-pyramid=normal", "testsrc", 27},
     false,
     true},
    {{"ff_mbaff_176x144.h264", 176, 144, 8, BPYR ":interlaced=1", "testsrc2", 27}, true, true},
    {{"ff_mbaff_bff_174x140.h264", 174, 140, 6,
      "-c:v libx264 -pix_fmt yuv420p -bf 2 -x264-params interlaced=1:bff=1", "testsrc2", 27},
     true,
     true},
    {{"ff_fake_interlaced_176x144.h264", 176, 144, 6,
      "-c:v libx264 -pix_fmt yuv420p -bf 3 -x264-params fake-interlaced=1:pic-struct=1", "testsrc2",
      27},
     true,
     true},
    {{"ff_hrd_176x144.h264", 176, 144, 8,
      "-b:v 150k -maxrate 200k -bufsize 400k " BPYR ":nal-hrd=vbr:pic-struct=1", "testsrc2", 27},
     false,
     true},
    {{"ff_main_cropped_174x142.h264", 174, 142, 6, "-profile:v main " BPYR, "testsrc2", 27},
     false,
     true},
    {{"ff_high_1080p.h264", 1920, 1080, 5, "-preset veryfast -profile:v high " BPYR, "testsrc2",
      27},
     false,
     true},
    {{"ff_hevc_bf_176x144.hevc", 176, 144, 8, "-c:v libx265 -x265-params bframes=3:log-level=error",
      "testsrc2", 173},
     false,
     true},
};

// libavcodec's own idea of the coded picture: whole macroblocks, uncropped.
std::pair<int, int> CodedSize(const std::vector<Packet>& packets) {
  const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  AVCodecContext* ctx = avcodec_alloc_context3(codec);
  if (!ctx || avcodec_open2(ctx, codec, nullptr) < 0) throw std::runtime_error("no decoder");
  AVPacket* pkt = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  std::pair<int, int> size{0, 0};
  for (size_t n = 0; n < packets.size() && size.first == 0; ++n) {
    pkt->data = const_cast<uint8_t*>(packets[n].data());
    pkt->size = static_cast<int>(packets[n].size());
    avcodec_send_packet(ctx, pkt);
    if (avcodec_receive_frame(ctx, frame) == 0 || ctx->coded_width > 0)
      size = {ctx->coded_width, ctx->coded_height};
  }
  av_frame_free(&frame);
  av_packet_free(&pkt);
  avcodec_free_context(&ctx);
  return size;
}

class FirstFrames : public ::testing::TestWithParam<FirstFramesCase> {};

TEST_P(FirstFrames, ReportParameterSetSizeThenFfmpegsPictures) {
  const StreamSpec& s = GetParam().stream;
  const std::vector<Packet> packets = LoadPackets(s);
  ASSERT_GT(packets.size(), 2u);
  BITMAPINFOHEADER expected{};  // H.265 has no parser: zero until a picture comes
  if (s.codecId == 27) {
    const auto coded = CodedSize(packets);
    expected = SizeHeader(coded.first, GetParam().fieldCoded ? coded.second / 2 : coded.second);
    if (s.height == 1080) {
      EXPECT_EQ(coded.second, 1088);  // not the pictures' 1080
    }
  }
  // The first packet gives no picture but the header; the session never
  // drains, so it delivers a prefix of FFmpeg's drained pictures, short of
  // at most the reordering depth of three B-frames.
  auto check = [&](const std::vector<Packet>& fed, int32_t firstResult) {
    CodecHandle session = H264CodecOpen();
    BITMAPINFOHEADER header = Filled(kFill);
    EXPECT_EQ(Feed(session, s.codecId, fed[0], &header, nullptr, 0), firstResult);
    EXPECT_EQ(HeaderText(header), HeaderText(expected));
    const Delivered got = DecodeAll(session, DecompressFor(s.codecId), {fed.begin() + 1, fed.end()},
                                    s.width, s.height);
    EXPECT_EQ(H264CodecClose(session), 1);
    EXPECT_EQ(got.results, std::vector<int32_t>(fed.size() - 1, 0));
    std::vector<Picture> reference = ExpectedPictures(fed, s.codecId, /*drain=*/true);
    ASSERT_FALSE(got.pictures.empty());
    ASSERT_LE(got.pictures.size(), reference.size());
    EXPECT_GE(got.pictures.size() + 4, reference.size());
    reference.resize(got.pictures.size());
    EXPECT_EQ(ComparePictures(got.pictures, reference), "");
    EXPECT_EQ(got.lastRowOverwritten + got.badHeaders, 0);
  };
  if (GetParam().reorders) {
    SCOPED_TRACE("first packet held back");
    check(packets, 0);
  }
  if (s.codecId == 27) {
    // The parameter sets in a packet of their own: the decoder finds no
    // picture and fails, the parser finds the size, and the session
    // settles: the slices that follow go to the same decoder.
    SCOPED_TRACE("parameter sets alone");
    const std::vector<Packet> units = SplitNalUnits(packets[0]);
    auto slice = units.begin();
    while (slice != units.end() && (NalType(*slice) < 1 || NalType(*slice) > 5)) ++slice;
    ASSERT_NE(slice, units.begin());
    ASSERT_NE(slice, units.end());
    std::vector<Packet> fed = {Join({units.begin(), slice}), Join({slice, units.end()})};
    fed.insert(fed.end(), packets.begin() + 1, packets.end());
    check(fed, ResultDecodeFailed);
  }
}

INSTANTIATE_TEST_SUITE_P(Streams, FirstFrames, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return TestName(info.param.stream); });

// A high-profile sequence parameter set with scaling lists coded long:
// `longDeltas` of its 224 deltas take 51 bits and `midDeltas` 19, so that the
// byte holding frame_mbs_only_flag moves through the packet. Gives the unit,
// with emulation prevention, and that byte's offset in it.
std::pair<Packet, size_t> MakeSps(int longDeltas, int midDeltas, uint32_t widthMbs,
                                  uint32_t heightMapUnits, uint32_t frameMbsOnly) {
  std::vector<bool> bits;
  auto u = [&](int n, uint64_t v) {
    for (int i = n - 1; i >= 0; --i) bits.push_back((v >> i) & 1);
  };
  auto ue = [&](uint64_t v) {
    int n = 0;
    while (((v + 1) >> n) > 1) ++n;
    u(n, 0);
    u(n + 1, v + 1);
  };
  u(24, 100 << 16 | 30);  // profile_idc high, no constraint flags, level_idc 30
  ue(0);                  // seq_parameter_set_id
  ue(1);                  // chroma_format_idc
  ue(0);                  // bit_depth_luma_minus8
  ue(0);                  // bit_depth_chroma_minus8
  u(2, 0b01);             // no transform bypass; seq_scaling_matrix_present_flag
  for (int list = 0, n = 0; list < 8; ++list) {
    u(1, 1);  // seq_scaling_list_present_flag
    // Every delta is 1 modulo 256, so the next scale never reaches 0;
    // se(v) of a positive v is ue(2v - 1).
    for (int j = 0; j < (list < 6 ? 16 : 64); ++j, ++n)
      ue(2 * (n < longDeltas ? 0x1000001 : n < longDeltas + midDeltas ? 257 : 1) - 1);
  }
  ue(0);    // log2_max_frame_num_minus4
  ue(0);    // pic_order_cnt_type
  ue(0);    // log2_max_pic_order_cnt_lsb_minus4
  ue(1);    // max_num_ref_frames
  u(1, 0);  // gaps_in_frame_num_value_allowed_flag
  ue(widthMbs - 1);
  ue(heightMapUnits - 1);
  const size_t flagByte = bits.size() / 8;
  u(1, frameMbsOnly);
  if (!frameMbsOnly) u(1, 0);  // mb_adaptive_frame_field_flag
  u(4, 0b1001);                // direct_8x8_inference_flag, no cropping, no VUI, rbsp_stop_one_bit
  while (bits.size() % 8) bits.push_back(false);
  // Emulation prevention: 03 after every 00 00 that precedes a byte of 3 or less.
  Packet unit = {0, 0, 0, 1, 0x67};
  size_t flagOffset = 0;
  for (size_t i = 0, zeros = 0; i < bits.size() / 8; ++i) {
    uint8_t b = 0;
    for (int k = 0; k < 8; ++k) b = static_cast<uint8_t>(b << 1 | bits[i * 8 + k]);
    if (zeros >= 2 && b <= 3) {
      unit.push_back(3);
      zeros = 0;
    }
    if (i == flagByte) flagOffset = unit.size();
    unit.push_back(b);
    zeros = b == 0 ? zeros + 1 : 0;
  }
  return {unit, flagOffset};
}

// Packet by packet on one fresh session: the result and the whole header.
TEST(FirstFramesPackets, WhatTheSessionReadsOfItsFirstPackets) {
  const std::vector<Packet> stream = LoadPackets(kReordered);
  const std::vector<Packet> firstUnits = SplitNalUnits(stream[0]);
  auto units = [&](std::initializer_list<int> types) {  // of the first access unit, in this order
    std::vector<Packet> picked;
    for (int type : types)
      for (const Packet& u : firstUnits)
        if (NalType(u) == type) picked.push_back(u);
    return Join(picked);
  };
  const Packet delimited = LoadPackets(
      {"ff_aud_176x144.h264", 176, 144, 4, "-profile:v main " BPYR ":aud=1", "testsrc2", 27})[0];
  ASSERT_EQ(NalType(SplitNalUnits(delimited).front()), kAud);
  Packet leadingZero = stream[0];
  leadingZero.insert(leadingZero.begin(), 0);
  const BITMAPINFOHEADER zero{}, size176 = SizeHeader(176, 144);

  struct Step {
    Packet packet;
    int32_t size;
    int32_t result;
    BITMAPINFOHEADER header;
  };
  auto step = [](const Packet& p, int32_t result, const BITMAPINFOHEADER& header,
                 int32_t size = INT_MIN) {
    return Step{p, size == INT_MIN ? static_cast<int32_t>(p.size()) : size, result, header};
  };
  std::vector<std::pair<std::string, std::vector<Step>>> cases;
  // Refused twice with a zero header; the session, still binding, then takes
  // the proper first packet from the start: a new decoder, and its size.
  auto unbound = [&](const char* what, const Packet& p, int32_t size = INT_MIN) {
    const Step refused = step(p, ResultNoParameters, zero, size);
    cases.push_back({what, {refused, refused, step(stream[0], 0, size176)}});
  };
  unbound("access unit delimiter", delimited);
  unbound("SEI", units({kSei, kSps, kPps, kIdr}));
  unbound("picture parameter set", units({kPps, kSps, kSei, kIdr}));
  unbound("key slice", units({kIdr, kSps, kPps}));
  unbound("later access unit", stream[1]);
  unbound("sequence parameter set 1",
          LoadPackets({"ff_sps_id1_176x144.h264", 176, 144, 4, "-profile:v main " BPYR ":sps-id=1",
                       "testsrc2", 27})[0]);
  unbound("parameter set behind a leading zero byte", leadingZero);
  unbound("size -1", stream[0], -1);
  unbound("size INT_MIN", stream[0], INT_MIN + 1);
  unbound("size 0", stream[0], 0);
  unbound("size 3: a start code cut short", stream[0], 3);
  // A slice naming a picture parameter set far out of range: nothing to
  // decode, but the session settles; the key picture's slices then go to the
  // same decoder, which holds the picture back and leaves the header.
  const Packet corruptSlice = {0, 0, 0, 1, 0x65, 0xC0, 0, 0, 0x40, 0xFF, 0xFF, 0xFF};
  cases.push_back({"decoder error",
                   {step(Join({units({kSps, kPps}), corruptSlice}), ResultDecodeFailed, size176),
                    step(units({kSei, kIdr}), 0, Untouched(kFill))}});
  // Only the first 1000 bytes are read. Ahead of the flag, FFmpeg refuses
  // the scaling lists but the size is known all the same.
  for (size_t offset : {998u, 999u, 1000u, 1001u}) {
    std::pair<Packet, size_t> sps;
    for (int longDeltas = 0; longDeltas <= 224 && sps.second != offset; ++longDeltas)
      for (int mid = 0; longDeltas + mid <= 224; ++mid)
        if ((sps = MakeSps(longDeltas, mid, 40, 23, 1)).second >= offset) break;
    ASSERT_EQ(sps.second, offset) << "no layout puts the flag there";
    cases.push_back({"frame_mbs_only_flag at byte " + std::to_string(offset),
                     {step(Join({sps.first, units({kPps, kSei, kIdr})}),
                           offset < 1000 ? ResultDecodeFailed : ResultNoParameters,
                           offset < 1000 ? SizeHeader(40 * 16, 23 * 16) : zero)}});
  }
  // Sizes straight out of the set: macroblocks, map units (not doubled for
  // field coding), and the image size reckoned in 32 bits: 65536 x 65536 wraps to 0.
  const struct {
    int w, h, frameMbsOnly;
  } sizes[] = {{11, 9, 1}, {120, 34, 0}, {1, 1, 1}, {4096, 4096, 1}};
  for (const auto& s : sizes)
    cases.push_back({"parameter set alone, " + std::to_string(s.w) + " macroblocks wide",
                     {step(MakeSps(0, 0, s.w, s.h, s.frameMbsOnly).first, ResultDecodeFailed,
                           SizeHeader(16 * s.w, 16 * s.h))}});

  CodecHandle session = H264CodecOpen();
  for (const auto& [what, steps] : cases) {
    SCOPED_TRACE(what);
    ASSERT_EQ(H264CodecReset(session), 1);
    for (const Step& step : steps) {
      BITMAPINFOHEADER header = Filled(kFill);
      EXPECT_EQ(H264CodecDecompress(session, step.packet.data(), step.size, &header, nullptr, 0),
                step.result);
      EXPECT_EQ(HeaderText(header), HeaderText(step.header));
    }
  }
  EXPECT_EQ(H264CodecClose(session), 1);
}
#undef BPYR

}  // namespace
}  // namespace corvane::test
