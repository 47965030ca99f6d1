// 64-byte aligned blocks for the primitives' scratch.
#pragma once

#include <cstdint>

#include "primitives/core/variants.h"

namespace corvane::primitives {

// At least `length` usable bytes at a multiple of 64; null for a length
// below 1, one that overflows with the 72 bytes of overhead, or no memory.
void* ownMallocAligned(int32_t length);

}  // namespace corvane::primitives

// Frees a block of ownMallocAligned; null does nothing. Dispatch row 0: one
// function serves every code path.
CORVANE_DECLARE_ENTRY(void, ownFreeAligned, (void* block))
