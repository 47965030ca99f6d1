// The decode part of bench_median, built when the shared library and the
// stream reader are there.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>

namespace corvane::bench {

// Registers decode alone and decode with the median mode on a 1080p stream.
void RegisterDecodeBenchmarks();

// Prints the time that the median mode adds, from the median times.
void PrintDecodeRatio(const std::map<std::string, double>& medians);

}  // namespace corvane::bench
