// The worker's results and what it leaves in the header and the buffer, path
// by path, through the exports of the shared object.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

constexpr uint8_t kHeaderFill = 0x5A;
constexpr int kWidth = 176;
constexpr int kHeight = 144;
constexpr int32_t kPictureBytes = kWidth * kHeight * 3;

class WorkerResults : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        h264_ = LoadPackets(kBaseline176);
        hevc_ = LoadPackets(kHevc176);
        h264Expected_ = ExpectedPictures(h264_, 27);
        hevcExpected_ = ExpectedPictures(hevc_, 173);
    }
    void SetUp() override {
        session_ = H264CodecOpen();
        ASSERT_NE(session_, nullptr);
        out_.assign(kPictureBytes, 0xC3);
        std::memset(&header_, kHeaderFill, sizeof(header_));
    }
    void TearDown() override { EXPECT_EQ(H264CodecClose(session_), 1); }

    int32_t FeedH264(size_t n, int32_t outSize = kPictureBytes) {
        return Feed(session_, 27, h264_[n], &header_, out_.data(), outSize);
    }
    // Rows 0..h-2 of the buffer against FFmpeg's picture.
    static bool SamePicture(const uint8_t* pixels, const Picture& expected) {
        return FirstDifferingRow(pixels, expected.bgr.data(), expected.width, expected.height - 1) < 0;
    }
    bool HeaderBytesAre(size_t from, size_t to, uint8_t value) const {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&header_);
        for (size_t i = from; i < to; ++i)
            if (bytes[i] != value) return false;
        return true;
    }
    bool HeaderUntouchedButPelsPerMeter() const {
        return HeaderBytesAre(0, 24, kHeaderFill) && HeaderBytesAre(24, 32, 0) &&
               HeaderBytesAre(32, 40, kHeaderFill);
    }

    static std::vector<Packet> h264_, hevc_;
    static std::vector<Picture> h264Expected_, hevcExpected_;
    CodecHandle session_ = nullptr;
    std::vector<uint8_t> out_;
    BITMAPINFOHEADER header_;
};

std::vector<Packet> WorkerResults::h264_, WorkerResults::hevc_;
std::vector<Picture> WorkerResults::h264Expected_, WorkerResults::hevcExpected_;

// What a frame callback saw, copied while it ran.
struct CallbackLog {
    int calls = 0;
    CodecFrameRecord record{};
    std::vector<uint8_t> pixels;
    bool resetOwnSession = false;
};
CallbackLog g_log;

void RecordingCallback(const CodecFrameRecord* record) {
    ++g_log.calls;
    g_log.record = *record;
    g_log.pixels.assign(record->pixels, record->pixels + record->size);
    if (g_log.resetOwnSession) {
        EXPECT_EQ(H264CodecReset(record->session), 1);
    }
}

// A packet a Running session's decoder refuses, and the size it is fed with.
struct Refused {
    const char* what;
    int codecId;
    std::vector<uint8_t> bytes;
    int32_t size;
    bool nullData;
    size_t resumeAt;  // a packet that decodes exactly afterwards
};

