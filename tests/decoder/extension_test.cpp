// The decoder extensions of corvane_ext.h through the shared object: packets
// that open with a delimiter or an SEI settle with the option, every row equals
// FFmpeg's with FULL_PICTURE on every road, the drain gives the pictures behind
// reordering and frame threads, the conformant decode of sliced streams, and
// what the extensions refuse.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "corvane_ext.h"
#include "decoder/decoding.h"

extern "C" int CorvaneExtOptionsC(void);

namespace corvane::test {
namespace {

constexpr uint32_t kAnywhere = CORVANE_OPTION_PARAMETERS_ANYWHERE;
constexpr uint32_t kFull = CORVANE_OPTION_FULL_PICTURE;
constexpr uint32_t kFrameThreads = CORVANE_OPTION_FRAME_THREADS;

#define BFRAMES "-bf 3 -x264-params b-pyramid=normal"
const StreamSpec kReordered264 = {"ext_bpyr_176x144.h264",
                                  176,
                                  144,
                                  12,
                                  "-c:v libx264 -pix_fmt yuv420p " BFRAMES,
                                  "testsrc2",
                                  27};
const StreamSpec kReordered265 = {"ext_bframes_176x144.hevc",
                                  176,
                                  144,
                                  12,
                                  "-c:v libx265 -x265-params bframes=3:log-level=error",
                                  "testsrc2",
                                  173};

TEST(Extension, RefusesWhatItCannotUse) {
  EXPECT_STREQ(corvane_version(), CORVANE_PROJECT_VERSION);
  EXPECT_EQ(CorvaneExtOptionsC(), 0xF);  // the header compiles as C
  BITMAPINFOHEADER header = Filled(0x33);
  uint8_t byte = 0;
  EXPECT_EQ(corvane_codec_set_options(nullptr, 0), ResultBadArgument);
  EXPECT_EQ(corvane_codec_drain(nullptr, &header, &byte, 1), ResultBadArgument);
  CodecHandle session = H264CodecOpen();
  EXPECT_EQ(corvane_codec_set_options(session, 0x10), ResultBadArgument);
  EXPECT_EQ(corvane_codec_drain(session, nullptr, &byte, 1), ResultBadArgument);
  EXPECT_EQ(HeaderText(header), HeaderText(Filled(0x33)));
  // A session that never decoded has nothing to give.
  EXPECT_EQ(corvane_codec_drain(session, &header, &byte, 1), 0);
  EXPECT_EQ(H264CodecClose(session), 1);
}

// An SEI longer than the parser's 1000 bytes: user data with a 16-byte id.
Packet LongSei() {
  Packet sei = {0, 0, 0, 1, 6, 5};
  const int payload = 1200;
  for (int left = payload; left >= 0; left -= 255) sei.push_back(left >= 255 ? 255 : left);
  for (int i = 0; i < payload; ++i) sei.push_back(static_cast<uint8_t>(0x40 + i % 16));
  sei.push_back(0x80);
  return sei;
}

// The first packet of a stream that opens with its parameters (and gives no
// picture yet), behind what most encoders put first; with the option, after a
// reset as on a new session.
TEST(Extension, PacketsOpeningWithDelimiterOrSeiSettleWithTheOption) {
  const Packet first = LoadPackets(kReordered264)[0];
  const Packet aud = {0, 0, 0, 1, 9, 0x10};
  const struct {
    const char* label;
    std::vector<Packet> prefix;
    uint32_t options;
  } cases[] = {
      {"sei", {LongSei()}, 0},
      {"sei", {LongSei()}, kAnywhere},
      {"aud and sei", {aud, LongSei()}, 0},
      {"aud and sei", {aud, LongSei()}, kAnywhere | kFull},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.label) + ", options " + std::to_string(c.options));
    Packet packet;
    for (const Packet& unit : c.prefix) packet.insert(packet.end(), unit.begin(), unit.end());
    packet.insert(packet.end(), first.begin(), first.end());
    CodecHandle session = H264CodecOpen();
    ASSERT_EQ(corvane_codec_set_options(session, c.options), 0);
    ASSERT_EQ(H264CodecReset(session), 1);  // options outlive a reset
    BITMAPINFOHEADER header = Filled(0x44);
    std::vector<uint8_t> out(176 * 144 * 3);
    const int32_t result = Feed(session, 27, packet, &header, out.data(), int32_t(out.size()));
    if (c.options & kAnywhere) {
      EXPECT_EQ(result, 0);
      EXPECT_EQ(HeaderText(header), HeaderText(SizeHeader(176, 144)));
    } else {
      EXPECT_EQ(result, ResultNoParameters);
      EXPECT_EQ(HeaderText(header), HeaderText(BITMAPINFOHEADER{}));
    }
    H264CodecClose(session);
  }
}

