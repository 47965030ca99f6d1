// Packets that a settling H.264 session can't take its size from, and the
// bounds of what it reads: only sequence parameter set 0, only a unit at the
// start of the packet, only its first 1000 bytes.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>

#include "decoder/decoding.h"
#include "decoder/nal_units.h"

namespace corvane::test {
namespace {

constexpr uint8_t kHeaderFill = 0x5A;
constexpr int kWidth = 176;
constexpr int kHeight = 144;

const StreamSpec kReordered = {"ff_main_bpyr_176x144.h264", 176, 144, 10,
                               "-c:v libx264 -profile:v main -pix_fmt yuv420p -bf 3 "
                               "-x264-params b-pyramid=normal",
                               "testsrc2", 27};
const StreamSpec kWithDelimiters = {"ff_aud_176x144.h264", 176, 144, 4,
                                    "-c:v libx264 -profile:v main -pix_fmt yuv420p -bf 3 "
                                    "-x264-params aud=1:b-pyramid=normal",
                                    "testsrc2", 27};
const StreamSpec kSpsId1 = {"ff_sps_id1_176x144.h264", 176, 144, 4,
                            "-c:v libx264 -profile:v main -pix_fmt yuv420p -bf 3 "
                            "-x264-params sps-id=1:b-pyramid=normal",
                            "testsrc2", 27};

enum UnitType { kSlice = 1, kIdr = 5, kSei = 6, kSps = 7, kPps = 8, kAud = 9 };

class FirstFramesPackets : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        stream_ = LoadPackets(kReordered);
        firstUnits_ = SplitNalUnits(stream_[0]);
    }
    void SetUp() override {
        session_ = H264CodecOpen();
        ASSERT_NE(session_, nullptr);
        std::memset(&header_, kHeaderFill, sizeof(header_));
    }
    void TearDown() override { EXPECT_EQ(H264CodecClose(session_), 1); }

    int32_t Send(const Packet& packet, int32_t size) {
        std::memset(&header_, kHeaderFill, sizeof(header_));
        return H264CodecDecompress(session_, packet.data(), size, &header_, nullptr, 0);
    }
    int32_t Send(const Packet& packet) { return Send(packet, static_cast<int32_t>(packet.size())); }
    bool HeaderIsZero() const {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&header_);
        for (size_t i = 0; i < sizeof(header_); ++i)
            if (bytes[i] != 0) return false;
        return true;
    }
    void ExpectSizeHeader(int width, int height) const {
        EXPECT_EQ(header_.biSize, 40u);
        EXPECT_EQ(header_.biWidth, width);
        EXPECT_EQ(header_.biHeight, height);
        EXPECT_EQ(header_.biPlanes, 1);
        EXPECT_EQ(header_.biBitCount, 24);
        EXPECT_EQ(header_.biCompression, 0u);
        EXPECT_EQ(header_.biSizeImage, static_cast<uint32_t>(width * height * 3));
        EXPECT_EQ(header_.biXPelsPerMeter, 0);
        EXPECT_EQ(header_.biYPelsPerMeter, 0);
        EXPECT_EQ(header_.biClrUsed, 0u);
        EXPECT_EQ(header_.biClrImportant, 0u);
    }
    // Units of the first access unit of the reordered stream, by type, in the given order.
    static Packet Units(std::initializer_list<int> types) {
        std::vector<Packet> picked;
        for (int type : types)
            for (const Packet& u : firstUnits_)
                if (NalType(u) == type) picked.push_back(u);
        return Join(picked);
    }
    // A session still binding takes the stream's proper first packet from the
    // start: a new decoder, and the size from its parameter set.
    void ExpectStillBinding() {
        ASSERT_EQ(Send(stream_[0]), 0);
        ExpectSizeHeader(kWidth, kHeight);
    }

    static std::vector<Packet> stream_;
    static std::vector<Packet> firstUnits_;
    CodecHandle session_ = nullptr;
    BITMAPINFOHEADER header_;
};

std::vector<Packet> FirstFramesPackets::stream_;
std::vector<Packet> FirstFramesPackets::firstUnits_;

TEST_F(FirstFramesPackets, StreamStartsWithParameterSets) {
    ASSERT_EQ(NalType(firstUnits_.front()), kSps);
    ASSERT_GT(stream_[0].size(), 1000u);  // the parameter set is read out of a larger packet
    ASSERT_EQ(Send(stream_[0]), 0);
    ExpectSizeHeader(kWidth, kHeight);
}

