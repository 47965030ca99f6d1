// ownCopyRows of each code path against memcpy row by row, on 1080p BGR24
// pictures: cached (equal and unequal steps), and on the non-temporal road,
// which the benchmark reaches on any processor by telling the cache query a
// size (the processor's own answer may keep that road closed).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "primitives/core/aligned_memory.h"
#include "primitives/core/cache_query.h"
#include "primitives/core/conventions.h"
#include "primitives/core/copy.h"
#include "primitives/core/cpu_dispatch.h"

namespace {

using namespace corvane;
using CopyRowsFn = void (*)(const uint8_t*, int32_t, uint8_t*, int32_t, int32_t, int32_t);
#define BENCH_COPY_ROWS_OF(v) &::corvane::v::ownCopyRows,
constexpr CopyRowsFn kCopyRows[] = {CORVANE_FOR_EACH_VARIANT(BENCH_COPY_ROWS_OF)};

struct Picture {
  int32_t width, height, srcPad, dstPad;
};

// 1080p BGR24; "unequal" pads the source rows to 64 bytes and the destination by 96.
constexpr Picture kEqual{1920, 1080, 0, 0};
constexpr Picture kUnequal{1920, 1080, 64, 96};
// A picture of 8x 1080p (~50 MB), larger than the last-level cache.
constexpr Picture kLarge{3840, 4320, 0, 0};

struct Buffers {
  explicit Buffers(const Picture& p)
      : rowBytes(p.width * 3), srcStep(rowBytes + p.srcPad), dstStep(rowBytes + p.dstPad) {
    src = static_cast<uint8_t*>(primitives::ownMallocAligned(srcStep * p.height));
    dst = static_cast<uint8_t*>(primitives::ownMallocAligned(dstStep * p.height));
    std::memset(src, 0x3C, static_cast<size_t>(srcStep) * p.height);
    std::memset(dst, 0, static_cast<size_t>(dstStep) * p.height);
  }
  ~Buffers() {
    primitives::ownFreeAligned(src);
    primitives::ownFreeAligned(dst);
  }
  int32_t rowBytes, srcStep, dstStep;
  uint8_t* src;
  uint8_t* dst;
};

// cacheSize: 0 leaves the processor's own answer; otherwise the query answers it.
void SetCache(int32_t cacheSize) {
  primitives::ResetCacheQueryForTesting();
  if (cacheSize > 0) primitives::SetCacheSizeForTesting(cacheSize, StatusOk);
}

void BM_CopyRows(benchmark::State& state, int variant, Picture p, int32_t cacheSize) {
  Buffers b(p);
  SetCache(cacheSize);
  for (auto _ : state) {
    kCopyRows[variant](b.src, b.srcStep, b.dst, b.dstStep, b.rowBytes, p.height);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * int64_t{b.rowBytes} * p.height);
  primitives::ResetCacheQueryForTesting();
}

void BM_MemcpyRows(benchmark::State& state, Picture p) {
  Buffers b(p);
  for (auto _ : state) {
    for (int32_t y = 0; y < p.height; ++y) {
      std::memcpy(b.dst + static_cast<size_t>(y) * b.dstStep,
                  b.src + static_cast<size_t>(y) * b.srcStep, b.rowBytes);
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * int64_t{b.rowBytes} * p.height);
}

void Register() {
  struct Setting {
    const char* name;
    Picture picture;
    int32_t cacheSize;
  };
  const Setting settings[] = {
      {"1080p_equal", kEqual, 0},
      {"1080p_unequal", kUnequal, 0},
      {"1080p_equal_stream", kEqual, 4 << 20},  // as if the cache held 4 MiB
      {"1080p_unequal_stream", kUnequal, 4 << 20},
      {"large_equal", kLarge, 0},
      {"large_equal_stream", kLarge, 32 << 20},  // this machine's last-level cache
  };
  for (const Setting& s : settings) {
    benchmark::RegisterBenchmark((std::string("memcpy_rows/") + s.name).c_str(), BM_MemcpyRows,
                                 s.picture)
        ->Unit(benchmark::kMicrosecond);
    for (int v = 0; v < primitives::kCpuVariantCount; ++v) {
      if (!primitives::ownCpuCanRunVariant(v)) continue;
      const std::string name =
          std::string("ownCopyRows/") + primitives::CpuVariantPrefix(v) + "/" + s.name;
      benchmark::RegisterBenchmark(name.c_str(), BM_CopyRows, v, s.picture, s.cacheSize)
          ->Unit(benchmark::kMicrosecond);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  Register();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
