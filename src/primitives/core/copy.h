// Row copies of the primitives, one build per code path. Safe to include from
// a kernel unit: declarations only.
//
// ownCopyRows(src, srcStep, dst, dstStep, rowBytes, rows) copies `rows` rows
// of `rowBytes` bytes. Steps may be negative; source and destination don't
// overlap. Arguments are tested by the callers: rowBytes and rows at least 1,
// pointers valid. Copies above half the largest cache go around it with
// non-temporal stores; the thresholds differ by code path.
#pragma once

#include <cstdint>

#include "primitives/core/variants.h"

CORVANE_DECLARE_VARIANTS(void, ownCopyRows,
                         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                          int32_t rowBytes, int32_t rows))

// The block copies of the AVX2 and AVX-512 paths, which share one code.
// ownCopyBlock: any length from 0, no overlap; returns dst.
// ownCopyShort: a length below 32768, forward, no overlap.
#define CORVANE_DECLARE_BLOCK_COPIES_(v)                          \
  namespace corvane::v {                                          \
  void* ownCopyBlock(const void* src, void* dst, int32_t length); \
  void ownCopyShort(const void* src, void* dst, int32_t length);  \
  }
CORVANE_DECLARE_BLOCK_COPIES_(l9)
CORVANE_DECLARE_BLOCK_COPIES_(k0)
#undef CORVANE_DECLARE_BLOCK_COPIES_
