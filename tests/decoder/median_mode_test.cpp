// H264CodecDecompressMedian against FFmpeg: every picture delivered in the
// median mode equals the 3x3 median, with replicated borders, of FFmpeg's
// own BGR24 picture, in every row. The test computes that median itself by
// sorting, per channel. Streams of several sizes, a size change within one
// session, and a reset between streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

// The oracle: per channel, the middle of the sorted nine values around each
// pixel, coordinates clamped to the picture.
std::vector<uint8_t> ReplicateMedian3x3(const Picture& p) {
    std::vector<uint8_t> out(p.bgr.size());
    uint8_t nine[9];
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) {
            for (int c = 0; c < 3; ++c) {
                int k = 0;
                for (int dy = -1; dy <= 1; ++dy) {
                    for (int dx = -1; dx <= 1; ++dx) {
                        const int sy = std::clamp(y + dy, 0, p.height - 1);
                        const int sx = std::clamp(x + dx, 0, p.width - 1);
                        nine[k++] = p.bgr[(static_cast<size_t>(sy) * p.width + sx) * 3 + c];
                    }
                }
                std::sort(nine, nine + 9);
                out[(static_cast<size_t>(y) * p.width + x) * 3 + c] = nine[4];
            }
        }
    }
    return out;
}

// Feeds every packet through the median export with a freshly patterned
// buffer of the stream's picture size, and keeps what comes out.
std::vector<Picture> DecodeMedian(CodecHandle session, const std::vector<Packet>& packets,
                                  int width, int height) {
    std::vector<Picture> pictures;
    std::vector<uint8_t> out(static_cast<size_t>(width) * height * 3);
    for (size_t call = 0; call < packets.size(); ++call) {
        for (size_t i = 0; i < out.size(); ++i) out[i] = FillByte(static_cast<int>(call), i);
        BITMAPINFOHEADER header;
        std::memset(&header, 0, sizeof(header));
        const int32_t rc = H264CodecDecompressMedian(session, packets[call].data(),
                                                     static_cast<int32_t>(packets[call].size()),
                                                     &header, out.data(),
                                                     static_cast<int32_t>(out.size()));
        EXPECT_EQ(rc, 0) << "packet " << call;
        if (header.biSize != sizeof(BITMAPINFOHEADER)) continue;
        EXPECT_EQ(header.biWidth, width);
        EXPECT_EQ(header.biHeight, height);
        EXPECT_EQ(header.biSizeImage, static_cast<uint32_t>(out.size()));
        pictures.push_back(Picture{header.biWidth, header.biHeight, out});
    }
    return pictures;
}

// Empty when every picture is the median of FFmpeg's, all rows.
std::string CompareWithMedian(const std::vector<Picture>& got,
                              const std::vector<Picture>& ffmpeg) {
    if (got.size() != ffmpeg.size()) {
        return std::to_string(got.size()) + " pictures, expected " + std::to_string(ffmpeg.size());
    }
    for (size_t n = 0; n < got.size(); ++n) {
        const std::vector<uint8_t> expected = ReplicateMedian3x3(ffmpeg[n]);
        const int row = FirstDifferingRow(got[n].bgr.data(), expected.data(), ffmpeg[n].width,
                                          ffmpeg[n].height);
        if (row >= 0) return "picture " + std::to_string(n) + " differs first in row " + std::to_string(row);
    }
    return "";
}

struct Stream {
    const StreamSpec* spec;
    std::vector<Packet> packets;
    std::vector<Picture> ffmpeg;
};

Stream Load(const StreamSpec& spec) {
    Stream s{&spec, LoadPackets(spec), {}};
    s.ffmpeg = ExpectedPictures(s.packets, spec.codecId);
    return s;
}

class MedianMode : public ::testing::TestWithParam<const StreamSpec*> {};

TEST_P(MedianMode, EveryPictureIsTheMedianOfFfmpegsPicture) {
    const Stream s = Load(*GetParam());
    ASSERT_FALSE(s.ffmpeg.empty());
    CodecHandle session = H264CodecOpen();
    ASSERT_NE(session, nullptr);
    const auto got = DecodeMedian(session, s.packets, s.spec->width, s.spec->height);
    EXPECT_EQ(CompareWithMedian(got, s.ffmpeg), "");
    EXPECT_EQ(H264CodecClose(session), 1);
}

INSTANTIATE_TEST_SUITE_P(Streams, MedianMode,
                         ::testing::Values(&kBaseline176, &kHigh320, &kOdd175x143),
                         [](const ::testing::TestParamInfo<const StreamSpec*>& info) {
                             return std::to_string(info.param->width) + "x" +
                                    std::to_string(info.param->height);
                         });

// One session sees pictures of another size: the filter scratch is made anew
// for them, with or without a reset in between, and back again.
TEST(MedianModeSession, SizeChangesAndResets) {
    const Stream small = Load(kBaseline176), large = Load(kHigh320), odd = Load(kOdd175x143);
    CodecHandle session = H264CodecOpen();
    ASSERT_NE(session, nullptr);
    for (const Stream* s : {&small, &large, &small}) {
        SCOPED_TRACE(s->spec->file);
        EXPECT_EQ(CompareWithMedian(DecodeMedian(session, s->packets, s->spec->width,
                                                 s->spec->height),
                                    s->ffmpeg),
                  "");
    }
    for (const Stream* s : {&odd, &large}) {
        SCOPED_TRACE(std::string("after a reset: ") + s->spec->file);
        EXPECT_EQ(H264CodecReset(session), 1);
        EXPECT_EQ(CompareWithMedian(DecodeMedian(session, s->packets, s->spec->width,
                                                 s->spec->height),
                                    s->ffmpeg),
                  "");
    }
    EXPECT_EQ(H264CodecClose(session), 1);
}

}  // namespace
}  // namespace corvane::test
