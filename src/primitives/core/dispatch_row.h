// A dispatch row: the eight slots behind one primitive entry point.
//
//   slot 0      first-call stub: resolves cpuVariantIndex, then dispatches
//   slots 1-6   the m7 ... k0 builds of the primitive
//   slot 7      empty
//
// An entry point calls slot cpuVariantIndex + 1, so that the unresolved index
// -1 lands on the stub. Once resolved, the entry costs one load and one
// indirect jump. Include this from baseline units only, never from a kernel
// unit. Use:
//
//   CORVANE_DECLARE_VARIANTS(PrimitiveStatus, ownFoo_8u_C3R, (const uint8_t* src, ...))
//   namespace corvane::primitives {
//   PrimitiveStatus ownFoo_8u_C3R(const uint8_t* src, ...);  // in a header
//   namespace {
//   constexpr DispatchRow<decltype(ownFoo_8u_C3R)> kFooRow = CORVANE_DISPATCH_ROW(ownFoo_8u_C3R);
//   }
//   PrimitiveStatus ownFoo_8u_C3R(const uint8_t* src, ...) { return kFooRow.Call(src, ...); }
//   }
#pragma once

#include <atomic>

#include "primitives/core/cpu_dispatch.h"

namespace corvane::primitives {

template <typename Signature>
struct DispatchRow;

template <typename R, typename... Args>
struct DispatchRow<R(Args...)> {
  using Function = R (*)(Args...);
  Function slots[8];

  R Call(Args... args) const {
    // Relaxed: the index only ever goes from -1 to its one value, and a slot
    // holds code, not data published by the writer.
    return (slots + 1)[cpuVariantIndex.load(std::memory_order_relaxed)](args...);
  }
};

// The first-call stub of the entry point `Entry`: resolves the index for all
// rows, drops the status, and calls the entry again with the same arguments.
template <auto Entry>
struct FirstCallStub;

template <typename R, typename... Args, R (*Entry)(Args...)>
struct FirstCallStub<Entry> {
  static R Run(Args... args) {
    ownInitCpuDispatch();
    return Entry(args...);
  }
};

}  // namespace corvane::primitives

// The row of an entry point whose variants are corvane::<v>::name; use where
// the entry point `name` itself is visible.
#define CORVANE_DISPATCH_ROW(name)                                                                \
  {                                                                                               \
    {                                                                                             \
      &::corvane::primitives::FirstCallStub<&name>::Run, &::corvane::m7::name,                    \
          &::corvane::n8::name, &::corvane::y8::name, &::corvane::e9::name, &::corvane::l9::name, \
          &::corvane::k0::name, nullptr                                                           \
    }                                                                                             \
  }
