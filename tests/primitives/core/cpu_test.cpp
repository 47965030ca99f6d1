// The choice of code path and what it stands on: synthetic feature words
// through the rule, made-up processors through the detection and the cache
// query, and a probe row through the dispatch.
#include <gtest/gtest.h>

#include <map>
#include <utility>
#include <vector>

#include "primitives/core/aligned_memory.h"
#include "primitives/core/cache_query.h"
#include "primitives/core/cpu_features.h"
#include "primitives/core/cpuid_seam.h"
#include "primitives/core/dispatch_row.h"

namespace corvane::primitives {
namespace {

// A processor made up by a test: CPUID leaves and XCR0 as the test sets them,
// with a count of the calls made. Installed for the life of the object.
struct FakeCpu {
  FakeCpu() { active = this, SetCpuidSourceForTesting(&kSource); }
  ~FakeCpu() { SetCpuidSourceForTesting(nullptr), active = nullptr; }

  // The vendor the library is tuned for, or another; ebx ecx edx.
  void SetVendor(uint32_t highest, bool tuned = true) {
    Set(0, 0,
        tuned ? CpuidRegs{highest, 0x756E6547, 0x6C65746E, 0x49656E69}
              : CpuidRegs{highest, 0x68747541, 0x444D4163, 0x69746E65});
  }
  void Set(uint32_t leaf, uint32_t sub, CpuidRegs r) { leaves[{leaf, sub}] = r; }

  uint64_t xcr0 = 0;
  int cpuidCalls = 0, xgetbvCalls = 0;
  std::map<std::pair<uint32_t, uint32_t>, CpuidRegs> leaves;

  // Leaves other than 4 and 7 ignore the sub-leaf; what isn't set reads as zeros.
  static CpuidRegs Cpuid(uint32_t leaf, uint32_t sub) {
    ++active->cpuidCalls;
    auto it = active->leaves.find({leaf, leaf == 4 || leaf == 7 ? sub : 0});
    return it == active->leaves.end() ? CpuidRegs{} : it->second;
  }
  static uint64_t Xgetbv(uint32_t) { return ++active->xgetbvCalls, active->xcr0; }

