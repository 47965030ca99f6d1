// Memory that ends (or starts) at an inaccessible page, so that a kernel that
// reads one byte too far faults at once, with or without a sanitizer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::test {

class PageBuffer {
 public:
  enum class Edge { End, Start };

  // `size` usable bytes; with Edge::End the last one sits just below a
  // protected page, with Edge::Start the first one just above one.
  explicit PageBuffer(std::size_t size, Edge edge = Edge::End);
  ~PageBuffer();
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
