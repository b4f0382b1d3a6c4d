#pragma once

#include <cstddef>

namespace velto {

// Memory for large, long-lived data (a library's bytes, the parser's index, the records
// decoded from it) that is cheap to touch the first time. Faulting in fresh memory one
// 4 KiB page at a time costs more than parsing what is put there, so where the platform
// offers larger pages these ask for them. Implemented once per platform
// (large_memory_linux.cc, large_memory_macos.cc).

// A zero-filled block of at least `size` bytes, owned and freed with it. Throws
// std::bad_alloc when the system has no memory to give, as `new` does.
class LargeBuffer {
 public:
  LargeBuffer() = default;
  explicit LargeBuffer(size_t size);
  ~LargeBuffer();
  LargeBuffer(LargeBuffer&& other) noexcept;
  LargeBuffer& operator=(LargeBuffer&& other) noexcept;
  LargeBuffer(const LargeBuffer&) = delete;
  LargeBuffer& operator=(const LargeBuffer&) = delete;

  char* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  char* data_ = nullptr;
  size_t size_ = 0;    // usable bytes
  size_t mapped_ = 0;  // bytes to give back
};

// Lets the heap hand out about `bytes` more, from now on, in memory that is cheap to
// touch, and keeps what is freed there for reuse instead of returning it to the system.
// For a process about to decode one large document into many small allocations. Only
// the first call per process does anything, so it should ask for room to grow; does
// nothing where the allocator in use is not the platform's own (under the sanitizers).
void prepareHeapForLargeData(size_t bytes);

}  // namespace velto
