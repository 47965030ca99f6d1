// Process-wide choice of code path and thread count of the primitives.
#pragma once

#include <atomic>
#include <cstdint>

#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

namespace corvane::primitives {

// -1 until the first primitive call resolves it, then a CpuVariant. Written
// once with the same value by any racing first callers.
extern std::atomic<int32_t> cpuVariantIndex __attribute__((visibility("hidden")));

// Detects the features, picks the variant, sets the thread count. Returns the
// status of the choice, or StatusCpuVendor on a processor of another vendor.
PrimitiveStatus ownInitCpuDispatch();

int32_t ownGetNumThreads();
// A count below 1 gives StatusSize and changes nothing.
PrimitiveStatus ownSetNumThreads(int32_t count);

// The variant that ownInitCpuDispatch chooses on this processor.
int32_t ownDetectedCpuVariant();

// Whether this processor can run a code path: every path up to the chosen one.
bool ownCpuCanRunVariant(int32_t index);

// Test hooks: make every dispatch row run one code path (the caller checks
// that the processor can run it), and go back to the detected one.
void ForceCpuVariantForTesting(int32_t index);
void RestoreCpuVariantForTesting();

// Puts the dispatch back into its unresolved first-call state.
void ResetCpuDispatchForTesting();

}  // namespace corvane::primitives
