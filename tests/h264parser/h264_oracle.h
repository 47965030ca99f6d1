// What the parser's tests hold it against: FFmpeg's own reading of a stream
// (the syntax elements its trace_headers filter logs) and NAL units written
// here bit by bit, for what no encoder at hand produces.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "common/streams.h"
#include "h264parser/context.h"

namespace corvane {
class cParser;
}

namespace corvane::test {

using Bytes = std::vector<uint8_t>;

// Fixed-length and Exp-Golomb elements, rbsp trailing bits, and emulation
// prevention on the way out.
class BitWriter {
 public:
  BitWriter& u(int n, uint64_t v) {
    for (int i = n - 1; i >= 0; --i) bits.push_back(((v >> i) & 1) != 0);
    return *this;
  }
  BitWriter& ue(uint64_t v) {
    int len = 0;
    while ((v + 1) >> (len + 1)) ++len;
    return u(len, 0).u(len + 1, v + 1);
  }
  BitWriter& se(int64_t v) { return ue(v > 0 ? 2 * uint64_t(v) - 1 : 2 * uint64_t(-v)); }
  BitWriter& trailing() {
    u(1, 1);
    while (bits.size() % 8) bits.push_back(false);
    return *this;
  }
  size_t BitCount() const { return bits.size(); }
  // 00 00 00 01, the header byte, and the payload with 03 inserted wherever
  // two zero bytes are followed by a byte of 3 or less.
  Bytes Nal(uint8_t header) const;

 private:
  std::vector<bool> bits;
};

// One NAL unit's syntax elements as FFmpeg names them ("x[0]" for arrays);
// an element that occurs twice keeps its last value.
using TracedUnit = std::map<std::string, int64_t>;
inline int64_t Or(const TracedUnit& t, const char* name, int64_t absent) {
  const auto it = t.find(name);
  return it == t.end() ? absent : it->second;
}

// Every NAL unit of the packets, in order, as FFmpeg's reader traces it.
std::vector<TracedUnit> TraceUnits(const std::vector<Packet>& packets);

// The NAL units of an Annex B buffer, each behind the four-byte start code.
std::vector<Packet> SplitNalUnits(const Bytes& bytes);

// Every element the store keeps, compared with the traced unit.
void ExpectSpsMatchesTrace(const SpsRecord& sps, const TracedUnit& traced);

struct HrdSpec {
  uint32_t cpbCount = 0, cpbRemovalDelayLength = 0, dpbOutputDelayLength = 0;  // count 0: no block
};

// A hand-written SPS. Fixed: log2_max_frame_num 9, log2_max_pic_order_cnt_lsb
// 7, 15 map units high, VUI timing 1001 / 60000 with a fixed frame rate.
struct SpsSpec {
  const char* name = "";
  uint32_t profile_idc = 100, seq_parameter_set_id = 0, chroma_format_idc = 1;
  std::vector<std::vector<int>> scalingDeltas;  // empty: no matrix; else 8 lists (empty: absent)
  uint32_t pic_order_cnt_type = 0, delta_pic_order_always_zero_flag = 0;
  std::vector<int> offsetForRefFrame;  // the cycle of pic_order_cnt_type 1
  uint32_t pic_width_in_mbs_minus1 = 19, frame_mbs_only_flag = 1;
  bool cropping = false, vui = false;
  HrdSpec nalHrd, vclHrd;
  uint32_t pic_struct_present_flag = 0;
  bool conformant = true;  // false: FFmpeg reads its scaling lists otherwise
};
inline void PrintTo(const SpsSpec& s, std::ostream* os) { *os << s.name; }

// The SPS behind 00 00 00 01; `flagBit` receives the payload bit position of
// frame_mbs_only_flag.
Bytes WriteSps(const SpsSpec& spec, size_t* flagBit = nullptr);

// Appends the buffer to the parser and processes it.
void Feed(cParser& parser, const Bytes& bytes);
// The message of the parser exception `f` raises, or "" if none.
std::string Catch(const std::function<void()>& f);

}  // namespace corvane::test
