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
    ownFreeAligned(blocks[i]);
  }
}

}  // namespace
}  // namespace corvane::primitives
