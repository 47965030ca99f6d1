// The end of a stream: the pictures a decoder still holds once no packet is
// left (those behind reordering, and those in flight in frame threads), handed
// out one a call on the roads of the last decompress call.
#include "decoder/session.h"

namespace corvane::decoder {

int32_t DrainSession(CodecSession* session, BITMAPINFOHEADER* header, uint8_t* out,
                     int32_t outSize) {
  ScopedLock sessionLock(session->mutex);
  if (!session->codecContext || !session->frame) {
    // Nothing was ever decoded, or the last set-up failed: nothing to hand out.
    ResetSession(session);
    return 0;
  }
  header->biXPelsPerMeter = 0;
  header->biYPelsPerMeter = 0;
  session->draining = true;
  const int drained = compat::DrainOne(session->codecContext, session->frame, &session->pending);
  if (drained == AVERROR_EOF) {
    ResetSession(session);
    return 0;
  }
  if (drained < 0) return ResultDecodeFailed;

  const int32_t delivered = DeliverPicture(*session, header, out, outSize, session->lastMode);
  // Unlike a decompress call, which has the next packet's picture to give,
  // a drain that finds no room keeps the picture for the caller's next try.
  if (delivered == ResultBufferTooSmall) compat::PutBack(&session->pending, session->frame);
  return delivered == 0 ? 1 : delivered;
}

}  // namespace corvane::decoder
