#include "h264parser/parser.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "h264parser/bit_reader.h"
#include "h264parser/exception.h"

namespace corvane {

namespace {

enum NalUnitType : uint8_t {
  kSliceNonIdr = 1,
  kSlicePartitionA = 2,
  kSliceIdr = 5,
  kSei = 6,
  kSps = 7,
  kPps = 8,
};

enum SeiPayloadType : uint32_t {
  kBufferingPeriod = 0,
  kPicTiming = 1,
};

// An SEI payload type or size: bytes summed up to and including the first one
// that isn't 255.
uint32_t ReadSeiValue(cBitReader& reader) {
  uint32_t sum = 0;
  uint32_t byte = 0;
  do {
    byte = reader.ReadBits(8);
    sum += byte;
  } while (byte == 255);
  return sum;
}

}  // namespace

cParser::cParser(int32_t capacity, bool headerOnly) : headerOnly(headerOnly) {
  if (capacity > 0) {
    data = new uint8_t[capacity]();
    this->capacity = capacity;
  }
}

cParser::~cParser() { delete[] data; }

void cParser::Reset() {
  context = cContext();
  fill = 0;
  readPosition = 0;
  awaitingSps = true;
}

void cParser::Append(const uint8_t* bytes, int32_t size) {
  if (size >= 0) {
    const int32_t room = capacity - fill;
    const int32_t count = std::min(size, room);
    if (count > 0 && bytes) {
      std::memcpy(data + fill, bytes, static_cast<size_t>(count));
      fill += count;
    }
    return;
  }
  const int64_t back = -static_cast<int64_t>(size);
  const int64_t floor = std::max<int32_t>(0, readPosition);
  fill = static_cast<int32_t>(std::max<int64_t>(fill - back, floor));
}

void cParser::Process() {
  readPosition = fill;
  if (!data || fill < 4) {
    if (!awaitingSps)
      std::printf("ERROR: H264::cParser::Process(): NAL unit data buffer content is too short");
  } else if (data[0] == 0 && data[1] == 0 && data[2] == 1) {
    Dispatch(data + 3, fill - 3, false);
  } else if (data[0] == 0 && data[1] == 0 && data[2] == 0 && data[3] == 1) {
    Dispatch(data + 4, fill - 4, true);
  } else if (!awaitingSps) {
    std::printf("ERROR: H264::cParser::Process(): NAL unit data buffer content is invalid");
  }
  fill = 0;
  readPosition = 0;
}

void cParser::Dispatch(const uint8_t* unit, int32_t length, bool longStartCode) {
  // A buffer that is only a four-byte start code has no unit header to read.
  if (length < 1) return;
  try {
    switch (unit[0] & 0x1F) {
      case kSliceNonIdr:
      case kSlicePartitionA:
      case kSliceIdr:
        // Slices are read only behind the four-byte start code, the form
        // that opens an access unit.
        if (longStartCode) ParseSlice(unit, length);
        break;
      case kSei:
        ParseSEI(unit, length);
        break;
      case kSps:
        // Even a broken SPS shows that the stream has reached its headers.
        awaitingSps = false;
        ParseSPS(unit, length);
        break;
      case kPps:
        ParsePPS(unit, length);
        break;
      default:
        break;
    }
  } catch (H264PARSER::cException* e) {
    delete e;  // a broken unit leaves the store as far as it got
  }
}

void cParser::ParseSlice(const uint8_t* unit, int32_t length) {
  SliceRecord slice;
  slice.nal_ref_idc = unit[0] >> 5;
  slice.nal_unit_type = unit[0] & 0x1F;
  cBitReader reader(unit, length);
  reader.ue();  // first_mb_in_slice
  slice.slice_type = reader.ue();
  slice.pic_parameter_set_id = reader.ue();
  const PpsRecord& pps = context.ActivatePPS(slice.pic_parameter_set_id);
  const SpsRecord& sps = *context.activeSps;

  slice.frame_num = reader.ReadBits(sps.log2_max_frame_num);
  if (!sps.frame_mbs_only_flag) {
    slice.field_pic_flag = reader.ReadBits(1);
    if (slice.field_pic_flag) slice.bottom_field_flag = reader.ReadBits(1);
  }
  if (slice.nal_unit_type == kSliceIdr) slice.idr_pic_id = reader.ue();
  const bool bottomDelta = pps.pic_order_present_flag && !slice.field_pic_flag;
  if (sps.pic_order_cnt_type == 0) {
    slice.pic_order_cnt_lsb = reader.ReadBits(sps.log2_max_pic_order_cnt_lsb);
    if (bottomDelta) slice.delta_pic_order_cnt_bottom = reader.se();
  }
  if (sps.pic_order_cnt_type == 1 && !sps.delta_pic_order_always_zero_flag) {
    slice.delta_pic_order_cnt[0] = reader.se();
    if (bottomDelta) slice.delta_pic_order_cnt[1] = reader.se();
  }
  context.DefineSlice(slice);
}

void cParser::ParseSEI(const uint8_t* unit, int32_t length) {
  if (headerOnly) return;
  cBitReader reader(unit, length);
  do {
    const uint32_t payloadType = ReadSeiValue(reader);
    const uint32_t payloadSize = ReadSeiValue(reader);
    const cBitReader payloadStart = reader;
    if (payloadType == kBufferingPeriod) {
      context.ActivateSPS(reader.ue());
    } else if (payloadType == kPicTiming && context.activeSps) {
      SpsRecord& sps = *context.activeSps;
      if (sps.nal_hrd_parameters_present_flag || sps.vcl_hrd_parameters_present_flag) {
        reader.ReadBits(sps.cpb_removal_delay_length);
        reader.ReadBits(sps.dpb_output_delay_length);
      }
      PictureTimingRecord timing;
      timing.valid = true;
      if (sps.pic_struct_present_flag) timing.pic_struct = static_cast<int32_t>(reader.ReadBits(4));
      sps.PictureTiming = timing;
    }
    // A message's extent is its declared size, whatever was read of it.
    reader = payloadStart;
    for (uint32_t i = 0; i < payloadSize; ++i) reader.ReadBits(8);
  } while (reader.Remaining() > 0);
}

}  // namespace corvane
