#include "decoder/conversion.h"

#include <cstdlib>
#include <cstring>

extern "C" {
#include <libswscale/swscale.h>
}

namespace corvane::decoder {

namespace {

// Source rows left for the second pass. swscale takes chroma-subsampled slices
// in steps of two rows, and its exact converters write two rows at a time.
constexpr int kTailSourceRows = 2;

int64_t RowBytes(const AVFrame& picture) {
    return static_cast<int64_t>(picture.width) * 3;
}

bool EnsureTailRows(CodecSession& session, int64_t bytes) {
    if (bytes <= session.tailRowsBytes) return true;
    auto* grown = static_cast<uint8_t*>(std::realloc(session.tailRows, static_cast<size_t>(bytes)));
    if (!grown) return false;
    session.tailRows = grown;
    session.tailRowsBytes = bytes;
    return true;
}

}  // namespace

bool PrepareConversion(CodecSession& session, const AVFrame& picture) {
    if (session.swsContext && session.swsWidth == picture.width &&
        session.swsHeight == picture.height && session.swsFormat == picture.format)
        return true;
    sws_freeContext(session.swsContext);
    session.swsContext = sws_getContext(picture.width, picture.height,
                                        static_cast<AVPixelFormat>(picture.format), picture.width,
                                        picture.height, AV_PIX_FMT_BGR24, SWS_FAST_BILINEAR,
                                        nullptr, nullptr, nullptr);
    session.swsWidth = picture.width;
    session.swsHeight = picture.height;
    session.swsFormat = picture.format;
    return session.swsContext != nullptr;
}

bool ConvertAllButLastRow(CodecSession& session, const AVFrame& picture, uint8_t* dst) {
    const int height = picture.height;
    const int64_t rowBytes = RowBytes(picture);
    const int stride = static_cast<int>(rowBytes);
    if (height < 2) return true;  // a one-row picture has no row to write

    // First pass: the top of the picture straight into the caller's buffer.
    // swscale says how many destination rows it could finish from these
    // source rows; the rest come out of the second pass.
    const int headSourceRows = (height - kTailSourceRows) & ~1;
    int rowsDone = 0;
    if (headSourceRows > 0) {
        uint8_t* planes[4] = {dst, nullptr, nullptr, nullptr};
        const int strides[4] = {stride, 0, 0, 0};
        rowsDone = sws_scale(session.swsContext, picture.data, picture.linesize, 0,
                             headSourceRows, planes, strides);
        if (rowsDone < 0) rowsDone = 0;
    }

    // Second pass: the remaining rows, last row included, into the session's
    // scratch. swscale addresses destination row r at plane + r * stride, so the
    // plane is placed rowsDone rows before the scratch (never written there).
    if (!EnsureTailRows(session, (height - rowsDone) * rowBytes)) return false;
    const auto tailOrigin =
        reinterpret_cast<uintptr_t>(session.tailRows) - static_cast<uintptr_t>(rowsDone * rowBytes);
    uint8_t* planes[4] = {reinterpret_cast<uint8_t*>(tailOrigin), nullptr, nullptr, nullptr};
    const int strides[4] = {stride, 0, 0, 0};
    sws_scale(session.swsContext, picture.data, picture.linesize, headSourceRows,
              height - headSourceRows, planes, strides);
    const int rowsToCopy = height - 1 - rowsDone;
    if (rowsToCopy > 0)
        std::memcpy(dst + rowsDone * rowBytes, session.tailRows,
                    static_cast<size_t>(rowsToCopy * rowBytes));
    return true;
}

void ConvertAllRows(CodecSession& session, const AVFrame& picture, uint8_t* dst) {
    uint8_t* planes[4] = {dst, nullptr, nullptr, nullptr};
    const int strides[4] = {static_cast<int>(RowBytes(picture)), 0, 0, 0};
    sws_scale(session.swsContext, picture.data, picture.linesize, 0, picture.height, planes,
              strides);
}

void DropConversionContext(CodecSession& session) {
    sws_freeContext(session.swsContext);
    session.swsContext = nullptr;
    session.swsWidth = 0;
    session.swsHeight = 0;
    session.swsFormat = -1;
}

void ReleaseConversion(CodecSession& session) {
    DropConversionContext(session);
    std::free(session.tailRows);
    session.tailRows = nullptr;
    session.tailRowsBytes = 0;
}

}  // namespace corvane::decoder
