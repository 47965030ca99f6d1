#include "primitives/core/cpu_features.h"

#include <atomic>

#include "primitives/core/cpuid_seam.h"
#include "primitives/core/variants.h"

namespace corvane::primitives {
namespace {

std::atomic<uint64_t> cpuFeatureWord{0};
std::atomic<int32_t> cpuFeatureValid{0};

constexpr bool Bit(uint32_t reg, int bit) { return ((reg >> bit) & 1u) != 0; }

// Feature bits that count only when the system saves their register state.
constexpr uint64_t kAvxFamily = CpuAvx | CpuAvx2Group;
constexpr uint64_t kAvx512Family = 0x6FF00000;  // every AVX-512 bit of the range, not MPX

struct SelectRow {
  uint64_t test;  // all of these
  int32_t index;
  uint64_t required;  // 0: none, the row's status is StatusCpuUnsupported
};

constexpr SelectRow kSelectRows[] = {
    {CpuAvx512F | CpuAvx512Cd | CpuAvx512Bw | CpuAvx512Dq | CpuAvx512Vl, CpuVariantK0, 0x73081DF},
    {CpuAvx512F | CpuAvx512Cd | CpuAvx512Er | CpuAvx512Pf, CpuVariantL9, 0xF081DF},
    {CpuAvx2Group, CpuVariantL9, 0x81DF},
    {CpuAvx, CpuVariantE9, 0x1DF},
    {CpuSse42, CpuVariantY8, 0xDF},
    {CpuSse41, CpuVariantN8, 0x5F},
    {CpuMovbe, CpuVariantN8, 0x3F},
    {CpuSsse3, CpuVariantN8, 0x1F},
    {CpuSse3, CpuVariantM7, 0xF},
    {CpuSse2, CpuVariantM7, 0x7},
    {CpuSse, CpuVariantM7, 0},
};

}  // namespace

uint64_t ownDetectCpuFeatures() {
  const CpuidRegs leaf0 = ownCpuid(0, 0);
  const uint32_t highest = leaf0.eax;
  if (highest < 1) return 0;

  const CpuidRegs l1 = ownCpuid(1, 0);
  uint64_t w = 0;
  if (Bit(l1.edx, 23)) w |= CpuMmx;
  if (Bit(l1.edx, 25)) w |= CpuSse;
  if (Bit(l1.edx, 26)) w |= CpuSse2;
  if (Bit(l1.ecx, 0)) w |= CpuSse3;
  if (Bit(l1.ecx, 9)) w |= CpuSsse3;
  if (Bit(l1.ecx, 22)) w |= CpuMovbe;
  if (Bit(l1.ecx, 19)) w |= CpuSse41;
  if (Bit(l1.ecx, 20)) w |= CpuSse42;
  if (Bit(l1.ecx, 28)) w |= CpuAvx;
  if (Bit(l1.ecx, 25)) w |= CpuAes;
  if (Bit(l1.ecx, 1)) w |= CpuPclmulqdq;
  if (Bit(l1.ecx, 30)) w |= CpuRdrand;
  if (Bit(l1.ecx, 29)) w |= CpuF16c;
  if ((l1.eax & 0xFF0) == 0xB10) w |= CpuProcessorClass;

  // XGETBV faults unless the system has enabled it (OSXSAVE).
  const bool osxsave = Bit(l1.ecx, 27);
  const uint64_t xcr0 = osxsave ? ownXgetbv(0) : 0;
  if (osxsave && Bit(l1.ecx, 28) && (xcr0 & 0x6) == 0x6) w |= CpuAvxStateSaved;

  if (highest >= 7) {
    const CpuidRegs l7 = ownCpuid(7, 0);
    if (Bit(l1.ecx, 12) && Bit(l7.ebx, 5) && Bit(l7.ebx, 3) && Bit(l7.ebx, 8)) w |= CpuAvx2Group;
    if (Bit(l7.ebx, 19)) w |= CpuAdx;
    if (Bit(l7.ebx, 18)) w |= CpuRdseed;
    if (Bit(l7.ebx, 29)) w |= CpuSha;
    if (Bit(l7.ebx, 16)) w |= CpuAvx512F;
    if (Bit(l7.ebx, 28)) w |= CpuAvx512Cd;
    if (Bit(l7.ebx, 27)) w |= CpuAvx512Er;
    if (Bit(l7.ebx, 26)) w |= CpuAvx512Pf;
    if (Bit(l7.ebx, 30)) w |= CpuAvx512Bw;
    if (Bit(l7.ebx, 17)) w |= CpuAvx512Dq;
    if (Bit(l7.ebx, 31)) w |= CpuAvx512Vl;
    if (Bit(l7.ecx, 1)) w |= CpuAvx512Vbmi;
    if (Bit(l7.ebx, 14)) w |= CpuMpx;
    if (Bit(l7.edx, 3)) w |= CpuAvx512_4Fmaps;
    if (Bit(l7.edx, 2)) w |= CpuAvx512_4Vnniw;
    if (Bit(l7.ebx, 21)) w |= CpuAvx512Ifma;
    // Opmask, upper halves of zmm0-15, zmm16-31.
    if (osxsave && (xcr0 & 0xE0) == 0xE0) w |= CpuAvx512StateSaved;
  }

  const CpuidRegs ext = ownCpuid(0x80000000, 0);
  if (ext.eax >= 0x80000001 && Bit(ownCpuid(0x80000001, 0).ecx, 8)) w |= CpuPrefetchw;
  return w;
}

int32_t ownGetCpuFeatures(uint64_t* features) {
  if (cpuFeatureValid.load(std::memory_order_acquire) == 0) {
    cpuFeatureWord.store(ownDetectCpuFeatures(), std::memory_order_relaxed);
    cpuFeatureValid.store(1, std::memory_order_release);
  }
  *features = cpuFeatureWord.load(std::memory_order_relaxed);
  return 1;
}

void ResetCpuFeaturesForTesting() {
  cpuFeatureValid.store(0, std::memory_order_release);
  cpuFeatureWord.store(0, std::memory_order_relaxed);
}

PrimitiveStatus ownSelectCpuVariant(uint64_t w, int32_t* index) {
  PrimitiveStatus noted = StatusOk;
  if ((w & kAvxFamily) != 0 && (w & CpuAvxStateSaved) == 0) {
    w &= ~kAvxFamily;
    noted = StatusFeatureState;
  }
  if ((w & kAvx512Family) != 0 && (w & CpuAvx512StateSaved) == 0) {
    w &= ~kAvx512Family;
    noted = StatusFeatureState;
  }
  PrimitiveStatus own = StatusCpuUnsupported;
  *index = CpuVariantM7;
  for (const SelectRow& row : kSelectRows) {
    if ((w & row.test) != row.test) continue;
    *index = row.index;
    if (row.required == 0) {
      own = StatusCpuUnsupported;
    } else {
      own = (w & row.required) == row.required ? StatusOk : StatusFeatureGap;
    }
    break;
  }
  return noted != StatusOk ? noted : own;
}

}  // namespace corvane::primitives
