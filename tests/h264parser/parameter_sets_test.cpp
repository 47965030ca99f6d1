// Sequence and picture parameter sets read by the parser, against FFmpeg: its
// decoder's picture geometry and its own reading of the same units.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "common/streams.h"
#include "h264parser/exception.h"
#include "h264parser/h264_oracle.h"
#include "h264parser/parser.h"
#include "h264parser/sps_oracle.h"

namespace corvane {
namespace {

using test::Packet;

// Feeds one buffer to the parser and processes it.
void Feed(cParser& parser, const std::vector<uint8_t>& bytes) {
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

struct StreamCase {
    const char* name;
    int width, height;
    const char* args;
    // What the case is there for, checked on FFmpeg's trace of its SPS.
    int pic_order_cnt_type;
    int frame_mbs_only_flag;
    int nal_hrd_parameters_present_flag;
    int pic_struct_present_flag;
};
void PrintTo(const StreamCase& c, std::ostream* os) { *os << c.name; }

const StreamCase kStreams[] = {
    {"baseline", 176, 144, "-c:v libx264 -profile:v baseline", 2, 1, 0, 0},
    {"main", 176, 144, "-c:v libx264 -profile:v main", 0, 1, 0, 0},
    {"high_no_b", 176, 144, "-c:v libx264 -profile:v high -x264-params bframes=0", 2, 1, 0, 0},
    {"high444", 176, 144, "-c:v libx264 -pix_fmt yuv444p -profile:v high444", 0, 1, 0, 0},
    {"cqm_jvt", 176, 144, "-c:v libx264 -profile:v high -x264-params cqm=jvt", 0, 1, 0, 0},
    {"mbaff", 176, 144, "-c:v libx264 -x264-params interlaced=1", 0, 0, 0, 1},
    {"ildct", 128, 96, "-c:v libx264 -flags +ildct", 0, 0, 0, 1},
    {"nal_hrd_vbr", 176, 144,
     "-c:v libx264 -x264-params nal-hrd=vbr -b:v 200k -maxrate 300k -bufsize 600k", 0, 1, 1, 0},
    {"nal_hrd_cbr_pic_struct", 176, 144,
     "-c:v libx264 -x264-params nal-hrd=cbr:pic-struct=1 -b:v 200k -maxrate 200k -bufsize 400k", 0,
     1, 1, 1},
    {"odd_size_cropped", 100, 58, "-c:v libx264 -profile:v main", 0, 1, 0, 0},
    {"odd_size_interlaced", 90, 72, "-c:v libx264 -x264-params interlaced=1", 0, 0, 0, 1},
};

class StreamSps : public testing::TestWithParam<StreamCase> {};

TEST_P(StreamSps, MatchesFFmpeg) {
    const StreamCase& c = GetParam();
    const std::string path = test::MakeStream(std::string("h264parser_") + c.name + ".h264",
                                              c.width, c.height, 3, c.args);
    const test::DecodedGeometry decoded = test::DecodeFirstPicture(path);
    const std::vector<Packet> packets = test::SplitAccessUnits(path, 27);
    ASSERT_FALSE(packets.empty());
    const std::vector<test::TracedUnit> traced = test::TraceUnits({packets[0]});
    const auto spsTrace = std::find_if(traced.begin(), traced.end(),
                                       [](const test::TracedUnit& u) { return u.type() == 7; });
    ASSERT_NE(spsTrace, traced.end());
    EXPECT_EQ((*spsTrace)["pic_order_cnt_type"], c.pic_order_cnt_type);
    EXPECT_EQ((*spsTrace)["frame_mbs_only_flag"], c.frame_mbs_only_flag);
    EXPECT_EQ(spsTrace->has("nal_hrd_parameters_present_flag") &&
                  (*spsTrace)["nal_hrd_parameters_present_flag"],
              c.nal_hrd_parameters_present_flag);
    EXPECT_EQ((*spsTrace)["pic_struct_present_flag"], c.pic_struct_present_flag);

    // The decoder's way: the whole first packet, header only, SPS 0 asked for.
    cParser first(1000, true);
    first.Reset();
    Feed(first, packets[0]);
    const SpsRecord* sps = nullptr;
    EXPECT_EQ(Catch([&] { sps = &first.Context().ActivateSPS(0); }), "");
    ASSERT_NE(sps, nullptr);
    const int fieldFactor = sps->frame_mbs_only_flag ? 1 : 2;
    EXPECT_EQ(16 * (sps->pic_width_in_mbs_minus1 + 1), uint32_t(decoded.codedWidth));
    EXPECT_EQ(16 * fieldFactor * (sps->pic_height_in_map_units_minus1 + 1), uint32_t(decoded.codedHeight));
    EXPECT_EQ(sps->frame_mbs_only_flag == 0, decoded.interlaced);
    EXPECT_EQ(decoded.width != decoded.codedWidth || decoded.height != decoded.codedHeight,
              c.width % 16 != 0 || c.height % (16 * fieldFactor) != 0);

    // The whole SPS unit, header and VUI.
    cParser full(1000, false);
    full.Reset();
    Feed(full, test::WithStartCode(test::SplitNalUnits(packets[0]).at(0)));
    ASSERT_TRUE(full.Context().spsSlots[0].defined);
    test::ExpectSpsMatchesTrace(full.Context().spsSlots[0], *spsTrace);
}

std::string CaseName(const char* name) {
    std::string n = name;
    std::replace_if(n.begin(), n.end(), [](char ch) { return !isalnum(static_cast<unsigned char>(ch)); }, '_');
    return n;
}

INSTANTIATE_TEST_SUITE_P(Encoded, StreamSps, testing::ValuesIn(kStreams),
                         [](const auto& info) { return CaseName(info.param.name); });

// What no encoder at hand writes: pic_order_cnt_type 1 (x264 writes 0 or 2),
// scaling matrices in the SPS (x264 puts them in the PPS), VCL HRD, 4:4:4.
std::vector<int> Repeat(std::vector<int> pattern, size_t n) {
    std::vector<int> v;
    while (v.size() < n) v.push_back(pattern[v.size() % pattern.size()]);
    return v;
}

const std::vector<std::vector<int>> kScalingLists = {
    {}, {-8}, Repeat({1}, 16), {3, -1, -10}, {}, Repeat({-1, 2}, 16),
    Repeat({5, -3}, 64), {120, -128}};

std::vector<test::SpsSpec> SyntheticCases() {
    std::vector<test::SpsSpec> v;
    v.reserve(16);  // the references below must stay valid
    auto add = [&](const char* name) -> test::SpsSpec& { v.push_back({}); v.back().name = name; return v.back(); };
    add("main_no_high_block").profile_idc = 77;
    auto& poc1 = add("poc1_cycle");
    poc1.pic_order_cnt_type = 1;
    poc1.offsetForRefFrame = {4, -7, 300};
    auto& poc1z = add("poc1_always_zero_vui");
    poc1z.pic_order_cnt_type = 1;
    poc1z.delta_pic_order_always_zero_flag = 1;
    poc1z.vui = true;
    poc1z.pic_struct_present_flag = 1;
    add("scaling_lists").scalingDeltas = kScalingLists;
    auto& both = add("nal_and_vcl_hrd");
    both.vui = true;
    both.nalHrd = {3, 18, 11};
    both.vclHrd = {1, 9, 27};
    both.pic_struct_present_flag = 1;
    auto& vcl = add("vcl_hrd_fields_cropped");
    vcl.vui = true;
    vcl.vclHrd = {2, 32, 1};
    vcl.frame_mbs_only_flag = 0;
    vcl.cropping = true;
    auto& chroma444 = add("separate_planes");
    chroma444.profile_idc = 244;
    chroma444.chroma_format_idc = 3;
    chroma444.seq_parameter_set_id = 31;
    chroma444.vui = true;
    // Eight lists even for 4:4:4: what ITU-T H.264 reads as twelve, this store
    // reads as eight, so FFmpeg can't serve as the oracle for this one.
    auto& chroma444m = add("separate_planes_eight_lists");
    chroma444m = chroma444;
    chroma444m.name = "separate_planes_eight_lists";
    chroma444m.scalingDeltas = kScalingLists;
    chroma444m.pic_struct_present_flag = 1;
    chroma444m.nalHrd = {1, 7, 5};
    chroma444m.conformant = false;
    return v;
}

class SyntheticSps : public testing::TestWithParam<test::SpsSpec> {};

TEST_P(SyntheticSps, ReadsWhatWasWritten) {
    const test::SpsSpec& s = GetParam();
    cParser parser(1000, false);
    parser.Reset();
    Feed(parser, test::WriteSps(s));
    const SpsRecord& sps = parser.Context().spsSlots[s.seq_parameter_set_id];
    ASSERT_TRUE(sps.defined);
    EXPECT_EQ(sps.log2_max_frame_num, 9u);
    EXPECT_EQ(sps.pic_order_cnt_type, s.pic_order_cnt_type);
    EXPECT_EQ(sps.log2_max_pic_order_cnt_lsb, s.pic_order_cnt_type == 0 ? 7u : 4u);
    EXPECT_EQ(sps.delta_pic_order_always_zero_flag, s.delta_pic_order_always_zero_flag);
    EXPECT_EQ(sps.pic_width_in_mbs_minus1, s.pic_width_in_mbs_minus1);
    EXPECT_EQ(sps.pic_height_in_map_units_minus1, 14u);
    EXPECT_EQ(sps.frame_mbs_only_flag, s.frame_mbs_only_flag);
    EXPECT_EQ(sps.time_scale, s.vui ? 60000u : 0u);
    EXPECT_EQ(sps.num_units_in_tick, s.vui ? 1001u : 0u);
    const test::HrdSpec& last = s.vclHrd.cpbCount ? s.vclHrd : s.nalHrd;
    EXPECT_EQ(sps.cpb_removal_delay_length, last.cpbCount ? last.cpbRemovalDelayLength : 24);
    EXPECT_EQ(sps.dpb_output_delay_length, last.cpbCount ? last.dpbOutputDelayLength : 24);
    EXPECT_EQ(sps.pic_struct_present_flag, s.pic_struct_present_flag);
    if (s.conformant) {
        const auto traced = test::TraceUnits({test::WriteSps(s)});
        ASSERT_EQ(traced.size(), 1u);
        test::ExpectSpsMatchesTrace(sps, traced[0]);
    }
}

INSTANTIATE_TEST_SUITE_P(Written, SyntheticSps, testing::ValuesIn(SyntheticCases()),
                         [](const auto& info) { return CaseName(info.param.name); });

// A header-only parser stops at frame_mbs_only_flag; a full one must find the
// rest of the unit or define nothing.
TEST(ParameterSetStore, HeaderOnlyStopsBehindFrameMbsOnlyFlag) {
    test::SpsSpec spec;
    spec.name = "vui";
    spec.vui = true;
    size_t flagBit = 0;
    const std::vector<uint8_t> nal = test::WriteSps(spec, &flagBit);
    const size_t flagCut = 5 + flagBit / 8 + 1;  // start code, header, payload to the flag's byte
    ASSERT_LT(flagCut, nal.size());
    struct Case {
        size_t cut;
        bool headerOnly;
        bool defines;
    };
    const Case cases[] = {
        {flagCut, true, true}, {flagCut - 1, true, false}, {flagCut, false, false},
        {flagCut + 1, false, false}, {nal.size(), false, true}};
    for (const Case& c : cases) {
        cParser parser(1000, c.headerOnly);
        parser.Reset();
        Feed(parser, std::vector<uint8_t>(nal.begin(), nal.begin() + c.cut));
        EXPECT_EQ(parser.Context().spsSlots[0].defined, c.defines) << c.cut << " bytes";
    }
}

TEST(ParameterSetStore, ActiveSetFollowsRedefinitionAndCopies) {
    cParser parser(1000, false);
    parser.Reset();
    test::SpsSpec spec;
    spec.name = "narrow";
    spec.pic_width_in_mbs_minus1 = 7;
    Feed(parser, test::WriteSps(spec));
    const SpsRecord& active = parser.Context().ActivateSPS(0);
    spec.pic_width_in_mbs_minus1 = 44;
    Feed(parser, test::WriteSps(spec));
    EXPECT_EQ(&active, parser.Context().activeSps);
    EXPECT_EQ(parser.Context().activeSps->pic_width_in_mbs_minus1, 44u);
    // A copy's active set is its own slot; a reset clears the store.
    const cContext copy = parser.Context();
    EXPECT_EQ(copy.activeSps, &copy.spsSlots[0]);
    parser.Reset();
    EXPECT_EQ(parser.Context().activeSps, nullptr);
    EXPECT_FALSE(parser.Context().spsSlots[0].defined);
    EXPECT_TRUE(copy.spsSlots[0].defined);
}

}  // namespace
}  // namespace corvane
