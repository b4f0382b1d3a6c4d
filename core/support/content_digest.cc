#include "core/support/content_digest.h"

// Where libxxhash was built with its x86 dispatcher, it picks AVX2 or AVX-512 at run
// time (the compiler may only assume SSE2). Elsewhere its build-time choice stands: on
// Apple silicon that is NEON already.
#if defined(VELTO_XXHASH_DISPATCH)
#include <xxh_x86dispatch.h>
#else
#include <xxhash.h>
#endif

#include <new>

namespace velto {

void ContentDigester::FreeState::operator()(XXH3_state_s* state) const { XXH3_freeState(state); }

ContentDigester::ContentDigester() : state_(XXH3_createState()) {
  if (!state_) throw std::bad_alloc();
  XXH3_128bits_reset(state_.get());
}

ContentDigester::~ContentDigester() = default;

void ContentDigester::add(const char* bytes, size_t size) {
  XXH3_128bits_update(state_.get(), bytes, size);
  size_ += size;
}

ContentDigest ContentDigester::digest() const {
  const XXH128_hash_t hash = XXH3_128bits_digest(state_.get());
  return {hash.low64, hash.high64, size_};
}

}  // namespace velto
