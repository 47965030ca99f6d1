#include "harness/variant_test.h"

#include "harness/test_rng.h"
#include "primitives/core/cpu_dispatch.h"

namespace corvane::test {

void VariantTest::SetUp() {
  const int32_t v = Variant();
  if (!primitives::ownCpuCanRunVariant(v)) {
    GTEST_SKIP() << "this processor can't run the " << primitives::CpuVariantPrefix(v)
                 << " code path (best: "
                 << primitives::CpuVariantPrefix(primitives::ownDetectedCpuVariant()) << ")";
  }
  primitives::ForceCpuVariantForTesting(v);
  rng_ = MakeTestRng();
}

void VariantTest::TearDown() { primitives::RestoreCpuVariantForTesting(); }

std::string VariantParamName(const ::testing::TestParamInfo<int32_t>& info) {
  return primitives::CpuVariantPrefix(info.param);
}

}  // namespace corvane::test
