// The largest-cache query on made-up processors (leaf 4 walk, leaf 2
// descriptors, other vendor, old processors) and on this one against sysfs.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "fake_cpu.h"
#include "primitives/core/cache_query.h"
#include "primitives/core/cpuid_seam.h"

namespace corvane::primitives {
namespace {

using test::FakeCpu;

class CacheQueryTest : public ::testing::Test {
 protected:
  void SetUp() override { ResetCacheQueryForTesting(); }
  void TearDown() override { ResetCacheQueryForTesting(); }
};

// A leaf 4 entry: type 1 data, 2 instruction, 3 unified.
CpuidRegs Leaf4(uint32_t type, uint32_t ways, uint32_t partitions, uint32_t line, uint32_t sets) {
  return {type | (1u << 5), ((ways - 1) << 22) | ((partitions - 1) << 12) | (line - 1), sets - 1,
          0};
}

struct CacheCase {
  const char* what;
  bool tuned;
  uint32_t highest;
  std::vector<CpuidRegs> leaf4;  // sub-leaves 0, 1, ...
  CpuidRegs leaf2;
  int32_t size;
  PrimitiveStatus status;
};

const CacheCase kCacheCases[] = {
    {"leaf 4: largest data or unified cache, up to the first type 0",
     true,
     0x16,
     {Leaf4(1, 12, 1, 64, 64), Leaf4(2, 8, 1, 64, 131072), Leaf4(3, 16, 1, 64, 1024),
      Leaf4(3, 12, 2, 64, 16384), CpuidRegs{}, Leaf4(3, 16, 1, 64, 65536)},
     {},
     24 << 20,
     StatusOk},
    {"leaf 4 lists no cache", true, 4, {}, {0x01, 0x2C, 0, 0}, 0, StatusCacheUnknown},
    {"leaf 2: largest named wins", true, 2, {}, {0x43490001, 0x2C, 0, 0}, 4 << 20, StatusOk},
    {"leaf 2: every register", true, 3, {}, {0x01, 0x7D, 0x23, 0xEA00}, 12 << 20, StatusOk},
    {"leaf 2: bit 31 hides a register",
     true,
     2,
     {},
     {0x01, 0x8000004D, 0x22, 0},
     512 << 10,
     StatusOk},
    {"leaf 2: smallest row", true, 3, {}, {0x4101, 0, 0, 0}, 128 << 10, StatusOk},
    {"leaf 2: AL other than 1", true, 2, {}, {0x4D02, 0, 0, 0}, 0, StatusCacheUnknown},
    {"leaf 2: no known descriptor", true, 3, {}, {0x01, 0x0A0B0C0D, 0, 0}, 0, StatusCacheUnknown},
    {"other vendor", false, 0x10, {Leaf4(3, 16, 1, 64, 1024)}, {}, -1, StatusCpuUnsupported},
    {"highest leaf 1",
     true,
     1,
     {Leaf4(3, 16, 1, 64, 1024)},
     {0x01, 0x4D, 0, 0},
     -1,
     StatusCpuUnsupported},
    {"highest leaf 0", true, 0, {}, {}, -1, StatusCpuUnsupported},
};

// Each answer, known or not, is settled by the first call: later calls ask
// the processor nothing and don't see it change. A null output is refused
// before anything and settles nothing.
TEST_F(CacheQueryTest, MadeUpProcessors) {
  for (const CacheCase& c : kCacheCases) {
    ResetCacheQueryForTesting();
    FakeCpu cpu;
    cpu.SetVendor(c.highest, c.tuned ? FakeCpu::kTunedVendor : FakeCpu::kOtherVendor);
    for (uint32_t i = 0; i < c.leaf4.size(); ++i) cpu.Set(4, i, c.leaf4[i]);
    cpu.Set(2, 0, c.leaf2);
    EXPECT_EQ(ownGetCacheSize(nullptr), StatusNullPointer);
    EXPECT_EQ(cpu.cpuidCalls(), 0) << c.what;
    int32_t size = -5;
    EXPECT_EQ(ownGetCacheSize(&size), c.status) << c.what;
    EXPECT_EQ(size, c.size) << c.what;
    const int calls = cpu.cpuidCalls();
    cpu.Set(4, 0, Leaf4(3, 16, 1, 64, 65536));
    cpu.Set(2, 0, {0x01, 0xEC, 0, 0});
    size = -5;
    EXPECT_EQ(ownGetCacheSize(&size), c.status) << c.what << ", second call";
    EXPECT_EQ(size, c.size) << c.what << ", second call";
    EXPECT_EQ(cpu.cpuidCalls(), calls) << c.what;
  }
}

TEST_F(CacheQueryTest, PackedTableAgreesWithTheFullTableFrom512KiB) {
  FakeCpu cpu;
  cpu.SetVendor(2, FakeCpu::kTunedVendor);
  for (uint32_t d = 0; d < 256; ++d) {
    ResetCacheQueryForTesting();
    cpu.Set(2, 0, {0x01, d, 0, 0});
    const int32_t full = ownDescriptorCacheSize();
    EXPECT_EQ(ownPackedDescriptorCacheSize(), full >= (512 << 10) ? full : 0)
        << "descriptor 0x" << std::hex << d;
  }
  ResetCacheQueryForTesting();
  cpu.SetVendor(2, FakeCpu::kOtherVendor);
  cpu.Set(2, 0, {0x01, 0xEC, 0, 0});
  EXPECT_EQ(ownPackedDescriptorCacheSize(), 0) << "the vendor test comes first";
}

int32_t LargestSysfsDataCache() {
  int32_t largest = 0;
  for (int i = 0; i < 16; ++i) {
    const std::string dir = "/sys/devices/system/cpu/cpu0/cache/index" + std::to_string(i) + "/";
    std::ifstream typeFile(dir + "type"), sizeFile(dir + "size");
    std::string type, size;
    if (!(typeFile >> type) || !(sizeFile >> size)) break;
    if (type == "Instruction") continue;
    const int shift = size.back() == 'K' ? 10 : size.back() == 'M' ? 20 : 0;
    const int32_t bytes = std::stoi(size) << shift;
    largest = std::max(largest, bytes);
  }
  return largest;
}

TEST_F(CacheQueryTest, ThisProcessorAgreesWithSysfs) {
  int32_t size = 0;
  const PrimitiveStatus status = ownGetCacheSize(&size);
  if (!ownIsTunedVendor()) {
    // Other vendors get no cache size: the copies stay on normal stores,
    // except where m7's fixed threshold applies.
    EXPECT_EQ(status, StatusCpuUnsupported);
    EXPECT_EQ(size, -1);
    GTEST_SKIP() << "other vendor: the query answers 36 by design; sysfs says "
                 << LargestSysfsDataCache() << " bytes";
  }
  const int32_t expected = LargestSysfsDataCache();
  if (expected == 0) GTEST_SKIP() << "no cache information in sysfs";
  EXPECT_EQ(status, StatusOk);
  EXPECT_EQ(size, expected);
}

}  // namespace
}  // namespace corvane::primitives
