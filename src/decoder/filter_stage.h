// The filter stages between conversion and output: median (ModeMedian,
// ModeMedianToo) and sharpen (ModeSharpen). A stage converts the picture into
// the session's filterImage and filters it into the destination band by
// band, while a band's rows are still in cache, using the scratch pair
// filterImage / filterBuffer: made by the first filtered picture, kept while
// the picture size and the stage stay, made anew when either changes.
#pragma once

#include <cstdint>

#include "decoder/session.h"

namespace corvane::decoder {

bool IsFilterMode(int32_t mode);

// Runs the stage of `mode` on the picture into `dst` (width * 3 stride, full
// height). 0, ResultNoResource when the scratch can't be sized or had, or
// ResultFilterFailed when the filter refuses.
int32_t RunFilterStage(CodecSession& session, int32_t mode, const AVFrame& picture, uint8_t* dst);

// Frees filterImage and filterBuffer, if made, and clears them.
void ReleaseFilterScratch(CodecSession& session);

}  // namespace corvane::decoder
