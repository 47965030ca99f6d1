// Decoding the 1080p H.264 clip through the exports, plainly and through a
// clean-up stage, so that a program can say what the stage adds to a picture.
#pragma once

#include "corvane.h"

namespace corvane::bench {

using DecompressFn = decltype(&H264CodecDecompress);

// Registers "decode" (H264CodecDecompress) and `name` (`stage`), each the
// whole clip through one session a run.
void RegisterDecodeStage(const char* name, DecompressFn stage);

}  // namespace corvane::bench
