// The small-mask median kernels (1x3, 1x5, 3x1, 5x1, 3x3, 5x5) of one code
// path for all nine pixel forms, and the path's kernel table with the general
// kernels of the other masks (median_histogram.cpp, median_radix.cpp). Every output is
// the exact per-channel median: branch-free min/max networks over whole
// vectors, so the result is the same in every path and the time doesn't
// depend on the picture.
#include <immintrin.h>

#include <cstring>

#include "primitives/median/median_kernel.h"

namespace corvane::CORVANE_VARIANT {
namespace {

#include "primitives/core/simd.inc"
#include "primitives/median/median_networks.inc"
#include "primitives/median/median_rows.inc"
#include "primitives/median/median_planes.inc"
#include "primitives/median/median_square3.inc"

template <Elem E>
constexpr int32_t kElemBytes = E == Elem::U8 ? 1 : 2;

// 1x3 and 1x5. The vertical masks see no channels, so a form that filters
// all its channels walks the row as one flat run of elements.
template <Elem E, int Ch, bool Keep>
void ColumnKernel(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, ImageSize roi,
                  ImageSize mask, uint8_t*) {
  constexpr int32_t PB = Ch * kElemBytes<E>;
  const bool three = MedianMaskCode(mask) == 13;
#if CORVANE_VARIANT_INDEX >= 4
  if (!Keep && dstStep % kVecBytes == 0) {
    const int32_t rowBytes = roi.width * PB;
    const int32_t pairs = roi.height / 2;
    if (three) {
      ColumnPairs<3, E>::Run(src, srcStep, dst, dstStep, rowBytes, pairs);
    } else {
      ColumnPairs<5, E>::Run(src, srcStep, dst, dstStep, rowBytes, pairs);
    }
    if (roi.height % 2 == 0) return;
    const intptr_t last = roi.height - 1;
    src += last * srcStep;
    dst += last * dstStep;
    roi.height = 1;
  }
#endif
  if (three) {
    RowWalker<Column3<E>, E, PB, Keep>::Run(src, srcStep, dst, dstStep, roi.width, roi.height);
  } else {
    RowWalker<Column5<E>, E, PB, Keep>::Run(src, srcStep, dst, dstStep, roi.width, roi.height);
  }
}

// 3x1 and 5x1.
template <Elem E, int Ch, bool Keep>
void RowKernel(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, ImageSize roi,
               ImageSize mask, uint8_t*) {
  constexpr int32_t PB = Ch * kElemBytes<E>;
  if (MedianMaskCode(mask) == 31) {
    RowWalker<Row3<E>, E, PB, Keep>::Run(src, srcStep, dst, dstStep, roi.width, roi.height);
  } else {
    RowWalker<Row5<E>, E, PB, Keep>::Run(src, srcStep, dst, dstStep, roi.width, roi.height);
  }
}

// 3x3 and 5x5.
template <Elem E, int Ch, bool Keep>
void SquareKernel(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, ImageSize roi,
                  ImageSize mask, uint8_t*) {
  constexpr int32_t PB = Ch * kElemBytes<E>;
  if (MedianMaskCode(mask) == 33) {
    Square3Columns<E, PB, Keep>::Run(src, srcStep, dst, dstStep, roi.width, roi.height);
  } else {
    PlaneWalker<Square5<E>, E, PB, Keep>::Run(src, srcStep, dst, dstStep, roi.width, roi.height);
  }
}

// Any other mask on 8-bit pixels: the histogram kernel takes the mask's
// top-left corner.
template <int Ch, bool Keep>
void HistogramKernel(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                     ImageSize roi, ImageSize mask, uint8_t*) {
  const uint8_t* corner = src - intptr_t{mask.height / 2} * srcStep - (mask.width / 2) * Ch;
  ownMedianHistogram_8u(corner, srcStep, dst, dstStep, roi, mask, Ch, Keep);
}

// The square masks of the 8-bit four-channel forms go through the drivers
// that split the 5x5 mask over threads.
template <bool Keep>
void DrivenSquare(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, ImageSize roi,
                  ImageSize mask, uint8_t*) {
  (Keep ? ownippiFilterMedian_8u_C4R : ownippiFilterMedian_8u_BC4R)(src, srcStep, dst, dstStep, roi,
                                                                    MedianMaskCode(mask));
}

template <Elem E, int Ch, bool Keep>
constexpr MedianKernels Form(MedianKernel square, MedianKernel general) {
  return {&ColumnKernel<E, Ch, Keep>, &RowKernel<E, Ch, Keep>, square, general};
}
template <Elem E, int Ch, bool Keep>
constexpr MedianKernels Form(MedianKernel general) {
  return Form<E, Ch, Keep>(&SquareKernel<E, Ch, Keep>, general);
}

constexpr MedianKernelTable kKernelTable = {{
    Form<Elem::U8, 3, false>(&HistogramKernel<3, false>),
    Form<Elem::U8, 4, true>(&DrivenSquare<true>, &HistogramKernel<4, true>),
    Form<Elem::U8, 4, false>(&DrivenSquare<false>, &HistogramKernel<4, false>),
    Form<Elem::U16, 3, false>(&ownMedianRadix_16u_C3R),
    Form<Elem::U16, 4, true>(&ownMedianRadix_16u_C4KR),
    Form<Elem::U16, 4, false>(&ownMedianRadix_16u_C4R),
    Form<Elem::S16, 3, false>(&ownMedianRadix_16s_C3R),
    Form<Elem::S16, 4, true>(&ownMedianRadix_16s_C4KR),
    Form<Elem::S16, 4, false>(&ownMedianRadix_16s_C4R),
}};

}  // namespace

const MedianKernelTable& ownMedianKernelTable() { return kKernelTable; }

void ownMedianSquare_8u_C4KR(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                             ImageSize roi, ImageSize mask, uint8_t* work) {
  SquareKernel<Elem::U8, 4, true>(src, srcStep, dst, dstStep, roi, mask, work);
}
void ownMedianSquare_8u_C4R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                            ImageSize roi, ImageSize mask, uint8_t* work) {
  SquareKernel<Elem::U8, 4, false>(src, srcStep, dst, dstStep, roi, mask, work);
}

}  // namespace corvane::CORVANE_VARIANT
