// Dispatch rows 1 and 2 and the all-forms filter: the median's entries, each a jump
// to the build of the code path this processor runs.
#include "primitives/core/dispatch_row.h"
#include "primitives/median/median.h"

CORVANE_DISPATCH_ROW(ownFilterMedianBorderGetBufferSize)
CORVANE_DISPATCH_ROW(ownFilterMedianBorder_8u_C3R)
CORVANE_DISPATCH_ROW(ownFilterMedianBorder)
