#include "h264parser/h264_oracle.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <sstream>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
}

#include "h264parser/exception.h"
#include "h264parser/parser.h"

namespace corvane::test {

namespace {

std::string traceText;  // what the trace filter logged, while TraceUnits runs

void CaptureLog(void*, int, const char* fmt, va_list args) {
  char line[1024];
  std::vsnprintf(line, sizeof line, fmt, args);
  traceText += line;
}

void WriteHrd(BitWriter& w, const HrdSpec& h) {
  w.ue(h.cpbCount - 1).u(4, 1).u(4, 2);
  for (uint32_t i = 0; i < h.cpbCount; ++i) w.ue(1000 + i).ue(3000 + i).u(1, i & 1);
  w.u(5, 23).u(5, h.cpbRemovalDelayLength - 1).u(5, h.dpbOutputDelayLength - 1).u(5, 24);
}

void WriteVui(BitWriter& w, const SpsSpec& s) {
  w.u(1, 1).u(8, 255).u(16, 4).u(16, 3);                      // extended sample aspect ratio
  w.u(1, 1).u(1, 0);                                          // overscan
  w.u(1, 1).u(3, 5).u(1, 0).u(1, 1).u(8, 1).u(8, 1).u(8, 1);  // signal type, colours
  w.u(1, 1).ue(1).ue(2);                                      // chroma sample locations
  w.u(1, 1).u(32, 1001).u(32, 60000).u(1, 1);                 // timing
  w.u(1, s.nalHrd.cpbCount != 0);
  if (s.nalHrd.cpbCount) WriteHrd(w, s.nalHrd);
  w.u(1, s.vclHrd.cpbCount != 0);
  if (s.vclHrd.cpbCount) WriteHrd(w, s.vclHrd);
  if (s.nalHrd.cpbCount || s.vclHrd.cpbCount) w.u(1, 0);  // low_delay_hrd_flag
  w.u(1, s.pic_struct_present_flag).u(1, 0);              // no bitstream restriction
}

}  // namespace

Bytes BitWriter::Nal(uint8_t header) const {
  Bytes out = {0, 0, 0, 1, header};
  int zeros = 0;
  for (size_t i = 0; i < bits.size(); i += 8) {
    uint8_t b = 0;
    for (size_t j = i; j < i + 8; ++j) b = uint8_t(b << 1 | (j < bits.size() && bits[j]));
    if (zeros >= 2 && b <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(b);
    zeros = b == 0 ? zeros + 1 : 0;
  }
  return out;
}

std::vector<TracedUnit> TraceUnits(const std::vector<Packet>& packets) {
  const AVBitStreamFilter* filter = av_bsf_get_by_name("trace_headers");
  AVBSFContext* bsf = nullptr;
  if (!filter || av_bsf_alloc(filter, &bsf) < 0) throw std::runtime_error("no trace_headers");
  bsf->par_in->codec_id = AV_CODEC_ID_H264;
  if (av_bsf_init(bsf) < 0) throw std::runtime_error("trace_headers init failed");
  traceText.clear();
  av_log_set_callback(CaptureLog);
  AVPacket* pkt = av_packet_alloc();
  for (const Packet& p : packets) {
    av_new_packet(pkt, static_cast<int>(p.size()));
    std::copy(p.begin(), p.end(), pkt->data);
    if (av_bsf_send_packet(bsf, pkt) < 0) break;
    while (av_bsf_receive_packet(bsf, pkt) == 0) av_packet_unref(pkt);
  }
  av_packet_free(&pkt);
  av_bsf_free(&bsf);
  av_log_set_callback(av_log_default_callback);

  // Element lines read "<bit position> <name> <bits> = <value>"; a unit's
  // trace opens with its header's first element.
  std::vector<TracedUnit> units;
  std::istringstream lines(traceText);
  char name[128];
  long long value = 0;
  for (std::string line; std::getline(lines, line);) {
    if (std::sscanf(line.c_str(), " %*[0-9] %127s %*s = %lld", name, &value) != 2) continue;
    if (std::string(name) == "forbidden_zero_bit") units.emplace_back();
    if (!units.empty()) units.back()[name] = value;
  }
  return units;
}

std::vector<Packet> SplitNalUnits(const Bytes& bytes) {
  std::vector<Packet> units;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i + 3 <= bytes.size() && bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1) {
      // Zero bytes in front of a start code belong to it, not to the unit before.
      while (!units.empty() && units.back().size() > 4 && units.back().back() == 0)
        units.back().pop_back();
      units.push_back({0, 0, 0, 1});
      i += 2;
    } else if (!units.empty()) {
      units.back().push_back(bytes[i]);
    }
  }
  return units;
}

