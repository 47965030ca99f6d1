// Replayable random data. One seed per process, printed on first use; set
// CORVANE_TEST_SEED to replay it. Each test draws from its own generator
// seeded from that seed and the test's name, so a test run alone sees the
// same data as in the full run.
#pragma once

#include <cstdint>
#include <random>

namespace corvane::test {

// A generator for the running test (seed mixed with the test's full name).
std::mt19937 MakeTestRng();

// Uniform in [lo, hi].
int32_t RandomInt(std::mt19937& rng, int32_t lo, int32_t hi);

enum class Pattern { Random, AllMax, AllMin, Alternating, Runs };
constexpr Pattern kAllPatterns[] = {Pattern::Random, Pattern::AllMax, Pattern::AllMin,
                                    Pattern::Alternating, Pattern::Runs};
const char* PatternName(Pattern p);

// Fills `length` bytes with a value pattern: noise, 0xFF, 0x00, 0x00/0xFF
// alternation, or runs of random length and value.
void FillPattern(uint8_t* data, std::size_t length, Pattern pattern, std::mt19937& rng);

}  // namespace corvane::test
