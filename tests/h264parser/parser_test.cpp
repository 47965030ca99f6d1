// NAL dispatch, the buffer, the two printed messages, slice headers and SEI
// picture timing; the last two against FFmpeg's reading of x264 streams.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "common/streams.h"
#include "h264parser/bit_writer.h"
#include "h264parser/exception.h"
#include "h264parser/h264_oracle.h"
#include "h264parser/parser.h"
#include "h264parser/sps_oracle.h"

namespace corvane {
namespace {

using Bytes = std::vector<uint8_t>;

void Feed(cParser& parser, const Bytes& bytes) {
    parser.Append(bytes.data(), static_cast<int32_t>(bytes.size()));
    parser.Process();
}

std::string Catch(const std::function<void()>& f) {
    try {
        f();
    } catch (H264PARSER::cException* e) {
        const std::string m = e->Message();
        delete e;
        return m;
    }
    return "";
}

Bytes Sps(uint32_t id = 0) {
    test::SpsSpec spec;
    spec.name = "main";
    spec.profile_idc = 77;  // log2_max_frame_num 9, pic_order_cnt_type 0 with 7 lsb bits
    spec.seq_parameter_set_id = id;
    return test::WriteSps(spec);
}

Bytes Pps(uint32_t id, uint32_t spsId, uint32_t bottomFieldPicOrder = 0) {
    return test::BitWriter().ue(id).ue(spsId).u(1, 0).u(1, bottomFieldPicOrder).trailing().Nal(0x68);
}

// An IDR slice header for Sps(0) and Pps(0), behind the four-byte start code.
Bytes IdrSlice(uint32_t frameNum, uint32_t idrPicId, uint32_t pocLsb) {
    return test::BitWriter().ue(0).ue(7).ue(0).u(9, frameNum).ue(idrPicId).u(7, pocLsb).u(1, 1)
        .trailing().Nal(0x65);
}

Bytes Tail(const Bytes& b, size_t from) { return Bytes(b.begin() + from, b.end()); }

TEST(ParserMessages, ExactTexts) {
    struct Case {
        std::function<void(cParser&)> action;
        std::string message;
    };
    const Case cases[] = {
        {[](cParser& p) { p.Context().ActivateSPS(32); },
         "ERROR: H264::cContext::ActivateSPS(): id out of range"},
        {[](cParser& p) { p.Context().ActivateSPS(0); },
         "ERROR: H264::cContext::ActivateSPS(): requested SPS is undefined"},
        {[](cParser& p) { p.Context().ActivatePPS(256); },
         "ERROR: H264::cContext::ActivatePPS(): id out of range"},
        {[](cParser& p) { p.Context().ActivatePPS(0); },
         "ERROR: H264::cContext::ActivatePPS(): requested PPS is undefined"},
        {[](cParser& p) { Bytes u = Sps(32); p.ParseSPS(u.data() + 4, int32_t(u.size() - 4)); },
         "ERROR: H264::cContext::DefineSPS(): id out of range"},
        {[](cParser& p) { Bytes u = Pps(256, 0); p.ParsePPS(u.data() + 4, int32_t(u.size() - 4)); },
         "ERROR: H264::cContext::DefinePPS(): id out of range"},
        {[](cParser& p) { Bytes u = Sps(); p.ParseSPS(u.data() + 4, 6); },
         "ERROR: H264::cBitReader::NextByte(): premature end of data"},
    };
    for (const Case& c : cases) {
        cParser parser(1000, false);
        parser.Reset();
        EXPECT_EQ(Catch([&] { c.action(parser); }), c.message);
        // Nothing was defined or activated on the way.
        for (const SpsRecord& s : parser.Context().spsSlots) EXPECT_FALSE(s.defined);
        for (const PpsRecord& s : parser.Context().ppsSlots) EXPECT_FALSE(s.defined);
        EXPECT_EQ(parser.Context().activeSps, nullptr);
    }
}

TEST(ParserProcess, StartCodesAndPrintedMessages) {
    const std::string kShort = "ERROR: H264::cParser::Process(): NAL unit data buffer content is too short";
    const std::string kInvalid = "ERROR: H264::cParser::Process(): NAL unit data buffer content is invalid";
    const Bytes sps4 = Sps(), sps3 = Tail(sps4, 1);
    Bytes zeroThenSps = {0};
    zeroThenSps.insert(zeroThenSps.end(), sps4.begin(), sps4.end());
    struct Case {
        const char* name;
        Bytes buffer;
        std::string printedOnceSynced;
        bool defines;
    };
    const Case cases[] = {
        {"empty", {}, kShort, false},
        {"three bytes", {0, 0, 1}, kShort, false},
        {"SPS behind 00 00 01", sps3, "", true},
        {"SPS behind 00 00 00 01", sps4, "", true},
        {"start code not at offset 0", zeroThenSps, kInvalid, false},
        {"no start code", Tail(sps4, 4), kInvalid, false},
        {"00 00 02", {0, 0, 2, 0x67, 0x4D}, kInvalid, false},
        {"a start code alone", {0, 0, 0, 1}, "", false},
        {"access unit delimiter", {0, 0, 0, 1, 0x09, 0xF0}, "", false},
    };
    for (const Case& c : cases) {
        for (const bool synced : {false, true}) {
            cParser parser(1000, true);
            parser.Reset();
            // A broken SPS unit still marks the stream as synchronised.
            if (synced) Feed(parser, {0, 0, 1, 0x67});
            EXPECT_EQ(parser.AwaitingSps(), !synced);
            testing::internal::CaptureStdout();
            Feed(parser, c.buffer);
            EXPECT_EQ(testing::internal::GetCapturedStdout(), synced ? c.printedOnceSynced : "")
                << c.name << (synced ? ", synchronised" : ", fresh");
            EXPECT_EQ(parser.Context().spsSlots[0].defined, c.defines) << c.name;
            EXPECT_EQ(parser.Fill(), 0);
            EXPECT_EQ(parser.ReadPosition(), 0);
        }
    }
}

TEST(ParserBuffer, AppendKeepsWithinCapacity) {
    const Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    struct Case {
        std::vector<int32_t> sizes;  // appended from the start of `bytes` each time
        int32_t fill;
    };
    const Case cases[] = {
        {{10}, 8},       // cut to capacity
        {{5, 5}, 8},     // the second append only fills the room
        {{-3}, 0},       // nothing to take back
        {{6, -2}, 4},
        {{6, -100}, 0},
        {{3, -1, 2}, 4},
        {{0}, 0},
    };
    for (const Case& c : cases) {
        cParser parser(8, true);
        parser.Reset();
        for (int32_t size : c.sizes) parser.Append(bytes.data(), size);
        EXPECT_EQ(parser.Fill(), c.fill);
    }
    // The kept bytes are the first ones: an SPS cut at the capacity is still read
    // up to its frame_mbs_only_flag, which lies in its first bytes.
    cParser parser(16, true);
    parser.Reset();
    Bytes padded = Sps();
    padded.resize(200, 0xAB);
    Feed(parser, padded);
    EXPECT_TRUE(parser.Context().spsSlots[0].defined);
}

TEST(ParserSlice, DispatchAndNewPictureDetection) {
    cParser parser(1000, false);
    parser.Reset();
    Feed(parser, IdrSlice(0, 0, 0));  // no PPS yet: quietly unread
    EXPECT_FALSE(parser.Context().currentSlice.defined);
    Feed(parser, Sps());
    Feed(parser, Pps(0, 0));
    Feed(parser, Tail(IdrSlice(3, 1, 5), 1));  // slices behind 00 00 01 are passed over
    EXPECT_FALSE(parser.Context().currentSlice.defined);

    struct Step {
        Bytes unit;
        bool startsPicture;
    };
    const Step steps[] = {
        {IdrSlice(3, 1, 5), true},   // the first slice stored
        {IdrSlice(3, 1, 5), false},  // a second slice of the same picture
        {IdrSlice(4, 1, 5), true},   // frame_num
        {IdrSlice(4, 2, 5), true},   // idr_pic_id
        {IdrSlice(4, 2, 6), true},   // pic_order_cnt_lsb
        {IdrSlice(4, 2, 6), false},
    };
    for (const Step& s : steps) {
        Feed(parser, s.unit);
        const SliceRecord& slice = parser.Context().currentSlice;
        ASSERT_TRUE(slice.defined);
        EXPECT_EQ(slice.startsPicture, s.startsPicture);
        EXPECT_EQ(slice.nal_ref_idc, 3u);
        EXPECT_EQ(slice.nal_unit_type, 5u);
        EXPECT_EQ(slice.slice_type, 7u);
    }
    // A PPS naming an undefined SPS is kept; activating it fails on the SPS.
    Feed(parser, Pps(9, 4));
    EXPECT_TRUE(parser.Context().ppsSlots[9].defined);
    EXPECT_EQ(Catch([&] { parser.Context().ActivatePPS(9); }),
              "ERROR: H264::cContext::ActivateSPS(): requested SPS is undefined");
    EXPECT_EQ(parser.Context().activePps, &parser.Context().ppsSlots[9]);
}

// An SEI NAL unit of raw messages: type, size, payload bytes.
Bytes Sei(const std::vector<Bytes>& messages) {
    Bytes u = {0, 0, 0, 1, 0x06};
    for (const Bytes& m : messages) u.insert(u.end(), m.begin(), m.end());
    u.push_back(0x80);  // rbsp trailing bits
    return u;
}

TEST(ParserSei, MessagesCountByTheirSize) {
    test::SpsSpec spec;
    spec.name = "pic_struct";
    spec.vui = true;
    spec.pic_struct_present_flag = 1;
    spec.nalHrd = {1, 6, 10};
    const Bytes timing = {0x01, 0x03, 0b10101000, 0b00001011, 0b01100000};  // cpb 6, dpb 10, pic_struct 6
    const Bytes bufferingPeriod0 = {0x00, 0x01, 0x80};  // seq_parameter_set_id 0
    const Bytes bufferingPeriod5 = {0x00, 0x01, 0x30};  // seq_parameter_set_id 5, undefined

    cParser parser(1000, false);
    parser.Reset();
    Feed(parser, test::WriteSps(spec));
    SpsRecord& sps = parser.Context().spsSlots[0];
    // No SPS active yet: the timing message stores nothing, and the buffering
    // period behind it is still found by the timing message's size.
    Feed(parser, Sei({timing, bufferingPeriod0}));
    EXPECT_EQ(parser.Context().activeSps, &sps);
    EXPECT_FALSE(sps.PictureTiming.valid);
    Feed(parser, Sei({timing}));
    EXPECT_TRUE(sps.PictureTiming.valid);
    EXPECT_EQ(sps.PictureTiming.pic_struct, 6);
    // An undefined SPS in a buffering period ends the unit.
    sps.PictureTiming = {};
    Feed(parser, Sei({bufferingPeriod5, timing}));
    EXPECT_FALSE(sps.PictureTiming.valid);
    // A header-only parser reads no SEI at all.
    cParser headerOnly(1000, true);
    headerOnly.Reset();
    Feed(headerOnly, test::WriteSps(spec));
    Feed(headerOnly, Sei({bufferingPeriod0, timing}));
    EXPECT_EQ(headerOnly.Context().activeSps, nullptr);
}

struct SliceStream {
    const char* name;
    int width, height;
    const char* args;
    int minPictureTimings;  // the stream's picture timing SEIs the check must reach
};
void PrintTo(const SliceStream& c, std::ostream* os) { *os << c.name; }

const SliceStream kSliceStreams[] = {
    {"slices_pic_struct", 176, 144,
     "-c:v libx264 -x264-params slices=2:pic-struct=1:nal-hrd=vbr -b:v 200k -maxrate 300k -bufsize 600k", 4},
    {"mbaff_bff_slices", 176, 144, "-c:v libx264 -x264-params interlaced=1:bff=1:slices=3", 3},
    {"baseline_poc2", 176, 144, "-c:v libx264 -profile:v baseline -x264-params slices=2", 0},
};

class StreamSlices : public testing::TestWithParam<SliceStream> {};

// Every unit of the stream fed to the parser one at a time, each behind the
// four-byte start code; slice headers and picture timing as FFmpeg reads them.
TEST_P(StreamSlices, MatchFFmpeg) {
    const SliceStream& c = GetParam();
    const std::string path =
        test::MakeStream(std::string("h264parser_") + c.name + ".h264", c.width, c.height, 5, c.args);
    const std::vector<test::Packet> packets = test::SplitAccessUnits(path, 27);
    const std::vector<test::TracedUnit> traced = test::TraceUnits(packets);
    cParser parser(1000, false);
    parser.Reset();
    size_t index = 0;
    int slices = 0, timings = 0;
    for (const test::Packet& packet : packets) {
        bool firstSlice = true;
        for (const test::Packet& unit : test::SplitNalUnits(packet)) {
            ASSERT_LT(index, traced.size());
            const test::TracedUnit& t = traced[index++];
            ASSERT_EQ(t.type(), unit[0] & 0x1F);
            if (parser.Context().activeSps) parser.Context().activeSps->PictureTiming = {};
            Feed(parser, test::WithStartCode(unit));
            const cContext& ctx = parser.Context();
            if (t.type() == 1 || t.type() == 5) {
                const SliceRecord& s = ctx.currentSlice;
                auto Or = [&](const char* n) { return t.has(n) ? t[n] : 0; };
                ASSERT_TRUE(s.defined);
                EXPECT_EQ(s.startsPicture, firstSlice) << "unit " << index;
                EXPECT_EQ(s.nal_ref_idc, t["nal_ref_idc"]);
                EXPECT_EQ(s.slice_type, t["slice_type"]);
                EXPECT_EQ(s.pic_parameter_set_id, t["pic_parameter_set_id"]);
                EXPECT_EQ(s.frame_num, t["frame_num"]);
                EXPECT_EQ(s.field_pic_flag, Or("field_pic_flag"));
                EXPECT_EQ(s.idr_pic_id, Or("idr_pic_id"));
                EXPECT_EQ(s.pic_order_cnt_lsb, Or("pic_order_cnt_lsb"));
                EXPECT_EQ(s.delta_pic_order_cnt_bottom, Or("delta_pic_order_cnt_bottom"));
                firstSlice = false;
                ++slices;
            }
            const bool hasTiming = t.type() == 6 && t.has("pic_struct");
            if (hasTiming && ctx.activeSps) {
                EXPECT_TRUE(ctx.activeSps->PictureTiming.valid);
                EXPECT_EQ(ctx.activeSps->PictureTiming.pic_struct, t["pic_struct"]);
                ++timings;
            }
        }
    }
    EXPECT_EQ(index, traced.size());
    EXPECT_GT(slices, int(packets.size()));  // more than one slice a picture
    EXPECT_GE(timings, c.minPictureTimings);
}

INSTANTIATE_TEST_SUITE_P(Encoded, StreamSlices, testing::ValuesIn(kSliceStreams),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace corvane
