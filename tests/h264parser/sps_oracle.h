// Checks of a parsed sequence parameter set against FFmpeg's trace of the same
// unit, and hand-made SPS units for what no encoder at hand writes.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include "h264parser/context.h"
#include "h264parser/h264_oracle.h"

namespace corvane::test {

// Every element the store keeps, compared with the traced unit.
void ExpectSpsMatchesTrace(const SpsRecord& sps, const TracedUnit& traced);

struct HrdSpec {
    uint32_t cpbCount = 0;  // 0: no HRD block
    uint32_t cpbRemovalDelayLength = 0;
    uint32_t dpbOutputDelayLength = 0;
};

struct SpsSpec {
    const char* name;
    uint32_t profile_idc = 100;
    uint32_t seq_parameter_set_id = 0;
    uint32_t chroma_format_idc = 1;
    std::vector<std::vector<int>> scalingDeltas;  // empty: no matrix; else 8 lists (empty: absent)
    uint32_t pic_order_cnt_type = 0;
    uint32_t delta_pic_order_always_zero_flag = 0;
    std::vector<int> offsetForRefFrame;  // the cycle of pic_order_cnt_type 1
    uint32_t pic_width_in_mbs_minus1 = 19;
    uint32_t frame_mbs_only_flag = 1;
    bool cropping = false;
    bool vui = false;
    HrdSpec nalHrd, vclHrd;
    uint32_t pic_struct_present_flag = 0;
    bool conformant = true;  // FFmpeg's reader can trace it
};

inline void PrintTo(const SpsSpec& s, std::ostream* os) { *os << s.name; }

// The SPS as a NAL unit behind 00 00 00 01. Other fields are fixed:
// log2_max_frame_num 9, log2_max_pic_order_cnt_lsb 7, 15 map units high,
// 1001 / 60000 with a fixed frame rate. `flagBit` receives the payload bit
// position of frame_mbs_only_flag.
std::vector<uint8_t> WriteSps(const SpsSpec& spec, size_t* flagBit = nullptr);

}  // namespace corvane::test
