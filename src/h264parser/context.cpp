#include "h264parser/context.h"

#include "h264parser/exception.h"

namespace corvane {

cContext::cContext(const cContext& other) { *this = other; }

cContext& cContext::operator=(const cContext& other) {
  if (this == &other) return *this;
  spsSlots = other.spsSlots;
  ppsSlots = other.ppsSlots;
  currentSlice = other.currentSlice;
  activeSps = other.activeSps ? &spsSlots[other.activeSps - other.spsSlots.data()] : nullptr;
  activePps = other.activePps ? &ppsSlots[other.activePps - other.ppsSlots.data()] : nullptr;
  return *this;
}

void cContext::DefineSPS(const SpsRecord& record) {
  if (record.seq_parameter_set_id >= kSpsSlots)
    H264PARSER::Raise("ERROR: H264::cContext::DefineSPS(): id out of range");
  // An active slot changes in place: the active set is the new one at once.
  SpsRecord& slot = spsSlots[record.seq_parameter_set_id];
  slot = record;
  slot.defined = true;
}

void cContext::DefinePPS(const PpsRecord& record) {
  if (record.pic_parameter_set_id >= kPpsSlots)
    H264PARSER::Raise("ERROR: H264::cContext::DefinePPS(): id out of range");
  PpsRecord& slot = ppsSlots[record.pic_parameter_set_id];
  slot = record;
  slot.defined = true;
}

const SpsRecord& cContext::ActivateSPS(uint32_t id) {
  if (id >= kSpsSlots) H264PARSER::Raise("ERROR: H264::cContext::ActivateSPS(): id out of range");
  if (!spsSlots[id].defined)
    H264PARSER::Raise("ERROR: H264::cContext::ActivateSPS(): requested SPS is undefined");
  activeSps = &spsSlots[id];
  return *activeSps;
}

const PpsRecord& cContext::ActivatePPS(uint32_t id) {
  if (id >= kPpsSlots) H264PARSER::Raise("ERROR: H264::cContext::ActivatePPS(): id out of range");
  if (!ppsSlots[id].defined)
    H264PARSER::Raise("ERROR: H264::cContext::ActivatePPS(): requested PPS is undefined");
  activePps = &ppsSlots[id];
  ActivateSPS(activePps->seq_parameter_set_id);
  return *activePps;
}

void cContext::DefineSlice(const SliceRecord& record) {
  SliceRecord next = record;
  next.defined = true;
  next.pic_order_cnt_type = activeSps ? activeSps->pic_order_cnt_type : 0;

  // The first slice of a new picture differs from the last one stored in one
  // of the ways ITU-T H.264 lists for detecting a new primary picture.
  const SliceRecord& old = currentSlice;
  const bool bothPoc0 = old.pic_order_cnt_type == 0 && next.pic_order_cnt_type == 0;
  const bool bothPoc1 = old.pic_order_cnt_type == 1 && next.pic_order_cnt_type == 1;
  const bool eitherIdr = old.nal_unit_type == 5 || next.nal_unit_type == 5;
  next.startsPicture =
      !old.defined || old.frame_num != next.frame_num ||
      old.pic_parameter_set_id != next.pic_parameter_set_id ||
      old.field_pic_flag != next.field_pic_flag ||
      old.bottom_field_flag != next.bottom_field_flag ||
      (old.nal_ref_idc != next.nal_ref_idc && (old.nal_ref_idc == 0 || next.nal_ref_idc == 0)) ||
      (bothPoc0 && (old.pic_order_cnt_lsb != next.pic_order_cnt_lsb ||
                    old.delta_pic_order_cnt_bottom != next.delta_pic_order_cnt_bottom)) ||
      (bothPoc1 && (old.delta_pic_order_cnt[0] != next.delta_pic_order_cnt[0] ||
                    old.delta_pic_order_cnt[1] != next.delta_pic_order_cnt[1])) ||
      (old.nal_unit_type != next.nal_unit_type && eitherIdr) ||
      (old.nal_unit_type == 5 && next.nal_unit_type == 5 && old.idr_pic_id != next.idr_pic_id);
  currentSlice = next;
}

}  // namespace corvane