TEST_F(WorkerResults, RefusedPacketClearsOnlyPelsPerMeterAndDecodingGoesOn) {
    const std::vector<uint8_t> brokenSps = {0, 0, 0, 1, 0x67, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    const std::vector<uint8_t> brokenHevcIdr = {0, 0, 0, 1, 0x26, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    const Refused cases[] = {
        {"broken parameter set", 27, brokenSps, static_cast<int32_t>(brokenSps.size()), false, 1},
        {"size 0", 27, brokenSps, 0, false, 1},
        {"size -1", 27, brokenSps, -1, false, 1},
        {"size INT_MIN", 27, brokenSps, INT_MIN, false, 1},
        {"null data, size 0", 27, {}, 0, true, 1},
        // A damaged key picture spoils what follows it: decoding resumes at the next one.
        {"broken H.265 key slice", 173, brokenHevcIdr, static_cast<int32_t>(brokenHevcIdr.size()),
         false, 0},
        {"H.265 size -5", 173, brokenHevcIdr, -5, false, 1},
    };
    for (const Refused& c : cases) {
        SCOPED_TRACE(c.what);
        const auto& packets = c.codecId == 27 ? h264_ : hevc_;
        const auto& expected = c.codecId == 27 ? h264Expected_ : hevcExpected_;
        ASSERT_EQ(H264CodecReset(session_), 1);
        ASSERT_EQ(Feed(session_, c.codecId, packets[0], &header_, out_.data(), kPictureBytes), 0);

        std::memset(&header_, kHeaderFill, sizeof(header_));
        out_.assign(kPictureBytes, 0xC3);
        EXPECT_EQ(DecompressFor(c.codecId)(session_, c.nullData ? nullptr : c.bytes.data(), c.size,
                                           &header_, out_.data(), kPictureBytes),
                  ResultDecodeFailed);
        EXPECT_TRUE(HeaderUntouchedButPelsPerMeter());
        EXPECT_EQ(out_, std::vector<uint8_t>(kPictureBytes, 0xC3));

        // The decoder is neither drained nor broken: the next packet gives its picture.
        ASSERT_EQ(Feed(session_, c.codecId, packets[c.resumeAt], &header_, out_.data(), kPictureBytes),
                  0);
        EXPECT_EQ(header_.biSize, 40u);
        EXPECT_TRUE(SamePicture(out_.data(), expected[c.resumeAt]));
    }
}

struct Road {
    const char* what;
    int32_t outSize;
    bool callback;
    int32_t result;
    bool intoBuffer;
    bool throughCallback;
};

TEST_F(WorkerResults, OutputSizeChoosesBetweenBufferCallbackAndRefusal) {
    const Road roads[] = {
        {"exact size", kPictureBytes, false, 0, true, false},
        {"exact size, callback set", kPictureBytes, true, 0, true, false},
        {"larger, callback set", kPictureBytes + 100, true, 0, true, false},
        {"one byte less", kPictureBytes - 1, false, ResultBufferTooSmall, false, false},
        {"one byte less, callback set", kPictureBytes - 1, true, 0, false, true},
        {"zero, callback set", 0, true, 0, false, true},
        {"negative", -kPictureBytes, false, ResultBufferTooSmall, false, false},
        {"negative, callback set", -1, true, 0, false, true},
    };
    for (const Road& road : roads) {
        SCOPED_TRACE(road.what);
        ASSERT_EQ(H264CodecReset(session_), 1);
        ASSERT_EQ(H264CodecSetCallback(session_, road.callback ? RecordingCallback : nullptr), 0);
        g_log = CallbackLog{};
        std::memset(&header_, kHeaderFill, sizeof(header_));
        out_.assign(kPictureBytes, 0xC3);

        EXPECT_EQ(FeedH264(0, road.outSize), road.result);
        EXPECT_EQ(g_log.calls, road.throughCallback ? 1 : 0);
        if (road.result == ResultBufferTooSmall) {
            EXPECT_TRUE(HeaderUntouchedButPelsPerMeter());
        }
        if (road.intoBuffer) {
            EXPECT_TRUE(SamePicture(out_.data(), h264Expected_[0]));
        } else {
            EXPECT_EQ(out_, std::vector<uint8_t>(kPictureBytes, 0xC3));
        }
        if (!road.throughCallback) continue;
        EXPECT_EQ(header_.biSize, 40u);
        EXPECT_EQ(g_log.record.session, session_);
        EXPECT_EQ(g_log.record.width, kWidth);
        EXPECT_EQ(g_log.record.height, kHeight);
        EXPECT_EQ(g_log.record.bitCount, 24);
        EXPECT_EQ(g_log.record.reserved0, 0);
        EXPECT_EQ(g_log.record.reserved1, 0);
        ASSERT_EQ(g_log.record.size, kPictureBytes);
        EXPECT_TRUE(SamePicture(g_log.pixels.data(), h264Expected_[0]));
        // The library's own buffer holds no leftovers in the row it doesn't convert.
        EXPECT_EQ(std::vector<uint8_t>(g_log.pixels.end() - kWidth * 3, g_log.pixels.end()),
                  std::vector<uint8_t>(kWidth * 3, 0));
    }
}

TEST_F(WorkerResults, CallbackStaysSetAcrossReset) {
    ASSERT_EQ(H264CodecSetCallback(session_, RecordingCallback), 0);
    EXPECT_EQ(H264CodecReset(session_), 1);
    EXPECT_EQ(H264CodecResetEx(session_), 1);
    g_log = CallbackLog{};
    EXPECT_EQ(FeedH264(0, 0), 0);
    EXPECT_EQ(g_log.calls, 1);
}

TEST_F(WorkerResults, CallbackMayResetItsOwnSession) {
    ASSERT_EQ(H264CodecSetCallback(session_, RecordingCallback), 0);
    g_log = CallbackLog{};
    g_log.resetOwnSession = true;
    EXPECT_EQ(FeedH264(0, 0), 0);
    EXPECT_EQ(FeedH264(0, 0), 0);  // starts over from the reset: the first picture again
    EXPECT_EQ(g_log.calls, 2);
    EXPECT_TRUE(SamePicture(g_log.pixels.data(), h264Expected_[0]));
}

TEST_F(WorkerResults, OneHandleSwitchesBetweenCodecs) {
    for (int codecId : {27, 173, 27}) {
        SCOPED_TRACE(codecId);
        const auto& packets = codecId == 27 ? h264_ : hevc_;
        const auto& expected = codecId == 27 ? h264Expected_ : hevcExpected_;
        for (size_t n = 0; n < 2; ++n) {
            header_.biSize = 0;
            ASSERT_EQ(Feed(session_, codecId, packets[n], &header_, out_.data(), kPictureBytes), 0);
            EXPECT_EQ(header_.biSize, 40u);
            EXPECT_TRUE(SamePicture(out_.data(), expected[n])) << "picture " << n;
        }
    }
}

TEST_F(WorkerResults, NullHeaderIsRefusedBeforeAnythingHappens) {
    ASSERT_EQ(FeedH264(0), 0);
    out_.assign(kPictureBytes, 0xC3);
    EXPECT_EQ(H264CodecDecompress(session_, h264_[1].data(), static_cast<int32_t>(h264_[1].size()),
                                  nullptr, out_.data(), kPictureBytes),
              ResultBadArgument);
    EXPECT_EQ(out_, std::vector<uint8_t>(kPictureBytes, 0xC3));
    // Had the packet reached the decoder, feeding it again would predict the
    // picture from itself.
    ASSERT_EQ(FeedH264(1), 0);
    EXPECT_TRUE(SamePicture(out_.data(), h264Expected_[1]));
}

TEST_F(WorkerResults, H264WithoutPictureOrParametersStaysUnsettled) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        std::memset(&header_, kHeaderFill, sizeof(header_));
        EXPECT_EQ(FeedH264(1), ResultNoParameters);  // a P picture: nothing to start from
        EXPECT_TRUE(HeaderBytesAre(0, 40, 0));
    }
    ASSERT_EQ(FeedH264(0), 0);
    EXPECT_TRUE(SamePicture(out_.data(), h264Expected_[0]));
}

