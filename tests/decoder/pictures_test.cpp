// Every picture the library delivers is FFmpeg's own decode and BGR24
// conversion of it, row for row, but for the last row, which keeps the
// caller's bytes; its header describes it and leaves the caller's fields.
// Through H264CodecDecompressMedian, every row is the 3x3 median with
// replicated borders of FFmpeg's picture.
#include <gtest/gtest.h>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

const StreamSpec kStreams[] = {
    kBaseline176,
    kHigh320,
    kOdd175x143,
    kHevc176,
    {"main_cabac_176x144.h264", 176, 144, 6,
     "-c:v libx264 -profile:v main -coder 1 -bf 0 -pix_fmt yuv420p", "testsrc2", 27},
    // Height not a whole number of macroblocks: the decoder crops.
    {"main_174x142.h264", 174, 142, 4, "-c:v libx264 -profile:v main -bf 0 -pix_fmt yuv420p",
     "testsrc2", 27},
    // A width the vector converters can't cover in whole groups of 16 pixels.
    {"main_162x120.h264", 162, 120, 3, "-c:v libx264 -profile:v main -bf 0 -pix_fmt yuv420p",
     "testsrc2", 27},
    {"high444_321x241.h264", 321, 241, 4,
     "-c:v libx264 -pix_fmt yuv444p -bf 0 -x264-params slices=3", "testsrc", 27},
    {"high422_176x144.h264", 176, 144, 4, "-c:v libx264 -pix_fmt yuv422p -bf 0", "testsrc2", 27},
    {"main444_hevc_175x143.hevc", 175, 143, 4,
     "-c:v libx265 -pix_fmt yuv444p -x265-params bframes=0:log-level=error", "testsrc", 173},
};

class DecodedPictures : public ::testing::TestWithParam<StreamSpec> {};

TEST_P(DecodedPictures, EqualFfmpegsOwnAllButTheLastRow) {
  const StreamSpec& spec = GetParam();
  const std::vector<Packet> packets = LoadPackets(spec);
  const std::vector<Picture> expected = ExpectedPictures(packets, spec.codecId);
  ASSERT_FALSE(expected.empty());
  CodecHandle session = H264CodecOpen();
  ASSERT_NE(session, nullptr);
  const Delivered got =
      DecodeAll(session, DecompressFor(spec.codecId), packets, spec.width, spec.height);
  EXPECT_EQ(H264CodecClose(session), 1);
  EXPECT_EQ(got.results, std::vector<int32_t>(packets.size(), 0));
  EXPECT_EQ(ComparePictures(got.pictures, expected), "");
  EXPECT_EQ(got.lastRowOverwritten, 0);
  EXPECT_EQ(got.badHeaders, 0);
}

INSTANTIATE_TEST_SUITE_P(Streams, DecodedPictures, ::testing::ValuesIn(kStreams),
                         [](const auto& info) { return TestName(info.param); });

// One session meets streams of several sizes (one only taller), with and
// without a reset in between: the filter scratch is made anew for each size. A plain decode on
// the same session afterwards, of another size again, isn't touched by the
// filter stage.
TEST(MedianMode, EveryPictureIsTheMedianOfFfmpegsAcrossSizesAndResets) {
  struct Stream {
    const StreamSpec* spec;
    std::vector<Packet> packets;
    std::vector<Picture> ffmpeg, medians;
  };
  std::vector<Stream> streams;
  const StreamSpec kShort176 = {
      "main_176x96.h264", 176, 96, 3, "-c:v libx264 -profile:v main -bf 0 -pix_fmt yuv420p",
      "testsrc2",         27};
  // Chroma layouts other than 4:2:0, and an odd height, through the banded
  // conversion that widths in whole groups of 16 pixels take.
  const StreamSpec k422 = {
      "high422_176x144.h264", 176, 144, 4, "-c:v libx264 -pix_fmt yuv422p -bf 0", "testsrc2", 27};
  const StreamSpec k444Odd = {
      "high444_192x131.h264", 192, 131, 3, "-c:v libx264 -pix_fmt yuv444p -bf 0", "testsrc", 27};
  for (const StreamSpec* spec :
       {&kBaseline176, &kHigh320, &kOdd175x143, &kShort176, &k422, &k444Odd}) {
    Stream s{spec, LoadPackets(*spec), {}, {}};
    s.ffmpeg = ExpectedPictures(s.packets, 27);
    for (const Picture& p : s.ffmpeg) s.medians.push_back(Median3x3(p));
    streams.push_back(std::move(s));
  }
  CodecHandle session = H264CodecOpen();
  ASSERT_NE(session, nullptr);
  const struct {
    size_t stream;
    bool reset;
  } runs[] = {{0, false}, {1, false}, {0, false}, {3, false}, {0, false},
              {2, true},  {1, true},  {4, false}, {5, false}};
  for (const auto& run : runs) {
    const Stream& s = streams[run.stream];
    SCOPED_TRACE(std::string(s.spec->file) + (run.reset ? " after a reset" : ""));
    if (run.reset) {
      EXPECT_EQ(H264CodecReset(session), 1);
    }
    const Delivered got =
        DecodeAll(session, H264CodecDecompressMedian, s.packets, s.spec->width, s.spec->height);
    EXPECT_EQ(got.results, std::vector<int32_t>(s.packets.size(), 0));
    EXPECT_EQ(ComparePictures(got.pictures, s.medians, /*lastRow=*/true), "");
    EXPECT_EQ(got.badHeaders, 0);
  }
  const Stream& s = streams[0];
  const Delivered plain = DecodeAll(session, H264CodecDecompress, s.packets, 176, 144);
  EXPECT_EQ(ComparePictures(plain.pictures, s.ffmpeg), "");
  EXPECT_EQ(plain.lastRowOverwritten, 0);
  EXPECT_EQ(H264CodecClose(session), 1);
}

}  // namespace
}  // namespace corvane::test
