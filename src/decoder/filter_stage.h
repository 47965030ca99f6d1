// The filter stages between conversion and output: median (ModeMedian,
// ModeMedianToo) and sharpen (ModeSharpen). Both convert the picture into the
// session's filterImage and filter it into the destination, using the
// scratch pair filterImage / filterBuffer kept from picture to picture.
#pragma once

#include <cstdint>

#include "decoder/session.h"

namespace corvane::decoder {

bool IsFilterMode(int32_t mode);

// Runs the stage of `mode` on the picture into `dst` (width * 3 stride, full
// height). 0, ResultNoResource when the scratch can't be had, or
// ResultFilterFailed when the filter refuses.
int32_t RunFilterStage(CodecSession& session, int32_t mode, const AVFrame& picture, uint8_t* dst);

// Frees filterImage and filterBuffer, if made, and clears them.
void ReleaseFilterScratch(CodecSession& session);

}  // namespace corvane::decoder