  static inline FakeCpu* active = nullptr;
  static constexpr CpuidSource kSource{&Cpuid, &Xgetbv};
};

constexpr uint64_t kBase = 0xDF, kAvxSaved = 0x3DF, kAvx2Saved = 0x83DF;  // MMX .. SSE4.2 but MOVBE
constexpr uint64_t kAvx512Five = 0x7300000, kZmmSaved = 0x200000000;

// Status 36 below SSE2, 49 state not saved, 51 a gap in the required set.
TEST(SelectCpuVariant, EveryRowAndStatus) {
  const struct {
    uint64_t word;
    int32_t index;
    PrimitiveStatus status;
  } cases[] = {
      {0, 0, 36},
      {0x2, 0, 36},                                  // SSE
      {0x7, 0, 0},                                   // MMX SSE SSE2
      {0x6, 0, 51},                                  // SSE2 without MMX
      {0xF, 0, 0},                                   // SSE3
      {0x1F, 1, 0},                                  // SSSE3
      {0x17, 1, 51},                                 // SSSE3 without SSE3
      {0x3F, 1, 0},                                  // MOVBE
      {0x2F, 1, 51},                                 // MOVBE without SSSE3
      {0x5F, 1, 0},                                  // SSE4.1 without MOVBE
      {0x4F, 1, 51},                                 // SSE4.1 without SSSE3
      {kBase, 2, 0},                                 // SSE4.2
      {0x9F, 2, 51},                                 // SSE4.2 without SSE4.1
      {kAvxSaved, 3, 0},                             // AVX
      {0x1DF, 2, 49},                                // AVX, state not saved
      {0x35F, 3, 51},                                // AVX without SSE4.2
      {kAvx2Saved, 4, 0},                            // AVX2 group
      {0x81DF, 2, 49},                               // AVX2 group, state not saved
      {0x82DF, 4, 51},                               // AVX2 group without AVX
      {kAvx2Saved | kAvx512Five | kZmmSaved, 5, 0},  // AVX-512 F CD BW DQ VL
      {kAvx2Saved | kAvx512Five, 4, 49},             // zmm state not saved
      {0x81DF | kAvx512Five, 2, 49},                 // nothing saved
      {kAvxSaved | kAvx512Five | kZmmSaved, 5, 51},  // without the AVX2 group
      {kAvx2Saved | 0x6300000 | kZmmSaved, 4, 0},    // without BW
      {kAvx2Saved | 0xF00000 | kZmmSaved, 4, 0},     // F CD ER PF
      {kAvxSaved | 0xF00000 | kZmmSaved, 4, 51},     // F CD ER PF without AVX2
      {kBase | 0x10000000, 2, 0},                    // MPX is no AVX-512 bit
      {~0ull, 5, 0},
  };
  for (const auto& c : cases) {
    int32_t index = -7;
    EXPECT_EQ(ownSelectCpuVariant(c.word, &index), c.status) << std::hex << c.word;
    EXPECT_EQ(index, c.index) << std::hex << c.word;
  }
}

// Leaf 1 ECX and EDX, leaf 7 EBX: the bits of the features the rule reads.
constexpr uint32_t kEdx = 0x6800000, kEcx = 0x180201;  // MMX SSE SSE2; SSE3 SSSE3 SSE4.1 SSE4.2
constexpr uint32_t kAvx = 0x18000000, kFma = 1u << 12, kMovbe = 1u << 22;  // kAvx: with OSXSAVE
constexpr uint32_t kAvx2 = 0x128, kAvx512 = 0xD0030000;  // AVX2 BMI1 BMI2; F CD BW DQ VL

TEST(DetectCpuFeatures, MadeUpProcessors) {
  const struct {
    uint32_t highest, l1ecx, l7ebx;
    uint64_t xcr0, want;
    int xgetbv;
  } cases[] = {
      {7, kEcx, 0, 0xE7, kBase, 0},  // no OSXSAVE, no XGETBV
      {1, kEcx | kMovbe, 0, 0, kBase | 0x20, 0},
      {7, kEcx | kAvx, 0, 0x7, kAvxSaved, 1},
      {7, kEcx | kAvx, 0, 0x3, 0x1DF, 1},      // XCR0 lacks the ymm state
      {7, kEcx | 1u << 28, 0, 0x7, 0x1DF, 0},  // AVX without OSXSAVE
      {7, kEcx | kAvx | kFma, kAvx2, 0x7, kAvx2Saved, 1},
      {7, kEcx | kAvx, kAvx2, 0x7, kAvxSaved, 1},                    // AVX2 without FMA
      {7, kEcx | kAvx | kFma, 0x28, 0x7, kAvxSaved, 1},              // AVX2 without BMI2
      {6, kEcx | kAvx | kFma, kAvx2 | kAvx512, 0xE7, kAvxSaved, 1},  // no leaf 7
      {7, kEcx | kAvx | kFma, kAvx2 | kAvx512, 0xE7, kAvx2Saved | kAvx512Five | kZmmSaved, 1},
      {7, kEcx | kAvx | kFma, kAvx2 | kAvx512, 0x67, kAvx2Saved | kAvx512Five, 1},  // no opmask
      {7, 0, 0xC004000, 0, 0x10C00007, 0},  // ER, PF and MPX
      {0, kEcx, 0, 0, 0, 0},                // no leaf 1
  };
  for (const auto& c : cases) {
    FakeCpu cpu;
    cpu.SetVendor(c.highest);
    cpu.Set(1, 0, {0, 0, c.l1ecx, kEdx});
    cpu.Set(7, 0, {0, c.l7ebx, 0, 0});
    cpu.xcr0 = c.xcr0;
    EXPECT_EQ(ownDetectCpuFeatures(), c.want) << std::hex << c.l1ecx << " " << c.l7ebx;
    EXPECT_EQ(cpu.xgetbvCalls, c.xgetbv) << std::hex << c.l1ecx << " " << c.l7ebx;
  }
}

TEST(InitCpuDispatch, VendorIsReportedButDoesNotChooseTheVariant) {
  for (bool tuned : {true, false}) {
    FakeCpu cpu;
    cpu.SetVendor(7, tuned);
    cpu.Set(1, 0, {0, 0, kEcx | kAvx | kFma, kEdx});
    cpu.Set(7, 0, {0, kAvx2, 0, 0});
    cpu.xcr0 = 0x7;
    ResetCpuDispatchForTesting();
    EXPECT_EQ(ownInitCpuDispatch(), tuned ? StatusOk : StatusCpuVendor);
    EXPECT_EQ(cpuVariantIndex.load(), CpuVariantL9) << tuned;
  }
  ResetCpuDispatchForTesting();  // back to the real processor
}

}  // namespace
}  // namespace corvane::primitives

// A probe row: each build gives its index and what it was passed.
CORVANE_DISPATCHED(double, ownProbe, (const uint8_t* p, corvane::ImageSize roi, double scale))
#define CORVANE_PROBE_(v, index)                                                    \
  double corvane::v::ownProbe(const uint8_t* p, ImageSize roi, double scale) {      \
    return index * 1e6 + (p ? *p : 0) * 1e4 + roi.width * 100 + roi.height + scale; \
  }
// clang-format off
CORVANE_PROBE_(m7, 0) CORVANE_PROBE_(n8, 1) CORVANE_PROBE_(y8, 2)
CORVANE_PROBE_(e9, 3) CORVANE_PROBE_(l9, 4) CORVANE_PROBE_(k0, 5)
CORVANE_DISPATCH_ROW(ownProbe);
// clang-format on

