// The median kernels and their table: what the planner picks from by mask
// shape and pixel form. Declarations and plain data only, so that every code
// path may include it.
//
// A kernel filters a region whose every mask neighbour exists in memory: src
// points at the source pixel under the first output, steps are in bytes, and
// work is spare scratch (unused by the small-mask kernels).
#pragma once

#include <cstdint>

#include "primitives/core/border.h"
#include "primitives/core/conventions.h"
#include "primitives/core/variants.h"

namespace corvane {

using MedianKernel = BorderKernel;

// Nine groups of seven slots. A group is one pixel form; its number is also
// the selector of the border copies that serve it.
constexpr int32_t kMedianGroupCount = 9;
constexpr int32_t kMedianSlotCount = 7;
constexpr int32_t kMedianKernelCount = kMedianGroupCount * kMedianSlotCount;

enum MedianSlot : int32_t {
  MedianSlotColumn3 = 0,  // 1x3
  MedianSlotColumn5 = 1,  // 1x5
  MedianSlotRow3 = 2,     // 3x1
  MedianSlotRow5 = 3,     // 5x1
  MedianSlotSquare3 = 4,  // 3x3
  MedianSlotSquare5 = 5,  // 5x5
  MedianSlotGeneral = 6,  // any other odd mask
};

enum MedianGroup : int32_t {
  MedianGroup8uC3 = 0,
  MedianGroup8uC4Keep = 1,  // the fourth channel of dst is left as it was
  MedianGroup8uC4 = 2,
  MedianGroup16uC3 = 3,
  MedianGroup16uC4Keep = 4,
  MedianGroup16uC4 = 5,
  MedianGroup16sC3 = 6,
  MedianGroup16sC4Keep = 7,
  MedianGroup16sC4 = 8,
};

struct MedianForm {
  int32_t elementBytes;
  int32_t channels;
  bool keepFourth;
};

// Internal linkage for the helpers below: every code path's kernels keep their own
// copy, so an unoptimised build never shares one across instruction sets.
static constexpr MedianForm MedianFormOf(int32_t group) {
  return MedianForm{group < 3 ? 1 : 2, group % 3 == 0 ? 3 : 4, group % 3 == 1};
}

// Mask width * 10 + height, as the shared kernels of two slots tell them apart.
static constexpr int32_t MedianMaskCode(ImageSize mask) { return mask.width * 10 + mask.height; }

}  // namespace corvane

// The 63 kernels of a code path, group by group; a slot that no kernel
// serves yet is null.
CORVANE_DECLARE_VARIANTS(const corvane::MedianKernel*, ownMedianKernelTable, ())
