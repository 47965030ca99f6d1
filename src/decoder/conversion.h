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

// True when rows can be converted straight into a buffer of stride width * 3
// slice by slice (ConvertSlice); false when the picture has to go whole
// through ConvertAllRows.
bool ConvertsInSlices(const AVFrame& picture);

// Source rows [firstRow, firstRow + rows) into `dst`, which holds the whole
// picture at stride width * 3. Slices go top to bottom, the first from row 0,
// each starting on an even row; a slice may finish fewer destination rows
// than it has source rows when the converter lags. Gives the number of rows
// finished, or a negative value when swscale refuses.
int ConvertSlice(CodecSession& session, const AVFrame& picture, int firstRow, int rows,
                 uint8_t* dst);

// Frees the context alone: the next picture makes a new one.
void DropConversionContext(CodecSession& session);

// Frees the context and the scratch rows.
void ReleaseConversion(CodecSession& session);

}  // namespace corvane::decoder
