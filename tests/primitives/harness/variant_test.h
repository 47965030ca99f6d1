// Parameterised GoogleTest base over the six code paths of the primitives:
//
//   class MedianTest : public corvane::test::VariantTest {};
//   TEST_P(MedianTest, MatchesReference) { ... Variant() ... Rng() ... }
//   CORVANE_INSTANTIATE_VARIANT_TESTS(MedianTest);
//
// SetUp skips (with the reason) a code path this processor can't run, forces
// every dispatch row onto the path under test and seeds Rng(); TearDown puts
// the detected path back. A fixture with its own SetUp calls
// VariantTest::SetUp() first and returns if IsSkipped().
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

namespace corvane::test {

class VariantTest : public ::testing::TestWithParam<int32_t> {
 protected:
  void SetUp() override;
  void TearDown() override;

  int32_t Variant() const { return GetParam(); }
  std::mt19937& Rng() { return rng_; }

 private:
  std::mt19937 rng_;
};

// "m7" ... "k0", for test names.
std::string VariantParamName(const ::testing::TestParamInfo<int32_t>& info);

}  // namespace corvane::test

#define CORVANE_INSTANTIATE_VARIANT_TESTS(Suite)                             \
  INSTANTIATE_TEST_SUITE_P(Variants, Suite, ::testing::Range<int32_t>(0, 6), \
                           ::corvane::test::VariantParamName)
