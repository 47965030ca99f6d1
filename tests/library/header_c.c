/* corvane.h as a C client sees it: built as strict C99 with every warning, and
 * with the records laid out as the C++ test finds them. */
#include "corvane.h"

#include <stddef.h>

typedef char CorvaneRecordLayout[sizeof(BITMAPINFOHEADER) == 40 && sizeof(CodecFrameRecord) == 40 &&
                                         offsetof(CodecFrameRecord, pixels) == 24
                                     ? 1
                                     : -1];
