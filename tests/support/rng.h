// Replayable random data. One seed per process, random unless
// CORVANE_TEST_SEED sets it; a failing test that drew from it prints it. Each
// test draws from its own generator, seeded from that seed and the test's
// name, so a test run alone sees the same data as in the full run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

namespace corvane::test {

// A generator for the running test.
std::mt19937 MakeTestRng();

// Uniform in [lo, hi].
int32_t RandomInt(std::mt19937& rng, int32_t lo, int32_t hi);

enum class Pattern { Random, AllMin, AllMax, Alternating, Runs, Edges };
constexpr Pattern kAllPatterns[] = {Pattern::Random,      Pattern::AllMin, Pattern::AllMax,
                                    Pattern::Alternating, Pattern::Runs,   Pattern::Edges};
const char* PatternName(Pattern p);

// Fills `length` bytes, as elements of `elementBytes`, with noise, all 0,
// all 1 bits, alternating 0 and all 1 bits, runs of random length and value,
// or values either side of the bit boundaries (0x0F/0x10, 0x7F/0x80, the
// ends; for 2 bytes 0x00FF/0x0100, 0x0FFF/0x1000, 0x7FFF/0x8000 too).
void FillPattern(uint8_t* data, std::size_t length, Pattern pattern, std::mt19937& rng,
                 int32_t elementBytes = 1);

}  // namespace corvane::test
