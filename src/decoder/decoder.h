// The decoder family as the exports see it: one CodecSession per stream.
#pragma once

#include <cstdint>

#include "corvane.h"
#include "corvane_ext.h"

namespace corvane::decoder {

struct CodecSession;

// The process-wide lock around decoder set-up and tear-down, shared by every
// process of the user that loads the library ("H264initMutex"). Made at
// process attach; without it set-ups simply run unserialised.
void CreateInitMutex();
void CloseInitMutex();

// Null if the record or its lock can't be made.
CodecSession* OpenSession();
// Drops the decoder and all scratch; the frame callback stays. Always 1.
int32_t ResetSession(CodecSession* session);
// Reset, then the record and its lock are gone. Always 1.
int32_t CloseSession(CodecSession* session);
void SetFrameCallback(CodecSession* session, FrameCallback callback);

// The CORVANE_OPTION_* flags a session knows.
constexpr uint32_t KnownOptions = CORVANE_OPTION_PARAMETERS_ANYWHERE | CORVANE_OPTION_FULL_PICTURE |
                                  CORVANE_OPTION_CONFORMANT | CORVANE_OPTION_FRAME_THREADS;
// Replaces the session's options: 0, or ResultBadArgument for an unknown flag.
int32_t SetOptions(CodecSession* session, uint32_t options);

// Post-processing modes of a decompress call.
constexpr int32_t ModePlain = 0;
constexpr int32_t ModeMedian = 1;
constexpr int32_t ModeSharpen = 2;
constexpr int32_t ModeMedianToo = 3;  // the same stage as ModeMedian
constexpr int32_t ModeNone = 255;

constexpr int32_t CodecH264 = 27;   // AV_CODEC_ID_H264
constexpr int32_t CodecHevc = 173;  // AV_CODEC_ID_HEVC

// One packet in, at most one picture out, delivered as BGR24 into `out` or
// through the frame callback. The session must not be null.
int32_t CodecDecompress(CodecSession* session, const uint8_t* data, int32_t size,
                        BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize, int32_t mode,
                        int32_t codecId);

// One picture still held by the decoder at the end of a stream, delivered as
// the last decompress call delivered: 1, 0 when none is left (the session is
// then reset), or a negative result code. Session and header must not be null.
int32_t DrainSession(CodecSession* session, BITMAPINFOHEADER* header, uint8_t* out,
                     int32_t outSize);

}  // namespace corvane::decoder
