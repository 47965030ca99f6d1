// Building the decoder of a session. Runs on every decompress call until the
// session has had its first picture or stream parameters.
#include <atomic>

#include "decoder/conversion.h"
#include "decoder/filter_stage.h"
#include "decoder/session.h"

namespace corvane::decoder {

namespace {

// Process-wide decoder choice, zero at load. Bit value 2 would pick the
// hardware decoders; nothing in the library sets it.
std::atomic<uint32_t> g_decoderOptions{0};
constexpr uint32_t kOptionHardwareDecoder = 2;

const char* SelectDecoderName(int32_t codecId) {
  const bool hardware =
      (g_decoderOptions.load(std::memory_order_relaxed) & kOptionHardwareDecoder) != 0;
  switch (codecId) {
    case CodecH264:
      return hardware ? "h264_cuvid" : "h264";
    case CodecHevc:
      return hardware ? "hevc_cuvid" : "hevc";
    default:
      return "";
  }
}

void Configure(AVCodecContext* context, uint32_t options) {
  // FFmpeg picks the thread count; slice threads only, which add no delay
  // between a packet and its picture. Frame threads keep every core busy on
  // single-slice streams, at the price of pictures coming out packets later.
  context->thread_count = 0;
  context->thread_type = FF_THREAD_SLICE;
  if (options & CORVANE_OPTION_FRAME_THREADS) context->thread_type |= FF_THREAD_FRAME;
  // Damaged pictures are still shown, as is everything before the first key
  // frame: a live stream joined midway shows something at once.
  context->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
  context->flags2 |= AV_CODEC_FLAG2_SHOW_ALL;
  // The fast flag skips the deblocking of slice edges that sliced decoding
  // would have to wait for.
  if (!(options & CORVANE_OPTION_CONFORMANT)) context->flags2 |= AV_CODEC_FLAG2_FAST;
}

}  // namespace

int32_t SetUpDecoder(CodecSession& session, int32_t codecId) {
  const DecoderCalls& calls = Calls();
  ScopedLock initLock(InitMutex());
  session.codecId.store(codecId, std::memory_order_relaxed);

  session.codec = calls.findDecoder(SelectDecoderName(codecId));
  if (!session.codec) return ResultDecoderUnavailable;
  // The old decoder goes with everything it produced: its waiting pictures
  // and the packet it was fed through.
  ReleaseDecoderObjects(session);
  session.codecContext = calls.allocContext(session.codec);
  if (!session.codecContext) return ResultDecoderUnavailable;
  Configure(session.codecContext, session.options);
  // A context that fails to open stays with the session until the next
  // set-up, reset or close releases it.
  if (calls.openCodec(session.codecContext, session.codec, nullptr) < 0)
    return ResultDecoderUnavailable;

  ReleaseConversion(session);
  ReleaseFilterScratch(session);
  session.frame = calls.allocFrame();
  session.packet = calls.allocPacket();
  if (!session.frame || !session.packet) return ResultNoResource;
  return 0;
}

}  // namespace corvane::decoder
