#include "primitives/core/aligned_memory.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include "primitives/core/dispatch_row.h"

namespace corvane::primitives {
namespace {

// Room for the back pointer plus the worst alignment gap.
constexpr int32_t kOverhead = 72;

void FreeAligned(void* block) {
  if (!block) return;
  void* raw = nullptr;
  std::memcpy(&raw, static_cast<char*>(block) - 8, sizeof raw);
  std::free(raw);
}

}  // namespace

void* ownMallocAligned(int32_t length) {
  if (length < 1 || length > std::numeric_limits<int32_t>::max() - kOverhead) return nullptr;
  void* raw = std::malloc(static_cast<size_t>(length) + kOverhead);
  if (!raw) return nullptr;
  // The first multiple of 64 at least 8 bytes in, with the raw block just below.
  const uintptr_t p = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t a = (p + 71) & ~static_cast<uintptr_t>(63);
  std::memcpy(reinterpret_cast<void*>(a - 8), &raw, sizeof raw);
  return reinterpret_cast<void*>(a);
}

}  // namespace corvane::primitives

CORVANE_DISPATCH_SLOTS(ownFreeAligned, &corvane::primitives::FreeAligned,
                       &corvane::primitives::FreeAligned, &corvane::primitives::FreeAligned,
                       &corvane::primitives::FreeAligned, &corvane::primitives::FreeAligned,
                       &corvane::primitives::FreeAligned)