struct Opener {
    const char* what;
    std::function<Packet()> packet;
    int32_t size;  // INT_MIN: the packet's own size
};

TEST_F(FirstFramesPackets, PacketNotOpeningWithParameterSetZeroLeavesSessionBinding) {
    const Packet delimited = LoadPackets(kWithDelimiters)[0];
    const Packet otherId = LoadPackets(kSpsId1)[0];
    ASSERT_EQ(NalType(SplitNalUnits(delimited).front()), kAud);
    const Opener openers[] = {
        {"access unit delimiter", [&] { return delimited; }, INT_MIN},
        {"SEI", [] { return Units({kSei, kSps, kPps, kIdr}); }, INT_MIN},
        {"picture parameter set", [] { return Units({kPps, kSps, kSei, kIdr}); }, INT_MIN},
        {"key slice", [] { return Units({kIdr, kSps, kPps}); }, INT_MIN},
        {"later access unit", [] { return stream_[1]; }, INT_MIN},
        {"sequence parameter set 1", [&] { return otherId; }, INT_MIN},
        {"parameter set behind a leading zero byte",
         [] { Packet p = stream_[0]; p.insert(p.begin(), 0); return p; }, INT_MIN},
        {"size -1", [] { return stream_[0]; }, -1},
        {"size INT_MIN", [] { return stream_[0]; }, INT_MIN + 1},
        {"size 0", [] { return stream_[0]; }, 0},
        {"size 3: a start code cut short", [] { return stream_[0]; }, 3},
    };
    for (const Opener& o : openers) {
        SCOPED_TRACE(o.what);
        const Packet packet = o.packet();
        const int32_t size = o.size == INT_MIN ? static_cast<int32_t>(packet.size()) : o.size;
        for (int attempt = 0; attempt < 2; ++attempt) {
            EXPECT_EQ(Send(packet, size), ResultNoParameters);
            EXPECT_TRUE(HeaderIsZero());
        }
        ExpectStillBinding();
        ASSERT_EQ(H264CodecReset(session_), 1);
    }
}

// A slice whose header names a picture parameter set far out of range: the
// decoder finds nothing to decode in the packet.
Packet CorruptSlice() {
    return {0, 0, 0, 1, 0x65, 0xC0, 0x00, 0x00, 0x40, 0xFF, 0xFF, 0xFF};
}

TEST_F(FirstFramesPackets, DecoderErrorOnTheParameterPacketSettlesWithItsSize) {
    const Packet packets[] = {Join({Units({kSps, kPps}), CorruptSlice()}), Units({kSps, kPps})};
    for (const Packet& packet : packets) {
        ASSERT_EQ(H264CodecReset(session_), 1);
        EXPECT_EQ(Send(packet), ResultDecodeFailed);
        ExpectSizeHeader(kWidth, kHeight);
        // Running: the key picture's slices without their parameter sets go to
        // the same decoder, which holds the picture back; no -899, and the
        // header is left alone but for the two words cleared on every call.
        EXPECT_EQ(Send(Units({kSei, kIdr})), 0);
        EXPECT_EQ(header_.biSize, 0x5A5A5A5Au);
        EXPECT_EQ(header_.biXPelsPerMeter, 0);
        EXPECT_EQ(header_.biYPelsPerMeter, 0);
    }
}

// A high-profile sequence parameter set whose scaling lists are coded long,
// `longDeltas` of its 224 deltas with 51 bits and `midDeltas` with 19, so that
// the byte holding frame_mbs_only_flag moves through the packet.
struct SyntheticSps {
    WrappedUnit unit;
    size_t flagOffset;  // offset in the packet of the byte holding frame_mbs_only_flag
};

