// The kernels of the warp roads, one build per code path. Safe to include
// from a kernel unit: declarations only.
//
// Affine kernel slot: draws rows yMin..yMax of the destination, starting at
// dstFirstRow (row yMin), each over the span of its row-table pair (first,
// last column, absolute), sampling the source at the position that the
// inverse set (u = i0·X + i1·Y + i2, v = i3·X + i4·Y + i5) gives.
// workArea: 64-byte aligned, 8 bytes for each column of the destination
// rectangle, as the warp sizing provides.
#pragma once

#include <cstdint>

#include "primitives/core/variants.h"

CORVANE_DECLARE_VARIANTS(void, ownWarpAffineNearest_8u_C3,
                         (const uint8_t* src, uint8_t* dstFirstRow, int32_t srcStep,
                          int32_t dstStep, int32_t yMin, int32_t yMax, const int32_t* rowTable,
                          const double* inverse, int32_t lastColumn, int32_t lastRow,
                          uint8_t* workArea))
