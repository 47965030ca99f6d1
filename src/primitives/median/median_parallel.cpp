// The drivers of the 8-bit four-channel square masks, one build per code
// path: the 5x5 mask split into bands of whole rows over the primitives'
// threads. Outputs are exact and bands only share what they read, so every
// split gives the bytes of one thread.
#include <omp.h>

#include "primitives/core/cpu_dispatch.h"
#include "primitives/median/median_kernel.h"

namespace corvane::CORVANE_VARIANT {
namespace {

// The thread sanitizer can't see the OpenMP runtime's hand-overs (the fork,
// the barrier, the join), which happen inside a library built without it:
// they are told to it here. Nothing in other builds.
#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);
#define CORVANE_HANDED_OVER(p) __tsan_acquire(p)
#define CORVANE_HANDING_OVER(p) __tsan_release(p)
#else
#define CORVANE_HANDED_OVER(p) (void)(p)
#define CORVANE_HANDING_OVER(p) (void)(p)
#endif

using SquareFn = decltype(&ownMedianSquare_8u_C4R);

// What one region shares: the call, and the split that its master makes.
struct Region {
  SquareFn square;
  const uint8_t* src;
  int32_t srcStep;
  uint8_t* dst;
  int32_t dstStep;
  ImageSize roi;
  int32_t threads, rowsPerThread, extraRows;
};

// The body of every thread of the region: whole rows, contiguous, in
// thread order, the remainder on the last thread.
void Band(Region& r) {
  CORVANE_HANDED_OVER(&r);
#pragma omp master
  {
    r.threads = omp_get_num_threads();
    r.rowsPerThread = r.roi.height / r.threads;
    r.extraRows = r.roi.height % r.threads;
    CORVANE_HANDING_OVER(&r.threads);
  }
#pragma omp barrier
  CORVANE_HANDED_OVER(&r.threads);
  const int32_t t = omp_get_thread_num();
  const int32_t rows = r.rowsPerThread + (t == r.threads - 1 ? r.extraRows : 0);
  if (rows > 0) {
    const intptr_t first = intptr_t{t} * r.rowsPerThread;
    r.square(r.src + first * r.srcStep, r.srcStep, r.dst + first * r.dstStep, r.dstStep,
             ImageSize{r.roi.width, rows}, ImageSize{5, 5}, nullptr);
  }
  CORVANE_HANDING_OVER(&r);
}

// One region of the wished number of threads; a runtime that won't fork runs
// the body on this thread alone, as a region of one. Hidden from the thread
// sanitizer: the region's record goes to the threads through the runtime.
__attribute__((no_sanitize("thread"))) void Fork(Region* r, int32_t threads) {
#pragma omp parallel num_threads(threads)
  Band(*r);
}

void Bands(SquareFn square, const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
           ImageSize roi) {
  Region r{square, src, srcStep, dst, dstStep, roi, 1, 0, 0};
  CORVANE_HANDING_OVER(&r);
  Fork(&r, primitives::ownGetNumThreads());
  CORVANE_HANDED_OVER(&r);
}

}  // namespace

void ownippiFilterMedian_8u_C4R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                ImageSize roi, int32_t maskCode) {
  // The product as a signed 32-bit value, as it is tested.
  const auto pixels =
      static_cast<int32_t>(static_cast<uint32_t>(roi.width) * static_cast<uint32_t>(roi.height));
  if (maskCode == 55 && pixels >= 4096) {
    Bands(&ownMedianSquare_8u_C4KR, src, srcStep, dst, dstStep, roi);
  } else {
    ownMedianSquare_8u_C4KR(src, srcStep, dst, dstStep, roi,
                            ImageSize{maskCode / 10, maskCode % 10}, nullptr);
  }
}

void ownippiFilterMedian_8u_BC4R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                 ImageSize roi, int32_t maskCode) {
  if (maskCode == 55) {
    Bands(&ownMedianSquare_8u_C4R, src, srcStep, dst, dstStep, roi);
  } else {
    ownMedianSquare_8u_C4R(src, srcStep, dst, dstStep, roi, ImageSize{maskCode / 10, maskCode % 10},
                           nullptr);
  }
}

}  // namespace corvane::CORVANE_VARIANT
