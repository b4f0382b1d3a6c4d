#pragma once

#include <cstdint>
#include <optional>

#include "core/model/library_codec.h"
#include "core/model/library_store.h"
#include "core/model/prepared_library.h"
#include "core/support/result.h"

namespace velto {

// Loads the library for a process that answers many requests, each of which must see
// the file exactly as it is now. Every load reads the file whole through the store and
// answers exactly as LibraryStore::load would, but when the bytes read are the very
// bytes of the last successful decoding, that decoding, and what was prepared from it,
// is used again instead of decoding them once more: identical bytes cannot decode to
// anything else. Identity is the content's own, a 128-bit XXH3 digest of the bytes
// (and their length), never file times, sizes or inode numbers, so a rewrite of the
// same size within one clock tick is seen. A load that fails leaves nothing to reuse:
// the next one decodes afresh. A changed file is decoded keeping every saved tab whose
// bytes did not change (SavedTabMemo), with what was prepared for it. Not thread-safe;
// one per thread.
class LibraryReader {
 public:
  // The library as stored now; valid until the next load. The failures of
  // LibraryStore::load.
  Result<const PreparedLibrary*> load(const LibraryStore& store);

 private:
  // Drops every decoding, for a load that failed with `error`.
  Error forget(Error error);

  LibraryDecoder decoder_;
  PreparedLibrary library_;
  SavedTabMemo memo_;
  // The digest of the bytes library_ was decoded from, while it holds a successful
  // decoding of a file's bytes.
  std::optional<ContentDigest> decoded_;
};

}  // namespace velto
