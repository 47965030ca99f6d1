// What the first call of a stream reports while the decoder holds its first
// pictures back: the size of sequence parameter set 0 in whole macroblocks, set
// against libavcodec's coded size. Then every picture delivered is FFmpeg's own.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <stdexcept>

#include "decoder/decoding.h"
#include "decoder/nal_units.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace corvane::test {
namespace {

struct FirstFramesCase {
    StreamSpec stream;
    bool fieldCoded;  // frame_mbs_only_flag 0: the header shows map units, half the height
    bool reorders;    // the first packet gives no picture
};

using CaseFilter = bool (*)(const FirstFramesCase&);

void PrintTo(const FirstFramesCase& c, std::ostream* os) {
    *os << c.stream.file;
}

const FirstFramesCase kCases[] = {
    {kBaseline176, false, false},
    {{"ff_main_bpyr_176x144.h264", 176, 144, 10,
      "-c:v libx264 -profile:v main -pix_fmt yuv420p -bf 3 -x264-params b-pyramid=normal",
      "testsrc2", 27}, false, true},
    {{"ff_high_bpyr_320x240.h264", 320, 240, 8,
      "-c:v libx264 -profile:v high -pix_fmt yuv420p -bf 3 -x264-params b-pyramid=normal:slices=2",
      "testsrc2", 27}, false, true},
    {{"ff_high444_bf_175x143.h264", 175, 143, 6,
      "-c:v libx264 -pix_fmt yuv444p -bf 3 -x264-params b-pyramid=normal", "testsrc", 27},
     false, true},
    {{"ff_mbaff_176x144.h264", 176, 144, 8,
      "-c:v libx264 -pix_fmt yuv420p -bf 3 -x264-params interlaced=1:b-pyramid=normal",
      "testsrc2", 27}, true, true},
    {{"ff_mbaff_bff_174x140.h264", 174, 140, 6,
      "-c:v libx264 -pix_fmt yuv420p -bf 2 -x264-params interlaced=1:bff=1", "testsrc2", 27},
     true, true},
    {{"ff_fake_interlaced_176x144.h264", 176, 144, 6,
      "-c:v libx264 -pix_fmt yuv420p -bf 3 -x264-params fake-interlaced=1:pic-struct=1",
      "testsrc2", 27}, true, true},
    {{"ff_hrd_176x144.h264", 176, 144, 8,
      "-c:v libx264 -pix_fmt yuv420p -bf 3 -b:v 150k -maxrate 200k -bufsize 400k "
      "-x264-params nal-hrd=vbr:pic-struct=1:b-pyramid=normal",
      "testsrc2", 27}, false, true},
    {{"ff_main_cropped_174x142.h264", 174, 142, 6,
      "-c:v libx264 -profile:v main -pix_fmt yuv420p -bf 3 -x264-params b-pyramid=normal",
      "testsrc2", 27}, false, true},
    {{"ff_high_1080p.h264", 1920, 1080, 5,
      "-c:v libx264 -preset veryfast -profile:v high -pix_fmt yuv420p -bf 3 "
      "-x264-params b-pyramid=normal",
      "testsrc2", 27}, false, true},
    {{"ff_hevc_bf_176x144.hevc", 176, 144, 8,
      "-c:v libx265 -x265-params bframes=3:log-level=error", "testsrc2", 173}, false, true},
};

// libavcodec's own idea of the coded picture: whole macroblocks, uncropped.
std::pair<int, int> CodedSize(const std::vector<Packet>& packets, int codecId) {
    const AVCodec* codec = avcodec_find_decoder(static_cast<AVCodecID>(codecId));
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

// FFmpeg's pictures of the packets as the session is fed them, drained: the
// session never drains, so it delivers a prefix of these.
std::vector<Picture> DrainedReference(const std::vector<Packet>& packets, int codecId) {
    return ReferenceDecode(packets, codecId, true, [](AVCodecContext* context) {
        context->thread_count = 0;
        context->thread_type = FF_THREAD_SLICE;
        context->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
        context->flags2 |= AV_CODEC_FLAG2_FAST | AV_CODEC_FLAG2_SHOW_ALL;
    });
}

// The pictures a decoder may still hold at the end of these short streams:
// reordering of three B-frames and nothing else.
constexpr size_t kMaxHeldBack = 4;

void ExpectPrefixOfReference(const Delivered& got, const std::vector<Packet>& fed, int codecId) {
    const std::vector<Picture> reference = DrainedReference(fed, codecId);
    ASSERT_FALSE(got.pictures.empty());
    ASSERT_LE(got.pictures.size(), reference.size());
    EXPECT_GE(got.pictures.size() + kMaxHeldBack, reference.size());
    const std::vector<Picture> prefix(reference.begin(),
                                      reference.begin() + static_cast<std::ptrdiff_t>(got.pictures.size()));
    EXPECT_EQ(CompareAllButLastRow(got.pictures, prefix), "");
    EXPECT_EQ(got.lastRowOverwritten, 0);
}

class FirstFrames : public ::testing::TestWithParam<FirstFramesCase> {
protected:
    void SetUp() override {
        packets_ = LoadPackets(GetParam().stream);
        ASSERT_GT(packets_.size(), 2u);
        session_ = H264CodecOpen();
        ASSERT_NE(session_, nullptr);
        std::memset(&header_, 0x5A, sizeof(header_));
    }
    void TearDown() override { EXPECT_EQ(H264CodecClose(session_), 1); }

    // The header the first-frames step owes this stream, from libavcodec's coded size.
    BITMAPINFOHEADER ExpectedHeader() const {
        const auto coded = CodedSize(packets_, GetParam().stream.codecId);
        BITMAPINFOHEADER h;
        std::memset(&h, 0, sizeof(h));
        h.biSize = 40;
        h.biWidth = coded.first;
        h.biHeight = GetParam().fieldCoded ? coded.second / 2 : coded.second;
        h.biPlanes = 1;
        h.biBitCount = 24;
        h.biSizeImage = static_cast<uint32_t>(h.biWidth * h.biHeight * 3);
        return h;
    }
    Delivered DecodeRest(const std::vector<Packet>& rest) {
        return DecodeAll(session_, GetParam().stream.codecId, rest, GetParam().stream.width,
                         GetParam().stream.height);
    }

    std::vector<Packet> packets_;
    CodecHandle session_ = nullptr;
    BITMAPINFOHEADER header_;
};

class FirstPacketWithoutPicture : public FirstFrames {};
class ParameterPacketThatFailsToDecode : public FirstFrames {};

std::string HeaderText(const BITMAPINFOHEADER& h) {
    return ::testing::PrintToString(
        std::vector<uint8_t>(reinterpret_cast<const uint8_t*>(&h),
                             reinterpret_cast<const uint8_t*>(&h) + sizeof(h)));
}

TEST_P(FirstPacketWithoutPicture, ReportsTheParameterSetSize) {
    const FirstFramesCase& c = GetParam();
    std::vector<uint8_t> out(static_cast<size_t>(c.stream.width) * c.stream.height * 3);
    ASSERT_EQ(Feed(session_, c.stream.codecId, packets_[0], &header_, out.data(),
                   static_cast<int32_t>(out.size())), 0);
    BITMAPINFOHEADER expected;
    if (c.stream.codecId == 173) {
        std::memset(&expected, 0, sizeof(expected));  // no parser for H.265
    } else {
        expected = ExpectedHeader();
        // A 1080-row stream shows 1088 here and 1080 on its pictures.
        if (c.stream.height == 1080) {
            EXPECT_EQ(expected.biHeight, 1088);
        }
    }
    EXPECT_EQ(HeaderText(header_), HeaderText(expected));

    const std::vector<Packet> rest(packets_.begin() + 1, packets_.end());
    const Delivered got = DecodeRest(rest);
    for (size_t n = 0; n < got.results.size(); ++n) EXPECT_EQ(got.results[n], 0) << "packet " << n + 1;
    ExpectPrefixOfReference(got, packets_, c.stream.codecId);
}

// The parameter sets in a packet of their own: the decoder finds no picture in
// it and fails, the parser finds the size, and the session is settled.
TEST_P(ParameterPacketThatFailsToDecode, StillSettlesTheSession) {
    const std::vector<Packet> units = SplitNalUnits(packets_[0]);
    size_t firstSlice = 0;
    while (firstSlice < units.size() && (NalType(units[firstSlice]) < 1 || NalType(units[firstSlice]) > 5))
        ++firstSlice;
    ASSERT_GT(firstSlice, 0u);
    ASSERT_LT(firstSlice, units.size());
    std::vector<Packet> fed = {Join({units.begin(), units.begin() + static_cast<std::ptrdiff_t>(firstSlice)}),
                               Join({units.begin() + static_cast<std::ptrdiff_t>(firstSlice), units.end()})};
    fed.insert(fed.end(), packets_.begin() + 1, packets_.end());

    ASSERT_EQ(Feed(session_, 27, fed[0], &header_, nullptr, 0), ResultDecodeFailed);
    EXPECT_EQ(HeaderText(header_), HeaderText(ExpectedHeader()));

    // Settled: slices without parameter sets go to the same decoder.
    const Delivered got = DecodeRest({fed.begin() + 1, fed.end()});
    for (size_t n = 0; n < got.results.size(); ++n) EXPECT_EQ(got.results[n], 0) << "packet " << n + 1;
    ExpectPrefixOfReference(got, fed, 27);
}

std::vector<FirstFramesCase> CasesWhere(CaseFilter keep) {
    std::vector<FirstFramesCase> kept;
    for (const FirstFramesCase& c : kCases)
        if (keep(c)) kept.push_back(c);
    return kept;
}

std::string CaseName(const ::testing::TestParamInfo<FirstFramesCase>& info) {
    std::string name = info.param.stream.file;
    for (char& ch : name)
        if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return name;
}

// Streams whose decoder holds the first picture back.
INSTANTIATE_TEST_SUITE_P(Streams, FirstPacketWithoutPicture,
                         ::testing::ValuesIn(CasesWhere([](const FirstFramesCase& c) { return c.reorders; })),
                         CaseName);
// H.264 streams: the library reads their parameter sets.
INSTANTIATE_TEST_SUITE_P(Streams, ParameterPacketThatFailsToDecode,
                         ::testing::ValuesIn(CasesWhere([](const FirstFramesCase& c) {
                             return c.stream.codecId == 27;
                         })),
                         CaseName);

}  // namespace
}  // namespace corvane::test
