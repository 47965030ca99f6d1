// Mutated packet streams through the decoder's exports, on sessions that live
// as long as the fuzzer, as a client's do. A decoder is set up again only when
// an input asks for it (a reset, a drain to the end, a fresh session, a change
// of codec) or feeds a session that is still binding, so most inputs reach a
// running decoder and the picture roads behind it.
//
// An input is one byte of settings, then chunks parted by kSeparator. Each
// chunk is a control byte and one packet. Results are not judged: anything
// that escapes the exports, and any sanitizer report, is a find.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "corvane.h"
#include "corvane_ext.h"
#include "decoder/decoder.h"
#include "decoder/decoder_calls.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

// 00 00 01 FF: a start code before a unit header with its forbidden bit set,
// which no H.264 or H.265 stream holds.
constexpr uint8_t kSeparator[4] = {0x00, 0x00, 0x01, 0xFF};

// The settings byte: CORVANE_OPTION_* in the low nibble, for the sessions the
// input uses; its high nibble picks what the input does besides feeding
// packets. Whatever sets a decoder up again, or makes set-ups dearer (frame
// threads), is one value of a nibble, so that most mutated inputs meet running
// decoders.
constexpr uint8_t kOptionBits = 0x0F;
enum Settings : uint8_t {
  kOneSession = 0x8,          // every chunk on one session, whatever its codec
  kOneSessionDrained = 0x9,   // the same, drained at the end
  kDrainAtEnd = 0xA,          // the sessions used drained at the end
  kResetFirst = 0xB,          // ... reset before the first packet
  kFreshSession = 0xC,        // every chunk on a session opened and closed for this input
  kFrameThreadsDrained = 0xD  // frame threads kept if the options ask, drained at the end
};

// A chunk's control byte: the road in bits 0-1 (see Decompress), the output in
// bits 2-3 (see OutputFor), an event in the high nibble.
constexpr uint8_t kRoadBits = 0x03;
constexpr uint8_t kOutputBits = 0x0C;
enum Event : uint8_t {
  kNegativeSize = 0xC,  // the packet's size passed negated
  kDrainAfter = 0xD,    // one drain call after this packet
  kResetInside = 0xE,   // the frame callback resets its own session
  kResetBefore = 0xF,   // reset the session before this packet
};

// SPS 0, PPS and one grey 16 x 16 IDR picture. A binding H.264 session sets a
// decoder up for every packet; this settles it with one. Inputs that reset
// first or use a fresh session go without, and keep the binding road to
// themselves.
constexpr uint8_t kSettle[] = {
    0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0xc0, 0x0a, 0xd9, 0x1e, 0xc0, 0x44, 0x00, 0x00, 0x03,
    0x00, 0x04, 0x00, 0x00, 0x03, 0x00, 0xc8, 0x3c, 0x48, 0x99, 0x20, 0x00, 0x00, 0x00, 0x01,
    0x68, 0xcb, 0x80, 0x65, 0x2c, 0x80, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84, 0x3f, 0x27, 0x80};

// Decoders refuse pictures larger than this: a mutated sequence parameter set
// that asks for thousands of rows would spend each input zeroing frame pools.
constexpr int64_t kMaxPixels = 1024 * 1024;

int OpenWithPixelLimit(AVCodecContext* context, const AVCodec* codec, AVDictionary** options) {
  context->max_pixels = kMaxPixels;
  return corvane::decoder::RealCalls().openCodec(context, codec, options);
}

// Room for the seeds' pictures. A larger picture takes the callback's road,
// or is refused with -896.
constexpr int32_t kOutBytes = 352 * 288 * 3;
constexpr int kMaxDrainCalls = 8;

struct Session {
  CodecHandle handle = nullptr;
  bool binding = true;  // as the harness last saw it
};

// For H.264 chunks, H.265 chunks, and inputs that mix them on one session.
Session g_sessions[3];

bool g_resetInside = false;
uint8_t g_sink;

void TouchPicture(const CodecFrameRecord* record) {
  if (record->size > 0) g_sink ^= record->pixels[0] ^ record->pixels[record->size - 1];
  if (g_resetInside) H264CodecReset(record->session);
}

void Open(Session* session) {
  session->handle = H264CodecOpen();
  session->binding = true;
  H264CodecSetCallback(session->handle, TouchPicture);
}

void Reset(Session* session) {
  H264CodecReset(session->handle);
  session->binding = true;
}

struct Chunk {
  uint8_t control;
  const uint8_t* data;
  size_t size;
};

std::vector<Chunk> CutIntoChunks(const uint8_t* data, size_t size) {
  std::vector<Chunk> chunks;
  const uint8_t* const end = data + size;
  for (const uint8_t* start = data; start < end;) {
    const uint8_t* next = std::search(start, end, kSeparator, kSeparator + sizeof kSeparator);
    if (next > start) chunks.push_back({*start, start + 1, static_cast<size_t>(next - start - 1)});
    start = next == end ? end : next + sizeof kSeparator;
  }
  return chunks;
}

bool IsHevc(uint8_t control) { return (control & kRoadBits) == 2; }

int32_t Decompress(uint8_t control, CodecHandle session, const uint8_t* data, int32_t size,
                   BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize) {
  switch (control & kRoadBits) {
    case 0:
      return H264CodecDecompress(session, data, size, header, out, outSize);
    case 1:
      return H264CodecDecompressMedian(session, data, size, header, out, outSize);
    case 2:
      return H265CodecDecompress(session, data, size, header, out, outSize);
    default:
      // The worker's sharpen stage. Its export takes this place once it exists.
      return corvane::decoder::CodecDecompress(
          static_cast<corvane::decoder::CodecSession*>(session), data, size, header, out, outSize,
          corvane::decoder::ModeSharpen, corvane::decoder::CodecH264);
  }
}

