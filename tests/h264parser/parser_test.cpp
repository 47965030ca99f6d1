// The parser: the bit reader's values and where it gives up, where a unit must
// start and the two messages printed, ids out of range; and what it reads of
// x264 streams and of sets written here, against FFmpeg's own reading (the
// elements its trace_headers filter logs).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <functional>
#include <map>
#include <sstream>

#include "h264parser/bit_reader.h"
#include "h264parser/exception.h"
#include "h264parser/parser.h"
#include "support/h264_writer.h"

extern "C" {
#include <libavcodec/bsf.h>
}

namespace corvane::test {
namespace {

void Feed(cParser& parser, const Packet& bytes) {
  parser.Append(bytes.data(), int32_t(bytes.size()));
  parser.Process();
}

bool Raises(const std::function<void()>& f) {  // the parser's exception, whose text nobody sees
  try {
    f();
  } catch (H264PARSER::cException* e) {
    return delete e, true;
  }
  return false;
}

TEST(BitReader, GivesValuesThenRaises) {
  const struct {
    Packet payload;               // behind the unit's header byte
    const char* steps;            // B a byte, U ue, S se, digits: that many bits
    std::vector<int64_t> values;  // before any raise
    bool raises;
  } cases[] = {
      {{}, "0 B", {0}, true},                                     // ReadBits(0) reads nothing
      {{0, 0, 3, 1}, "B B B", {0, 0, 1}, false},                  // an escape
      {{0, 0, 3}, "B B B", {0, 0}, true},                         // escape as the last byte
      {{0, 0, 1}, "B B B", {0, 0}, true},                         // start codes end the unit
      {{0, 3, 5}, "B B B", {0, 3, 5}, false},                     // 03 after one zero is data
      {{0xA6, 0x42, 0x80}, "U U U U U", {0, 1, 2, 3, 4}, false},  // 1 010 011 00100 00101
      {{0xA6, 0x42, 0x80}, "S S S S S", {0, 1, -1, 2, -2}, false},
      {{0, 0, 3, 0, 1, 0xFF, 0xFF, 0xFF, 0xFE}, "U", {0xFFFFFFFE}, false},  // the largest ue
      {{0x80, 0, 0, 0, 0x7F}, "1 U", {1}, true},                            // 32 leading zeros
      {{0x12, 0x34, 0x56, 0x78, 0x9A}, "4 32 4", {0x1, 0x23456789, 0xA}, false},
      {{1, 2, 3, 4, 5, 6}, "33", {}, true}};
  for (const auto& c : cases) {
    Packet unit = {0x67};  // any header byte: the reader skips it
    unit.insert(unit.end(), c.payload.begin(), c.payload.end());
    cBitReader reader(unit.data(), int32_t(unit.size()));
    std::vector<int64_t> got;
    std::istringstream steps(c.steps);
    EXPECT_EQ(Raises([&] {
                for (std::string s; steps >> s;)
                  got.push_back(s == "B"   ? reader.NextByte()
                                : s == "U" ? int64_t(reader.ue())
                                : s == "S" ? int64_t(reader.se())
                                           : reader.ReadBits(std::stoi(s)));
              }),
              c.raises)
        << c.steps;
    EXPECT_EQ(got, c.values) << c.steps;
  }
}

Packet Sps(uint32_t id = 0) {
  SpsRecipe recipe;
  recipe.profile_idc = 77, recipe.seq_parameter_set_id = id;
  return WriteSps(recipe);
}

TEST(Parser, StartCodesAndPrintedMessages) {
  const std::string kShort =
      "ERROR: H264::cParser::Process(): NAL unit data buffer content is too short";
  const std::string kInvalid =
      "ERROR: H264::cParser::Process(): NAL unit data buffer content is invalid";
  const Packet sps = Sps();
  Packet zeroThenSps = sps;
  zeroThenSps.insert(zeroThenSps.begin(), 0);
  const struct {
    Packet buffer;
    std::string printedOnceSynchronised;
    bool defines;
  } cases[] = {{{}, kShort, false},
               {{sps.begin() + 1, sps.end()}, "", true},  // behind 00 00 01
               {sps, "", true},
               {zeroThenSps, kInvalid, false},
               {{0, 0, 0, 1}, "", false}};
  for (const auto& c : cases)
    for (const bool synchronised : {false, true}) {
      cParser parser(1000, true);
      parser.Reset();
      if (synchronised) Feed(parser, {0, 0, 1, 0x67});  // even a broken SPS unit synchronises
      testing::internal::CaptureStdout();
      Feed(parser, c.buffer);
      EXPECT_EQ(testing::internal::GetCapturedStdout(),
                synchronised ? c.printedOnceSynchronised : "");
      EXPECT_EQ(parser.Context().spsSlots[0].defined, c.defines);
      EXPECT_EQ(parser.Fill(), 0);
    }
  // Ids out of range, and sets asked for but undefined, raise and define nothing.
  cParser parser(1000, false);
  const Packet sps32 = Sps(32), pps256 = BitWriter().ue(256).ue(0).u(2, 0).trailing().Nal(0x68);
  for (const std::function<void()>& action : std::initializer_list<std::function<void()>>{
           [&] { parser.Context().ActivateSPS(32); }, [&] { parser.Context().ActivateSPS(0); },
           [&] { parser.Context().ActivatePPS(256); }, [&] { parser.Context().ActivatePPS(0); },
           [&] { parser.ParseSPS(&sps32[4], int32_t(sps32.size() - 4)); },
           [&] { parser.ParsePPS(&pps256[4], int32_t(pps256.size() - 4)); }}) {
    parser.Reset();
    EXPECT_TRUE(Raises(action));
    auto none = [](const auto& slots) {
      return std::none_of(slots.begin(), slots.end(), [](auto& s) { return s.defined; });
    };
    EXPECT_TRUE(none(parser.Context().spsSlots) && none(parser.Context().ppsSlots));
  }
}

// Every unit of the packets, in order, as FFmpeg's reader traces it: element
// names ("x[0]" for arrays) and values, the last value of a name kept.
using Traced = std::map<std::string, int64_t>;
std::string g_trace;
std::vector<Traced> Trace(const std::vector<Packet>& packets) {
  AVBSFContext* bsf = nullptr;
  av_bsf_alloc(av_bsf_get_by_name("trace_headers"), &bsf);
  bsf->par_in->codec_id = AV_CODEC_ID_H264;
  av_bsf_init(bsf);
  g_trace.clear();
  av_log_set_callback([](void*, int, const char* fmt, va_list args) {
    char line[1024];
    std::vsnprintf(line, sizeof line, fmt, args);
    g_trace += line;
  });
  AVPacket* pkt = av_packet_alloc();
  for (const Packet& p : packets) {
    av_new_packet(pkt, int(p.size()));
    std::copy(p.begin(), p.end(), pkt->data);
    for (av_bsf_send_packet(bsf, pkt); av_bsf_receive_packet(bsf, pkt) == 0;) av_packet_unref(pkt);
  }
  av_packet_free(&pkt);
  av_bsf_free(&bsf);
  av_log_set_callback(av_log_default_callback);
  // Lines read "<bit position> <name> <bits> = <value>"; a unit opens with forbidden_zero_bit.
  std::vector<Traced> units;
  std::istringstream lines(g_trace);
  char name[128];
  long long value = 0;
  for (std::string line; std::getline(lines, line);)
    if (std::sscanf(line.c_str(), " %*[0-9] %127s %*s = %lld", name, &value) == 2) {
      if (std::string(name) == "forbidden_zero_bit") units.emplace_back();
      if (!units.empty()) units.back()[name] = value;
    }
  return units;
}
int64_t Or(const Traced& t, const std::string& name, int64_t absent) {
  return t.count(name) ? t.at(name) : absent;
}

// Every element the store keeps, against the trace.
void ExpectSps(const SpsRecord& s, const Traced& t) {
  const std::pair<const char*, int64_t> kept[] = {
      {"seq_parameter_set_id", s.seq_parameter_set_id},
      {"log2_max_frame_num_minus4", s.log2_max_frame_num - 4},
      {"pic_order_cnt_type", s.pic_order_cnt_type},
      {"pic_width_in_mbs_minus1", s.pic_width_in_mbs_minus1},
      {"pic_height_in_map_units_minus1", s.pic_height_in_map_units_minus1},
      {"frame_mbs_only_flag", s.frame_mbs_only_flag},
      {"delta_pic_order_always_zero_flag", s.delta_pic_order_always_zero_flag},
      {"timing_info_present_flag", s.timing_info_present_flag},
      {"num_units_in_tick", s.num_units_in_tick},
      {"time_scale", s.time_scale},
      {"fixed_frame_rate_flag", s.fixed_frame_rate_flag},
      {"nal_hrd_parameters_present_flag", s.nal_hrd_parameters_present_flag},
      {"vcl_hrd_parameters_present_flag", s.vcl_hrd_parameters_present_flag},
      {"pic_struct_present_flag", s.pic_struct_present_flag}};
  for (const auto& [name, value] : kept) EXPECT_EQ(value, Or(t, name, 0)) << name;
  EXPECT_EQ(s.log2_max_pic_order_cnt_lsb, Or(t, "log2_max_pic_order_cnt_lsb_minus4", 0) + 4);
  // The last HRD block's lengths count; 24 without one.
  EXPECT_EQ(s.cpb_removal_delay_length, Or(t, "cpb_removal_delay_length_minus1", 23) + 1);
  EXPECT_EQ(s.dpb_output_delay_length, Or(t, "dpb_output_delay_length_minus1", 23) + 1);
}

// Every unit in full, one at a time: sets, slice headers (a new picture at
// each first slice) and picture timing, of x264 streams of two slices a
// picture (-g 1: key pictures told apart by idr_pic_id alone), and sets of
// what x264 never writes: pic_order_cnt_type 1, scaling matrices, VCL HRD,
// separate colour planes, cropping with the VUI behind it.
TEST(Parser, ReadsStreamsAndWrittenSetsAsFfmpegDoes) {
  std::vector<std::tuple<std::string, std::vector<Packet>, bool>> streams;  // picture timing
  for (const auto& [name, args, timing] :
       std::initializer_list<std::tuple<const char*, const char*, bool>>{
           {"baseline", "-profile:v baseline -g 1", false},
           {"mbaff_bff", "-x264-params interlaced=1:bff=1", true},
           {"hrd_pic_struct",
            "-b:v 200k -maxrate 200k -bufsize 400k -x264-params nal-hrd=cbr:pic-struct=1", true}}) {
    const std::string file = std::string("h264parser_") + name + ".h264",
                      options = std::string("-c:v libx264 -slices 2 ") + args;
    streams.push_back({name, LoadPackets({file.c_str(), 176, 144, 5, options.c_str()}), timing});
  }
  std::vector<SpsRecipe> recipes(4);
  recipes[0].pic_order_cnt_type = recipes[0].delta_pic_order_always_zero_flag = 1,
  recipes[0].offsetForRefFrame = {4, -7, 300};
  recipes[1].scalingDeltas = {{}, {-8}, {}, {3, -1, -10}, {}, {}, {}, {120, -128}};
  recipes[1].scalingDeltas[2].assign(16, 1), recipes[1].scalingDeltas[5].assign(16, 2);
  recipes[1].scalingDeltas[6].assign(64, -3);
  recipes[2].cropping = true, recipes[2].vclHrd = {2, 32, 1}, recipes[2].frame_mbs_only_flag = 0;
  recipes[3].profile_idc = 244, recipes[3].chroma_format_idc = 3, recipes[3].nalHrd = {1, 7, 5},
  recipes[3].pic_struct_present_flag = 1, recipes[3].seq_parameter_set_id = 31;
  for (size_t i = 0; i < recipes.size(); ++i)
    recipes[i].vui = i > 0,
    streams.push_back({"set " + std::to_string(i), {WriteSps(recipes[i])}, false});
  for (const auto& [name, packets, timing] : streams) {
    SCOPED_TRACE(name);
    const std::vector<Traced> traced = Trace(packets);
    cParser parser(1000, false);
    parser.Reset();
    size_t index = 0, sets = 0, timings = 0;
    for (const Packet& packet : packets) {
      bool first = true;
      for (const Packet& unit : SplitNalUnits(packet)) {
        ASSERT_LT(index, traced.size());
        const Traced& t = traced[index++];
        ASSERT_EQ(t.at("nal_unit_type"), NalType(unit));
        if (parser.Context().activeSps) parser.Context().activeSps->PictureTiming = {};
        Feed(parser, unit);
        const cContext& ctx = parser.Context();
        if (NalType(unit) == 7) {
          ASSERT_TRUE(ctx.spsSlots[t.at("seq_parameter_set_id")].defined);
          ExpectSps(ctx.spsSlots[t.at("seq_parameter_set_id")], t), ++sets;
        } else if (NalType(unit) == 1 || NalType(unit) == 5) {
          const SliceRecord& s = ctx.currentSlice;
          EXPECT_EQ(
              std::vector<int64_t>({s.defined, s.startsPicture, s.nal_ref_idc, s.slice_type,
                                    s.pic_parameter_set_id, s.frame_num, s.field_pic_flag,
                                    s.idr_pic_id, s.pic_order_cnt_lsb,
                                    s.delta_pic_order_cnt_bottom}),
              std::vector<int64_t>(
                  {1, first, t.at("nal_ref_idc"), t.at("slice_type"), t.at("pic_parameter_set_id"),
                   t.at("frame_num"), Or(t, "field_pic_flag", 0), Or(t, "idr_pic_id", 0),
                   Or(t, "pic_order_cnt_lsb", 0), Or(t, "delta_pic_order_cnt_bottom", 0)}))
              << "unit " << index;
          first = false;
        } else if (NalType(unit) == 6 && ctx.activeSps &&
                   (t.count("cpb_removal_delay") || t.count("pic_struct"))) {
          EXPECT_TRUE(ctx.activeSps->PictureTiming.valid) << "unit " << index;
          EXPECT_EQ(ctx.activeSps->PictureTiming.pic_struct, Or(t, "pic_struct", 0));
          ++timings;
        }
      }
    }
    EXPECT_EQ(index, traced.size());
    EXPECT_GE(sets, 1u);
    EXPECT_EQ(timings >= 3, timing);
  }
}

}  // namespace
}  // namespace corvane::test
