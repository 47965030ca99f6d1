#include "primitives/core/cpu_dispatch.h"

#include <omp.h>

#include <algorithm>

#include "primitives/core/cpu_features.h"
#include "primitives/core/cpuid_seam.h"

namespace corvane::primitives {

std::atomic<int32_t> cpuVariantIndex{-1};

namespace {
std::atomic<int32_t> primitiveThreads{1};
}  // namespace

const char* CpuVariantPrefix(int32_t index) {
  static constexpr const char* kPrefixes[kCpuVariantCount] = {"m7", "n8", "y8", "e9", "l9", "k0"};
  return index >= 0 && index < kCpuVariantCount ? kPrefixes[index] : "??";
}

PrimitiveStatus ownInitCpuDispatch() {
  ownSetNumThreads(std::min(omp_get_num_procs(), omp_get_max_threads()));
  uint64_t features = 0;
  ownGetCpuFeatures(&features);
  int32_t index = CpuVariantM7;
  PrimitiveStatus status = ownSelectCpuVariant(features, &index);
  cpuVariantIndex.store(index, std::memory_order_relaxed);
  // The vendor is reported, never acted on: the variant follows the features alone.
  if (!ownIsTunedVendor()) status = StatusCpuVendor;
  return status;
}

int32_t ownGetNumThreads() { return primitiveThreads.load(std::memory_order_relaxed); }

PrimitiveStatus ownSetNumThreads(int32_t count) {
  if (count < 1) return StatusSize;
  primitiveThreads.store(count, std::memory_order_relaxed);
  return StatusOk;
}

int32_t ownDetectedCpuVariant() {
  uint64_t features = 0;
  ownGetCpuFeatures(&features);
  int32_t index = CpuVariantM7;
  ownSelectCpuVariant(features, &index);
  return index;
}

bool ownCpuCanRunVariant(int32_t index) { return index >= 0 && index <= ownDetectedCpuVariant(); }

void ForceCpuVariantForTesting(int32_t index) {
  cpuVariantIndex.store(index, std::memory_order_relaxed);
}

void RestoreCpuVariantForTesting() {
  cpuVariantIndex.store(ownDetectedCpuVariant(), std::memory_order_relaxed);
}

void ResetCpuDispatchForTesting() {
  cpuVariantIndex.store(-1, std::memory_order_relaxed);
  primitiveThreads.store(1, std::memory_order_relaxed);
  ResetCpuFeaturesForTesting();
}

}  // namespace corvane::primitives
