// The decoder extensions of corvane_ext.h: the option for parameter sets
// anywhere, the drain behind reordering and frame threads on every road, the
// conformant decode of sliced streams, refusals.
#include <gtest/gtest.h>

#include "corvane_ext.h"
#include "decoder/decoding.h"
#include "support/h264_writer.h"

namespace corvane::test {
namespace {

constexpr uint32_t kAnywhere = CORVANE_OPTION_PARAMETERS_ANYWHERE;
constexpr uint32_t kFull = CORVANE_OPTION_FULL_PICTURE;
constexpr uint32_t kThreads = CORVANE_OPTION_FRAME_THREADS;

TEST(Extension, RefusesWhatItCannotUse) {
  EXPECT_STREQ(corvane_version(), CORVANE_PROJECT_VERSION);
  BITMAPINFOHEADER header = Filled(0x33, false);
  CodecHandle session = H264CodecOpen();
  EXPECT_EQ(std::vector<int32_t>({corvane_codec_set_options(nullptr, 0),
                                  corvane_codec_drain(nullptr, &header, nullptr, 0),
                                  corvane_codec_set_options(session, 0x10),
                                  corvane_codec_drain(session, nullptr, nullptr, 0),
                                  corvane_codec_drain(session, &header, nullptr, 0)}),
            std::vector<int32_t>({ResultBadArgument, ResultBadArgument, ResultBadArgument,
                                  ResultBadArgument, 0}));  // nothing ever decoded: nothing left
  EXPECT_EQ(header, Filled(0x33, false));
  H264CodecClose(session);
}

// A stream's first packet behind a delimiter and an SEI longer than the
// parser's 1000 bytes settles with the option only, and the option survives a reset.
TEST(Extension, PacketsOpeningWithDelimiterAndSeiSettleWithTheOption) {
  Packet packet = {0, 0, 0, 1, 9, 0x10, 0, 0, 0, 1, 6, 5, 255, 255, 255, 255, 20};
  packet.resize(packet.size() + 1040, 0x41);  // user data, 1040 bytes
  packet.push_back(0x80);
  packet = Join({packet, LoadPackets(kReordered)[0]});
  for (uint32_t options : {0u, kAnywhere}) {
    CodecHandle session = H264CodecOpen();
    ASSERT_EQ(corvane_codec_set_options(session, options) + H264CodecReset(session), 1);
    BITMAPINFOHEADER header = Filled(0x44, false);
    EXPECT_EQ(Feed(session, packet, &header, nullptr, 0), options ? 0 : ResultNoParameters);
    EXPECT_EQ(header, options ? Sized({}, 176, 144) : BITMAPINFOHEADER{}) << options;
    H264CodecClose(session);
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

// The first call reports set 0's size in macroblocks, map units as rows (H.265:
// none); the drain's first call (no room) keeps its picture; all come in order,
// in the filter mode of the decompress calls; then the session starts over.
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
  t_checked = {&clip, 0, bool(c.options & kFull)};
  for (size_t n = 1; n < clip.packets.size(); ++n)
    EXPECT_EQ(FeedChecked(session, clip, n, false), 0) << n;
  H264CodecSetCallback(session, nullptr);
  header = Filled(0x55, false);
  EXPECT_EQ(corvane_codec_drain(session, &header, nullptr, 0), ResultBufferTooSmall);
  EXPECT_EQ(header, Filled(0x55));
  std::vector<uint8_t> out(size_t(w) * h * 3);
  for (int calls = 0; calls < 64; ++calls) {
    header = Filled(0x55, false);
    if (corvane_codec_drain(session, &header, out.data(), int32_t(out.size())) != 1) break;
    t_checked.wrong += !(header == Sized(Filled(0x55), w, h));
    CheckPicture(out.data(), w, h);
  }
  EXPECT_EQ(std::pair(t_checked.delivered, t_checked.wrong),
            std::pair(int(clip.pictures.size()), 0));
  // As after a reset.
  EXPECT_EQ(corvane_codec_drain(session, &header, nullptr, 0), 0);
  ASSERT_EQ(corvane_codec_set_options(session, 0), 0);
  ExpectClipFrom(session, Clip(kStreams[0]));
  H264CodecClose(session);
}

const StreamRecipe kHevcB = {"ff_hevc_bf_176x144.hevc", 176,        144, 8,
                             "-c:v libx265 " X265 "3",  "testsrc2", 173};
// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Reordered, Drain,
    testing::Values(
        DrainCase{"h264", kReordered},
        DrainCase{"mbaff_bff", {"ff_mbaff_bff_174x140.h264", 174, 140, 6,
                                X264 "-bf 2 -x264-params interlaced=1:bff=1"}, false, 0, true},
        DrainCase{"h265_threads_full", kHevcB, false, kThreads | kFull},
        DrainCase{"h264_median_threads", kReordered, true, kThreads},
        // 175 columns: converted through rows of a padded stride
        DrainCase{"odd444_threads_full", kStreams[3], false, kThreads | kFull}),
    [](const testing::TestParamInfo<DrainCase>& info) { return std::string(info.param.label); });
// clang-format on

// Four slices a picture decode as the standard says (FFmpeg's default decode).
TEST(Extension, ConformantDecodeOfASlicedStreamIsTheStandardOne) {
  Clip clip(kStreams[2]);
  clip.pictures = ReferenceDecode(clip.packets, 27, false);
  CodecHandle session = H264CodecOpen();
  ASSERT_EQ(corvane_codec_set_options(session, CORVANE_OPTION_CONFORMANT | kFull), 0);
  ExpectClipFrom(session, clip, 0, false, true);
  H264CodecClose(session);
}

}  // namespace
}  // namespace corvane::test
