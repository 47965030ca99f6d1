// The processor's features as one 64-bit word, and the rule that turns a word
// into a code path.
#pragma once

#include <cstdint>

#include "primitives/core/conventions.h"

namespace corvane::primitives {

// Bits of the feature word.
enum : uint64_t {
  CpuMmx = 0x1,
  CpuSse = 0x2,
  CpuSse2 = 0x4,
  CpuSse3 = 0x8,
  CpuSsse3 = 0x10,
  CpuMovbe = 0x20,
  CpuSse41 = 0x40,
  CpuSse42 = 0x80,
  CpuAvx = 0x100,
  CpuAvxStateSaved = 0x200,
  CpuAes = 0x400,
  CpuPclmulqdq = 0x800,
  CpuRdrand = 0x2000,
  CpuF16c = 0x4000,
  CpuAvx2Group = 0x8000,  // AVX2 with FMA, BMI1 and BMI2
  CpuAdx = 0x10000,
  CpuRdseed = 0x20000,
  CpuPrefetchw = 0x40000,
  CpuSha = 0x80000,
  CpuAvx512F = 0x100000,
  CpuAvx512Cd = 0x200000,
  CpuAvx512Er = 0x400000,
  CpuAvx512Pf = 0x800000,
  CpuAvx512Bw = 0x1000000,
  CpuAvx512Dq = 0x2000000,
  CpuAvx512Vl = 0x4000000,
  CpuAvx512Vbmi = 0x8000000,
  CpuMpx = 0x10000000,
  CpuAvx512_4Fmaps = 0x20000000,
  CpuAvx512_4Vnniw = 0x40000000,
  CpuProcessorClass = 0x80000000,
  CpuAvx512Ifma = 0x100000000,
  CpuAvx512StateSaved = 0x200000000,
};

// Reads the features through the CPUID seam, without caching.
uint64_t ownDetectCpuFeatures();

// Gives the cached word, detecting it on the first call. Returns non-zero.
int32_t ownGetCpuFeatures(uint64_t* features);

// Chooses the code path for a feature word. Returns StatusOk,
// StatusCpuUnsupported, StatusFeatureState or StatusFeatureGap; a variant is
// always chosen.
PrimitiveStatus ownSelectCpuVariant(uint64_t features, int32_t* index);

// Forgets the cached word, so that the next ownGetCpuFeatures detects again.
void ResetCpuFeaturesForTesting();

}  // namespace corvane::primitives
