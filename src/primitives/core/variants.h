// The six code paths of the primitives and the macros that declare a function
// once for all of them. Safe to include from a kernel unit: it defines no
// function.
//
//   CORVANE_FOR_EACH_VARIANT(X)          expands X(m7) X(n8) X(y8) X(e9) X(l9) X(k0)
//   CORVANE_DECLARE_VARIANTS(ret, name, (params))
//                                        declares corvane::<v>::name in all six
//   CORVANE_DISPATCHED(ret, name, (params))
//                                        the same, plus the entry point
//                                        corvane::primitives::name that jumps to
//                                        the build this processor runs; its row
//                                        is defined once with CORVANE_DISPATCH_ROW
//                                        (dispatch_row.h) in a baseline unit
#pragma once

#include <cstdint>

#define CORVANE_FOR_EACH_VARIANT(X) X(m7) X(n8) X(y8) X(e9) X(l9) X(k0)

#define CORVANE_DECLARE_VARIANT_ONE_(v, ret, name, params) \
  namespace corvane::v {                                   \
  ret name params;                                         \
  }

#define CORVANE_DECLARE_VARIANTS(ret, name, params)   \
  CORVANE_DECLARE_VARIANT_ONE_(m7, ret, name, params) \
  CORVANE_DECLARE_VARIANT_ONE_(n8, ret, name, params) \
  CORVANE_DECLARE_VARIANT_ONE_(y8, ret, name, params) \
  CORVANE_DECLARE_VARIANT_ONE_(e9, ret, name, params) \
  CORVANE_DECLARE_VARIANT_ONE_(l9, ret, name, params) \
  CORVANE_DECLARE_VARIANT_ONE_(k0, ret, name, params)

namespace corvane::primitives {

// Index of a code path; the order is the order of the dispatch slots.
enum CpuVariant : int32_t {
  CpuVariantM7 = 0,  // up to SSE3
  CpuVariantN8 = 1,  // SSSE3, MOVBE, SSE4.1
  CpuVariantY8 = 2,  // SSE4.2
  CpuVariantE9 = 3,  // AVX
  CpuVariantL9 = 4,  // AVX2, FMA, BMI1, BMI2
  CpuVariantK0 = 5,  // AVX-512 F, CD, BW, DQ, VL
};

constexpr int32_t kCpuVariantCount = 6;

// "m7" ... "k0"; "??" for an index out of range.
const char* CpuVariantPrefix(int32_t index);

// The entry point of a dispatched primitive. `Entry` is a tag that names the
// primitive and carries its signature; the two functions are defined once,
// beside the primitive's dispatch row (dispatch_row.h).
template <class Entry, class Signature = typename Entry::Signature>
struct DispatchEntry;

template <class Entry, class R, class... A>
struct DispatchEntry<Entry, R(A...)> {
  static R Call(A... args);   // slot cpuVariantIndex + 1 of the row
  static R First(A... args);  // slot 0: resolves the index, then calls
};

}  // namespace corvane::primitives

// The entry point alone, for a primitive whose builds are declared otherwise.
// A call of corvane::primitives::name is a direct call of its Call, whose code
// is instantiated beside the row only.
#define CORVANE_DECLARE_ENTRY(ret, name, params)                  \
  namespace corvane::primitives {                                 \
  namespace entry {                                               \
  struct name {                                                   \
    using Signature = ret params;                                 \
  };                                                              \
  }                                                               \
  extern template struct DispatchEntry<entry::name>;              \
  inline constexpr auto& name = DispatchEntry<entry::name>::Call; \
  }

#define CORVANE_DISPATCHED(ret, name, params) \
  CORVANE_DECLARE_VARIANTS(ret, name, params) \
  CORVANE_DECLARE_ENTRY(ret, name, params)
