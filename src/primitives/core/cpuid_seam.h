// How the primitive frame reaches CPUID and XGETBV. Everything that asks the
// processor goes through here, so that tests can stand in a processor of their
// own making.
#pragma once

#include <cstdint>

namespace corvane::primitives {

struct CpuidRegs {
  uint32_t eax = 0;
  uint32_t ebx = 0;
  uint32_t ecx = 0;
  uint32_t edx = 0;
};

struct CpuidSource {
  CpuidRegs (*cpuid)(uint32_t leaf, uint32_t subleaf);
  uint64_t (*xgetbv)(uint32_t index);  // called only when OSXSAVE is set
};

CpuidRegs ownCpuid(uint32_t leaf, uint32_t subleaf);
uint64_t ownXgetbv(uint32_t index);

// Leaf 0 names the vendor whose processors the library is tuned for.
bool ownIsTunedVendor();

// Replaces the processor seen by ownCpuid/ownXgetbv; null restores the real one.
void SetCpuidSourceForTesting(const CpuidSource* source);

}  // namespace corvane::primitives