// One call's picture, whichever road it took.
struct Collector {
  std::vector<Picture> pictures;
  int badHeaders = 0;
  void Take(const BITMAPINFOHEADER& h, const uint8_t* bgr) {
    if (h.biSize != 40 || h.biPlanes != 1 || h.biBitCount != 24 ||
        h.biSizeImage != uint32_t(h.biWidth * h.biHeight * 3))
      ++badHeaders;
    pictures.push_back(Picture{h.biWidth, h.biHeight, {bgr, bgr + size_t(h.biSizeImage)}});
  }
};
thread_local Collector* t_collector = nullptr;
void OnFrame(const CodecFrameRecord* r) {
  BITMAPINFOHEADER h = SizeHeader(r->width, r->height);
  t_collector->Take(h, r->pixels);
}

enum class Road { Buffer, Callback };

// Every packet, then the drain until it says none is left: the first drain call
// with no room and no callback, which must keep its picture. Returns the
// pictures in the order they came out.
Collector DecodeAndDrain(CodecHandle session, DecompressFn decompress,
                         const std::vector<Packet>& packets, const StreamSpec& spec, Road road) {
  Collector got;
  t_collector = &got;
  std::vector<uint8_t> out(size_t(spec.width) * spec.height * 3, 0x99);
  const int32_t outSize = road == Road::Buffer ? int32_t(out.size()) : 0;
  H264CodecSetCallback(session, road == Road::Callback ? OnFrame : nullptr);
  // The picture path leaves biCompression alone; the first-frames path clears it.
  const uint32_t untouched = Filled(0x55).biCompression;
  for (const Packet& p : packets) {
    BITMAPINFOHEADER header = Filled(0x55);
    EXPECT_EQ(decompress(session, p.data(), int32_t(p.size()), &header, out.data(), outSize), 0);
    if (road == Road::Buffer && header.biSize == 40 && header.biCompression == untouched)
      got.Take(header, out.data());
  }
  H264CodecSetCallback(session, nullptr);
  BITMAPINFOHEADER header = Filled(0x55);
  EXPECT_EQ(corvane_codec_drain(session, &header, nullptr, 0), ResultBufferTooSmall);
  EXPECT_EQ(HeaderText(header), HeaderText(Untouched(0x55)));
  H264CodecSetCallback(session, road == Road::Callback ? OnFrame : nullptr);
  int32_t result = 1;
  for (int calls = 0; result == 1 && calls < 64; ++calls) {
    header = Filled(0x55);
    result = corvane_codec_drain(session, &header, out.data(), outSize);
    if (result == 1 && road == Road::Buffer) got.Take(header, out.data());
  }
  EXPECT_EQ(result, 0);
  H264CodecSetCallback(session, nullptr);
  t_collector = nullptr;
  return got;
}

struct DrainCase {
  const char* label;
  const StreamSpec* stream;
  bool median;
  uint32_t options;
  Road road;
};
void PrintTo(const DrainCase& c, std::ostream* os) { *os << c.label; }

class Drain : public testing::TestWithParam<DrainCase> {};

