// The worker's results, and what it leaves in the header and the buffer, path
// by path, through the exports of the shared object.
#include <gtest/gtest.h>

#include <climits>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

constexpr uint8_t kFill = 0x5A;
constexpr uint8_t kOutFill = 0xC3;
constexpr int32_t kPictureBytes = 176 * 144 * 3;

struct Clip {
  std::vector<Packet> packets;
  std::vector<Picture> pictures;
};

class WorkerResults : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (const StreamSpec* spec : {&kBaseline176, &kHevc176}) {
      Clip& clip = spec->codecId == 27 ? h264_ : hevc_;
      clip.packets = LoadPackets(*spec);
      clip.pictures = ExpectedPictures(clip.packets, spec->codecId);
    }
  }
  void SetUp() override { ASSERT_NE(session_ = H264CodecOpen(), nullptr); }
  void TearDown() override { EXPECT_EQ(H264CodecClose(session_), 1); }

  static const Clip& ClipOf(int codecId) { return codecId == 27 ? h264_ : hevc_; }
  void Refill() {
    header_ = Filled(kFill);
    out_.assign(kPictureBytes, kOutFill);
  }
  int32_t Send(int codecId, size_t n, int32_t outSize = kPictureBytes) {
    Refill();
    return Feed(session_, codecId, ClipOf(codecId).packets[n], &header_, out_.data(), outSize);
  }
  // Rows 0..h-2 against FFmpeg's picture n.
  static bool Shows(const uint8_t* pixels, int codecId, size_t n) {
    const Picture& p = ClipOf(codecId).pictures[n];
    return FirstDifferingRow(pixels, p.bgr.data(), p.width, p.height - 1) < 0;
  }
  bool OutUntouched() const { return out_ == std::vector<uint8_t>(kPictureBytes, kOutFill); }

  static Clip h264_, hevc_;
  CodecHandle session_ = nullptr;
  std::vector<uint8_t> out_;
  BITMAPINFOHEADER header_;
};

Clip WorkerResults::h264_, WorkerResults::hevc_;

// What a frame callback saw, copied while it ran.
struct CallbackLog {
  int calls = 0;
  CodecFrameRecord record{};
  std::vector<uint8_t> pixels;
  bool resetOwnSession = false;
} g_log;

void RecordingCallback(const CodecFrameRecord* record) {
  ++g_log.calls;
  g_log.record = *record;
  g_log.pixels.assign(record->pixels, record->pixels + record->size);
  if (g_log.resetOwnSession) {
    EXPECT_EQ(H264CodecReset(record->session), 1);
  }
}

