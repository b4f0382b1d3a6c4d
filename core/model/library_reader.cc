#include "core/model/library_reader.h"

#include <xxhash.h>

#include "core/support/large_memory.h"

namespace velto {

Result<const PreparedLibrary*> LibraryReader::load(const LibraryStore& store) {
  const Result<std::optional<std::string_view>> bytes = store.read(decoder_);
  if (!bytes) {
    decoded_.reset();
    return bytes.error();
  }
  if (!*bytes) {
    decoded_.reset();
    library_.state = LibraryState{};
    library_.prepare();
    return &library_;
  }
  const XXH128_hash_t hash = XXH3_128bits((*bytes)->data(), (*bytes)->size());
  const Digest digest{hash.low64, hash.high64, (*bytes)->size()};
  if (decoded_ == digest) return &library_;

  decoded_.reset();
  // The records of a large library are hundreds of thousands of small allocations; the
  // first decoding of one is what grows the heap.
  prepareHeapForLargeData((*bytes)->size() + (*bytes)->size() / 2);
  if (auto decoded = LibraryStore::decodeRead(decoder_, library_.state); !decoded) {
    return decoded.error();
  }
  library_.prepare();
  decoded_ = digest;
  return &library_;
}

}  // namespace velto
