// Dispatch rows: the first call resolves and behaves as the second, every
// slot is reached; the thread count follows the OpenMP limits.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>

#include "primitives/core/aligned_memory.h"
#include "primitives/core/conventions.h"
#include "primitives/core/cpu_dispatch.h"
#include "primitives/core/dispatch_row.h"

// A row of probes: each variant reports its index and echoes its arguments, so
// a test sees which slot ran and that the arguments passed untouched.
CORVANE_DISPATCHED(int64_t, ownProbe_8u_C3R,
                   (const uint8_t* src, int32_t step, corvane::ImageSize roi, double scale))

#define DEFINE_PROBE(v, index)                                                                    \
  namespace corvane::v {                                                                          \
  int64_t ownProbe_8u_C3R(const uint8_t* src, int32_t step, ImageSize roi, double scale) {        \
    return index * 1000000000LL + (src ? src[0] : 0) * 1000000 + step * 10000 + roi.width * 100 + \
           roi.height + static_cast<int64_t>(scale);                                              \
  }                                                                                               \
  }
DEFINE_PROBE(m7, 0)
DEFINE_PROBE(n8, 1)
DEFINE_PROBE(y8, 2)
DEFINE_PROBE(e9, 3)
DEFINE_PROBE(l9, 4)
DEFINE_PROBE(k0, 5)

CORVANE_DISPATCH_ROW(ownProbe_8u_C3R)

namespace corvane::primitives {
namespace {

class DispatchTest : public ::testing::Test {
 protected:
  void TearDown() override { RestoreCpuVariantForTesting(); }
};

// The first call through any row resolves the index for all rows, and
// behaves as every later call.
TEST_F(DispatchTest, FirstCallResolvesAndBehavesAsTheSecond) {
  ResetCpuDispatchForTesting();
  ASSERT_EQ(cpuVariantIndex.load(), -1);
  const uint8_t pixel = 7;
  const int64_t first = ownProbe_8u_C3R(&pixel, 5, ImageSize{12, 34}, 9.0);
  const int32_t resolved = cpuVariantIndex.load();
  EXPECT_EQ(resolved, ownDetectedCpuVariant());
  EXPECT_EQ(first, ownProbe_8u_C3R(&pixel, 5, ImageSize{12, 34}, 9.0));
  EXPECT_EQ(first, resolved * 1000000000LL + 7 * 1000000 + 5 * 10000 + 12 * 100 + 34 + 9);
  ResetCpuDispatchForTesting();
  ownFreeAligned(nullptr);  // dispatch row 0
  EXPECT_EQ(cpuVariantIndex.load(), ownDetectedCpuVariant());
}

TEST_F(DispatchTest, EverySlotIsReached) {
  for (int32_t v = 0; v < kCpuVariantCount; ++v) {
    ForceCpuVariantForTesting(v);  // the probes are plain code, runnable anywhere
    EXPECT_EQ(ownProbe_8u_C3R(nullptr, 0, ImageSize{0, 0}, 0.0) / 1000000000, v)
        << CpuVariantPrefix(v);
  }
}

// The smaller of the processors and the OpenMP limit; a count below 1 is
// refused and changes nothing.
TEST_F(DispatchTest, ThreadCount) {
  const int saved = omp_get_max_threads();
  for (int limit : {1, 2, 64}) {
    omp_set_num_threads(limit);
    ResetCpuDispatchForTesting();
    ownInitCpuDispatch();
    EXPECT_EQ(ownGetNumThreads(), std::min(limit, omp_get_num_procs())) << "limit " << limit;
  }
  omp_set_num_threads(saved);
  ASSERT_EQ(ownSetNumThreads(3), StatusOk);
  EXPECT_EQ(ownSetNumThreads(0), StatusSize);
  EXPECT_EQ(ownSetNumThreads(-5), StatusSize);
  EXPECT_EQ(ownGetNumThreads(), 3);
  EXPECT_EQ(ownSetNumThreads(1), StatusOk);
}

}  // namespace
}  // namespace corvane::primitives
