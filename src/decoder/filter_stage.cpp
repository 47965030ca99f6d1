#include "decoder/filter_stage.h"

#include <cstdlib>

#include "decoder/conversion.h"
#include "primitives/core/aligned_memory.h"
#include "primitives/median/median.h"

namespace corvane::decoder {

namespace {

constexpr ImageSize kMedianMask{3, 3};
// Replicate mode makes no pixel from the value; the filter still wants one.
constexpr uint8_t kBorderValue[3] = {0, 0, 0};

// Makes filterImage and filterBuffer for the picture's size, or keeps the
// pair made for it by an earlier picture. 0 or ResultNoResource, with nothing
// left allocated on failure.
int32_t PrepareMedianScratch(CodecSession& session, const AVFrame& picture) {
    if (session.filterImage && session.filterMode == ModeMedian &&
        session.filterWidth == picture.width && session.filterHeight == picture.height) {
        return 0;
    }
    ReleaseFilterScratch(session);
    const ImageSize region{picture.width, picture.height};
    int32_t size = 0;
    if (primitives::ownFilterMedianBorderGetBufferSize(region, kMedianMask, PixelType8u, 3,
                                                       &size) != StatusOk) {
        return ResultNoResource;
    }
    session.filterBuffer = primitives::ownMallocAligned(size > 0 ? size : 1);
    session.filterImage = static_cast<uint8_t*>(
        std::malloc(static_cast<size_t>(picture.width) * 3 * static_cast<size_t>(picture.height)));
    if (!session.filterBuffer || !session.filterImage) {
        ReleaseFilterScratch(session);
        return ResultNoResource;
    }
    session.filterWidth = picture.width;
    session.filterHeight = picture.height;
    session.filterMode = ModeMedian;
    return 0;
}

// Every row of the picture goes into filterImage (the session's own scratch,
// so the last row is converted too and the output is the same whatever the
// caller's buffer held), and the median runs from there into dst.
int32_t RunMedianStage(CodecSession& session, const AVFrame& picture, uint8_t* dst) {
    const int32_t prepared = PrepareMedianScratch(session, picture);
    if (prepared != 0) return prepared;
    if (!ConvertAllRows(session, picture, session.filterImage)) return ResultNoResource;
    const int32_t step = picture.width * 3;
    const PrimitiveStatus status = primitives::ownFilterMedianBorder_8u_C3R(
        session.filterImage, step, dst, step, ImageSize{picture.width, picture.height},
        kMedianMask, BorderReplicate, kBorderValue,
        static_cast<uint8_t*>(session.filterBuffer));
    return status == StatusOk ? 0 : ResultFilterFailed;
}

}  // namespace

bool IsFilterMode(int32_t mode) {
    return mode == ModeMedian || mode == ModeMedianToo || mode == ModeSharpen;
}

int32_t RunFilterStage(CodecSession& session, int32_t mode, const AVFrame& picture, uint8_t* dst) {
    if (mode == ModeMedian || mode == ModeMedianToo) return RunMedianStage(session, picture, dst);
    // The sharpen primitive isn't part of the library yet: the stage refuses
    // rather than hand out an unfiltered picture as a filtered one. Nothing
    // is allocated for it.
    return ResultFilterFailed;
}

void ReleaseFilterScratch(CodecSession& session) {
    std::free(session.filterImage);
    session.filterImage = nullptr;
    primitives::ownFreeAligned(session.filterBuffer);
    session.filterBuffer = nullptr;
    session.filterWidth = 0;
    session.filterHeight = 0;
    session.filterMode = 0;
}

}  // namespace corvane::decoder
