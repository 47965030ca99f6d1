#include "h264parser/sps_oracle.h"

#include <gtest/gtest.h>

#include "h264parser/bit_writer.h"

namespace corvane::test {

namespace {

int64_t Or(const TracedUnit& t, const char* name, int64_t absent) {
    return t.has(name) ? t[name] : absent;
}

void WriteHrd(BitWriter& w, const HrdSpec& h) {
    w.ue(h.cpbCount - 1).u(4, 1).u(4, 2);
    for (uint32_t i = 0; i < h.cpbCount; ++i) w.ue(1000 + i).ue(3000 + i).u(1, i & 1);
    w.u(5, 23).u(5, h.cpbRemovalDelayLength - 1).u(5, h.dpbOutputDelayLength - 1).u(5, 24);
}

void WriteVui(BitWriter& w, const SpsSpec& s) {
    w.u(1, 1).u(8, 255).u(16, 4).u(16, 3);           // extended sample aspect ratio
    w.u(1, 1).u(1, 0);                               // overscan
    w.u(1, 1).u(3, 5).u(1, 0).u(1, 1).u(8, 1).u(8, 1).u(8, 1);  // signal type, colours
    w.u(1, 1).ue(1).ue(2);                           // chroma sample locations
    w.u(1, 1).u(32, 1001).u(32, 60000).u(1, 1);      // timing
    w.u(1, s.nalHrd.cpbCount != 0);
    if (s.nalHrd.cpbCount) WriteHrd(w, s.nalHrd);
    w.u(1, s.vclHrd.cpbCount != 0);
    if (s.vclHrd.cpbCount) WriteHrd(w, s.vclHrd);
    if (s.nalHrd.cpbCount || s.vclHrd.cpbCount) w.u(1, 0);  // low_delay_hrd_flag
    w.u(1, s.pic_struct_present_flag);
    w.u(1, 0);  // bitstream_restriction_flag
}

}  // namespace

void ExpectSpsMatchesTrace(const SpsRecord& sps, const TracedUnit& t) {
    ASSERT_EQ(t.type(), 7);
    EXPECT_EQ(sps.seq_parameter_set_id, t["seq_parameter_set_id"]);
    EXPECT_EQ(sps.log2_max_frame_num, t["log2_max_frame_num_minus4"] + 4);
    EXPECT_EQ(sps.pic_order_cnt_type, t["pic_order_cnt_type"]);
    EXPECT_EQ(sps.log2_max_pic_order_cnt_lsb, Or(t, "log2_max_pic_order_cnt_lsb_minus4", 0) + 4);
    EXPECT_EQ(sps.delta_pic_order_always_zero_flag, Or(t, "delta_pic_order_always_zero_flag", 0));
    EXPECT_EQ(sps.pic_width_in_mbs_minus1, t["pic_width_in_mbs_minus1"]);
    EXPECT_EQ(sps.pic_height_in_map_units_minus1, t["pic_height_in_map_units_minus1"]);
    EXPECT_EQ(sps.frame_mbs_only_flag, t["frame_mbs_only_flag"]);
    EXPECT_EQ(sps.timing_info_present_flag, Or(t, "timing_info_present_flag", 0));
    EXPECT_EQ(sps.num_units_in_tick, Or(t, "num_units_in_tick", 0));
    EXPECT_EQ(sps.time_scale, Or(t, "time_scale", 0));
    EXPECT_EQ(sps.fixed_frame_rate_flag, Or(t, "fixed_frame_rate_flag", 0));
    EXPECT_EQ(sps.nal_hrd_parameters_present_flag, Or(t, "nal_hrd_parameters_present_flag", 0));
    EXPECT_EQ(sps.vcl_hrd_parameters_present_flag, Or(t, "vcl_hrd_parameters_present_flag", 0));
    // The trace's last HRD block is the one whose lengths count.
    EXPECT_EQ(sps.cpb_removal_delay_length, Or(t, "cpb_removal_delay_length_minus1", 23) + 1);
    EXPECT_EQ(sps.dpb_output_delay_length, Or(t, "dpb_output_delay_length_minus1", 23) + 1);
    EXPECT_EQ(sps.pic_struct_present_flag, Or(t, "pic_struct_present_flag", 0));
}

std::vector<uint8_t> WriteSps(const SpsSpec& s, size_t* flagBit) {
    BitWriter w;
    w.u(8, s.profile_idc).u(8, 0).u(8, 30).ue(s.seq_parameter_set_id);
    if (s.profile_idc == 100 || s.profile_idc == 244) {
        w.ue(s.chroma_format_idc);
        if (s.chroma_format_idc == 3) w.u(1, 1);  // separate_colour_plane_flag
        w.ue(0).ue(0).u(1, 0);
        w.u(1, !s.scalingDeltas.empty());
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
    w.u(1, 1);  // direct_8x8_inference_flag
    w.u(1, s.cropping);
    if (s.cropping) w.ue(0).ue(3).ue(1).ue(5);
    w.u(1, s.vui);
    if (s.vui) WriteVui(w, s);
    w.trailing();
    return w.Nal(0x67);
}

}  // namespace corvane::test
