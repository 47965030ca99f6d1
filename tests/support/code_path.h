// Tests that run on one code path of the primitives:
//   class WarpGeometryTest : public corvane::test::CodePathTest {};
//   TEST_P(WarpGeometryTest, ...) { ... Variant() ... Rng() ... }
//   CORVANE_INSTANTIATE_CODE_PATHS(WarpGeometryTest);
// SetUp skips (with the reason) a path this processor can't run, else forces
// every dispatch row onto it through the test hook and seeds Rng(); TearDown
// puts the detected path back. Parameter p runs code path p % 6, so a suite
// may number its cases case · 6 + path.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "primitives/core/cpu_dispatch.h"
#include "support/rng.h"

namespace corvane::test {

inline const char* CodePathName(int32_t v) { return primitives::CpuVariantPrefix(v); }

// Empty when this processor runs code path v (now forced), else why not.
inline std::string EnterCodePath(int32_t v) {
  if (primitives::ownCpuCanRunVariant(v)) return primitives::ForceCpuVariantForTesting(v), "";
  return std::string("this processor can't run the ") + CodePathName(v) +
         " code path (best: " + CodePathName(primitives::ownDetectedCpuVariant()) + ")";
}
inline void LeaveCodePath() { primitives::RestoreCpuVariantForTesting(); }

class CodePathTest : public ::testing::TestWithParam<int32_t> {
 protected:
  int32_t Variant() const { return GetParam() % 6; }
  std::mt19937& Rng() { return rng_; }
  void SetUp() override {
    const std::string why = EnterCodePath(Variant());
    if (!why.empty()) GTEST_SKIP() << why;
    rng_ = MakeTestRng();
  }
  void TearDown() override { LeaveCodePath(); }

 private:
  std::mt19937 rng_;
};

}  // namespace corvane::test

#define CORVANE_INSTANTIATE_CODE_PATHS(Suite)            \
  INSTANTIATE_TEST_SUITE_P(                              \
      CodePaths, Suite, ::testing::Range<int32_t>(0, 6), \
      [](const auto& info) { return std::string(::corvane::test::CodePathName(info.param)); })
