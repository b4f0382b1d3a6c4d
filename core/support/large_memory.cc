#include "core/support/large_memory.h"

#include <sys/mman.h>

#include <utility>

namespace velto {

LargeBuffer::~LargeBuffer() {
  if (data_) ::munmap(data_, mapped_);
}

LargeBuffer::LargeBuffer(LargeBuffer&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      mapped_(std::exchange(other.mapped_, 0)) {}

LargeBuffer& LargeBuffer::operator=(LargeBuffer&& other) noexcept {
  if (this != &other) {
    LargeBuffer gone(std::move(*this));
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
    mapped_ = std::exchange(other.mapped_, 0);
  }
  return *this;
}

}  // namespace velto
