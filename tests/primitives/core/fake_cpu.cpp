#include "fake_cpu.h"

namespace corvane::test {

FakeCpu* FakeCpu::active_ = nullptr;

FakeCpu::FakeCpu() : source_{&FakeCpu::Cpuid, &FakeCpu::Xgetbv} {
  active_ = this;
  primitives::SetCpuidSourceForTesting(&source_);
}

FakeCpu::~FakeCpu() {
  primitives::SetCpuidSourceForTesting(nullptr);
  active_ = nullptr;
}

void FakeCpu::SetVendor(uint32_t highestLeaf, const uint32_t (&vendor)[3]) {
  Set(0, 0, {highestLeaf, vendor[0], vendor[2], vendor[1]});
}

void FakeCpu::Set(uint32_t leaf, uint32_t subleaf, primitives::CpuidRegs regs) {
  leaves_[{leaf, subleaf}] = regs;
}

primitives::CpuidRegs FakeCpu::Cpuid(uint32_t leaf, uint32_t subleaf) {
  ++active_->cpuidCalls_;
  // Leaves without sub-leaves ignore ECX, as the processor does; an unset
  // sub-leaf of leaf 4 or 7 reads as zeros.
  auto it = active_->leaves_.find({leaf, subleaf});
  if (it == active_->leaves_.end() && leaf != 4 && leaf != 7) it = active_->leaves_.find({leaf, 0});
  return it == active_->leaves_.end() ? primitives::CpuidRegs{} : it->second;
}

uint64_t FakeCpu::Xgetbv(uint32_t) {
  ++active_->xgetbvCalls_;
  return active_->xcr0_;
}

}  // namespace corvane::test
