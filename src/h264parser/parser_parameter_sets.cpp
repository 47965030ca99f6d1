// The readers of the sequence and picture parameter sets. Only the elements the
// store keeps are kept; everything else is read for its position and dropped.
#include "h264parser/bit_reader.h"
#include "h264parser/parser.h"

namespace corvane {

namespace {

// Profiles whose SPS carries chroma format, bit depths and scaling matrices.
bool HasHighProfileBlock(uint32_t profile_idc) {
  switch (profile_idc) {
    case 100:
    case 110:
    case 122:
    case 144:
    case 244:
    case 44:
      return true;
    default:
      return false;
  }
}

void SkipScalingList(cBitReader& reader, int size) {
  uint32_t last = 8;
  uint32_t next = 8;
  for (int j = 0; j < size; ++j) {
    if (next != 0) next = (last + static_cast<uint32_t>(reader.se())) & 0xFF;
    if (next != 0) last = next;
  }
}

void SkipHighProfileBlock(cBitReader& reader) {
  const uint32_t chroma_format_idc = reader.ue();
  if (chroma_format_idc == 3) reader.ReadBits(1);  // separate_colour_plane_flag
  reader.ue();                                     // bit_depth_luma_minus8
  reader.ue();                                     // bit_depth_chroma_minus8
  reader.ReadBits(1);                              // qpprime_y_zero_transform_bypass_flag
  if (reader.ReadBits(1)) {                        // seq_scaling_matrix_present_flag
    // Eight lists whatever the chroma format: six 4x4 and two 8x8.
    for (int i = 0; i < 8; ++i) {
      if (reader.ReadBits(1)) SkipScalingList(reader, i < 6 ? 16 : 64);
    }
  }
}

void SkipPicOrderCntType1(cBitReader& reader, SpsRecord& sps) {
  sps.delta_pic_order_always_zero_flag = reader.ReadBits(1);
  reader.se();                                       // offset_for_non_ref_pic
  reader.se();                                       // offset_for_top_to_bottom_field
  const uint32_t cycle = reader.ue();                // num_ref_frames_in_pic_order_cnt_cycle
  for (uint64_t i = 0; i < cycle; ++i) reader.se();  // offset_for_ref_frame
}

// hrd_parameters(): both HRD blocks write the same two lengths, the last wins.
void ParseHRD(cBitReader& reader, SpsRecord& sps) {
  const uint64_t cpbCount = uint64_t{reader.ue()} + 1;  // cpb_cnt_minus1 + 1
  reader.ReadBits(4);                                   // bit_rate_scale
  reader.ReadBits(4);                                   // cpb_size_scale
  for (uint64_t i = 0; i < cpbCount; ++i) {
    reader.ue();         // bit_rate_value_minus1
    reader.ue();         // cpb_size_value_minus1
    reader.ReadBits(1);  // cbr_flag
  }
  reader.ReadBits(5);  // initial_cpb_removal_delay_length_minus1
  sps.cpb_removal_delay_length = reader.ReadBits(5) + 1;
  sps.dpb_output_delay_length = reader.ReadBits(5) + 1;
  reader.ReadBits(5);  // time_offset_length
}

// vui_parameters() up to pic_struct_present_flag; the bitstream restriction
// behind it is of no use here.
void ParseVUI(cBitReader& reader, SpsRecord& sps) {
  if (reader.ReadBits(1)) {           // aspect_ratio_info_present_flag
    if (reader.ReadBits(8) == 255) {  // aspect_ratio_idc: Extended_SAR
      reader.ReadBits(16);            // sar_width
      reader.ReadBits(16);            // sar_height
    }
  }
  if (reader.ReadBits(1)) reader.ReadBits(1);     // overscan_info_present / appropriate
  if (reader.ReadBits(1)) {                       // video_signal_type_present_flag
    reader.ReadBits(3);                           // video_format
    reader.ReadBits(1);                           // video_full_range_flag
    if (reader.ReadBits(1)) reader.ReadBits(24);  // colour primaries, transfer, matrix
  }
  if (reader.ReadBits(1)) {  // chroma_loc_info_present_flag
    reader.ue();             // chroma_sample_loc_type_top_field
    reader.ue();             // chroma_sample_loc_type_bottom_field
  }
  sps.timing_info_present_flag = reader.ReadBits(1);
  if (sps.timing_info_present_flag) {
    sps.num_units_in_tick = reader.ReadBits(32);
    sps.time_scale = reader.ReadBits(32);
    sps.fixed_frame_rate_flag = reader.ReadBits(1);
  }
  sps.nal_hrd_parameters_present_flag = reader.ReadBits(1);
  if (sps.nal_hrd_parameters_present_flag) ParseHRD(reader, sps);
  sps.vcl_hrd_parameters_present_flag = reader.ReadBits(1);
  if (sps.vcl_hrd_parameters_present_flag) ParseHRD(reader, sps);
  if (sps.nal_hrd_parameters_present_flag || sps.vcl_hrd_parameters_present_flag)
    reader.ReadBits(1);  // low_delay_hrd_flag
  sps.pic_struct_present_flag = reader.ReadBits(1);
}

}  // namespace

void cParser::ParseSPS(const uint8_t* unit, int32_t length) {
  // Built up locally: a unit that breaks off defines nothing.
  SpsRecord sps;
  cBitReader reader(unit, length);
  const uint32_t profile_idc = reader.ReadBits(8);
  reader.ReadBits(4);  // constraint_set0_flag .. constraint_set3_flag
  reader.ReadBits(4);  // the flags and reserved bits behind them
  reader.ReadBits(8);  // level_idc
  sps.seq_parameter_set_id = reader.ue();
  if (HasHighProfileBlock(profile_idc)) SkipHighProfileBlock(reader);
  sps.log2_max_frame_num = reader.ue() + 4;
  sps.pic_order_cnt_type = reader.ue();
  if (sps.pic_order_cnt_type == 0) {
    sps.log2_max_pic_order_cnt_lsb = reader.ue() + 4;
  } else if (sps.pic_order_cnt_type == 1) {
    SkipPicOrderCntType1(reader, sps);
  }
  reader.ue();         // max_num_ref_frames
  reader.ReadBits(1);  // gaps_in_frame_num_value_allowed_flag
  sps.pic_width_in_mbs_minus1 = reader.ue();
  sps.pic_height_in_map_units_minus1 = reader.ue();
  sps.frame_mbs_only_flag = reader.ReadBits(1);
  if (!headerOnly) {
    if (!sps.frame_mbs_only_flag) reader.ReadBits(1);  // mb_adaptive_frame_field_flag
    reader.ReadBits(1);                                // direct_8x8_inference_flag
    if (reader.ReadBits(1)) {                          // frame_cropping_flag
      for (int i = 0; i < 4; ++i) reader.ue();         // left, right, top, bottom offsets
    }
    if (reader.ReadBits(1)) ParseVUI(reader, sps);  // vui_parameters_present_flag
  }
  context.DefineSPS(sps);
}

void cParser::ParsePPS(const uint8_t* unit, int32_t length) {
  PpsRecord pps;
  cBitReader reader(unit, length);
  pps.pic_parameter_set_id = reader.ue();
  pps.seq_parameter_set_id = reader.ue();
  reader.ReadBits(1);  // entropy_coding_mode_flag
  pps.pic_order_present_flag = reader.ReadBits(1);
  context.DefinePPS(pps);
}

}  // namespace corvane
