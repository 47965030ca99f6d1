// CodecDecompress from its entry to a ready picture: the codec-change rule,
// lazy set-up, feeding the packet and the first-frames step.
#include "decoder/first_frames.h"
#include "decoder/session.h"

namespace corvane::decoder {

int32_t CodecDecompress(CodecSession* session, const uint8_t* data, int32_t size,
                        BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize, int32_t mode,
                        int32_t codecId) {
  // A stream that changes codec on one handle starts over; the reset takes
  // the lock itself.
  const int32_t boundCodec = session->codecId.load(std::memory_order_relaxed);
  if (boundCodec != 0 && boundCodec != codecId) ResetSession(session);

  ScopedLock sessionLock(session->mutex);
  // A stream fed again after a drain began starts over, as after a complete
  // drain: what the decoder still held is dropped.
  if (session->draining) ResetSession(session);
  session->lastMode = mode;
  if (session->needsInit) {
    const int32_t setUp = SetUpDecoder(*session, codecId);
    if (setUp != 0) return setUp;
  }

  header->biXPelsPerMeter = 0;
  header->biYPelsPerMeter = 0;
  int gotPicture = 0;
  const int decoded = compat::DecodeVideo2(session->codecContext, session->frame, &gotPicture,
                                           session->packet, &session->pending, data, size);

  if (session->needsInit) {
    if (gotPicture)
      session->needsInit = false;
    else if (!RunFirstFramesStep(*session, data, size, header))
      return ResultNoParameters;
  }
  if (decoded < 0) return ResultDecodeFailed;
  if (!gotPicture) return 0;
  return DeliverPicture(*session, header, out, outSize, mode);
}

}  // namespace corvane::decoder
