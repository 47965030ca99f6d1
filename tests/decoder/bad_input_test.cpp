// Damaged and meaningless input gets a designed result, never a crash or a
// write outside the caller's buffer, and leaves the session able to decode.
#include <gtest/gtest.h>

#include <random>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

constexpr int kGuard = 64;

struct BadPacket {
  std::string what;
  Packet bytes;
  bool nullData = false;
};

std::vector<BadPacket> BadPackets(const std::vector<Packet>& stream) {
  std::vector<BadPacket> bad;
  const Packet& key = stream[0];
  for (size_t keep : {key.size() / 2, key.size() / 3, size_t{40}, size_t{10}, size_t{5}})
    bad.push_back(
        {"key packet cut to " + std::to_string(keep), Packet(key.begin(), key.begin() + keep)});
  bad.push_back({"P packet cut in half",
                 Packet(stream[1].begin(), stream[1].begin() + stream[1].size() / 2)});
  std::mt19937 random(20240611);
  for (size_t size : {1, 3, 100, 4000}) {
    Packet noise(size);
    for (uint8_t& b : noise) b = static_cast<uint8_t>(random());
    bad.push_back({"random bytes x" + std::to_string(size), noise});
    // The same behind a start code, so the decoder takes them for a NAL unit.
    noise.insert(noise.begin(), {0, 0, 0, 1});
    bad.push_back({"start code, random bytes x" + std::to_string(size), noise});
  }
  Packet flipped = key;
  for (size_t i = 20; i < flipped.size(); i += 7) flipped[i] ^= 0x5A;
  bad.push_back({"key packet with flipped bits", flipped});
  bad.push_back({"one byte", Packet{0x00}});
  bad.push_back({"start code alone", Packet{0, 0, 0, 1}});
  bad.push_back({"null data, size 0", {}, true});
  return bad;
}

class BadInput : public ::testing::TestWithParam<const StreamSpec*> {};

TEST_P(BadInput, GetsAResultAndTheSessionDecodesAfterwards) {
  const StreamSpec& spec = *GetParam();
  const std::vector<Packet> stream = LoadPackets(spec);
  const int32_t pictureBytes = spec.width * spec.height * 3;
  std::vector<uint8_t> buffer(pictureBytes + 2 * kGuard);
  uint8_t* out = buffer.data() + kGuard;

  for (bool running : {false, true}) {
    for (const BadPacket& bad : BadPackets(stream)) {
      SCOPED_TRACE(bad.what + (running ? ", running session" : ", fresh session"));
      CodecHandle session = H264CodecOpen();
      BITMAPINFOHEADER header{};
      std::vector<Packet> fed;  // what the session's decoder got, for FFmpeg to decode alike
      if (running) {
        ASSERT_EQ(Feed(session, spec.codecId, stream[0], &header, out, pictureBytes), 0);
        fed.push_back(stream[0]);
      }
      std::fill(buffer.begin(), buffer.end(), 0xA7);
      const int32_t result = DecompressFor(spec.codecId)(
          session, bad.nullData ? nullptr : bad.bytes.data(),
          static_cast<int32_t>(bad.bytes.size()), &header, out, pictureBytes);
      // Only H.264 waits for its parameters: H.265 settles on any first packet.
      EXPECT_TRUE(result == 0 || result == ResultDecodeFailed ||
                  (result == ResultNoParameters && spec.codecId == 27))
          << result;
      for (int i = 0; i < kGuard; ++i) {
        ASSERT_EQ(buffer[i], 0xA7) << "written before the buffer";
        ASSERT_EQ(buffer[kGuard + pictureBytes + i], 0xA7) << "written after the buffer";
      }
      // An unsettled session gets a new decoder; an empty packet never reaches one.
      if (result == ResultNoParameters) fed.clear();
      if (!bad.bytes.empty() && result != ResultNoParameters) fed.push_back(bad.bytes);

      // A key packet gives the picture FFmpeg gives after the same packets.
      fed.push_back(stream[0]);
      header.biSize = 0;
      EXPECT_EQ(Feed(session, spec.codecId, stream[0], &header, out, pictureBytes), 0);
      EXPECT_EQ(header.biSize, 40u);
      const std::vector<Picture> expected = ExpectedPictures(fed, spec.codecId);
      ASSERT_FALSE(expected.empty());
      EXPECT_EQ(FirstDifferingRow(out, expected.back().bgr.data(), spec.width, spec.height - 1),
                -1);
      EXPECT_EQ(H264CodecClose(session), 1);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Streams, BadInput, ::testing::Values(&kBaseline176, &kHevc176),
                         [](const auto& info) { return TestName(*info.param); });

}  // namespace
}  // namespace corvane::test
