#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "core/model/library_codec.h"
#include "core/model/records.h"
#include "core/support/folders.h"
#include "core/support/result.h"

namespace velto {

// The other files kept beside library.json: the temporary files of saves in progress
// (this prefix and six random characters) and the writers' lock file (LibraryLock).
inline constexpr std::string_view kLibraryTemporaryPrefix = ".library.json.";
inline constexpr std::string_view kLibraryLockFileName = ".library.json.lock";

// Finds, reads and writes library.json. A plain value holding only the folder: nothing
// is cached and nothing touches the disk until load or save, so every load sees the file
// as it is now. The desktop app writes the file; the server only reads it.
//
// The folder is kept at mode 0700 and the file at 0600, and a save replaces the file
// atomically: a reader, in this process or another, sees the old document or the new
// one, never a mix. Two concurrent writers are not coordinated here; the last one wins
// (writers that must not lose each other's changes go through updateLibrary).
class LibraryStore {
 public:
  explicit LibraryStore(std::filesystem::path directory);

  // <Application Support>/Velto (see Folders::applicationSupport). An Error when the
  // environment gives no such folder (no HOME and, on Linux, no XDG_DATA_HOME); callers
  // treat that as fatal.
  static Result<LibraryStore> atDefaultLocation(
      const EnvironmentLookup& env = processEnvironment());

  const std::filesystem::path& directory() const { return directory_; }
  // directory() / "library.json".
  std::filesystem::path fileURL() const;

  // The library as stored now. A missing file is a fresh default LibraryState (nothing is
  // created). A file that cannot be read fails with Domain::file, one that does not decode
  // with Domain::decoding, and one whose version is not 1 with VeltoError::newerLibrary().
  Result<LibraryState> load() const;
  // The same, reusing the decoder's buffers (for a process that loads on every request).
  Result<LibraryState> load(LibraryDecoder& decoder) const;
  // The same into `state`, reading over the records it holds (LibraryDecoder::
  // decodeFileInto): what a server that loads on every request keeps between requests.
  // On failure `state` must not be used.
  Result<void> loadInto(LibraryDecoder& decoder, LibraryState& state) const;

  // loadInto in two steps, for a caller that looks at the bytes in between: the file's
  // bytes, read whole into the decoder (absent when there is no file, which stands for a
  // fresh default LibraryState; the same read failures as load); then those bytes
  // decoded into `state` with the same rules as load (keeping the saved tabs `memo`
  // knows to be unchanged, when given; it is cleared on any failure).
  Result<std::optional<std::string_view>> read(LibraryDecoder& decoder) const;
  static Result<void> decodeRead(LibraryDecoder& decoder, LibraryState& state,
                                 SavedTabMemo* memo = nullptr);

  // Creates the folder if needed (createPrivateFolder), tightens it to 0700, then
  // atomically replaces the file with the encoded state at mode 0600 and flushes it to
  // disk. On failure (Domain::file) the previous file is left exactly as it was and no
  // temporary file remains. Temporary files that a crashed save left behind (older than
  // a minute) are removed on the way.
  Result<void> save(const LibraryState& state) const;

 private:
  std::filesystem::path directory_;
};

}  // namespace velto
