// The decode calls the worker is written against, served by the installed
// libavcodec's send/receive interface: one packet in, at most one picture out.
#pragma once

#include <cstdint>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace corvane::decoder::compat {

// Pictures the decoder had ready when it refused a packet. Kept in order and
// handed out one per call, ahead of anything newer.
struct PictureQueue {
  static constexpr int kCapacity = 4;
  AVFrame* slots[kCapacity] = {};
  int head = 0;
  int count = 0;
};

// Decoders register themselves nowadays; kept so that opening a session reads
// the same on every FFmpeg.
void RegisterAll();

// The session's own packet. Null when it can't be allocated.
AVPacket* AllocPacket();
void FreePacket(AVPacket** packet);

// Closes and frees a decoder context, then clears the pointer.
void FreeContext(AVCodecContext** context);

// Feeds `size` bytes at `data` (not copied by us: FFmpeg takes its own copy
// before returning) and gives back at most one picture in `frame`. Returns a
// negative value on a decoder error; `gotPicture` is set when `frame` holds a
// picture. A size of 0 or below is refused as an error and never puts the
// decoder into its end-of-stream drain, so the decoder stays usable.
int DecodeVideo2(AVCodecContext* context, AVFrame* frame, int* gotPicture, AVPacket* packet,
                 PictureQueue* queue, const uint8_t* data, int size);

// The end-of-stream road, apart from DecodeVideo2: queued pictures first, then
// those the decoder still holds, one a call. The first call tells the decoder
// that the stream has ended; after that it takes no packet until it is made
// anew. 0 with a picture in `frame`, AVERROR_EOF when none is left, or another
// negative value on a decoder error.
int DrainOne(AVCodecContext* context, AVFrame* frame, PictureQueue* queue);

// Puts the picture in `frame` back in front of the queue, to come out next.
// False (and the picture dropped) when the queue is full.
bool PutBack(PictureQueue* queue, AVFrame* frame);

// Drops every queued picture and the frames that held them.
void ClearQueue(PictureQueue* queue);

}  // namespace corvane::decoder::compat
