// a·b + c, with one rounding on the code paths that have fused multiply-add
// (l9, k0) and two elsewhere. The warp geometry fuses on purpose in a few
// places only; its kernel sources are built without contraction, so that no
// other sum changes between paths. Kernel units only.
#pragma once

namespace corvane::CORVANE_VARIANT {
namespace {

[[maybe_unused]] double FusedMulAdd(double a, double b, double c) {
#if CORVANE_VARIANT_INDEX >= 4
  return __builtin_fma(a, b, c);
#else
  return a * b + c;
#endif
}

}  // namespace
}  // namespace corvane::CORVANE_VARIANT