uint8_t* LargeBuffer() {
  static std::vector<uint8_t> large(kOutBytes);
  return large.data();
}

// The picture's destination: the shared large buffer; none, so that it goes
// through the callback; none and no callback (-896); or a block of exactly
// the size the session last reported, so that a write past it is caught.
struct Output {
  std::vector<uint8_t> exact;
  uint8_t* data = nullptr;
  int32_t size = 0;
  bool callback = true;
};

void OutputFor(uint8_t control, const BITMAPINFOHEADER& last, Output* output) {
  switch ((control & kOutputBits) >> 2) {
    case 0:
      output->data = LargeBuffer(), output->size = kOutBytes;
      break;
    case 1:
      break;
    case 2:
      output->callback = false;
      break;
    default:
      if (last.biSizeImage > 0 && last.biSizeImage <= static_cast<uint32_t>(kOutBytes)) {
        output->exact.resize(last.biSizeImage);
        output->data = output->exact.data();
        output->size = static_cast<int32_t>(last.biSizeImage);
      }
      break;
  }
}

// Until no picture is left, which resets the session, or `calls` ran.
void Drain(Session* session, BITMAPINFOHEADER* header, int calls) {
  for (int i = 0; i < calls; ++i) {
    if (corvane_codec_drain(session->handle, header, LargeBuffer(), kOutBytes) <= 0) {
      session->binding = true;
      return;
    }
  }
}

void Settle(Session* session) {
  BITMAPINFOHEADER header{};
  session->binding = H264CodecDecompress(session->handle, kSettle, sizeof kSettle, &header,
                                         LargeBuffer(), kOutBytes) != 0;
}

// A packet after a reset meets a new decoder; a packet after one that left its
// session binding meets a settled one, unless `settle` is false.
void Feed(Session* session, const Chunk& chunk, bool settle, BITMAPINFOHEADER* header) {
  const uint8_t event = chunk.control >> 4;
  if (event == kResetBefore)
    Reset(session);
  else if (settle && session->binding && !IsHevc(chunk.control))
    Settle(session);
  // Each packet in a block of its own size, so that a read past it is caught.
  const std::vector<uint8_t> packet(chunk.data, chunk.data + chunk.size);
  const auto size = static_cast<int32_t>(packet.size());
  Output output;
  OutputFor(chunk.control, *header, &output);
  if (!output.callback) H264CodecSetCallback(session->handle, nullptr);
  g_resetInside = event == kResetInside;
  const int32_t result =
      Decompress(chunk.control, session->handle, packet.data(),
                 event == kNegativeSize ? -size : size, header, output.data, output.size);
  g_resetInside = false;
  if (!output.callback) H264CodecSetCallback(session->handle, TouchPicture);
  // The results that leave a session binding; a reset from the callback
  // does too.
  session->binding = result == ResultNoParameters || result == ResultDecoderUnavailable ||
                     result == ResultNoResource || event == kResetInside;
  if (event == kDrainAfter) Drain(session, header, 1);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  av_log_set_level(AV_LOG_QUIET);
  // The stream parser prints its two messages to standard output.
  static_cast<void>(std::freopen("/dev/null", "w", stdout));
  corvane::decoder::CreateInitMutex();
  static corvane::decoder::DecoderCalls calls = corvane::decoder::RealCalls();
  calls.openCodec = OpenWithPixelLimit;
  corvane::decoder::SetDecoderCallsForTesting(&calls);
  for (Session& session : g_sessions) Open(&session);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > (1u << 20)) return 0;
  const uint8_t settings = data[0] >> 4;
  uint32_t options = data[0] & kOptionBits;
  if (settings != kFrameThreadsDrained) options &= ~CORVANE_OPTION_FRAME_THREADS;
  const std::vector<Chunk> chunks = CutIntoChunks(data + 1, size - 1);
  if (chunks.empty()) return 0;

  Session fresh;
  const bool oneSession = settings == kOneSession || settings == kOneSessionDrained;
  if (settings == kFreshSession) Open(&fresh);
  auto sessionFor = [&](uint8_t control) {
    if (settings == kFreshSession) return &fresh;
    if (oneSession) return &g_sessions[2];
    return &g_sessions[IsHevc(control) ? 1 : 0];
  };
  // The sessions this input uses: options, resets and drains go to them
  // alone, so that the others keep their decoders.
  std::vector<Session*> used;
  for (const Chunk& chunk : chunks) {
    Session* session = sessionFor(chunk.control);
    if (std::find(used.begin(), used.end(), session) != used.end()) continue;
    used.push_back(session);
    corvane_codec_set_options(session->handle, options);
    if (settings == kResetFirst) Reset(session);
  }

  const bool settle = settings != kResetFirst && settings != kFreshSession;
  BITMAPINFOHEADER header{};
  for (const Chunk& chunk : chunks) Feed(sessionFor(chunk.control), chunk, settle, &header);
  if (settings == kDrainAtEnd || settings == kOneSessionDrained || settings == kFrameThreadsDrained)
    for (Session* session : used) Drain(session, &header, kMaxDrainCalls);
  if (fresh.handle) H264CodecClose(fresh.handle);
  return 0;
}
