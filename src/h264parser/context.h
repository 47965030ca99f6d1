// The store of the H.264 parameter sets a stream has defined and of which are
// active: 32 sequence and 256 picture parameter set slots, one flat block with
// no allocation. Fields carry the element names of ITU-T H.264.
#pragma once

#include <array>
#include <cstdint>

namespace corvane {

struct PictureTimingRecord {
  bool valid = false;
  int32_t pic_struct = 0;
};

struct SpsRecord {
  bool defined = false;
  uint32_t log2_max_frame_num = 4;
  uint32_t log2_max_pic_order_cnt_lsb = 4;  // stays 4 unless pic_order_cnt_type is 0
  uint32_t cpb_removal_delay_length = 24;   // of the last HRD block read
  uint32_t dpb_output_delay_length = 24;    // of the last HRD block read
  uint32_t seq_parameter_set_id = 0;
  uint32_t pic_order_cnt_type = 0;
  uint32_t delta_pic_order_always_zero_flag = 0;
  uint32_t frame_mbs_only_flag = 0;
  uint32_t timing_info_present_flag = 0;
  uint32_t num_units_in_tick = 0;
  uint32_t time_scale = 0;
  uint32_t fixed_frame_rate_flag = 0;
  uint32_t nal_hrd_parameters_present_flag = 0;
  uint32_t vcl_hrd_parameters_present_flag = 0;
  uint32_t pic_struct_present_flag = 0;
  uint32_t pic_width_in_mbs_minus1 = 0;
  uint32_t pic_height_in_map_units_minus1 = 0;
  PictureTimingRecord PictureTiming;  // written by the SEI reader into the active slot
};

struct PpsRecord {
  bool defined = false;
  uint32_t pic_parameter_set_id = 0;
  uint32_t seq_parameter_set_id = 0;
  uint32_t pic_order_present_flag = 0;  // bottom_field_pic_order_in_frame_present_flag
};

// The last slice header read. An element the header doesn't carry stays 0.
struct SliceRecord {
  bool defined = false;
  bool startsPicture = false;
  uint32_t pic_order_cnt_type = 0;
  uint32_t nal_ref_idc = 0;
  uint32_t nal_unit_type = 0;
  uint32_t slice_type = 0;
  uint32_t pic_parameter_set_id = 0;
  uint32_t frame_num = 0;
  uint32_t field_pic_flag = 0;
  uint32_t bottom_field_flag = 0;
  uint32_t idr_pic_id = 0;
  uint32_t pic_order_cnt_lsb = 0;
  int32_t delta_pic_order_cnt_bottom = 0;
  int32_t delta_pic_order_cnt[2] = {0, 0};
};

class cContext {
 public:
  static constexpr uint32_t kSpsSlots = 32;
  static constexpr uint32_t kPpsSlots = 256;

  cContext() = default;
  // A copy points its active sets at its own slots, never at the source's.
  cContext(const cContext& other);
  cContext& operator=(const cContext& other);

  void DefineSPS(const SpsRecord& record);
  void DefinePPS(const PpsRecord& record);
  const SpsRecord& ActivateSPS(uint32_t id);
  // Activates the slot and then the SPS it names; if that raises, the PPS
  // stays active.
  const PpsRecord& ActivatePPS(uint32_t id);
  void DefineSlice(const SliceRecord& record);

  std::array<SpsRecord, kSpsSlots> spsSlots{};
  std::array<PpsRecord, kPpsSlots> ppsSlots{};
  SpsRecord* activeSps = nullptr;
  PpsRecord* activePps = nullptr;
  SliceRecord currentSlice{};
};

}  // namespace corvane
