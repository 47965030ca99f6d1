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
  static constexpr uint32_t kTunedVendor[3] = {0x756E6547, 0x49656E69, 0x6C65746E};  // ebx edx ecx
  static constexpr uint32_t kOtherVendor[3] = {0x68747541, 0x69746E65, 0x444D4163};

  FakeCpu() {
    active_ = this;
    primitives::SetCpuidSourceForTesting(&source_);
  }
  ~FakeCpu() {
    primitives::SetCpuidSourceForTesting(nullptr);
    active_ = nullptr;
  }
  FakeCpu(const FakeCpu&) = delete;
  FakeCpu& operator=(const FakeCpu&) = delete;

  // Leaf 0 with the highest leaf and a vendor.
  void SetVendor(uint32_t highestLeaf, const uint32_t (&vendor)[3]) {
    Set(0, 0, {highestLeaf, vendor[0], vendor[2], vendor[1]});
  }
  void Set(uint32_t leaf, uint32_t subleaf, primitives::CpuidRegs regs) {
    leaves_[{leaf, subleaf}] = regs;
  }
  void SetXcr0(uint64_t value) { xcr0_ = value; }

  int cpuidCalls() const { return cpuidCalls_; }
  int xgetbvCalls() const { return xgetbvCalls_; }

 private:
  // Leaves without sub-leaves ignore ECX, as the processor does; an unset
  // sub-leaf of leaf 4 or 7 reads as zeros.
  static primitives::CpuidRegs Cpuid(uint32_t leaf, uint32_t subleaf) {
    ++active_->cpuidCalls_;
    const auto& leaves = active_->leaves_;
    auto it = leaves.find({leaf, subleaf});
    if (it == leaves.end() && leaf != 4 && leaf != 7) it = leaves.find({leaf, 0});
    return it == leaves.end() ? primitives::CpuidRegs{} : it->second;
  }
  static uint64_t Xgetbv(uint32_t) {
    ++active_->xgetbvCalls_;
    return active_->xcr0_;
  }

  static inline FakeCpu* active_ = nullptr;
  std::map<std::pair<uint32_t, uint32_t>, primitives::CpuidRegs> leaves_;
  uint64_t xcr0_ = 0;
  int cpuidCalls_ = 0;
  int xgetbvCalls_ = 0;
  primitives::CpuidSource source_{&FakeCpu::Cpuid, &FakeCpu::Xgetbv};
};

}  // namespace corvane::test
