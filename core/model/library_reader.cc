#include "core/model/library_reader.h"

#include <algorithm>

#include "core/support/large_memory.h"

namespace velto {

Result<const PreparedLibrary*> LibraryReader::load(const LibraryStore& store) {
  const Result<std::optional<std::string_view>> bytes = store.read(decoder_);
  if (!bytes) return forget(bytes.error());
  if (!*bytes) {
    decoded_.reset();
    memo_.sources.clear();
    library_.state = LibraryState{};
    library_.prepare();
    return &library_;
  }
  const ContentDigest digest = decoder_.lastDigest();
  if (decoded_ == digest) return &library_;

  decoded_.reset();
  // The first decoding is what grows the heap: for a large library, hundreds of
  // thousands of records and their search text. Address space is cheap, so a small
  // library gets room to grow. The parser's index (four bytes per byte of the file, a
  // third of that touched) comes first, in a mapping of its own, where its untouched
  // part costs nothing: in the huge-page heap the allocator's header after it would
  // fault in a whole huge page there.
  if (auto sized = decoder_.sizeParserForRead(); !sized) return forget(sized.error());
  prepareHeapForLargeData(std::max<size_t>(8 * (*bytes)->size(), 64 << 20));
  if (auto decoded = LibraryStore::decodeRead(decoder_, library_.state, &memo_); !decoded) {
    return forget(decoded.error());
  }
  library_.prepare(memo_);
  decoded_ = digest;
  return &library_;
}

Error LibraryReader::forget(Error error) {
  // Nothing half-read stays behind, not even unused.
  decoded_.reset();
  memo_.sources.clear();
  library_.state = LibraryState{};
  library_.prepare();
  return error;
}

}  // namespace velto
