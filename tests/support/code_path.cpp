#include "support/code_path.h"

#include "primitives/core/cpu_dispatch.h"

namespace corvane::test {

std::string EnterCodePath(int32_t v) {
  if (primitives::ownCpuCanRunVariant(v)) return primitives::ForceCpuVariantForTesting(v), "";
  return std::string("this processor can't run the ") + CodePathName(v) +
         " code path (best: " + CodePathName(primitives::ownDetectedCpuVariant()) + ")";
}

void LeaveCodePath() { primitives::RestoreCpuVariantForTesting(); }

const char* CodePathName(int32_t v) { return primitives::CpuVariantPrefix(v); }

}  // namespace corvane::test
