// The session record and the worker's modes that no export reaches.
#include <gtest/gtest.h>

#include <cstring>

#include "decoder/decoding.h"
#include "decoder/session.h"

namespace corvane::decoder {
namespace {

using test::Packet;

bool HoldsNothing(const CodecSession& s) {
    return !s.codecContext && !s.frame && !s.packet && !s.swsContext && !s.scratchRows &&
           !s.filterImage && !s.filterBuffer && s.pending.count == 0 && s.codecId == 0 && s.needsInit;
}

// A reset of a session that never decoded has nothing to release: it makes
// no decoder object, and leaves none.
TEST(Session, FreshSessionHoldsNoDecoderObjectsBeforeOrAfterReset) {
    CodecSession* session = OpenSession();
    ASSERT_NE(session, nullptr);
    EXPECT_NE(session->mutex, nullptr);
    EXPECT_TRUE(HoldsNothing(*session));
    EXPECT_EQ(ResetSession(session), 1);
    EXPECT_EQ(ResetSession(session), 1);
    EXPECT_TRUE(HoldsNothing(*session));
    EXPECT_EQ(CloseSession(session), 1);
}

TEST(Session, ResetReleasesEverythingADecodeMade) {
    const std::vector<Packet> packets = test::LoadPackets(test::kOdd175x143);
    CodecSession* session = OpenSession();
    std::vector<uint8_t> out(175 * 143 * 3);
    BITMAPINFOHEADER header{};
    ASSERT_EQ(CodecDecompress(session, packets[0].data(), static_cast<int32_t>(packets[0].size()),
                              &header, out.data(), static_cast<int32_t>(out.size()), ModePlain, CodecH264),
              0);
    EXPECT_FALSE(HoldsNothing(*session));
    EXPECT_FALSE(session->needsInit);
    EXPECT_EQ(ResetSession(session), 1);
    EXPECT_TRUE(HoldsNothing(*session));
    EXPECT_EQ(CloseSession(session), 1);
}

struct ModeCase {
    int32_t mode;
    int32_t result;
    bool converted;
};

// Every mode writes the picture's header; the plain ones convert, the median
// modes filter (their pictures are checked elsewhere), sharpen is refused, and
// ModeNone leaves the buffer.
TEST(Session, ModesOfTheWorker) {
    const std::vector<Packet> packets = test::LoadPackets(test::kBaseline176);
    const std::vector<test::Picture> expected = test::ExpectedPictures(packets, CodecH264);
    const ModeCase cases[] = {
        {ModePlain, 0, true},          {ModeNone, 0, false},
        {7, 0, true},                  {-1, 0, true},
        {ModeMedian, 0, false},        {ModeMedianToo, 0, false},
        {ModeSharpen, ResultFilterFailed, false},
    };
    for (const ModeCase& c : cases) {
        SCOPED_TRACE(c.mode);
        CodecSession* session = OpenSession();
        std::vector<uint8_t> out(176 * 144 * 3, 0x3C);
        BITMAPINFOHEADER header{};
        EXPECT_EQ(CodecDecompress(session, packets[0].data(), static_cast<int32_t>(packets[0].size()),
                                  &header, out.data(), static_cast<int32_t>(out.size()), c.mode,
                                  CodecH264),
                  c.result);
        EXPECT_EQ(header.biSize, 40u);
        EXPECT_EQ(header.biSizeImage, 176u * 144u * 3u);
        if (c.converted) {
            EXPECT_EQ(test::FirstDifferingRow(out.data(), expected[0].bgr.data(), 176, 143), -1);
        } else if (c.mode == ModeNone) {
            EXPECT_EQ(out, std::vector<uint8_t>(out.size(), 0x3C));
        }
        EXPECT_EQ(CloseSession(session), 1);
    }
}

}  // namespace
}  // namespace corvane::decoder
