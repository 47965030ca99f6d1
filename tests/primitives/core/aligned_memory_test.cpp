// Aligned blocks: refusals at the edges, and the placement rule for every
// offset that malloc could give.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "primitives/core/aligned_memory.h"

namespace corvane::primitives {
namespace {

TEST(AlignedMemory, RefusesLengthsItCannotServe) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
  for (int32_t n : {0, -1, std::numeric_limits<int32_t>::min(), kMax, kMax - 71, kMax - 60}) {
    EXPECT_EQ(ownMallocAligned(n), nullptr) << n;
  }
  ownFreeAligned(nullptr);
  ownFreeAlignedDirect(nullptr);
}

TEST(AlignedMemory, PlacementForEveryMallocOffset) {
  // A raw block of 72 + 16 bytes at each offset 0..63 from a 64-byte boundary.
  alignas(64) static uint8_t arena[64 + 64 + 72 + 16];
  for (uintptr_t offset = 0; offset < 64; ++offset) {
    uint8_t* raw = arena + offset;
    auto* a = static_cast<uint8_t*>(ownPlaceAlignedBlock(raw));
    const uintptr_t address = reinterpret_cast<uintptr_t>(a);
    EXPECT_EQ(address % 64, 0u) << offset;
    EXPECT_GE(a, raw + 8) << offset;
    EXPECT_LE(a, raw + 71) << offset;
    EXPECT_LE(a + 16, raw + 72 + 16) << "usable bytes leave the block at offset " << offset;
    void* back = nullptr;
    std::memcpy(&back, a - 8, sizeof back);
    EXPECT_EQ(back, raw) << offset;
  }
  // The two cases named by the placement rule.
  EXPECT_EQ(ownPlaceAlignedBlock(arena), arena + 64);
  EXPECT_EQ(ownPlaceAlignedBlock(arena + 8), arena + 64);
}

TEST(AlignedMemory, ManyBlocksAreAlignedWritableAndFreed) {
  std::vector<void*> blocks;
  for (int32_t n = 1; n < 3000; n += 7) {
    auto* p = static_cast<uint8_t*>(ownMallocAligned(n));
    ASSERT_NE(p, nullptr) << n;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u) << n;
    std::memset(p, 0x5A, static_cast<size_t>(n));  // ASan checks the extent
    blocks.push_back(p);
  }
  for (size_t i = 0; i < blocks.size(); ++i) {
    (i & 1) ? ownFreeAligned(blocks[i]) : ownFreeAlignedDirect(blocks[i]);
  }
}

}  // namespace
}  // namespace corvane::primitives
