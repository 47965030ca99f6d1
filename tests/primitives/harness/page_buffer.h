// Memory that ends (or starts) at an inaccessible page, so that a kernel that
// reads one byte too far faults at once, with or without a sanitizer.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace corvane::test {

class PageBuffer {
 public:
  enum class Edge { End, Start };

  // `size` usable bytes; with Edge::End the last one sits just below a
  // protected page, with Edge::Start the first one just above one.
  explicit PageBuffer(std::size_t size, Edge edge = Edge::End) : size_(size) {
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t usable = (size + page - 1) / page * page;
    mappingSize_ = usable + page;
    mapping_ =
        mmap(nullptr, mappingSize_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping_ == MAP_FAILED) throw std::bad_alloc();
    auto* base = static_cast<uint8_t*>(mapping_);
    mprotect(edge == Edge::End ? base + usable : base, page, PROT_NONE);
    data_ = edge == Edge::End ? base + usable - size : base + page;
  }
  ~PageBuffer() { munmap(mapping_, mappingSize_); }
  PageBuffer(const PageBuffer&) = delete;
  PageBuffer& operator=(const PageBuffer&) = delete;

  uint8_t* data() { return data_; }
  std::size_t size() const { return size_; }

 private:
  void* mapping_ = nullptr;
  std::size_t mappingSize_ = 0;
  uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace corvane::test
