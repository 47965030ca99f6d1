// 64-byte aligned blocks for the primitives' scratch.
#pragma once

#include <cstdint>

namespace corvane::primitives {

// At least `length` usable bytes at a multiple of 64; null for a length
// below 1, one that overflows with the 72 bytes of overhead, or no memory.
void* ownMallocAligned(int32_t length);

// Frees a block of ownMallocAligned; null does nothing. Dispatch row 0.
void ownFreeAligned(void* block);

// Where a block lands inside the raw allocation `raw` of length + 72 bytes:
// the first multiple of 64 at least 8 bytes in, with `raw` stored just below.
void* ownPlaceAlignedBlock(void* raw);

// The same, reached directly: one function serves every code path.
void ownFreeAlignedDirect(void* block);

}  // namespace corvane::primitives
