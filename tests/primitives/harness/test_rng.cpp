#include "harness/test_rng.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

namespace corvane::test {
namespace {

uint64_t TestSeed() {
  static const uint64_t seed = [] {
    uint64_t s = 0;
    if (const char* env = std::getenv("CORVANE_TEST_SEED"); env && *env) {
      s = std::strtoull(env, nullptr, 0);
    } else {
      std::random_device device;
      s = (static_cast<uint64_t>(device()) << 32) | device();
    }
    std::printf("[ harness  ] random seed %llu (CORVANE_TEST_SEED=%llu replays it)\n",
                static_cast<unsigned long long>(s), static_cast<unsigned long long>(s));
    std::fflush(stdout);
    return s;
  }();
  return seed;
}

}  // namespace

std::mt19937 MakeTestRng() {
  std::string name = "no-test";
  if (const auto* info = ::testing::UnitTest::GetInstance()->current_test_info()) {
    name = std::string(info->test_suite_name()) + "." + info->name();
    ::testing::Test::RecordProperty("seed", std::to_string(TestSeed()));
  }
  const uint64_t mixed = TestSeed() ^ std::hash<std::string>{}(name);
  std::seed_seq seq{static_cast<uint32_t>(mixed), static_cast<uint32_t>(mixed >> 32)};
  return std::mt19937(seq);
}

int32_t RandomInt(std::mt19937& rng, int32_t lo, int32_t hi) {
  return std::uniform_int_distribution<int32_t>(lo, hi)(rng);
}

const char* PatternName(Pattern p) {
  static const char* const kNames[] = {"random", "all-max", "all-min", "alternating", "runs"};
  return kNames[static_cast<int>(p)];
}

void FillPattern(uint8_t* data, std::size_t length, Pattern pattern, std::mt19937& rng) {
  std::uniform_int_distribution<int> byte(0, 255), runLength(1, 40);
  for (std::size_t i = 0; i < length;) {
    int value = 0, run = 1;
    switch (pattern) {
      case Pattern::Random:
        value = byte(rng);
        break;
      case Pattern::AllMax:
        value = 0xFF;
        break;
      case Pattern::AllMin:
        break;
      case Pattern::Alternating:
        value = (i & 1) ? 0xFF : 0x00;
        break;
      case Pattern::Runs:
        value = byte(rng), run = runLength(rng);
        break;
    }
    for (; run > 0 && i < length; --run) data[i++] = static_cast<uint8_t>(value);
  }
}

}  // namespace corvane::test
