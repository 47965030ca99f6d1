// Tests that run on one code path of the primitives:
//
//   class WarpGeometryTest : public corvane::test::CodePathTest {};
//   TEST_P(WarpGeometryTest, ...) { ... Variant() ... Rng() ... }
//   CORVANE_INSTANTIATE_CODE_PATHS(WarpGeometryTest);
//
// SetUp skips (with the reason) a code path this processor can't run, forces
// every dispatch row onto the path under test through the test hook and seeds
// Rng(); TearDown puts the detected path back. A parameter p runs code path
// p % 6, so a suite may number its cases case · 6 + path.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "support/rng.h"

namespace corvane::test {

// Empty when this processor runs code path v, else why not; forces the
// dispatch onto v when it can.
std::string EnterCodePath(int32_t v);
void LeaveCodePath();
const char* CodePathName(int32_t v);  // "m7" ... "k0"

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
