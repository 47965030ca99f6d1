// What a decoder session calls below itself while it sets a decoder up, tears
// it down, converts a picture and sizes its filter scratch, and the locks it
// takes. Every such call goes through one table, so that a test can make any
// of them fail, or watch their order, without another build of the library.
// The library itself only ever runs the real table: nothing it reads can
// replace it.
#pragma once

#include <cstdint>

#include "corvane.h"
#include "primitives/core/conventions.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace corvane::platform {
struct Mutex;
}

namespace corvane::decoder {

struct DecoderCalls {
  // Decoder set-up and tear-down.
  const AVCodec* (*findDecoder)(const char* name);
  AVCodecContext* (*allocContext)(const AVCodec* codec);
  int (*openCodec)(AVCodecContext* context, const AVCodec* codec, AVDictionary** options);
  void (*freeContext)(AVCodecContext** context);  // closes too; clears the pointer
  AVFrame* (*allocFrame)();
  AVPacket* (*allocPacket)();
  // Conversion to BGR24.
  SwsContext* (*getSwsContext)(int srcW, int srcH, AVPixelFormat srcFormat, int dstW, int dstH,
                               AVPixelFormat dstFormat, int flags, SwsFilter* srcFilter,
                               SwsFilter* dstFilter, const double* param);
  int (*scale)(SwsContext* context, const uint8_t* const src[], const int srcStride[],
               int srcSliceY, int srcSliceH, uint8_t* const dst[], const int dstStride[]);
  // The filter stages' scratch sizes for a picture.
  PrimitiveStatus (*medianBufferSize)(ImageSize region, ImageSize mask, PixelType type,
                                      int32_t channels, int32_t* size);
  PrimitiveStatus (*sharpenBufferSize)(ImageSize region, int32_t mask, PixelType srcType,
                                       PixelType dstType, int32_t channels, int32_t* size);
  // The session's lock and the process-wide set-up lock.
  void (*waitMutex)(platform::Mutex* mutex);
  void (*releaseMutex)(platform::Mutex* mutex);
};

// The table in force: FFmpeg, swscale, the filter primitives and the
// platform's mutexes, unless a test stood in its own.
const DecoderCalls& Calls();

// The real table, for a test that forwards most calls to it.
const DecoderCalls& RealCalls();

// Replaces the table for every session of the process; null restores the
// real one. Only while no decoder call runs.
void SetDecoderCallsForTesting(const DecoderCalls* calls);

}  // namespace corvane::decoder
