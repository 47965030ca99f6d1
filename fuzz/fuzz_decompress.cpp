// Mutated packets through the decoder's exports. The input's first byte picks
// the road, the rest is an Annex B stream cut into packets at its four-byte
// start codes, each packet fed in turn to:
//  - one session that stays open, so that it settles and then runs, and
//  - one session reset before each of the first packets, so that each of them
//    meets a new decoder and the first-frames step.
// Results are not judged: anything that escapes the exports, and any sanitizer
// report, is a find.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "corvane.h"
#include "decoder/decoder.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

// Bits of the first byte.
constexpr uint8_t kHevc = 0x01;          // the H.265 export instead of H.264
constexpr uint8_t kMedian = 0x02;        // the median export (H.264 only)
constexpr uint8_t kSmallBuffer = 0x04;   // too small a buffer: pictures go through the callback
constexpr uint8_t kResetHalfway = 0x08;  // reset the open session in the middle of the stream
constexpr uint8_t kNegativeLast = 0x10;  // the last packet once more with its size negated

// Packets that also go to a fresh session: each costs a decoder's set-up.
constexpr size_t kBindingPackets = 6;

// Room for the seeds' pictures; anything larger takes the callback's road or -896.
constexpr int32_t kOutBytes = 64 * 48 * 3;

uint8_t g_sink;

void TouchPicture(const CodecFrameRecord* record) {
  if (record->size > 0) g_sink ^= record->pixels[0] ^ record->pixels[record->size - 1];
}

std::vector<std::pair<size_t, size_t>> CutAtStartCodes(const uint8_t* data, size_t size) {
  std::vector<std::pair<size_t, size_t>> packets;
  size_t start = 0;
  for (size_t i = 4; i + 4 <= size; ++i) {
    if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 0 && data[i + 3] == 1) {
      packets.emplace_back(start, i - start);
      start = i;
    }
  }
  if (start < size) packets.emplace_back(start, size - start);
  return packets;
}

int32_t Decompress(uint8_t flags, CodecHandle session, const uint8_t* data, int32_t size,
                   BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize) {
  if (flags & kHevc) return H265CodecDecompress(session, data, size, header, out, outSize);
  if (flags & kMedian) return H264CodecDecompressMedian(session, data, size, header, out, outSize);
  return H264CodecDecompress(session, data, size, header, out, outSize);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  av_log_set_level(AV_LOG_QUIET);
  static_cast<void>(std::freopen("/dev/null", "w", stdout));
  corvane::decoder::CreateInitMutex();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > (1u << 20)) return 0;
  const uint8_t flags = data[0];
  const auto packets = CutAtStartCodes(data + 1, size - 1);
  static std::vector<uint8_t> out(kOutBytes);
  const int32_t outSize = (flags & kSmallBuffer) ? 16 : kOutBytes;

  CodecHandle running = H264CodecOpen();
  CodecHandle binding = H264CodecOpen();
  if (!running || !binding) return 0;
  H264CodecSetCallback(running, TouchPicture);
  H264CodecSetCallback(binding, TouchPicture);
  BITMAPINFOHEADER header{};
  for (size_t n = 0; n < packets.size(); ++n) {
    // Each packet in a copy of its own size, so that a read past it is caught.
    const std::vector<uint8_t> packet(data + 1 + packets[n].first,
                                      data + 1 + packets[n].first + packets[n].second);
    const auto packetSize = static_cast<int32_t>(packet.size());
    if ((flags & kResetHalfway) && n == packets.size() / 2) H264CodecReset(running);
    Decompress(flags, running, packet.data(), packetSize, &header, out.data(), outSize);
    if (n < kBindingPackets) {
      H264CodecReset(binding);
      Decompress(flags, binding, packet.data(), packetSize, &header, out.data(), outSize);
    }
    if ((flags & kNegativeLast) && n + 1 == packets.size()) {
      Decompress(flags, running, packet.data(), -packetSize, &header, out.data(), outSize);
      H264CodecReset(binding);
      Decompress(flags, binding, packet.data(), -packetSize, &header, out.data(), outSize);
    }
  }
  H264CodecClose(binding);
  H264CodecClose(running);
  return 0;
}
