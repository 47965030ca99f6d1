#include "primitives/core/aligned_memory.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include "primitives/core/dispatch_row.h"

namespace corvane::primitives {
namespace {

// Room for the back pointer plus the worst alignment gap.
constexpr int32_t kOverhead = 72;

constexpr DispatchRow<void(void*)> kFreeRow = {
    {&FirstCallStub<&ownFreeAligned>::Run, &ownFreeAlignedDirect, &ownFreeAlignedDirect,
     &ownFreeAlignedDirect, &ownFreeAlignedDirect, &ownFreeAlignedDirect, &ownFreeAlignedDirect,
     nullptr}};

}  // namespace

void* ownPlaceAlignedBlock(void* raw) {
  const uintptr_t p = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t a = (p + 71) & ~static_cast<uintptr_t>(63);
  std::memcpy(reinterpret_cast<void*>(a - 8), &raw, sizeof raw);
  return reinterpret_cast<void*>(a);
}

void* ownMallocAligned(int32_t length) {
  if (length < 1 || length > std::numeric_limits<int32_t>::max() - kOverhead) return nullptr;
  void* raw = std::malloc(static_cast<size_t>(length) + kOverhead);
  return raw ? ownPlaceAlignedBlock(raw) : nullptr;
}

void ownFreeAlignedDirect(void* block) {
  if (!block) return;
  void* raw = nullptr;
  std::memcpy(&raw, static_cast<char*>(block) - 8, sizeof raw);
  std::free(raw);
}

void ownFreeAligned(void* block) { kFreeRow.Call(block); }

}  // namespace corvane::primitives