// The drain gives the pictures the decoder held back, in order, on the roads
// and in the filter mode of the decompress calls; frame threads change when
// pictures come out, never which. Then the session takes a new stream.
TEST_P(Drain, GivesEveryPictureInOrderThenTheSessionStartsOver) {
  const DrainCase& c = GetParam();
  const std::vector<Packet> packets = LoadPackets(*c.stream);
  std::vector<Picture> expected = ExpectedPictures(packets, c.stream->codecId, /*drain=*/true);
  ASSERT_EQ(int(expected.size()), c.stream->frames);
  if (c.median)
    for (Picture& p : expected) p = Median3x3(p);

  CodecHandle session = H264CodecOpen();
  ASSERT_EQ(corvane_codec_set_options(session, c.options), 0);
  const Collector got = DecodeAndDrain(
      session, c.median ? H264CodecDecompressMedian : DecompressFor(c.stream->codecId), packets,
      *c.stream, c.road);
  EXPECT_EQ(got.badHeaders, 0);
  const bool allRows = c.median || (c.options & kFull);
  EXPECT_EQ(ComparePictures(got.pictures, expected, allRows), "");

  // As after a reset: nothing left, and a new stream decodes from its start
  // (without frame threads, so that every picture comes out of its packet).
  BITMAPINFOHEADER header{};
  EXPECT_EQ(corvane_codec_drain(session, &header, nullptr, 0), 0);
  ASSERT_EQ(corvane_codec_set_options(session, 0), 0);
  const std::vector<Packet> next = LoadPackets(kBaseline176);
  const Delivered again = DecodeAll(session, H264CodecDecompress, next, 176, 144);
  EXPECT_EQ(ComparePictures(again.pictures, ExpectedPictures(next, 27)), "");
  H264CodecClose(session);
}

INSTANTIATE_TEST_SUITE_P(
    Reordered, Drain,
    testing::Values(
        DrainCase{"h264_designed", &kReordered264, false, 0, Road::Buffer},
        DrainCase{"h265_frame_threads", &kReordered265, false, kFrameThreads | kFull, Road::Buffer},
        DrainCase{"h264_median_frame_threads", &kReordered264, true, kFrameThreads, Road::Buffer},
        DrainCase{"h264_callback_full", &kReordered264, false, kFrameThreads | kFull,
                  Road::Callback}),
    [](const testing::TestParamInfo<DrainCase>& info) { return std::string(info.param.label); });

// FULL_PICTURE: every row of every picture, the last included, equals FFmpeg's
// on the buffer road; the callback road and the median road are covered by the
// drain cases. On a width of whole 16-pixel groups and on an odd 4:4:4 size.
TEST(Extension, FullPictureWritesEveryRowAsFfmpeg) {
  for (const StreamSpec* spec : {&kBaseline176, &kOdd175x143}) {
    SCOPED_TRACE(spec->file);
    const std::vector<Packet> packets = LoadPackets(*spec);
    CodecHandle session = H264CodecOpen();
    ASSERT_EQ(corvane_codec_set_options(session, kFull), 0);
    const Delivered got =
        DecodeAll(session, H264CodecDecompress, packets, spec->width, spec->height);
    EXPECT_EQ(got.badHeaders, 0);
    EXPECT_EQ(got.lastRowOverwritten, int(got.pictures.size()));
    EXPECT_EQ(ComparePictures(got.pictures, ExpectedPictures(packets, 27), true), "");
    H264CodecClose(session);
  }
}

// CONFORMANT: a stream of four slices a picture decodes as the standard says
// (FFmpeg's default decode), slice edges deblocked.
TEST(Extension, ConformantDecodeOfASlicedStreamIsTheStandardOne) {
  const std::vector<Packet> packets = LoadPackets(kHigh320);
  CodecHandle session = H264CodecOpen();
  ASSERT_EQ(corvane_codec_set_options(session, CORVANE_OPTION_CONFORMANT | kFull), 0);
  const Delivered got = DecodeAll(session, H264CodecDecompress, packets, 320, 240);
  EXPECT_EQ(ComparePictures(got.pictures, ReferenceDecode(packets, 27, false), true), "");
  H264CodecClose(session);
}

}  // namespace
}  // namespace corvane::test
