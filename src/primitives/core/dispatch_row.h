// A dispatch row: the eight slots behind one primitive entry point.
//
//   slot 0      first-call stub: resolves cpuVariantIndex, then dispatches
//   slots 1-6   the m7 ... k0 builds of the primitive
//   slot 7      empty
//
// An entry point calls slot cpuVariantIndex + 1, so that the unresolved index
// -1 lands on the stub. Once resolved, the entry costs one load and one
// indirect jump. Include this from baseline units only, never from a kernel
// unit. A primitive declared with CORVANE_DISPATCHED (variants.h) gets its row
// and entry point in one line at file scope:
//
//   CORVANE_DISPATCH_ROW(ownFoo_8u_C3R)
#pragma once

#include <atomic>

#include "primitives/core/cpu_dispatch.h"

namespace corvane::primitives {

// The row of an entry: `static constexpr Signature* kSlots[8]`.
template <class Entry>
struct DispatchSlots;

template <class Entry, class R, class... A>
R DispatchEntry<Entry, R(A...)>::Call(A... args) {
  // Relaxed: the index only ever goes from -1 to its one value, and a slot
  // holds code, not data published by the writer.
  return DispatchSlots<Entry>::kSlots[cpuVariantIndex.load(std::memory_order_relaxed) + 1](args...);
}

// The first call resolves the index for all rows, drops the status, and calls
// again with the same arguments.
template <class Entry, class R, class... A>
R DispatchEntry<Entry, R(A...)>::First(A... args) {
  ownInitCpuDispatch();
  return Call(args...);
}

}  // namespace corvane::primitives

// The row of `name` with the given six builds, and its entry point's code.
#define CORVANE_DISPATCH_SLOTS(name, ...)                                                          \
  template <>                                                                                      \
  struct corvane::primitives::DispatchSlots<corvane::primitives::entry::name> {                    \
    static constexpr corvane::primitives::entry::name::Signature* kSlots[8] = {                    \
        &corvane::primitives::DispatchEntry<corvane::primitives::entry::name>::First, __VA_ARGS__, \
        nullptr};                                                                                  \
  };                                                                                               \
  template struct corvane::primitives::DispatchEntry<corvane::primitives::entry::name>;

// The row of a primitive whose builds are corvane::<v>::name.
#define CORVANE_DISPATCH_ROW(name)                                                               \
  CORVANE_DISPATCH_SLOTS(name, &::corvane::m7::name, &::corvane::n8::name, &::corvane::y8::name, \
                         &::corvane::e9::name, &::corvane::l9::name, &::corvane::k0::name)
