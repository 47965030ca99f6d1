#include "support/h264_writer.h"

namespace corvane::test {

Packet BitWriter::Nal(uint8_t header, size_t byte, size_t* at) const {
  Packet out = {0, 0, 0, 1, header};
  for (size_t i = 0, zeros = 0; i < bits_.size(); i += 8) {
    uint8_t b = 0;
    for (size_t j = i; j < i + 8; ++j) b = uint8_t(b << 1 | (j < bits_.size() && bits_[j]));
    if (zeros >= 2 && b <= 3) out.push_back(3), zeros = 0;  // emulation prevention
    if (at && i / 8 == byte) *at = out.size();
    out.push_back(b);
    zeros = b == 0 ? zeros + 1 : 0;
  }
  return out;
}

Packet WriteSps(const SpsRecipe& s, size_t* flagByte) {
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
  w.ue(2).u(1, 0).ue(s.pic_width_in_mbs_minus1).ue(s.pic_height_in_map_units_minus1);
  const size_t flagBit = w.BitCount();
  w.u(1, s.frame_mbs_only_flag);
  if (!s.frame_mbs_only_flag) w.u(1, 1);
  w.u(1, 1).u(1, s.cropping);  // direct_8x8_inference_flag, frame_cropping_flag
  if (s.cropping) w.ue(0).ue(3).ue(1).ue(5);
  w.u(1, s.vui);
  if (s.vui) {
    w.u(1, 1).u(8, 255).u(16, 4).u(16, 3).u(2, 0b10);  // sample aspect ratio 4:3, overscan
    w.u(1, 1).u(3, 5).u(1, 0).u(1, 1).u(24, 0x010101).u(1, 1).ue(1).ue(2);  // colours, chroma
    w.u(1, 1).u(32, 1001).u(32, 60000).u(1, 1);                             // timing
    for (const HrdRecipe& h : {s.nalHrd, s.vclHrd}) {
      w.u(1, h.cpbCount != 0);
      if (h.cpbCount == 0) continue;
      w.ue(h.cpbCount - 1).u(4, 1).u(4, 2);
      for (uint32_t i = 0; i < h.cpbCount; ++i) w.ue(1000 + i).ue(3000 + i).u(1, i & 1);
      w.u(5, 23).u(5, h.cpbRemovalDelayLength - 1).u(5, h.dpbOutputDelayLength - 1).u(5, 24);
    }
    if (s.nalHrd.cpbCount || s.vclHrd.cpbCount) w.u(1, 0);  // low_delay_hrd_flag
    w.u(1, s.pic_struct_present_flag).u(1, 0);              // no bitstream restriction
  }
  return w.trailing().Nal(0x67, flagBit / 8, flagByte);
}

std::vector<Packet> SplitNalUnits(const Packet& bytes) {
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

Packet Join(const std::vector<Packet>& units) {
  Packet joined;
  for (const Packet& u : units) joined.insert(joined.end(), u.begin(), u.end());
  return joined;
}

}  // namespace corvane::test