TEST_F(WorkerResults, H265FirstPacketWithoutPictureSettlesWithZeroHeader) {
    const int32_t result = Feed(session_, 173, hevc_[1], &header_, out_.data(), kPictureBytes);
    EXPECT_TRUE(result == 0 || result == ResultDecodeFailed) << result;
    EXPECT_TRUE(HeaderBytesAre(0, 40, 0));
}

TEST_F(WorkerResults, PictureSizeChangeMidStream) {
    ASSERT_EQ(FeedH264(0), 0);
    ASSERT_EQ(FeedH264(1), 0);
    // The same H.264 session now meets a larger stream, and back.
    const std::vector<Packet> larger = LoadPackets(kHigh320);
    const Delivered got = DecodeAll(session_, 27, larger, kHigh320.width, kHigh320.height);
    EXPECT_EQ(CompareAllButLastRow(got.pictures, ExpectedPictures(larger, 27)), "");
    EXPECT_EQ(got.lastRowOverwritten, 0);
    ASSERT_EQ(FeedH264(0), 0);
    EXPECT_EQ(header_.biWidth, kWidth);
    EXPECT_TRUE(SamePicture(out_.data(), h264Expected_[0]));
}

TEST_F(WorkerResults, FreshSessionResetsAndClosesWithoutDecoder) {
    EXPECT_EQ(H264CodecReset(session_), 1);
    EXPECT_EQ(H264CodecReset(session_), 1);
    EXPECT_EQ(H264CodecResetEx(session_), 1);
    EXPECT_EQ(H264CodecGetFormat(session_), 1);
    EXPECT_EQ(H264CodecClose(H264CodecOpen()), 1);
}

// The median stage has no filter behind it yet: it refuses with the filter's
// failure after the header was written, rather than deliver an unfiltered picture.
// A median picture and a plain one on the same session: the filter stage keeps
// the header of the picture path and leaves the session ready for any mode.
TEST_F(WorkerResults, MedianThenPlainOnOneSession) {
    EXPECT_EQ(H264CodecDecompressMedian(session_, h264_[0].data(),
                                        static_cast<int32_t>(h264_[0].size()), &header_,
                                        out_.data(), kPictureBytes),
              0);
    EXPECT_EQ(header_.biSize, 40u);
    EXPECT_EQ(header_.biWidth, kWidth);
    ASSERT_EQ(FeedH264(1), 0);
    EXPECT_TRUE(SamePicture(out_.data(), h264Expected_[1]));
}

}  // namespace
}  // namespace corvane::test
