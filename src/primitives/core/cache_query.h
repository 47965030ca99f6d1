// Size of the processor's largest cache, which decides when a copy goes
// around the cache with non-temporal stores.
#pragma once

#include <cstdint>

#include "primitives/core/conventions.h"

namespace corvane::primitives {

// Largest data or unified cache in bytes. StatusOk with the size;
// StatusCpuUnsupported (another vendor, or highest CPUID leaf below 2) or
// StatusCacheUnknown (no such cache listed) otherwise, with a size not to be
// used; StatusNullPointer for a null output. Asks the processor once: later
// calls repeat the first answer.
PrimitiveStatus ownGetCacheSize(int32_t* size);

// The lookup of the n8 and y8 copies: the vendor test, then the leaf 2
// descriptors against a table that knows caches of 512 KiB and above.
// 0 when that finds nothing. Asks the processor once.
int32_t ownPackedDescriptorCacheSize();

// The leaf 2 descriptor lookup alone: a size, or 0 when no row matches.
int32_t ownDescriptorCacheSize();

// Forget every answer, so that the next query asks the (possibly mocked)
// processor again.
void ResetCacheQueryForTesting();

// Make every later query answer `size` with `status`, as if asked already.
// The n8/y8 lookup answers `size` when `status` is StatusOk, else 0.
void SetCacheSizeForTesting(int32_t size, PrimitiveStatus status);

}  // namespace corvane::primitives
