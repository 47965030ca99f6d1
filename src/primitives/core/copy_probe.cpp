#include "primitives/core/copy.h"

namespace corvane::primitives {

void (*copyRoadProbe)(int32_t road) = nullptr;

}  // namespace corvane::primitives
