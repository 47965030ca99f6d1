// The sharpen's sizing and filter entries, each a jump to the build of the
// code path this processor runs.
#include "primitives/core/dispatch_row.h"
#include "primitives/sharpen/sharpen.h"

CORVANE_DISPATCH_ROW(ownFilterSharpenBorderGetBufferSize)
CORVANE_DISPATCH_ROW(ownFilterSharpenBorder_8u_C3R)
