// Every picture the library delivers is FFmpeg's own decode and BGR24
// conversion of it, row for row, but for the last row, which keeps the
// caller's bytes.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

const StreamSpec kMainCabac176 = {"main_cabac_176x144.h264", 176, 144, 6,
                                  "-c:v libx264 -profile:v main -coder 1 -bf 0 -pix_fmt yuv420p",
                                  "testsrc2", 27};
// Height not a whole number of macroblocks: the decoder crops.
const StreamSpec kCropped174 = {"main_174x142.h264", 174, 142, 4,
                                "-c:v libx264 -profile:v main -bf 0 -pix_fmt yuv420p",
                                "testsrc2", 27};
// A width the vector converters can't cover in whole groups of 16 pixels.
const StreamSpec kNarrow162 = {"main_162x120.h264", 162, 120, 3,
                               "-c:v libx264 -profile:v main -bf 0 -pix_fmt yuv420p",
                               "testsrc2", 27};
const StreamSpec kOdd321x241 = {"high444_321x241.h264", 321, 241, 4,
                                "-c:v libx264 -pix_fmt yuv444p -bf 0 -x264-params slices=3",
                                "testsrc", 27};
const StreamSpec kHigh422 = {"high422_176x144.h264", 176, 144, 4,
                             "-c:v libx264 -pix_fmt yuv422p -bf 0", "testsrc2", 27};
const StreamSpec kHevcOdd = {"main444_hevc_175x143.hevc", 175, 143, 4,
                             "-c:v libx265 -pix_fmt yuv444p -x265-params bframes=0:log-level=error",
                             "testsrc", 173};

class DecodedPictures : public ::testing::TestWithParam<StreamSpec> {};

TEST_P(DecodedPictures, EqualFfmpegsOwnAllButTheLastRow) {
    const StreamSpec& spec = GetParam();
    const std::vector<Packet> packets = LoadPackets(spec);
    const std::vector<Picture> expected = ExpectedPictures(packets, spec.codecId);
    ASSERT_FALSE(expected.empty());

    CodecHandle session = H264CodecOpen();
    ASSERT_NE(session, nullptr);
    const Delivered got = DecodeAll(session, spec.codecId, packets, spec.width, spec.height);
    EXPECT_EQ(H264CodecClose(session), 1);

    for (size_t n = 0; n < got.results.size(); ++n) EXPECT_EQ(got.results[n], 0) << "packet " << n;
    EXPECT_EQ(CompareAllButLastRow(got.pictures, expected), "");
    EXPECT_EQ(got.lastRowOverwritten, 0);
}

INSTANTIATE_TEST_SUITE_P(Streams, DecodedPictures,
                         ::testing::Values(kBaseline176, kMainCabac176, kHigh320, kCropped174, kNarrow162,
                                           kOdd175x143, kOdd321x241, kHigh422, kHevc176,
                                           kHevcOdd),
                         [](const auto& info) {
                             std::string name = info.param.file;
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

// The header of a delivered picture describes it: 40 bytes, frame size,
// one plane of 24 bits, width * height * 3 bytes.
TEST(DecodedPictureHeader, DescribesThePicture) {
    const std::vector<Packet> packets = LoadPackets(kOdd175x143);
    CodecHandle session = H264CodecOpen();
    std::vector<uint8_t> out(175 * 143 * 3);
    BITMAPINFOHEADER header;
    std::memset(&header, 0xEE, sizeof(header));
    ASSERT_EQ(Feed(session, 27, packets[0], &header, out.data(), static_cast<int32_t>(out.size())),
              0);
    H264CodecClose(session);
    EXPECT_EQ(header.biSize, 40u);
    EXPECT_EQ(header.biWidth, 175);
    EXPECT_EQ(header.biHeight, 143);
    EXPECT_EQ(header.biPlanes, 1);
    EXPECT_EQ(header.biBitCount, 24);
    EXPECT_EQ(header.biSizeImage, 175u * 143u * 3u);
    EXPECT_EQ(header.biXPelsPerMeter, 0);
    EXPECT_EQ(header.biYPelsPerMeter, 0);
    // Fields the picture path leaves to the caller.
    EXPECT_EQ(header.biCompression, 0xEEEEEEEEu);
    EXPECT_EQ(header.biClrUsed, 0xEEEEEEEEu);
    EXPECT_EQ(header.biClrImportant, 0xEEEEEEEEu);
}

}  // namespace
}  // namespace corvane::test
