#include "primitives/core/cpuid_seam.h"

#include <cpuid.h>

#include <atomic>

namespace corvane::primitives {
namespace {

CpuidRegs HardwareCpuid(uint32_t leaf, uint32_t subleaf) {
  CpuidRegs r{};
  __cpuid_count(leaf, subleaf, r.eax, r.ebx, r.ecx, r.edx);
  return r;
}

uint64_t HardwareXgetbv(uint32_t index) {
  uint32_t lo = 0;
  uint32_t hi = 0;
  // Encoded by hand so that this unit needs no -mxsave.
  __asm__ volatile(".byte 0x0f, 0x01, 0xd0" : "=a"(lo), "=d"(hi) : "c"(index));
  return (static_cast<uint64_t>(hi) << 32) | lo;
}

constexpr CpuidSource kHardware{&HardwareCpuid, &HardwareXgetbv};
std::atomic<const CpuidSource*> source{&kHardware};

}  // namespace

CpuidRegs ownCpuid(uint32_t leaf, uint32_t subleaf) {
  return source.load(std::memory_order_relaxed)->cpuid(leaf, subleaf);
}

uint64_t ownXgetbv(uint32_t index) { return source.load(std::memory_order_relaxed)->xgetbv(index); }

bool ownIsTunedVendor() {
  const CpuidRegs r = ownCpuid(0, 0);
  return r.ebx == 0x756E6547 && r.edx == 0x49656E69 && r.ecx == 0x6C65746E;
}

void SetCpuidSourceForTesting(const CpuidSource* replacement) {
  source.store(replacement ? replacement : &kHardware, std::memory_order_relaxed);
}

}  // namespace corvane::primitives
