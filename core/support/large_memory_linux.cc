#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "core/support/large_memory.h"

namespace velto {

namespace {

// Transparent huge pages: the kernels these servers run on give them on request
// (madvise), one fault for 2 MiB instead of 512.
constexpr uintptr_t kHugePage = 2 * 1024 * 1024;

uintptr_t roundUp(uintptr_t value) { return (value + kHugePage - 1) & ~(kHugePage - 1); }
uintptr_t roundDown(uintptr_t value) { return value & ~(kHugePage - 1); }

}  // namespace

LargeBuffer::LargeBuffer(size_t size) {
  if (size == 0) return;
  // Below one huge page, alignment would only waste memory: plain pages.
  const bool huge = size >= kHugePage;
  const size_t length = huge ? roundUp(size) : size;
  // Mapped with a huge page of slack, so that the block can start on a huge-page boundary.
  const size_t mapped = huge ? length + kHugePage : length;
  void* start = ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (start == MAP_FAILED) throw std::bad_alloc();
  const auto base = reinterpret_cast<uintptr_t>(start);
  const uintptr_t aligned = huge ? roundUp(base) : base;
  if (aligned > base) ::munmap(start, aligned - base);
  if (const uintptr_t end = base + mapped; end > aligned + length) {
    ::munmap(reinterpret_cast<void*>(aligned + length), end - aligned - length);
  }
  // Advice only: without it the block still works, with small pages.
  if (huge) ::madvise(reinterpret_cast<void*>(aligned), length, MADV_HUGEPAGE);
  data_ = reinterpret_cast<char*>(aligned);
  size_ = size;
  mapped_ = length;
}

void prepareHeapForLargeData(size_t bytes) {
  static bool prepared = false;
  if (prepared || bytes == 0) return;
  prepared = true;
  // glibc's malloc: every block, however large (the parser's index, the record lists),
  // comes from the heap instead of a fresh mapping of its own; the heap grows by `bytes`
  // at once (address space only, until touched) and keeps what is freed. The grown part
  // is then advised for huge pages. Where these calls are not glibc's (a sanitizer's
  // allocator), the heap's end does not move and nothing is advised.
  const int pad = static_cast<int>(std::min<size_t>(bytes, INT_MAX / 2));
  if (::mallopt(M_MMAP_MAX, 0) == 0 || ::mallopt(M_TRIM_THRESHOLD, 2 * pad) == 0 ||
      ::mallopt(M_TOP_PAD, pad) == 0) {
    return;
  }
  const auto before = reinterpret_cast<uintptr_t>(::sbrk(0));
  // Larger than what the heap can have spare, so that it must grow (by this and the pad),
  // and small enough that freeing it leaves the heap below the trim threshold.
  // (volatile: a malloc whose block is only freed may be left out by the compiler).
  void* volatile probe = std::malloc(static_cast<size_t>(pad) / 2);
  std::free(probe);
  const auto after = reinterpret_cast<uintptr_t>(::sbrk(0));
  const uintptr_t start = roundUp(before), end = roundDown(after);
  if (end > start) ::madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
}

}  // namespace velto
