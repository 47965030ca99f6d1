#include "harness/page_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <new>

namespace corvane::test {

PageBuffer::PageBuffer(std::size_t size, Edge edge) : size_(size) {
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t usable = (size + page - 1) / page * page;
  mappingSize_ = usable + page;
  mapping_ = mmap(nullptr, mappingSize_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping_ == MAP_FAILED) throw std::bad_alloc();
  auto* base = static_cast<uint8_t*>(mapping_);
  if (edge == Edge::End) {
    mprotect(base + usable, page, PROT_NONE);
    data_ = base + usable - size;
  } else {
    mprotect(base, page, PROT_NONE);
    data_ = base + page;
  }
}

PageBuffer::~PageBuffer() { munmap(mapping_, mappingSize_); }

}  // namespace corvane::test
