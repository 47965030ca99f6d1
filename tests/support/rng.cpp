#include "support/rng.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

namespace corvane::test {
namespace {

struct SeedReporter : ::testing::EmptyTestEventListener {
  explicit SeedReporter(uint64_t s) : seed(s) {}
  void OnTestEnd(const ::testing::TestInfo& info) override {
    if (!info.result()->Failed()) return;
    std::printf("[   SEED   ] CORVANE_TEST_SEED=%llu replays %s.%s\n",
                static_cast<unsigned long long>(seed), info.test_suite_name(), info.name());
  }
  uint64_t seed;
};

}  // namespace

std::mt19937 MakeTestRng() {
  // One seed a process, printed after every failing test from the first draw on.
  static const uint64_t seed = [] {
    const char* env = std::getenv("CORVANE_TEST_SEED");
    std::random_device device;
    const uint64_t s = env && *env ? uint64_t{std::strtoull(env, nullptr, 0)}
                                   : uint64_t{device()} << 32 | device();
    ::testing::UnitTest::GetInstance()->listeners().Append(new SeedReporter(s));
    return s;
  }();
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  const std::string name = info ? std::string(info->test_suite_name()) + "." + info->name() : "";
  const uint64_t mixed = seed ^ std::hash<std::string>{}(name);
  std::seed_seq seq{uint32_t(mixed), uint32_t(mixed >> 32)};
  return std::mt19937(seq);
}

int32_t RandomInt(std::mt19937& rng, int32_t lo, int32_t hi) {
  return std::uniform_int_distribution<int32_t>(lo, hi)(rng);
}

const char* PatternName(Pattern p) {
  static const char* const kNames[] = {"random", "all-0", "all-1", "alternating", "runs", "edges"};
  return kNames[static_cast<int>(p)];
}

void FillPattern(uint8_t* data, std::size_t length, Pattern pattern, std::mt19937& rng,
                 int32_t elementBytes) {
  if (pattern == Pattern::Random) {
    for (std::size_t i = 0; i < length; i += 4) {
      const uint32_t bits = rng();
      std::memcpy(data + i, &bits, std::min<std::size_t>(4, length - i));
    }
    return;
  }
  if (pattern == Pattern::Edges) {
    static constexpr uint16_t kEdges[2][8] = {
        {0x00, 0x01, 0x0F, 0x10, 0x7F, 0x80, 0xFE, 0xFF},
        {0x0000, 0x00FF, 0x0100, 0x0FFF, 0x1000, 0x7FFF, 0x8000, 0xFFFF}};
    const std::size_t e = elementBytes == 2 ? 2 : 1;
    for (std::size_t i = 0; i < length; i += e) {
      const uint16_t v = kEdges[e - 1][rng() % 8];
      std::memcpy(data + i, &v, std::min(e, length - i));
    }
    return;
  }
  uint8_t value = 0;
  for (std::size_t i = 0, e = std::size_t(elementBytes), run = 0; i < length; ++i) {
    if (pattern == Pattern::Runs && i % e == 0 && run-- == 0) {
      run = std::size_t(RandomInt(rng, 0, 40)), value = uint8_t(rng());
    }
    const bool ones = pattern == Pattern::AllMax || (pattern == Pattern::Alternating && i / e % 2);
    data[i] = pattern == Pattern::Runs ? value : ones ? 0xFF : 0x00;
  }
}

}  // namespace corvane::test
