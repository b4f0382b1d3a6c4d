#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/model/records.h"
#include "core/support/content_digest.h"
#include "core/support/result.h"

namespace velto {

// What decoding into one LibraryState remembers of the bytes each of its saved tabs
// was decoded from, so that decoding a later version of the file into that same state
// keeps every saved tab whose bytes did not change instead of decoding it again: the
// app rewrites a large library to change a few tabs. It belongs to that one state and
// is only right while the state holds exactly what the last decoding with it left
// there; clear `sources` whenever anything else changes the state or a decoding fails.
struct SavedTabMemo {
  static constexpr uint32_t kFresh = UINT32_MAX;

  // One per saved tab, in the state's order.
  struct Source {
    // XXH3-64 of the tab's object as written, and its length: two
    // different records of one length agree by chance once in 2^64 comparisons, and a
    // library makes one per tab that changed, while 16 bytes a tab keep the memo small
    // beside the records.
    uint64_t hash = 0;
    uint32_t length = 0;  // 0: unknown, matches no bytes
    // After a decoding: the tab's position before it when it was kept unchanged from
    // there (such tabs keep their order), else kFresh.
    uint32_t origin = kFresh;
  };
  std::vector<Source> sources;
};

// Reusable decoding state: keeps the file buffer and the JSON parser (with its
// allocations) alive between documents, so a process that reads the library on every
// request does not fault in fresh memory each time. Besides the file's bytes it holds
// only an index of the document (four bytes per JSON token): strings go from the bytes
// straight into the records. Not thread-safe; one per thread.
//
// Decoding is strict: a missing required key, a value of the wrong type, an unknown
// browser, pin state or archive state, a date not exactly like 2026-01-31T08:15:00Z, a
// malformed UUID, malformed JSON anywhere (under unknown keys too; checked as strictly as
// by simdjson's DOM parser) or a top level that is not an object fails the whole
// document with an Error of Domain::decoding whose message names the key path, e.g.
//   The library file is damaged: "tabs[3].savedAt" is not a date like 2026-01-31T08:15:00Z.
// Malformed JSON is reported as such (no key path), wherever a value of the wrong form is.
// Whole numbers may be written with a zero fraction or an exponent (1.0, 1e3) as long
// as the value is whole and fits in 64 bits. Unknown keys are ignored; a null or
// missing optional is absent; of a key repeated in one object the last counts (each
// must be valid); repeated connected browsers collapse. "version" must be
// a number, but which versions are acceptable is the store's decision.
class LibraryDecoder {
 public:
  LibraryDecoder();
  ~LibraryDecoder();
  LibraryDecoder(const LibraryDecoder&) = delete;
  LibraryDecoder& operator=(const LibraryDecoder&) = delete;

  // Decodes library.json bytes.
  Result<LibraryState> decode(std::string_view bytes);
  // Decodes them into `state`, keeping the saved tabs `memo` knows to be unchanged, as
  // decodeReadInto does for a file's bytes.
  Result<void> decodeInto(std::string_view bytes, LibraryState& state, SavedTabMemo& memo);

  // Reads the whole file into the kept buffer, then decodes it. A read failure is an
  // Error of Domain::file naming the file and the system's reason; a decode failure an
  // Error of Domain::decoding.
  Result<LibraryState> decodeFile(const std::filesystem::path& file);

  // decodeFile into `state`, reading over the records it already holds: their strings
  // and lists keep their storage, so decoding a library of the same shape again
  // allocates almost nothing. On failure `state` holds an unspecified mix of old and new
  // values and must not be used.
  Result<void> decodeFileInto(const std::filesystem::path& file, LibraryState& state);

  // The two halves of decodeFileInto, for a caller that looks at the bytes in between:
  // readFile reads the whole file into the kept buffer and returns its bytes, valid until
  // the next read or decode; decodeReadInto decodes the bytes last read (none after a
  // failed read) into `state`, with the same rules.
  Result<std::string_view> readFile(const std::filesystem::path& file);
  Result<void> decodeReadInto(LibraryState& state);
  // The digest of the bytes last read by readFile (none after a failed read), taken
  // while reading them.
  ContentDigest lastDigest() const;
  // Allocates the parser for the bytes last read, as decoding them would (a failure is
  // decoding's). The parser's index and string buffer are sized for the whole file but
  // only partly touched; a caller about to change how the heap hands out memory sizes
  // the parser first, so that these keep mappings of their own (see
  // prepareHeapForLargeData).
  Result<void> sizeParserForRead();
  // decodeReadInto that keeps the saved tabs `memo` knows to be unchanged. Decodes
  // exactly as decodeReadInto does, and fills `memo` for the next time; on failure
  // `memo` is cleared.
  Result<void> decodeReadInto(LibraryState& state, SavedTabMemo& memo);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// One-off decode, with the rules of LibraryDecoder.
Result<LibraryState> decodeLibrary(std::string_view bytes);

// The file form: pretty-printed, keys sorted, slashes not escaped, absent optionals
// omitted, UUIDs upper case, dates to the whole second, non-ASCII as UTF-8. Ill-formed
// UTF-8 in a string is written as U+FFFD. Decoding the result gives back `state` with
// its dates truncated to the second (and ill-formed UTF-8 replaced).
// Precondition: every date isWritableDate; encodeLibraryFile checks it.
std::string encodeLibrary(const LibraryState& state);

// encodeLibrary for saving: never bytes that the decoder would refuse. A date outside
// the years 1 to 9999 fails it with an Error (Domain::platform) naming its key path, e.g.
//   The library could not be saved: "tabs[3].savedAt" is a date outside the years 1 to
//   9999, which the file cannot hold.
Result<std::string> encodeLibraryFile(const LibraryState& state);

}  // namespace velto
