// The decoder extensions of corvane_ext.h: packets that open with a delimiter
// or an SEI settle with the option; over streams of every layout the first
// call reports the settled size and the drain gives the pictures behind
// reordering and frame threads on every road, all rows FFmpeg's with
// FULL_PICTURE; the conformant decode of sliced streams; refusals.
#include <gtest/gtest.h>

#include "corvane_ext.h"
#include "decoder/decoding.h"

extern "C" int CorvaneExtOptionsC(void);

namespace corvane::test {
namespace {

constexpr uint32_t kAnywhere = CORVANE_OPTION_PARAMETERS_ANYWHERE;
constexpr uint32_t kFull = CORVANE_OPTION_FULL_PICTURE;
constexpr uint32_t kThreads = CORVANE_OPTION_FRAME_THREADS;

TEST(Extension, RefusesWhatItCannotUse) {
  EXPECT_STREQ(corvane_version(), CORVANE_PROJECT_VERSION);
  EXPECT_EQ(CorvaneExtOptionsC(), 0xF);  // the header compiles as C
  BITMAPINFOHEADER header = Filled(0x33, false);
  EXPECT_EQ(corvane_codec_set_options(nullptr, 0), ResultBadArgument);
  EXPECT_EQ(corvane_codec_drain(nullptr, &header, nullptr, 0), ResultBadArgument);
  CodecHandle session = H264CodecOpen();
  EXPECT_EQ(corvane_codec_set_options(session, 0x10), ResultBadArgument);
  EXPECT_EQ(corvane_codec_drain(session, nullptr, nullptr, 0), ResultBadArgument);
  EXPECT_EQ(corvane_codec_drain(session, &header, nullptr, 0), 0);  // nothing ever decoded
  EXPECT_EQ(header, Filled(0x33, false));
  H264CodecClose(session);
}

// A stream's first packet (no picture yet) behind what encoders put first: a
// delimiter, an SEI longer than the parser's 1000 bytes. The option survives a
// reset.
TEST(Extension, PacketsOpeningWithDelimiterOrSeiSettleWithTheOption) {
  const Packet aud = {0, 0, 0, 1, 9, 0x10};
  Packet sei = {0, 0, 0, 1, 6, 5, 255, 255, 255, 255, 20};  // user data, 1040 bytes
  sei.resize(sei.size() + 1040, 0x41);
  sei.push_back(0x80);
  const Packet first = LoadPackets(kReordered)[0];
  Packet audSei = aud;
  audSei.insert(audSei.end(), sei.begin(), sei.end());
  for (Packet packet : {sei, audSei}) {
    packet.insert(packet.end(), first.begin(), first.end());
    for (uint32_t options : {0u, kAnywhere}) {
      CodecHandle session = H264CodecOpen();
      ASSERT_EQ(corvane_codec_set_options(session, options), 0);
      ASSERT_EQ(H264CodecReset(session), 1);
      BITMAPINFOHEADER header = Filled(0x44, false);
      EXPECT_EQ(Feed(session, packet, &header, nullptr, 0), options ? 0 : ResultNoParameters);
      EXPECT_EQ(header, options ? Sized({}, 176, 144) : BITMAPINFOHEADER{}) << options;
      H264CodecClose(session);
    }
  }
}

struct DrainCase {
  const char* label;
  StreamRecipe stream;
  bool median = false;
  uint32_t options = 0;
  bool fieldCoded = false;
};
void PrintTo(const DrainCase& c, std::ostream* os) { *os << c.label; }
class Drain : public testing::TestWithParam<DrainCase> {};

// While the decoder holds a stream's first pictures back, the first call
// reports set 0's size in whole macroblocks, map units taken as rows (half the
// height of a field-coded stream); H.265, with no parser, a zero header. Then
// every packet, then the drain, whose first call (no room, no callback) keeps
// its picture. The pictures come in FFmpeg's order, in the filter mode of the
// decompress calls, every row under FULL_PICTURE, whatever the threads; the
// headers are the pictures'. Then the session takes a new stream.
TEST_P(Drain, GivesEveryPictureInOrderThenTheSessionStartsOver) {
  const DrainCase& c = GetParam();
  const int w = c.stream.width, h = c.stream.height, rows = c.fieldCoded ? 32 : 16;
  const Clip clip(c.stream, c.median, true);
  CodecHandle session = H264CodecOpen();
  ASSERT_EQ(corvane_codec_set_options(session, c.options), 0);
  BITMAPINFOHEADER header = Filled(0x5A, false);
  const Packet& first = clip.packets[0];
  EXPECT_EQ(clip.decompress()(session, first.data(), int32_t(first.size()), &header, nullptr, 0),
            0);
  EXPECT_EQ(header, c.stream.codecId == 173
                        ? BITMAPINFOHEADER{}
                        : Sized({}, (w + 15) / 16 * 16, (h + rows - 1) / rows * 16));
  Delivered got =
      DecodeAll(session, clip.decompress(), {clip.packets.begin() + 1, clip.packets.end()}, w, h);
  EXPECT_EQ(got.results, std::vector<int32_t>(clip.packets.size() - 1, 0));
  header = Filled(0x55, false);
  EXPECT_EQ(corvane_codec_drain(session, &header, nullptr, 0), ResultBufferTooSmall);
  EXPECT_EQ(header, Filled(0x55));
  std::vector<uint8_t> out(size_t(w) * h * 3);
  for (int calls = 0; calls < 64; ++calls) {
    header = Filled(0x55, false);
    if (corvane_codec_drain(session, &header, out.data(), int32_t(out.size())) != 1) break;
    got.badHeaders += !(header == Sized(Filled(0x55), w, h));
    got.pictures.push_back(Picture{w, h, out});
  }
  EXPECT_EQ(got.badHeaders, 0);
  EXPECT_EQ(got.lastRowsWritten > 0, bool(c.options & kFull));
  EXPECT_EQ(Compare(got.pictures, clip.pictures, c.median || (c.options & kFull)), "");

  // As after a reset; without frame threads every picture leaves its packet.
  EXPECT_EQ(corvane_codec_drain(session, &header, nullptr, 0), 0);
  ASSERT_EQ(corvane_codec_set_options(session, 0), 0);
  const std::vector<Packet> next = LoadPackets(kStreams[0]);
  const Delivered again = DecodeAll(session, H264CodecDecompress, next, 176, 144);
  EXPECT_EQ(Compare(again.pictures, ReferenceDecode(next, 27, true, false)), "");
  H264CodecClose(session);
}

const StreamRecipe kHevcB = {"ff_hevc_bf_176x144.hevc", 176,        144, 8,
                             "-c:v libx265 " X265 "3",  "testsrc2", 173};
INSTANTIATE_TEST_SUITE_P(
    Reordered, Drain,
    testing::Values(
        DrainCase{"h264", kReordered},
        DrainCase{
            "high_slices",
            {"ff_high_bpyr_320x240.h264", 320, 240, 8, X264 "-profile:v high -slices 2 " BPYR}},
        DrainCase{"high444",
                  {"ff_high444_bf_175x143.h264", 175, 143, 6, "-c:v libx264 -pix_fmt yuv444p " BPYR,
                   "testsrc"}},
        DrainCase{"mbaff_bff",
                  {"ff_mbaff_bff_174x140.h264", 174, 140, 6,
                   X264 "-bf 2 -x264-params interlaced=1:bff=1"},
                  false,
                  0,
                  true},
        DrainCase{"fake_interlaced",
                  {"ff_fake_interlaced_176x144.h264", 176, 144, 6,
                   X264 BPYR ":fake-interlaced=1:pic-struct=1"},
                  false,
                  0,
                  true},
        DrainCase{"hrd",
                  {"ff_hrd_176x144.h264", 176, 144, 8,
                   X264 "-b:v 150k -maxrate 200k -bufsize 400k " BPYR ":nal-hrd=vbr"}},
        DrainCase{"cropped",
                  {"ff_main_cropped_174x142.h264", 174, 142, 6, X264 "-profile:v main " BPYR}},
        DrainCase{"h265", kHevcB}, DrainCase{"h265_threads_full", kHevcB, false, kThreads | kFull},
        DrainCase{"h264_median_threads", kReordered, true, kThreads},
        // 175 columns: converted through rows of a padded stride
        DrainCase{"odd444_threads_full", kStreams[3], false, kThreads | kFull}),
    [](const testing::TestParamInfo<DrainCase>& info) { return std::string(info.param.label); });

// Four slices a picture decode as the standard says (FFmpeg's default decode).
TEST(Extension, ConformantDecodeOfASlicedStreamIsTheStandardOne) {
  const std::vector<Packet> packets = LoadPackets(kStreams[2]);
  CodecHandle session = H264CodecOpen();
  ASSERT_EQ(corvane_codec_set_options(session, CORVANE_OPTION_CONFORMANT | kFull), 0);
  const Delivered got = DecodeAll(session, H264CodecDecompress, packets, 320, 240);
  EXPECT_EQ(Compare(got.pictures, ReferenceDecode(packets, 27, false), true), "");
  H264CodecClose(session);
}

}  // namespace
}  // namespace corvane::test
