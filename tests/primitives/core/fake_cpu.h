// A processor made up by a test: CPUID leaves and XCR0 as the test sets them,
// with a count of the calls made. Installed for the life of the object.
#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "primitives/core/cpuid_seam.h"

namespace corvane::test {

class FakeCpu {
 public:
  static constexpr uint32_t kTunedVendor[3] = {0x756E6547, 0x6C65746E, 0x49656E69};  // ebx ecx edx
  static constexpr uint32_t kOtherVendor[3] = {0x68747541, 0x444D4163, 0x69746E65};

  FakeCpu() { active = this, primitives::SetCpuidSourceForTesting(&kSource); }
  ~FakeCpu() { primitives::SetCpuidSourceForTesting(nullptr), active = nullptr; }

  void SetVendor(uint32_t highest, const uint32_t (&v)[3]) {
    Set(0, 0, {highest, v[0], v[1], v[2]});
  }
  void Set(uint32_t leaf, uint32_t sub, primitives::CpuidRegs r) { leaves[{leaf, sub}] = r; }

  uint64_t xcr0 = 0;
  int cpuidCalls = 0, xgetbvCalls = 0;

 private:
  // Leaves other than 4 and 7 ignore the sub-leaf; what isn't set reads as zeros.
  static primitives::CpuidRegs Cpuid(uint32_t leaf, uint32_t sub) {
    ++active->cpuidCalls;
    auto it = active->leaves.find({leaf, leaf == 4 || leaf == 7 ? sub : 0});
    return it == active->leaves.end() ? primitives::CpuidRegs{} : it->second;
  }
  static uint64_t Xgetbv(uint32_t) { return ++active->xgetbvCalls, active->xcr0; }

  static inline FakeCpu* active = nullptr;
  static constexpr primitives::CpuidSource kSource{&Cpuid, &Xgetbv};
  std::map<std::pair<uint32_t, uint32_t>, primitives::CpuidRegs> leaves;
};

}  // namespace corvane::test