void ExpectSpsMatchesTrace(const SpsRecord& sps, const TracedUnit& t) {
  ASSERT_EQ(t.at("nal_unit_type"), 7);
  EXPECT_EQ(sps.seq_parameter_set_id, t.at("seq_parameter_set_id"));
  EXPECT_EQ(sps.log2_max_frame_num, t.at("log2_max_frame_num_minus4") + 4);
  EXPECT_EQ(sps.pic_order_cnt_type, t.at("pic_order_cnt_type"));
  EXPECT_EQ(sps.log2_max_pic_order_cnt_lsb, Or(t, "log2_max_pic_order_cnt_lsb_minus4", 0) + 4);
  EXPECT_EQ(sps.pic_width_in_mbs_minus1, t.at("pic_width_in_mbs_minus1"));
  EXPECT_EQ(sps.pic_height_in_map_units_minus1, t.at("pic_height_in_map_units_minus1"));
  EXPECT_EQ(sps.frame_mbs_only_flag, t.at("frame_mbs_only_flag"));
  for (const auto& [name, value] : std::map<std::string, uint32_t>{
           {"delta_pic_order_always_zero_flag", sps.delta_pic_order_always_zero_flag},
           {"timing_info_present_flag", sps.timing_info_present_flag},
           {"num_units_in_tick", sps.num_units_in_tick},
           {"time_scale", sps.time_scale},
           {"fixed_frame_rate_flag", sps.fixed_frame_rate_flag},
           {"nal_hrd_parameters_present_flag", sps.nal_hrd_parameters_present_flag},
           {"vcl_hrd_parameters_present_flag", sps.vcl_hrd_parameters_present_flag},
           {"pic_struct_present_flag", sps.pic_struct_present_flag}})
    EXPECT_EQ(value, Or(t, name.c_str(), 0)) << name;
  // The trace's last HRD block is the one whose lengths count.
  EXPECT_EQ(sps.cpb_removal_delay_length, Or(t, "cpb_removal_delay_length_minus1", 23) + 1);
  EXPECT_EQ(sps.dpb_output_delay_length, Or(t, "dpb_output_delay_length_minus1", 23) + 1);
}

Bytes WriteSps(const SpsSpec& s, size_t* flagBit) {
  BitWriter w;
  w.u(8, s.profile_idc).u(8, 0).u(8, 30).ue(s.seq_parameter_set_id);
  if (s.profile_idc == 100 || s.profile_idc == 244) {
    w.ue(s.chroma_format_idc);
    if (s.chroma_format_idc == 3) w.u(1, 1);  // separate_colour_plane_flag
    w.ue(0).ue(0).u(1, 0).u(1, !s.scalingDeltas.empty());
    for (const auto& list : s.scalingDeltas) {
      w.u(1, !list.empty());
      for (int delta : list) w.se(delta);
    }
  }
  w.ue(5).ue(s.pic_order_cnt_type);
  if (s.pic_order_cnt_type == 0) w.ue(3);
  if (s.pic_order_cnt_type == 1) {
    w.u(1, s.delta_pic_order_always_zero_flag).se(-2).se(3).ue(s.offsetForRefFrame.size());
    for (int offset : s.offsetForRefFrame) w.se(offset);
  }
  w.ue(2).u(1, 0).ue(s.pic_width_in_mbs_minus1).ue(14);
  if (flagBit) *flagBit = w.BitCount();
  w.u(1, s.frame_mbs_only_flag);
  if (!s.frame_mbs_only_flag) w.u(1, 1);
  w.u(1, 1).u(1, s.cropping);  // direct_8x8_inference_flag, frame_cropping_flag
  if (s.cropping) w.ue(0).ue(3).ue(1).ue(5);
  w.u(1, s.vui);
  if (s.vui) WriteVui(w, s);
  return w.trailing().Nal(0x67);
}

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

}  // namespace corvane::test
