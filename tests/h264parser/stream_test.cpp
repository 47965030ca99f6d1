// Parameter sets, slice headers and picture timing as the parser reads them,
// against FFmpeg's reading of the same units: x264 streams, and hand-written
// sequence parameter sets for what x264 never writes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "h264parser/h264_oracle.h"
#include "h264parser/parser.h"

namespace corvane {
namespace {

using test::Catch;
using test::Feed;
using test::Or;

struct StreamCase {
  const char* name;
  int width, height;
  const char* args;  // every stream has more than one slice a picture
  // What the stream is there for, checked on FFmpeg's trace of its SPS.
  int pic_order_cnt_type, frame_mbs_only_flag, nal_hrd_parameters_present_flag,
      pic_struct_present_flag;
};
void PrintTo(const StreamCase& c, std::ostream* os) { *os << c.name; }

const StreamCase kStreams[] = {
    {"baseline", 176, 144, "-c:v libx264 -profile:v baseline -x264-params slices=2", 2, 1, 0, 0},
    {"main", 176, 144, "-c:v libx264 -profile:v main -x264-params slices=2", 0, 1, 0, 0},
    {"high_no_b", 176, 144, "-c:v libx264 -profile:v high -x264-params bframes=0:slices=2", 2, 1, 0,
     0},
    {"high444", 176, 144, "-c:v libx264 -pix_fmt yuv444p -profile:v high444 -x264-params slices=2",
     0, 1, 0, 0},
    {"cqm_jvt", 176, 144, "-c:v libx264 -profile:v high -x264-params cqm=jvt:slices=2", 0, 1, 0, 0},
    {"mbaff_bff", 176, 144, "-c:v libx264 -x264-params interlaced=1:bff=1:slices=3", 0, 0, 0, 1},
    {"ildct", 128, 96, "-c:v libx264 -flags +ildct -x264-params slices=2", 0, 0, 0, 1},
    {"nal_hrd_vbr", 176, 144,
     "-c:v libx264 -x264-params nal-hrd=vbr:slices=2 -b:v 200k -maxrate 300k -bufsize 600k", 0, 1,
     1, 0},
    {"nal_hrd_cbr_pic_struct", 176, 144,
     "-c:v libx264 -x264-params nal-hrd=cbr:pic-struct=1:slices=2 -b:v 200k -maxrate 200k -bufsize "
     "400k",
     0, 1, 1, 1},
    {"odd_size_cropped", 100, 58, "-c:v libx264 -profile:v main -x264-params slices=2", 0, 1, 0, 0},
    {"odd_size_interlaced", 90, 72, "-c:v libx264 -x264-params interlaced=1:slices=2", 0, 0, 0, 1},
};

class EncodedStream : public testing::TestWithParam<StreamCase> {};

TEST_P(EncodedStream, MatchesFFmpeg) {
  const StreamCase& c = GetParam();
  const std::string path = test::MakeStream(std::string("h264parser_sliced_") + c.name + ".h264",
                                            c.width, c.height, 5, c.args);
  const std::vector<test::Packet> packets = test::SplitAccessUnits(path, 27);
  ASSERT_FALSE(packets.empty());
  const std::vector<test::TracedUnit> traced = test::TraceUnits(packets);

  // The decoder's way: the whole first packet, header only, SPS 0 asked for.
  // The coded size is the clip's, rounded up to macroblocks (pairs of them
  // when interlaced).
  cParser first(1000, true);
  first.Reset();
  Feed(first, packets[0]);
  const SpsRecord* sps = nullptr;
  EXPECT_EQ(Catch([&] { sps = &first.Context().ActivateSPS(0); }), "");
  ASSERT_NE(sps, nullptr);
  const uint32_t mbRows = sps->frame_mbs_only_flag ? 16 : 32;
  EXPECT_EQ(sps->frame_mbs_only_flag, uint32_t(c.frame_mbs_only_flag));
  EXPECT_EQ(16 * (sps->pic_width_in_mbs_minus1 + 1), (c.width + 15u) / 16 * 16);
  EXPECT_EQ(mbRows * (sps->pic_height_in_map_units_minus1 + 1),
            (c.height + mbRows - 1) / mbRows * mbRows);

  // Then every unit in full, one at a time behind the four-byte start code.
  cParser parser(1000, false);
  parser.Reset();
  size_t index = 0;
  int spsUnits = 0, slices = 0, timings = 0;
  for (const test::Packet& packet : packets) {
    bool firstSlice = true;
    for (const test::Packet& unit : test::SplitNalUnits(packet)) {
      ASSERT_LT(index, traced.size());
      const test::TracedUnit& t = traced[index++];
      const int64_t type = t.at("nal_unit_type");
      ASSERT_EQ(type, unit[4] & 0x1F);
      if (parser.Context().activeSps) parser.Context().activeSps->PictureTiming = {};
      Feed(parser, unit);
      const cContext& ctx = parser.Context();
      if (type == 7) {
        EXPECT_EQ(t.at("pic_order_cnt_type"), c.pic_order_cnt_type);
        EXPECT_EQ(t.at("frame_mbs_only_flag"), c.frame_mbs_only_flag);
        EXPECT_EQ(Or(t, "nal_hrd_parameters_present_flag", 0), c.nal_hrd_parameters_present_flag);
        EXPECT_EQ(t.at("pic_struct_present_flag"), c.pic_struct_present_flag);
        const SpsRecord& slot = ctx.spsSlots[t.at("seq_parameter_set_id")];
        ASSERT_TRUE(slot.defined);
        test::ExpectSpsMatchesTrace(slot, t);
        ++spsUnits;
      } else if (type == 1 || type == 5) {
        const SliceRecord& s = ctx.currentSlice;
        ASSERT_TRUE(s.defined);
        EXPECT_EQ(s.startsPicture, firstSlice) << "unit " << index;
        EXPECT_EQ(s.nal_ref_idc, t.at("nal_ref_idc"));
        EXPECT_EQ(s.slice_type, t.at("slice_type"));
        EXPECT_EQ(s.pic_parameter_set_id, t.at("pic_parameter_set_id"));
        EXPECT_EQ(s.frame_num, t.at("frame_num"));
        EXPECT_EQ(s.field_pic_flag, Or(t, "field_pic_flag", 0));
        EXPECT_EQ(s.idr_pic_id, Or(t, "idr_pic_id", 0));
        EXPECT_EQ(s.pic_order_cnt_lsb, Or(t, "pic_order_cnt_lsb", 0));
        EXPECT_EQ(s.delta_pic_order_cnt_bottom, Or(t, "delta_pic_order_cnt_bottom", 0));
        firstSlice = false;
        ++slices;
      } else if (type == 6 && ctx.activeSps &&
                 (t.count("cpb_removal_delay") || t.count("pic_struct"))) {
        EXPECT_TRUE(ctx.activeSps->PictureTiming.valid) << "unit " << index;
        EXPECT_EQ(ctx.activeSps->PictureTiming.pic_struct, Or(t, "pic_struct", 0));
        ++timings;
      }
    }
  }
  EXPECT_EQ(index, traced.size());
  EXPECT_GE(spsUnits, 1);
  EXPECT_GT(slices, int(packets.size()));
  const bool hasTiming = c.nal_hrd_parameters_present_flag || c.pic_struct_present_flag;
  EXPECT_GE(timings, hasTiming ? 3 : 0);
}

INSTANTIATE_TEST_SUITE_P(Encoded, EncodedStream, testing::ValuesIn(kStreams));

// What no encoder at hand writes: pic_order_cnt_type 1 (x264 writes 0 or 2),
// scaling matrices in the SPS (x264 puts them in the PPS), VCL HRD, 4:4:4.
std::vector<int> Repeat(std::vector<int> pattern, size_t n) {
  std::vector<int> v;
  while (v.size() < n) v.push_back(pattern[v.size() % pattern.size()]);
  return v;
}

template <typename Edit>
test::SpsSpec Spec(const char* name, Edit edit, test::SpsSpec s = {}) {
  s.name = name;
  edit(s);
  return s;
}

const std::vector<std::vector<int>> kLists = {
    {},         {-8}, Repeat({1}, 16), {3, -1, -10}, {}, Repeat({-1, 2}, 16), Repeat({5, -3}, 64),
    {120, -128}};
const test::SpsSpec kSeparatePlanes = Spec("separate_planes", [](auto& s) {
  s.profile_idc = 244, s.chroma_format_idc = 3, s.seq_parameter_set_id = 31, s.vui = true;
});
const test::SpsSpec kSyntheticCases[] = {
    Spec("main_no_high_block", [](auto& s) { s.profile_idc = 77; }),
    Spec("poc1_cycle",
         [](auto& s) {
           s.pic_order_cnt_type = 1, s.offsetForRefFrame = {4, -7, 300};
         }),
    Spec("poc1_always_zero_vui",
         [](auto& s) {
           s.pic_order_cnt_type = s.delta_pic_order_always_zero_flag = s.pic_struct_present_flag =
               1,
           s.vui = true;
         }),
    Spec("scaling_lists", [](auto& s) { s.scalingDeltas = kLists; }),
    Spec("nal_and_vcl_hrd",
         [](auto& s) {
           s.vui = true, s.nalHrd = {3, 18, 11}, s.vclHrd = {1, 9, 27},
           s.pic_struct_present_flag = 1;
         }),
    Spec("vcl_hrd_fields_cropped",
         [](auto& s) {
           s.vui = s.cropping = true, s.vclHrd = {2, 32, 1}, s.frame_mbs_only_flag = 0;
         }),
    kSeparatePlanes,
    // Eight lists even for 4:4:4: what ITU-T H.264 reads as twelve, this store
    // reads as eight, so FFmpeg traces this one written without them.
    Spec(
        "separate_planes_eight_lists",
        [](auto& s) {
          s.scalingDeltas = kLists, s.pic_struct_present_flag = 1, s.nalHrd = {1, 7, 5},
          s.conformant = false;
        },
        kSeparatePlanes),
};

class SyntheticSps : public testing::TestWithParam<test::SpsSpec> {};

TEST_P(SyntheticSps, MatchesFFmpeg) {
  const test::SpsSpec& s = GetParam();
  cParser parser(1000, false);
  parser.Reset();
  Feed(parser, test::WriteSps(s));
  ASSERT_TRUE(parser.Context().spsSlots[s.seq_parameter_set_id].defined);
  test::SpsSpec traceable = s;
  if (!s.conformant) traceable.scalingDeltas.clear();  // the lists must leave no trace
  const auto traced = test::TraceUnits({test::WriteSps(traceable)});
  ASSERT_EQ(traced.size(), 1u);
  test::ExpectSpsMatchesTrace(parser.Context().spsSlots[s.seq_parameter_set_id], traced[0]);
}

INSTANTIATE_TEST_SUITE_P(Written, SyntheticSps, testing::ValuesIn(kSyntheticCases));

}  // namespace
}  // namespace corvane