namespace corvane::primitives {
namespace {

// The first call through any row resolves the index for all rows and behaves
// as every later call; then each slot is the build of its code path.
TEST(Dispatch, FirstCallResolvesAndEverySlotIsReached) {
  ResetCpuDispatchForTesting();
  const uint8_t seven = 7;
  const double first = ownProbe(&seven, {12, 34}, 0.5);
  EXPECT_EQ(first, ownDetectedCpuVariant() * 1e6 + 7e4 + 1234.5);
  EXPECT_EQ(ownProbe(&seven, {12, 34}, 0.5), first);
  ResetCpuDispatchForTesting();
  ownFreeAligned(nullptr);  // dispatch row 0
  EXPECT_EQ(cpuVariantIndex.load(), ownDetectedCpuVariant());
  for (int32_t v = 0; v < kCpuVariantCount; ++v) {
    ForceCpuVariantForTesting(v);  // the probes are plain code, runnable anywhere
    EXPECT_EQ(ownProbe(nullptr, {0, 0}, 0.0), v * 1e6);
  }
  RestoreCpuVariantForTesting();
}

// A leaf 4 entry: type 1 data, 2 instruction, 3 unified.
CpuidRegs Leaf4(uint32_t type, uint32_t ways, uint32_t partitions, uint32_t sets) {
  return {type | 32, (ways - 1) << 22 | (partitions - 1) << 12 | 63, sets - 1, 0};
}

// Each answer, known or not, is settled by the first call: later calls ask
// the processor nothing. A null output is refused before anything.
TEST(CacheQuery, MadeUpProcessors) {
  struct Case {
    bool tuned;
    uint32_t highest;
    std::vector<CpuidRegs> leaf4;  // sub-leaves 0, 1, ...
    CpuidRegs leaf2;
    int32_t size;
    PrimitiveStatus status;
  };
  // The largest data or unified cache, up to the first type 0.
  const std::vector<CpuidRegs> kCaches = {Leaf4(1, 12, 1, 64),   Leaf4(2, 8, 1, 131072),
                                          Leaf4(3, 16, 1, 1024), Leaf4(3, 12, 2, 16384),
                                          CpuidRegs{},           Leaf4(3, 16, 1, 65536)};
  const Case cases[] = {
      {true, 0x16, kCaches, {}, 24 << 20, 0},
      {true, 4, {}, {1, 0x2C}, 0, 37},                // leaf 4 lists none
      {true, 2, {}, {0x43490001, 0x2C}, 4 << 20, 0},  // largest named wins
      {true, 3, {}, {1, 0x7D, 0x23, 0xEA00}, 12 << 20, 0},
      {true, 2, {}, {1, 0x8000004D, 0x22}, 512 << 10, 0},  // bit 31 hides
      {true, 3, {}, {0x4101}, 128 << 10, 0},
      {true, 2, {}, {0x4D02}, 0, 37},         // AL other than 1
      {true, 3, {}, {1, 0x0A0B0C0D}, 0, 37},  // no known descriptor
      {false, 0x10, {Leaf4(3, 16, 1, 1024)}, {}, -1, 36},
      {true, 1, {}, {1, 0x4D}, -1, 36},  // highest leaf 1
  };
  for (const auto& c : cases) {
    ResetCacheQueryForTesting();
    FakeCpu cpu;
    cpu.SetVendor(c.highest, c.tuned);
    for (uint32_t i = 0; i < c.leaf4.size(); ++i) cpu.Set(4, i, c.leaf4[i]);
    cpu.Set(2, 0, c.leaf2);
    EXPECT_EQ(ownGetCacheSize(nullptr), StatusNullPointer);
    EXPECT_EQ(cpu.cpuidCalls, 0);
    for (int call = 0, calls = 0; call < 2; ++call) {
      int32_t size = -5;
      EXPECT_EQ(ownGetCacheSize(&size), c.status) << c.size << ", call " << call;
      EXPECT_EQ(size, c.size) << "call " << call;
      EXPECT_TRUE(call == 0 || cpu.cpuidCalls == calls) << c.size << ": asked again";
      calls = cpu.cpuidCalls;
      cpu.Set(4, 0, Leaf4(3, 16, 1, 65536)), cpu.Set(2, 0, {1, 0xEC});
    }
  }
  ResetCacheQueryForTesting();
}

// The n8/y8 copies' packed table names the same caches from 512 KiB up, and
// tests the vendor first.
TEST(CacheQuery, PackedTableAgreesWithTheFullTable) {
  FakeCpu cpu;
  for (uint32_t d = 0; d < 257; ++d) {
    ResetCacheQueryForTesting();
    cpu.SetVendor(2, d < 256);
    cpu.Set(2, 0, {1, d < 256 ? d : 0xEC});
    const int32_t full = d < 256 ? ownDescriptorCacheSize() : 0;
    EXPECT_EQ(ownPackedDescriptorCacheSize(), full >= 512 << 10 ? full : 0) << std::hex << d;
  }
  ResetCacheQueryForTesting();
}

}  // namespace
}  // namespace corvane::primitives