SyntheticSps MakeLongSps(uint32_t id, int longDeltas, int midDeltas, uint32_t widthMbs,
                         uint32_t heightMapUnits, uint32_t frameMbsOnly) {
    RbspWriter w;
    w.u(8, 100);  // profile_idc: high
    w.u(8, 0);    // constraint flags
    w.u(8, 30);   // level_idc
    w.ue(id);
    w.ue(1);      // chroma_format_idc
    w.ue(0);      // bit_depth_luma_minus8
    w.ue(0);      // bit_depth_chroma_minus8
    w.u(1, 0);    // qpprime_y_zero_transform_bypass_flag
    w.u(1, 1);    // seq_scaling_matrix_present_flag
    int n = 0;
    for (int list = 0; list < 8; ++list) {
        w.u(1, 1);  // seq_scaling_list_present_flag
        for (int j = 0; j < (list < 6 ? 16 : 64); ++j, ++n) {
            // Every delta is 1 modulo 256: the next scale never reaches 0.
            w.se(n < longDeltas ? 0x1000001 : n < longDeltas + midDeltas ? 257 : 1);
        }
    }
    w.ue(0);  // log2_max_frame_num_minus4
    w.ue(0);  // pic_order_cnt_type
    w.ue(0);  // log2_max_pic_order_cnt_lsb_minus4
    w.ue(1);  // max_num_ref_frames
    w.u(1, 0);  // gaps_in_frame_num_value_allowed_flag
    w.ue(widthMbs - 1);
    w.ue(heightMapUnits - 1);
    const size_t flagByte = w.BitCount() / 8;
    w.u(1, frameMbsOnly);
    if (!frameMbsOnly) w.u(1, 0);  // mb_adaptive_frame_field_flag
    w.u(1, 1);  // direct_8x8_inference_flag
    w.u(1, 0);  // frame_cropping_flag
    w.u(1, 0);  // vui_parameters_present_flag
    w.TrailingBits();
    SyntheticSps sps{WrapNalUnit(0x67, w.Bytes()), 0};
    sps.flagOffset = sps.unit.offsetOfByte[flagByte];
    return sps;
}

// The first synthetic parameter set whose flag byte sits at `offset`.
SyntheticSps LongSpsWithFlagAt(size_t offset) {
    for (int longDeltas = 0; longDeltas <= 224; ++longDeltas)
        for (int midDeltas = 0; longDeltas + midDeltas <= 224; ++midDeltas) {
            SyntheticSps sps = MakeLongSps(0, longDeltas, midDeltas, 40, 23, 1);
            if (sps.flagOffset == offset) return sps;
            if (sps.flagOffset > offset) break;
        }
    return {};
}

TEST_F(FirstFramesPackets, ParameterSetIsReadFromTheFirstThousandBytesOnly) {
    for (size_t offset : {998u, 999u, 1000u, 1001u}) {
        SCOPED_TRACE(offset);
        SyntheticSps sps = LongSpsWithFlagAt(offset);
        ASSERT_EQ(sps.flagOffset, offset) << "no layout puts the flag there";
        // More of the access unit behind it: the packet is larger still.
        const Packet packet = Join({sps.unit.bytes, Units({kPps, kSei, kIdr})});
        ASSERT_EQ(H264CodecReset(session_), 1);
        const int32_t result = Send(packet);
        if (offset < 1000) {
            // FFmpeg refuses the scaling lists; the size is known all the same.
            EXPECT_EQ(result, ResultDecodeFailed);
            ExpectSizeHeader(40 * 16, 23 * 16);
        } else {
            EXPECT_EQ(result, ResultNoParameters);
            EXPECT_TRUE(HeaderIsZero());
        }
    }
}

// Sizes straight out of the parameter set: macroblocks, map units (not doubled
// for field coding), and the image size reckoned in 32 bits.
TEST_F(FirstFramesPackets, HeaderHoldsMacroblocksAndMapUnitsAsCoded) {
    struct Size { uint32_t widthMbs, heightMapUnits, frameMbsOnly; int32_t width, height; uint32_t image; };
    const Size sizes[] = {
        {11, 9, 1, 176, 144, 176u * 144u * 3u},
        {120, 34, 0, 1920, 544, 1920u * 544u * 3u},
        {1, 1, 1, 16, 16, 768u},
        // 65536 x 65536: the 32-bit product wraps to 0.
        {4096, 4096, 1, 65536, 65536, 0u},
    };
    for (const Size& s : sizes) {
        SCOPED_TRACE(s.width);
        const SyntheticSps sps = MakeLongSps(0, 0, 0, s.widthMbs, s.heightMapUnits, s.frameMbsOnly);
        ASSERT_EQ(H264CodecReset(session_), 1);
        EXPECT_EQ(Send(sps.unit.bytes), ResultDecodeFailed);  // no slice to decode
        EXPECT_EQ(header_.biWidth, s.width);
        EXPECT_EQ(header_.biHeight, s.height);
        EXPECT_EQ(header_.biSizeImage, s.image);
        EXPECT_EQ(header_.biSize, 40u);
    }
}

}  // namespace
}  // namespace corvane::test
