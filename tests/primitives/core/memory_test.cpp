// Aligned blocks, and the row and block copies of every code path against
// memcpy, across the thresholds of their roads.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "conformance.h"
#include "primitives/core/aligned_memory.h"
#include "primitives/core/cache_query.h"
#include "primitives/core/copy.h"

namespace corvane::test {
namespace {

using namespace primitives;

TEST(AlignedMemory, RefusesWhatItCannotServeAndAlignsTheRest) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
  for (int32_t n : {0, -1, std::numeric_limits<int32_t>::min(), kMax, kMax - 71}) {
    EXPECT_EQ(ownMallocAligned(n), nullptr) << n;
  }
  ownFreeAligned(nullptr);
  std::vector<void*> blocks;
  for (int32_t n = 1; n < 3000; n += 7) {
    auto* p = static_cast<uint8_t*>(ownMallocAligned(n));
    ASSERT_NE(p, nullptr) << n;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u) << n;
    std::memset(p, 0x5A, static_cast<size_t>(n));  // a sanitizer checks the extent
    blocks.push_back(p);
  }
  for (void* p : blocks) ownFreeAligned(p);
}

void ByMemcpy(const Frame& f) {
  for (int32_t y = 0; y < f.roi.height; ++y) {
    std::memcpy(f.dst + intptr_t{y} * f.dstStep, f.src + intptr_t{y} * f.srcStep, f.roi.width);
  }
}

// Kind 1: the cache query answers 1 MiB, which opens the non-temporal roads
// of every path to the large sizes, whatever this processor's cache.
const decltype(&m7::ownCopyRows) kCopyRows[] = CORVANE_EACH_PATH(ownCopyRows);

void CopyRows(const Frame& f) {
  if (f.arg.kind == 1) SetCacheSizeForTesting(1 << 20, StatusOk);
  kCopyRows[f.variant](f.src, f.srcStep, f.dst, f.dstStep, f.roi.width, f.roi.height);
  ResetCacheQueryForTesting();
}

// l9 and k0 only, row by row. Kind 2 takes the short copy below its limit.
void CopyBlock(const Frame& f) {
  if (f.arg.kind == 1) SetCacheSizeForTesting(1 << 20, StatusOk);
  const bool wide = f.variant == CpuVariantK0, isShort = f.arg.kind == 2 && f.roi.width < 32768;
  for (int32_t y = 0; y < f.roi.height; ++y) {
    const uint8_t* s = f.src + intptr_t{y} * f.srcStep;
    uint8_t* d = f.dst + intptr_t{y} * f.dstStep;
    if (isShort) {
      (wide ? k0::ownCopyShort : l9::ownCopyShort)(s, d, f.roi.width);
    } else {
      (wide ? k0::ownCopyBlock : l9::ownCopyBlock)(s, d, f.roi.width);
    }
  }
  ResetCacheQueryForTesting();
}

const bool kCopies = [] {
  const Arg asked{"cache as asked"}, small{"cache of 1 MiB", {}, {}, 0, 1};
  Row rows{"copy_rows", {1, 1}, {asked, small}, CopyRows, ByMemcpy};
  rows.negativeSteps = true, rows.maxWidth = 1100;
  rows.sizes = {{255, 3}, {511, 9}, {512, 3}, {1023, 5}, {1024, 5}, {1056, 3000}};
  Row block{"copy_block", {1, 1}, {asked, small, {"short", {}, {}, 0, 2}}, CopyBlock, ByMemcpy};
  block.variants = 1 << CpuVariantL9 | 1 << CpuVariantK0, block.maxWidth = 300;
  block.sizes = {{255, 2},   {16384, 2}, {16447, 1},   {32767, 1},
                 {32768, 1}, {50001, 1}, {0x400001, 1}};
  return AddRow(rows) && AddRow(block);
}();

}  // namespace
}  // namespace corvane::test
