/* corvane_ext.h as a C client sees it: built as strict C99 with every warning. */
#include "corvane_ext.h"

int CorvaneExtOptionsC(void) {
  return (int)(CORVANE_OPTION_PARAMETERS_ANYWHERE | CORVANE_OPTION_FULL_PICTURE |
               CORVANE_OPTION_CONFORMANT | CORVANE_OPTION_FRAME_THREADS);
}
