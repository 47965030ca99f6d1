// Feature word and choice of code path: synthetic words through the rule,
// made-up processors through the detection, and this processor against the
// kernel's own view of it.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

#include "fake_cpu.h"
#include "primitives/core/cpu_dispatch.h"
#include "primitives/core/cpu_features.h"

namespace corvane::primitives {
namespace {

using test::FakeCpu;

constexpr uint64_t kBase = 0xDF;  // MMX .. SSE4.2
constexpr uint64_t kAvxSaved = 0x1DF | 0x200;
constexpr uint64_t kAvx2Saved = 0x81DF | 0x200;
constexpr uint64_t kAvx512Five = 0x7300000;  // F CD BW DQ VL
constexpr uint64_t kZmmSaved = 0x200000000;

struct SelectCase {
  const char* what;
  uint64_t word;
  int32_t index;
  PrimitiveStatus status;
};

const SelectCase kSelectCases[] = {
    {"nothing", 0, 0, StatusCpuUnsupported},
    {"SSE only", 0x2, 0, StatusCpuUnsupported},
    {"MMX SSE SSE2", 0x7, 0, StatusOk},
    {"SSE2 without MMX", 0x6, 0, StatusFeatureGap},
    {"SSE3 group", 0xF, 0, StatusOk},
    {"SSE3 without MMX", 0xE, 0, StatusFeatureGap},
    {"SSSE3", 0x1F, 1, StatusOk},
    {"SSSE3 without SSE3", 0x17, 1, StatusFeatureGap},
    {"MOVBE", 0x3F, 1, StatusOk},
    {"MOVBE without SSSE3", 0x2F, 1, StatusFeatureGap},
    {"SSE4.1 without MOVBE", 0x5F, 1, StatusOk},
    {"SSE4.1 without SSSE3", 0x4F, 1, StatusFeatureGap},
    {"SSE4.2", kBase, 2, StatusOk},
    {"SSE4.2 without SSE4.1", 0x9F, 2, StatusFeatureGap},
    {"AVX, state saved", kAvxSaved, 3, StatusOk},
    {"AVX, state not saved", 0x1DF, 2, StatusFeatureState},
    {"AVX without SSE4.2", 0x15F | 0x200, 3, StatusFeatureGap},
    {"AVX2 group, state saved", kAvx2Saved, 4, StatusOk},
    {"AVX2 group, state not saved", 0x81DF, 2, StatusFeatureState},
    {"AVX2 group without AVX", 0x80DF | 0x200, 4, StatusFeatureGap},
    {"AVX-512 five, zmm saved", kAvx2Saved | kAvx512Five | kZmmSaved, 5, StatusOk},
    {"AVX-512 five, zmm not saved", kAvx2Saved | kAvx512Five, 4, StatusFeatureState},
    {"AVX-512 five, nothing saved", 0x81DF | kAvx512Five, 2, StatusFeatureState},
    {"AVX-512 five without AVX2 group", kAvxSaved | kAvx512Five | kZmmSaved, 5, StatusFeatureGap},
    {"AVX-512 without BW", kAvx2Saved | 0x6300000 | kZmmSaved, 4, StatusOk},
    {"AVX-512 F CD ER PF", kAvx2Saved | 0xF00000 | kZmmSaved, 4, StatusOk},
    {"AVX-512 F CD ER PF without AVX2 group", kAvxSaved | 0xF00000 | kZmmSaved, 4,
     StatusFeatureGap},
    {"AVX-512 F alone, zmm not saved, no AVX", kBase | 0x100000, 2, StatusFeatureState},
    {"MPX is not an AVX-512 bit", kBase | 0x10000000, 2, StatusOk},
    {"everything", ~0ull, 5, StatusOk},
};

TEST(SelectCpuVariant, EveryRowAndStatus) {
  for (const SelectCase& c : kSelectCases) {
    int32_t index = -7;
    EXPECT_EQ(ownSelectCpuVariant(c.word, &index), c.status) << c.what;
    EXPECT_EQ(index, c.index) << c.what;
  }
}

// Leaf 1 ECX/EDX, leaf 7 EBX/ECX/EDX bits by name.
constexpr uint32_t kEdxBase = (1u << 23) | (1u << 25) | (1u << 26);       // MMX SSE SSE2
constexpr uint32_t kEcxSse42 = 1u | (1u << 9) | (1u << 19) | (1u << 20);  // no MOVBE
constexpr uint32_t kOsxsave = 1u << 27, kAvx = 1u << 28, kFma = 1u << 12;
constexpr uint32_t kAvx2Ebx = (1u << 5) | (1u << 3) | (1u << 8);  // AVX2 BMI1 BMI2
constexpr uint32_t kAvx512Ebx = (1u << 16) | (1u << 28) | (1u << 30) | (1u << 17) | (1u << 31);

struct DetectCase {
  const char* what;
  uint32_t highest;
  uint32_t l1eax, l1ecx, l1edx;
  uint32_t l7ebx, l7ecx, l7edx;
  uint64_t xcr0;
  uint32_t extHighest, extEcx;
  uint64_t expected;
  int xgetbvCalls;
};

constexpr uint32_t kCpuBase = kEcxSse42;
const DetectCase kDetectCases[] = {
    {"SSE4.2, no OSXSAVE", 7, 0, kCpuBase, kEdxBase, 0, 0, 0, 0xE7, 0, 0, kBase, 0},
    {"AVX, XCR0 saves ymm", 7, 0, kCpuBase | kOsxsave | kAvx, kEdxBase, 0, 0, 0, 0x7, 0, 0,
     kAvxSaved, 1},
    {"AVX, XCR0 lacks ymm", 7, 0, kCpuBase | kOsxsave | kAvx, kEdxBase, 0, 0, 0, 0x3, 0, 0, 0x1DF,
     1},
    {"AVX, no OSXSAVE", 7, 0, kCpuBase | kAvx, kEdxBase, 0, 0, 0, 0x7, 0, 0, 0x1DF, 0},
    {"AVX2 group", 7, 0, kCpuBase | kOsxsave | kAvx | kFma, kEdxBase, kAvx2Ebx, 0, 0, 0x7, 0, 0,
     kAvx2Saved, 1},
    {"AVX2 without FMA", 7, 0, kCpuBase | kOsxsave | kAvx, kEdxBase, kAvx2Ebx, 0, 0, 0x7, 0, 0,
     kAvxSaved, 1},
    {"AVX2 without BMI2", 7, 0, kCpuBase | kOsxsave | kAvx | kFma, kEdxBase, (1u << 5) | (1u << 3),
     0, 0, 0x7, 0, 0, kAvxSaved, 1},
    {"leaf 7 not offered", 6, 0, kCpuBase | kOsxsave | kAvx | kFma, kEdxBase, kAvx2Ebx | kAvx512Ebx,
     0, 0, 0xE7, 0, 0, kAvxSaved, 1},
    {"AVX-512 with zmm state", 7, 0, kCpuBase | kOsxsave | kAvx | kFma, kEdxBase,
     kAvx2Ebx | kAvx512Ebx, 0, 0, 0xE7, 0, 0, kAvx2Saved | kAvx512Five | kZmmSaved, 1},
    {"AVX-512 without zmm state", 7, 0, kCpuBase | kOsxsave | kAvx | kFma, kEdxBase,
     kAvx2Ebx | kAvx512Ebx, 0, 0, 0x67, 0, 0, kAvx2Saved | kAvx512Five, 1},
    {"leaf 7 odds and ends", 7, 0, 0, 0,
     (1u << 19) | (1u << 18) | (1u << 29) | (1u << 27) | (1u << 26) | (1u << 14) | (1u << 21),
     1u << 1, (1u << 3) | (1u << 2), 0, 0, 0,
     0x10000 | 0x20000 | 0x80000 | 0x400000 | 0x800000 | 0x10000000 | 0x100000000 | 0x8000000 |
         0x20000000 | 0x40000000,
     0},
    {"leaf 1 odds and ends", 1, 0xB10, (1u << 25) | (1u << 1) | (1u << 30) | (1u << 29), 0, 0, 0, 0,
     0, 0, 0, 0x400 | 0x800 | 0x2000 | 0x4000 | 0x80000000, 0},
    {"processor class needs its exact nibbles", 1, 0xB20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {"PREFETCHW", 1, 0, 0, 0, 0, 0, 0, 0, 0x80000001, 1u << 8, 0x40000, 0},
    {"PREFETCHW leaf not offered", 1, 0, 0, 0, 0, 0, 0, 0, 0x80000000, 1u << 8, 0, 0},
    {"no leaf 1", 0, 0, kCpuBase, kEdxBase, 0, 0, 0, 0, 0, 0, 0, 0},
};

TEST(DetectCpuFeatures, MadeUpProcessors) {
  for (const DetectCase& c : kDetectCases) {
    FakeCpu cpu;
    cpu.SetVendor(c.highest, FakeCpu::kTunedVendor);
    cpu.Set(1, 0, {c.l1eax, 0, c.l1ecx, c.l1edx});
    cpu.Set(7, 0, {0, c.l7ebx, c.l7ecx, c.l7edx});
    cpu.SetXcr0(c.xcr0);
    cpu.Set(0x80000000, 0, {c.extHighest, 0, 0, 0});
    cpu.Set(0x80000001, 0, {0, 0, c.extEcx, 0});
    EXPECT_EQ(ownDetectCpuFeatures(), c.expected) << c.what;
    EXPECT_EQ(cpu.xgetbvCalls(), c.xgetbvCalls) << c.what << ": XGETBV only with OSXSAVE";
  }
}

// The kernel's names for the feature bits that both know.
const std::pair<const char*, uint64_t> kProcFlags[] = {{"mmx", CpuMmx},
                                                       {"sse", CpuSse},
                                                       {"sse2", CpuSse2},
                                                       {"pni", CpuSse3},
                                                       {"ssse3", CpuSsse3},
                                                       {"movbe", CpuMovbe},
                                                       {"sse4_1", CpuSse41},
                                                       {"sse4_2", CpuSse42},
                                                       {"avx", CpuAvx},
                                                       {"aes", CpuAes},
                                                       {"pclmulqdq", CpuPclmulqdq},
                                                       {"rdrand", CpuRdrand},
                                                       {"f16c", CpuF16c},
                                                       {"adx", CpuAdx},
                                                       {"rdseed", CpuRdseed},
                                                       {"3dnowprefetch", CpuPrefetchw},
                                                       {"sha_ni", CpuSha},
                                                       {"avx512f", CpuAvx512F},
                                                       {"avx512cd", CpuAvx512Cd},
                                                       {"avx512er", CpuAvx512Er},
                                                       {"avx512pf", CpuAvx512Pf},
                                                       {"avx512bw", CpuAvx512Bw},
                                                       {"avx512dq", CpuAvx512Dq},
                                                       {"avx512vl", CpuAvx512Vl},
                                                       {"avx512vbmi", CpuAvx512Vbmi},
                                                       {"mpx", CpuMpx},
                                                       {"avx512_4fmaps", CpuAvx512_4Fmaps},
                                                       {"avx512_4vnniw", CpuAvx512_4Vnniw},
                                                       {"avx512ifma", CpuAvx512Ifma}};

std::set<std::string> ProcCpuFlags() {
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("flags", 0) != 0) continue;
    std::istringstream words(line.substr(line.find(':') + 1));
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
  }
  return {};
}

TEST(DetectCpuFeatures, ThisProcessorAgreesWithTheKernel) {
  const std::set<std::string> flags = ProcCpuFlags();
  if (flags.empty()) GTEST_SKIP() << "no flags line in /proc/cpuinfo";
  uint64_t word = 0;
  EXPECT_NE(ownGetCpuFeatures(&word), 0);
  for (const auto& [name, bit] : kProcFlags) {
    const bool listed = flags.count(name) != 0;
    if (std::string(name) == "rdseed" && !listed) {
      continue;  // withdrawn by the kernel on processors with a faulty RDSEED, CPUID still says yes
    }
    EXPECT_EQ((word & bit) != 0, listed) << name;
  }
  const bool group =
      flags.count("avx2") && flags.count("fma") && flags.count("bmi1") && flags.count("bmi2");
  EXPECT_EQ((word & CpuAvx2Group) != 0, group) << "AVX2 group";
  // The kernel lists AVX only when it saves the state.
  if (flags.count("avx")) {
    EXPECT_NE(word & CpuAvxStateSaved, 0u);
  }
  if (flags.count("avx512f")) {
    EXPECT_NE(word & CpuAvx512StateSaved, 0u);
  }
}

TEST(InitCpuDispatch, VendorIsReportedButDoesNotChooseTheVariant) {
  for (bool tuned : {true, false}) {
    FakeCpu cpu;
    cpu.SetVendor(7, tuned ? FakeCpu::kTunedVendor : FakeCpu::kOtherVendor);
    cpu.Set(1, 0, {0, 0, kCpuBase | kOsxsave | kAvx | kFma, kEdxBase});
    cpu.Set(7, 0, {0, kAvx2Ebx, 0, 0});
    cpu.SetXcr0(0x7);
    ResetCpuDispatchForTesting();
    EXPECT_EQ(ownInitCpuDispatch(), tuned ? StatusOk : StatusCpuVendor);
    EXPECT_EQ(cpuVariantIndex.load(), CpuVariantL9) << (tuned ? "tuned" : "other") << " vendor";
  }
  ResetCpuDispatchForTesting();  // back to the real processor
  ownInitCpuDispatch();
}

}  // namespace
}  // namespace corvane::primitives
