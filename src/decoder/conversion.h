// Decoded picture to BGR24 with swscale. The context always covers the full
// picture, so that every row written is exactly FFmpeg's own BGR24 conversion
// of that row, whatever the parity of the height.
#pragma once

#include <cstdint>

#include "decoder/session.h"

namespace corvane::decoder {

// Makes session.swsContext for the picture's size and format, rebuilding it
// when either changed since it was made. False if swscale refuses.
bool PrepareConversion(CodecSession& session, const AVFrame& picture);

// Rows 0 to height - 2 into `dst` (stride width * 3); the last row of `dst` is
// left as it was. False if the session's scratch rows can't be had.
bool ConvertAllButLastRow(CodecSession& session, const AVFrame& picture, uint8_t* dst);

// Every row into `dst` (stride width * 3). False as above.
bool ConvertAllRows(CodecSession& session, const AVFrame& picture, uint8_t* dst);

// Frees the context alone: the next picture makes a new one.
void DropConversionContext(CodecSession& session);

// Frees the context and the scratch rows.
void ReleaseConversion(CodecSession& session);

}  // namespace corvane::decoder
