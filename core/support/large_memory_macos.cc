#include <sys/mman.h>

#include <new>

#include "core/support/large_memory.h"

namespace velto {

// macOS has no huge pages to ask for: plain anonymous memory.
LargeBuffer::LargeBuffer(size_t size) {
  if (size == 0) return;
  void* start = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  if (start == MAP_FAILED) throw std::bad_alloc();
  data_ = static_cast<char*>(start);
  size_ = mapped_ = size;
}

void prepareHeapForLargeData(size_t) {}

}  // namespace velto
