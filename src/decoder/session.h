// The record behind a decoder handle, and what its units share.
#pragma once

#include <atomic>
#include <cstdint>

#include "corvane.h"
#include "decoder/compat.h"
#include "decoder/decoder.h"
#include "decoder/decoder_calls.h"
#include "platform/mutex.h"

struct SwsContext;

namespace corvane::decoder {

struct CodecSession {
  platform::Mutex* mutex = nullptr;
  const AVCodec* codec = nullptr;
  AVCodecContext* codecContext = nullptr;
  AVFrame* frame = nullptr;
  void* filterBuffer = nullptr;
  uint8_t* filterImage = nullptr;
  SwsContext* swsContext = nullptr;
  // Read without the lock by the codec-change test of every decompress call.
  std::atomic<int32_t> codecId{0};
  // Stored without the lock: a call in flight delivers through the old or the new one.
  std::atomic<FrameCallback> frameCallback{nullptr};
  bool needsInit = true;

  // CORVANE_OPTION_* flags; kept across resets. The filter mode of the last
  // decompress call, which a drain delivers with; and whether the decoder has
  // been told the stream ended.
  uint32_t options = 0;
  int32_t lastMode = ModePlain;
  bool draining = false;

  // The packet handed to the decoder and the pictures it had waiting.
  AVPacket* packet = nullptr;
  compat::PictureQueue pending;

  // The picture shape swsContext was made for, and the rows converted aside
  // so that the caller's last row is never written.
  int swsWidth = 0;
  int swsHeight = 0;
  int swsFormat = -1;
  uint8_t* scratchRows = nullptr;
  int64_t scratchRowsBytes = 0;

  // The shape the filter scratch pair was made for.
  int filterWidth = 0;
  int filterHeight = 0;
  int32_t filterMode = 0;
};

// Holds a lock for a scope. A null mutex is a no-op, as the platform's is.
class ScopedLock {
 public:
  explicit ScopedLock(platform::Mutex* mutex) : mutex_(mutex) { Calls().waitMutex(mutex_); }
  ~ScopedLock() { Calls().releaseMutex(mutex_); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  platform::Mutex* mutex_;
};

platform::Mutex* InitMutex();

// Releases the decoder instance, its frame, packet and queued pictures.
// Caller holds both locks.
void ReleaseDecoderObjects(CodecSession& session);

// Decoder set-up under the session's lock: 0, or ResultDecoderUnavailable /
// ResultNoResource. Takes and releases the process-wide init lock itself.
int32_t SetUpDecoder(CodecSession& session, int32_t codecId);

// Delivery of the picture in session.frame (the session's lock is held).
int32_t DeliverPicture(CodecSession& session, BITMAPINFOHEADER* header, uint8_t* out,
                       int32_t outSize, int32_t mode);

}  // namespace corvane::decoder