TEST_F(WorkerResults, RefusedPacketLeavesHeaderAndBufferAndDecodingGoesOn) {
  const Packet brokenSps = {0, 0, 0, 1, 0x67, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  const Packet brokenHevcIdr = {0, 0, 0, 1, 0x26, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  const struct {
    const char* what;
    int codecId;
    const Packet* bytes;  // null: a null data pointer
    int32_t size;
    size_t resumeAt;  // a packet that decodes exactly afterwards
  } cases[] = {
      {"broken parameter set", 27, &brokenSps, 11, 1},
      {"size 0", 27, &brokenSps, 0, 1},
      {"size -1", 27, &brokenSps, -1, 1},
      {"size INT_MIN", 27, &brokenSps, INT_MIN, 1},
      {"null data, size 0", 27, nullptr, 0, 1},
      // A damaged key picture spoils what follows it: decoding resumes at the next one.
      {"broken H.265 key slice", 173, &brokenHevcIdr, 11, 0},
      {"H.265 size -5", 173, &brokenHevcIdr, -5, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(H264CodecReset(session_), 1);
    ASSERT_EQ(Send(c.codecId, 0), 0);
    Refill();
    EXPECT_EQ(DecompressFor(c.codecId)(session_, c.bytes ? c.bytes->data() : nullptr, c.size,
                                       &header_, out_.data(), kPictureBytes),
              ResultDecodeFailed);
    EXPECT_EQ(HeaderText(header_), HeaderText(Untouched(kFill)));
    EXPECT_TRUE(OutUntouched());
    // Neither drained nor broken: the next packet gives its picture.
    ASSERT_EQ(Send(c.codecId, c.resumeAt), 0);
    EXPECT_TRUE(Shows(out_.data(), c.codecId, c.resumeAt));
  }
}

TEST_F(WorkerResults, OutputSizeChoosesBetweenBufferCallbackAndRefusal) {
  const struct {
    const char* what;
    int32_t outSize;
    bool callback;
    int32_t result;
    bool intoBuffer;
  } roads[] = {
      {"exact size", kPictureBytes, false, 0, true},
      {"exact size, callback set", kPictureBytes, true, 0, true},
      {"larger, callback set", kPictureBytes + 100, true, 0, true},
      {"one byte less", kPictureBytes - 1, false, ResultBufferTooSmall, false},
      {"one byte less, callback set", kPictureBytes - 1, true, 0, false},
      {"zero, callback set", 0, true, 0, false},
      {"negative", -kPictureBytes, false, ResultBufferTooSmall, false},
      {"negative, callback set", -1, true, 0, false},
  };
  for (const auto& road : roads) {
    SCOPED_TRACE(road.what);
    const bool throughCallback = road.result == 0 && !road.intoBuffer;
    ASSERT_EQ(H264CodecReset(session_), 1);
    ASSERT_EQ(H264CodecSetCallback(session_, road.callback ? RecordingCallback : nullptr), 0);
    g_log = CallbackLog{};
    EXPECT_EQ(Send(27, 0, road.outSize), road.result);
    EXPECT_EQ(g_log.calls, throughCallback ? 1 : 0);
    if (road.result == ResultBufferTooSmall) {
      EXPECT_EQ(HeaderText(header_), HeaderText(Untouched(kFill)));
    }
    EXPECT_TRUE(road.intoBuffer ? Shows(out_.data(), 27, 0) : OutUntouched());
    if (!throughCallback) continue;
    EXPECT_EQ(header_.biSize, 40u);
    const CodecFrameRecord& r = g_log.record;
    EXPECT_EQ(r.session, session_);
    EXPECT_EQ(
        std::vector<int32_t>({r.width, r.height, r.bitCount, r.reserved0, r.reserved1, r.size}),
        std::vector<int32_t>({176, 144, 24, 0, 0, kPictureBytes}));
    ASSERT_EQ(g_log.pixels.size(), static_cast<size_t>(kPictureBytes));
    EXPECT_TRUE(Shows(g_log.pixels.data(), 27, 0));
    // The library's own buffer holds no leftovers in the row it doesn't convert.
    EXPECT_EQ(std::vector<uint8_t>(g_log.pixels.end() - 176 * 3, g_log.pixels.end()),
              std::vector<uint8_t>(176 * 3, 0));
  }
}

TEST_F(WorkerResults, CallbackSurvivesResetsAndMayResetItsOwnSession) {
  ASSERT_EQ(H264CodecSetCallback(session_, RecordingCallback), 0);
  EXPECT_EQ(H264CodecReset(session_), 1);
  EXPECT_EQ(H264CodecResetEx(session_), 1);
  g_log = CallbackLog{};
  g_log.resetOwnSession = true;
  EXPECT_EQ(Send(27, 0, 0), 0);
  EXPECT_EQ(g_log.calls, 1);
  EXPECT_TRUE(Shows(g_log.pixels.data(), 27, 0));
  // The reset took: a P packet now finds nothing to start from.
  EXPECT_EQ(Send(27, 1, 0), ResultNoParameters);
}

TEST_F(WorkerResults, OneHandleSwitchesBetweenCodecs) {
  for (int codecId : {27, 173, 27}) {
    for (size_t n = 0; n < 2; ++n) {
      ASSERT_EQ(Send(codecId, n), 0);
      EXPECT_TRUE(Shows(out_.data(), codecId, n)) << codecId << " picture " << n;
    }
  }
}

TEST_F(WorkerResults, NullHeaderIsRefusedBeforeAnythingHappens) {
  ASSERT_EQ(Send(27, 0), 0);
  Refill();
  const Packet& p = h264_.packets[1];
  EXPECT_EQ(H264CodecDecompress(session_, p.data(), static_cast<int32_t>(p.size()), nullptr,
                                out_.data(), kPictureBytes),
            ResultBadArgument);
  EXPECT_TRUE(OutUntouched());
  // Had the packet reached the decoder, feeding it again would predict the
  // picture from itself.
  ASSERT_EQ(Send(27, 1), 0);
  EXPECT_TRUE(Shows(out_.data(), 27, 1));
}

TEST_F(WorkerResults, H265SettlesOnAnyFirstPacketWithAZeroHeader) {
  const int32_t result = Send(173, 1);
  EXPECT_TRUE(result == 0 || result == ResultDecodeFailed) << result;
  EXPECT_EQ(HeaderText(header_), HeaderText(BITMAPINFOHEADER{}));
}

}  // namespace
}  // namespace corvane::test
