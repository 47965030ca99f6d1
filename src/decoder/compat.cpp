#include "decoder/compat.h"

#include <cerrno>

namespace corvane::decoder::compat {

namespace {

// A packet of size <= 0 must reach the decoder with a non-null data pointer:
// a null one would mean "end of stream" and start the drain.
const uint8_t kPlaceholderByte = 0;

// How often one packet may meet a decoder that still holds pictures. Each
// refusal moves one picture out, so a healthy decoder needs one or two.
constexpr int kMaxSendAttempts = PictureQueue::kCapacity + 2;

// Slots keep their frame objects for the session's life; only the picture
// references move in and out.
void DropOldest(PictureQueue* queue) {
  av_frame_unref(queue->slots[queue->head]);
  queue->head = (queue->head + 1) % PictureQueue::kCapacity;
  --queue->count;
}

bool Pop(PictureQueue* queue, AVFrame* frame) {
  if (queue->count == 0) return false;
  av_frame_unref(frame);
  av_frame_move_ref(frame, queue->slots[queue->head]);
  queue->head = (queue->head + 1) % PictureQueue::kCapacity;
  --queue->count;
  return true;
}

// Moves the picture the decoder holds into the queue. When the queue is full
// the oldest picture gives way: a caller that feeds packets holding several
// pictures each can't be served all of them at one picture a call.
bool TakeWaitingPicture(AVCodecContext* context, PictureQueue* queue) {
  if (queue->count == PictureQueue::kCapacity) DropOldest(queue);
  AVFrame*& slot = queue->slots[(queue->head + queue->count) % PictureQueue::kCapacity];
  if (!slot) slot = av_frame_alloc();
  if (!slot || avcodec_receive_frame(context, slot) != 0) return false;
  ++queue->count;
  return true;
}

}  // namespace

void RegisterAll() {}

AVPacket* AllocPacket() { return av_packet_alloc(); }

void FreePacket(AVPacket** packet) { av_packet_free(packet); }

void FreeContext(AVCodecContext** context) { avcodec_free_context(context); }

int DecodeVideo2(AVCodecContext* context, AVFrame* frame, int* gotPicture, AVPacket* packet,
                 PictureQueue* queue, const uint8_t* data, int size) {
  *gotPicture = 0;
  if (!data && size > 0) return AVERROR(EINVAL);  // nothing to read the bytes from
  packet->data = const_cast<uint8_t*>(data ? data : &kPlaceholderByte);
  packet->size = size;
  int result = avcodec_send_packet(context, packet);
  for (int attempt = 1; result == AVERROR(EAGAIN) && attempt < kMaxSendAttempts; ++attempt) {
    if (!TakeWaitingPicture(context, queue)) break;
    result = avcodec_send_packet(context, packet);
  }
  packet->data = nullptr;
  packet->size = 0;
  if (result < 0) return result;

  if (Pop(queue, frame)) {
    *gotPicture = 1;
    return 0;
  }
  result = avcodec_receive_frame(context, frame);
  if (result == 0) {
    *gotPicture = 1;
    return 0;
  }
  return result == AVERROR(EAGAIN) ? 0 : result;
}

int DrainOne(AVCodecContext* context, AVFrame* frame, PictureQueue* queue) {
  if (Pop(queue, frame)) return 0;
  // A decoder already draining refuses the end mark again: harmless.
  const int sent = avcodec_send_packet(context, nullptr);
  if (sent < 0 && sent != AVERROR_EOF) return sent;
  return avcodec_receive_frame(context, frame);
}

bool PutBack(PictureQueue* queue, AVFrame* frame) {
  if (queue->count == PictureQueue::kCapacity) return false;
  const int slot = (queue->head + PictureQueue::kCapacity - 1) % PictureQueue::kCapacity;
  if (!queue->slots[slot]) queue->slots[slot] = av_frame_alloc();
  if (!queue->slots[slot]) return false;
  av_frame_move_ref(queue->slots[slot], frame);
  queue->head = slot;
  ++queue->count;
  return true;
}

void ClearQueue(PictureQueue* queue) {
  for (AVFrame*& slot : queue->slots) av_frame_free(&slot);
  queue->head = 0;
  queue->count = 0;
}

}  // namespace corvane::decoder::compat
