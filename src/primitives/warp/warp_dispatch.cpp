// Entry points of the warp family: dispatch rows 5, 6 and 7.
#include "primitives/core/dispatch_row.h"
#include "primitives/warp/warp.h"

CORVANE_DISPATCH_ROW(ownGetBilinearCoeffs)
CORVANE_DISPATCH_ROW(ownWarpBilinearBufferSize)
CORVANE_DISPATCH_ROW(ownWarpBilinear_8u_C3R)
