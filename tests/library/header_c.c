/* corvane.h as a C client sees it: built as strict C99 with every warning. */
#include "corvane.h"

#include <stddef.h>

int CorvaneHeaderRecordSizeC(void) {
  return (int)(sizeof(BITMAPINFOHEADER) + sizeof(CodecFrameRecord));
}

int CorvaneHeaderPixelsOffsetC(void) { return (int)offsetof(CodecFrameRecord, pixels); }
