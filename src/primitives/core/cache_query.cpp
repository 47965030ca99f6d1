#include "primitives/core/cache_query.h"

#include <atomic>
#include <cstddef>

#include "primitives/core/cpuid_seam.h"

namespace corvane::primitives {
namespace {

// Both written once, with equal values by racing first callers.
std::atomic<int32_t> cacheSizeBytes{-1};
std::atomic<int32_t> cacheQueryStatus{1};
// The n8/y8 lookup: -1 until asked, then the size or 0.
std::atomic<int32_t> packedCacheSize{-1};

constexpr int32_t KiB = 1024;
constexpr int32_t MiB = 1024 * KiB;

struct DescriptorRow {
  uint8_t descriptor;
  int32_t size;
};

// Largest cache first, so that the first row found is the largest cache named.
constexpr DescriptorRow kDescriptors[] = {
    {0xEC, 24 * MiB},  {0xEB, 18 * MiB},  {0x4D, 16 * MiB},  {0xEA, 12 * MiB},  {0x4C, 12 * MiB},
    {0xE4, 8 * MiB},   {0xDE, 8 * MiB},   {0x4B, 8 * MiB},   {0x47, 8 * MiB},   {0x4E, 6 * MiB},
    {0x4A, 6 * MiB},   {0xE3, 4 * MiB},   {0xDD, 4 * MiB},   {0xD8, 4 * MiB},   {0x49, 4 * MiB},
    {0x29, 4 * MiB},   {0x46, 4 * MiB},   {0x48, 3 * MiB},   {0xE2, 2 * MiB},   {0xDC, 2 * MiB},
    {0xD7, 2 * MiB},   {0xD2, 2 * MiB},   {0x25, 2 * MiB},   {0x7D, 2 * MiB},   {0x85, 2 * MiB},
    {0x45, 2 * MiB},   {0xD6, 1 * MiB},   {0xD1, 1 * MiB},   {0x23, 1 * MiB},   {0x87, 1 * MiB},
    {0x7C, 1 * MiB},   {0x78, 1 * MiB},   {0x84, 1 * MiB},   {0x44, 1 * MiB},   {0xD0, 512 * KiB},
    {0x22, 512 * KiB}, {0x7B, 512 * KiB}, {0x80, 512 * KiB}, {0x86, 512 * KiB}, {0x3E, 512 * KiB},
    {0x7F, 512 * KiB}, {0x83, 512 * KiB}, {0x43, 512 * KiB}, {0x3D, 384 * KiB}, {0x21, 256 * KiB},
    {0x7A, 256 * KiB}, {0x82, 256 * KiB}, {0x3C, 256 * KiB}, {0x3F, 256 * KiB}, {0x42, 256 * KiB},
    {0x3A, 192 * KiB}, {0x79, 128 * KiB}, {0x39, 128 * KiB}, {0x3B, 128 * KiB}, {0x41, 128 * KiB},
    {0x00, 0}};

// The same rows down to 512 KiB, two bytes each: descriptor, then a size code
// with size = (code >> 4) << ((code & 15) + 18).
constexpr uint8_t kPackedDescriptors[] = {
    0xEC, 0x35, 0xEB, 0x93, 0x4D, 0x16, 0xEA, 0x34, 0x4C, 0x34, 0xE4, 0x15, 0xDE, 0x15, 0x4B,
    0x15, 0x47, 0x15, 0x4E, 0x33, 0x4A, 0x33, 0xE3, 0x14, 0xDD, 0x14, 0xD8, 0x14, 0x49, 0x14,
    0x29, 0x14, 0x46, 0x14, 0x48, 0x32, 0xE2, 0x13, 0xDC, 0x13, 0xD7, 0x13, 0xD2, 0x13, 0x25,
    0x13, 0x7D, 0x13, 0x85, 0x13, 0x45, 0x13, 0xD6, 0x12, 0xD1, 0x12, 0x23, 0x12, 0x87, 0x12,
    0x7C, 0x12, 0x78, 0x12, 0x84, 0x12, 0x44, 0x12, 0xD0, 0x11, 0x22, 0x11, 0x7B, 0x11, 0x80,
    0x11, 0x86, 0x11, 0x3E, 0x11, 0x7F, 0x11, 0x83, 0x11, 0x43, 0x11, 0x00, 0x00};

// The descriptor bytes of leaf 2, or false when AL isn't 1 (more than one
// round of leaf 2 is not supported).
bool ReadDescriptors(uint8_t (&bytes)[16]) {
  const CpuidRegs r = ownCpuid(2, 0);
  if ((r.eax & 0xFF) != 1) return false;
  const uint32_t regs[4] = {r.eax & 0xFFFFFF00u, r.ebx, r.ecx, r.edx};
  for (int i = 0; i < 4; ++i) {
    // Bit 31 set: the register carries no descriptors.
    const uint32_t v = (regs[i] & 0x80000000u) ? 0 : regs[i];
    for (int b = 0; b < 4; ++b) bytes[i * 4 + b] = static_cast<uint8_t>(v >> (8 * b));
  }
  return true;
}

bool Named(const uint8_t (&bytes)[16], uint8_t descriptor) {
  // 0 is the null descriptor; it names no cache and ends the tables.
  if (descriptor == 0) return false;
  for (uint8_t b : bytes) {
    if (b == descriptor) return true;
  }
  return false;
}

// Largest data or unified cache of the leaf 4 walk; 0 when none is listed.
int32_t WalkDeterministicCacheParameters() {
  uint32_t largest = 0;
  for (uint32_t i = 0; i < 32; ++i) {
    const CpuidRegs r = ownCpuid(4, i);
    const uint32_t type = r.eax & 0x1F;
    if (type == 0) break;
    if (type == 2) continue;  // instruction cache
    const uint32_t ways = (r.ebx >> 22) + 1;
    const uint32_t partitions = ((r.ebx >> 12) & 0x3FF) + 1;
    const uint32_t line = (r.ebx & 0xFFF) + 1;
    const uint32_t sets = r.ecx + 1;
    const uint32_t size = ways * partitions * line * sets;  // 32-bit, as the processor reports
    if (size > largest) largest = size;
  }
  return static_cast<int32_t>(largest);
}

}  // namespace

int32_t ownDescriptorCacheSize() {
  uint8_t bytes[16];
  if (!ReadDescriptors(bytes)) return 0;
  for (const DescriptorRow& row : kDescriptors) {
    if (Named(bytes, row.descriptor)) return row.size;
  }
  return 0;
}

PrimitiveStatus ownGetCacheSize(int32_t* size) {
  if (!size) return StatusNullPointer;
  const int32_t known = cacheSizeBytes.load(std::memory_order_acquire);
  const int32_t status = cacheQueryStatus.load(std::memory_order_acquire);
  if (known >= 0 || status != 1) {
    *size = known;
    return status;
  }

  const uint32_t highest = ownCpuid(0, 0).eax;
  if (highest < 2 || !ownIsTunedVendor()) {
    cacheQueryStatus.store(StatusCpuUnsupported, std::memory_order_release);
    *size = cacheSizeBytes.load(std::memory_order_relaxed);
    return StatusCpuUnsupported;
  }
  const int32_t found =
      highest >= 4 ? WalkDeterministicCacheParameters() : ownDescriptorCacheSize();
  if (found > 0) {
    cacheSizeBytes.store(found, std::memory_order_relaxed);
    cacheQueryStatus.store(StatusOk, std::memory_order_release);
    *size = found;
    return StatusOk;
  }
  cacheSizeBytes.store(0, std::memory_order_relaxed);
  cacheQueryStatus.store(StatusCacheUnknown, std::memory_order_release);
  *size = 0;
  return StatusCacheUnknown;
}

int32_t ownPackedDescriptorCacheSize() {
  const int32_t known = packedCacheSize.load(std::memory_order_relaxed);
  if (known >= 0) return known;
  int32_t found = 0;
  uint8_t bytes[16];
  if (ownIsTunedVendor() && ReadDescriptors(bytes)) {
    for (std::size_t i = 0; i + 1 < sizeof kPackedDescriptors; i += 2) {
      if (!Named(bytes, kPackedDescriptors[i])) continue;
      const uint8_t code = kPackedDescriptors[i + 1];
      found = (code >> 4) << ((code & 15) + 18);
      break;
    }
  }
  packedCacheSize.store(found, std::memory_order_relaxed);
  return found;
}

void ResetCacheQueryForTesting() {
  cacheSizeBytes.store(-1, std::memory_order_relaxed);
  cacheQueryStatus.store(1, std::memory_order_relaxed);
  packedCacheSize.store(-1, std::memory_order_relaxed);
}

void SetCacheSizeForTesting(int32_t size, PrimitiveStatus status) {
  cacheSizeBytes.store(size, std::memory_order_relaxed);
  cacheQueryStatus.store(status, std::memory_order_relaxed);
  packedCacheSize.store(status == StatusOk ? size : 0, std::memory_order_relaxed);
}

}  // namespace corvane::primitives
