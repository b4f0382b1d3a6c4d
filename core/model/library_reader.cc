#include "core/model/library_reader.h"

#include <xxhash.h>

#include <algorithm>

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
  // The first decoding is what grows the heap: the parser's index (virtually four bytes
  // per byte of the file, a third of that touched) and, for a large library, hundreds of
  // thousands of records. Address space is cheap, so a small library gets room to grow.
  prepareHeapForLargeData(std::max<size_t>(8 * (*bytes)->size(), 64 << 20));
  if (auto decoded = LibraryStore::decodeRead(decoder_, library_.state); !decoded) {
    // Nothing half-read stays behind, not even unused.
    library_.state = LibraryState{};
    library_.prepare();
    return decoded.error();
  }
  library_.prepare();
  decoded_ = digest;
  return &library_;
}

}  // namespace velto
