// The session record and the worker's modes that no export reaches.
#include <gtest/gtest.h>

#include "decoder/decoding.h"
#include "decoder/session.h"

namespace corvane::decoder {
namespace {

bool HoldsNothing(const CodecSession& s) {
  return !s.codecContext && !s.frame && !s.packet && !s.swsContext && !s.scratchRows &&
         !s.filterImage && !s.filterBuffer && s.pending.count == 0 && s.codecId == 0 && s.needsInit;
}

int32_t Decompress(CodecSession* session, const test::Packet& packet, BITMAPINFOHEADER* header,
                   std::vector<uint8_t>& out, int32_t mode) {
  return CodecDecompress(session, packet.data(), static_cast<int32_t>(packet.size()), header,
                         out.data(), static_cast<int32_t>(out.size()), mode, CodecH264);
}

// A reset of a session that never decoded makes no decoder object; a reset
// after a decode releases all it made.
TEST(Session, ResetLeavesNoDecoderObjects) {
  const std::vector<test::Packet> packets = test::LoadPackets(test::kOdd175x143);
  CodecSession* session = OpenSession();
  ASSERT_NE(session, nullptr);
  EXPECT_NE(session->mutex, nullptr);
  EXPECT_TRUE(HoldsNothing(*session));
  EXPECT_EQ(ResetSession(session), 1);
  EXPECT_EQ(ResetSession(session), 1);
  EXPECT_TRUE(HoldsNothing(*session));
  std::vector<uint8_t> out(175 * 143 * 3);
  BITMAPINFOHEADER header{};
  ASSERT_EQ(Decompress(session, packets[0], &header, out, ModeMedian), 0);
  EXPECT_FALSE(session->needsInit);
  EXPECT_TRUE(session->codecContext && session->swsContext && session->filterImage);
  EXPECT_EQ(ResetSession(session), 1);
  EXPECT_TRUE(HoldsNothing(*session));
  EXPECT_EQ(CloseSession(session), 1);
}

// Every mode writes the picture's header; the plain ones convert, both median
// modes filter, sharpen is refused, and ModeNone leaves the buffer.
TEST(Session, ModesOfTheWorker) {
  const std::vector<test::Packet> packets = test::LoadPackets(test::kBaseline176);
  const test::Picture picture = test::ExpectedPictures(packets, CodecH264)[0];
  const test::Picture median = test::Median3x3(picture);
  const struct {
    int32_t mode;
    int32_t result;
    const test::Picture* shows;  // rows to compare (median: all of them)
  } cases[] = {
      {ModePlain, 0, &picture},
      {7, 0, &picture},
      {-1, 0, &picture},
      {ModeMedian, 0, &median},
      {ModeMedianToo, 0, &median},
      {ModeNone, 0, nullptr},
      {ModeSharpen, ResultFilterFailed, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    CodecSession* session = OpenSession();
    std::vector<uint8_t> out(176 * 144 * 3, 0x3C);
    BITMAPINFOHEADER header{};
    EXPECT_EQ(Decompress(session, packets[0], &header, out, c.mode), c.result);
    EXPECT_EQ(header.biSize, 40u);
    EXPECT_EQ(header.biSizeImage, 176u * 144u * 3u);
    if (c.shows) {
      EXPECT_EQ(test::FirstDifferingRow(out.data(), c.shows->bgr.data(), 176,
                                        c.shows == &median ? 144 : 143),
                -1);
    } else if (c.mode == ModeNone) {
      EXPECT_EQ(out, std::vector<uint8_t>(out.size(), 0x3C));
    }
    EXPECT_EQ(CloseSession(session), 1);
  }
}

}  // namespace
}  // namespace corvane::decoder
