#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct XXH3_state_s;

namespace velto {

// The identity of a run of bytes: their XXH3-128 digest and their length.
struct ContentDigest {
  uint64_t low = 0, high = 0, size = 0;
  bool operator==(const ContentDigest&) const = default;
};

// Takes the digest of bytes that arrive a piece at a time, and tells the digest of
// everything added so far at any point, so that two streams can be compared piece by
// piece. Uses the widest vector instructions the processor has: a large file is
// digested on every request, and at that size the instruction set decides the cost.
class ContentDigester {
 public:
  ContentDigester();
  ~ContentDigester();
  ContentDigester(const ContentDigester&) = delete;
  ContentDigester& operator=(const ContentDigester&) = delete;

  void add(const char* bytes, size_t size);
  // Of all bytes added since construction.
  ContentDigest digest() const;

 private:
  struct FreeState {
    void operator()(XXH3_state_s* state) const;
  };
  std::unique_ptr<XXH3_state_s, FreeState> state_;
  uint64_t size_ = 0;
};

}  // namespace velto
