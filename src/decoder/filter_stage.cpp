#include "decoder/filter_stage.h"

#include <cstdlib>

namespace corvane::decoder {

bool IsFilterMode(int32_t mode) {
    return mode == ModeMedian || mode == ModeMedianToo || mode == ModeSharpen;
}

int32_t RunFilterStage(CodecSession&, int32_t, const AVFrame&, uint8_t*) {
    // The median and sharpen primitives aren't part of the library yet: the
    // stage refuses rather than hand out an unfiltered picture as a filtered
    // one. Nothing is allocated, so nothing is left behind.
    return ResultFilterFailed;
}

void ReleaseFilterScratch(CodecSession& session) {
    std::free(session.filterImage);
    session.filterImage = nullptr;
    // filterBuffer is the filter primitive's working memory and goes back
    // through that primitive's allocator; no stage makes it yet.
    session.filterBuffer = nullptr;
    session.filterWidth = 0;
    session.filterHeight = 0;
    session.filterMode = 0;
}

}  // namespace corvane::decoder
