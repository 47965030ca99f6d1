// H.264 units written bit by bit, for what no encoder at hand writes, and
// Annex B packets cut into units.
#pragma once

#include <vector>

#include "support/clips.h"

namespace corvane::test {

// Fixed-length and Exp-Golomb elements; Nal() adds the start code, the header
// byte and emulation prevention.
class BitWriter {
 public:
  BitWriter& u(int n, uint64_t v) {
    for (int i = n - 1; i >= 0; --i) bits_.push_back((v >> i) & 1);
    return *this;
  }
  BitWriter& ue(uint64_t v) {
    int len = 0;
    while ((v + 1) >> (len + 1)) ++len;
    return u(len, 0).u(len + 1, v + 1);
  }
  BitWriter& se(int64_t v) { return ue(v > 0 ? 2 * uint64_t(v) - 1 : 2 * uint64_t(-v)); }
  BitWriter& trailing() {
    for (u(1, 1); bits_.size() % 8;) bits_.push_back(false);
    return *this;
  }
  size_t BitCount() const { return bits_.size(); }
  // `at`, if given, receives where payload byte `byte` lands in the unit.
  Packet Nal(uint8_t header, size_t byte = 0, size_t* at = nullptr) const;

 private:
  std::vector<bool> bits_;
};

struct HrdRecipe {
  uint32_t cpbCount = 0, cpbRemovalDelayLength = 0, dpbOutputDelayLength = 0;  // 0 cpbs: none
};

// A sequence parameter set; level 3.0, log2_max_frame_num 9,
// log2_max_pic_order_cnt_lsb 7, two reference frames, VUI timing 1001 / 60000.
struct SpsRecipe {
  uint32_t profile_idc = 100, seq_parameter_set_id = 0, chroma_format_idc = 1;
  std::vector<std::vector<int>> scalingDeltas;  // empty: no matrix; else 8 lists (empty: absent)
  uint32_t pic_order_cnt_type = 0, delta_pic_order_always_zero_flag = 0;
  std::vector<int> offsetForRefFrame;  // the cycle of pic_order_cnt_type 1
  uint32_t pic_width_in_mbs_minus1 = 19, pic_height_in_map_units_minus1 = 14;
  uint32_t frame_mbs_only_flag = 1;
  bool cropping = false, vui = false;
  HrdRecipe nalHrd, vclHrd;
  uint32_t pic_struct_present_flag = 0;
};
// `flagByte`, if given, receives the offset in the unit of the byte that holds
// frame_mbs_only_flag.
Packet WriteSps(const SpsRecipe& recipe, size_t* flagByte = nullptr);

// The units of an Annex B buffer, each behind a four-byte start code.
std::vector<Packet> SplitNalUnits(const Packet& bytes);
inline int NalType(const Packet& unit) { return unit[4] & 0x1F; }
Packet Join(const std::vector<Packet>& units);

}  // namespace corvane::test
