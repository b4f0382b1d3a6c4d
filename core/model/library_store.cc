#include "core/model/library_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "core/model/velto_error.h"
#include "core/support/private_folder.h"

namespace velto {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

// A temporary file older than this was left by a writer that crashed before its rename:
// a save in progress takes milliseconds.
constexpr auto kStaleTemporaryAge = std::chrono::minutes(1);

// Removes the temporary files that crashed saves left beside the library. Only regular
// files named like ours; never the writers' lock file. Best effort: a file that cannot be
// removed now is tried again on the next save.
void removeStaleTemporaries(const fs::path& directory) {
  std::error_code error;
  const auto cutoff = fs::file_time_type::clock::now() - kStaleTemporaryAge;
  for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (!name.starts_with(kLibraryTemporaryPrefix) || name == kLibraryLockFileName) continue;
    std::error_code ignored;
    if (!it->is_symlink(ignored) && it->is_regular_file(ignored) &&
        it->last_write_time(ignored) < cutoff) {
      fs::remove(it->path(), ignored);
    }
  }
}

}  // namespace

LibraryStore::LibraryStore(fs::path directory) : directory_(std::move(directory)) {}

Result<LibraryStore> LibraryStore::atDefaultLocation(const EnvironmentLookup& env) {
  const std::optional<fs::path> support = Folders::applicationSupport(env);
  if (!support) {
    return platformError(
        "Could not find the folder for Velto's library: the environment does not say where "
        "the home folder is.");
  }
  return LibraryStore(*support / "Velto");
}

fs::path LibraryStore::fileURL() const { return directory_ / "library.json"; }

Result<LibraryState> LibraryStore::load() const {
  LibraryDecoder decoder;
  return load(decoder);
}

Result<LibraryState> LibraryStore::load(LibraryDecoder& decoder) const {
  LibraryState state;
  if (auto loaded = loadInto(decoder, state); !loaded) return loaded.error();
  return state;
}

Result<void> LibraryStore::loadInto(LibraryDecoder& decoder, LibraryState& state) const {
  const Result<std::optional<std::string_view>> bytes = read(decoder);
  if (!bytes) return bytes.error();
  if (!*bytes) {
    state = LibraryState{};
    return {};
  }
  return decodeRead(decoder, state);
}

namespace {

// A file that is not there stands for a fresh library; any other failure to stat it is
// left for the read to report.
bool isMissing(const fs::path& file) {
  struct stat status {};
  return ::stat(file.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

}  // namespace

Result<std::optional<std::string_view>> LibraryStore::read(LibraryDecoder& decoder) const {
  const fs::path file = fileURL();
  if (isMissing(file)) return std::optional<std::string_view>();
  Result<std::string_view> bytes = decoder.readFile(file);
  if (!bytes) return bytes.error();
  return std::optional<std::string_view>(*bytes);
}

Result<void> LibraryStore::decodeRead(LibraryDecoder& decoder, LibraryState& state,
                                      SavedTabMemo* memo) {
  if (auto decoded = memo ? decoder.decodeReadInto(state, *memo) : decoder.decodeReadInto(state);
      !decoded) {
    return decoded;
  }
  if (state.version != 1) {
    if (memo) memo->sources.clear();
    return VeltoError::newerLibrary();
  }
  return {};
}

Result<void> LibraryStore::save(const LibraryState& state) const {
  if (auto created = createPrivateFolder(directory_); !created.ok()) return created;
  if (::chmod(directory_.c_str(), kDirectoryMode) != 0) {
    return fileFailure("restrict the folder", directory_, errno);
  }
  removeStaleTemporaries(directory_);
  const auto bytes = encodeLibraryFile(state);
  if (!bytes) return bytes.error();
  const fs::path target = fileURL();

  // The new document goes to a fresh file beside the old one and replaces it with one
  // rename, so a reader never sees a partial document and a failure leaves the old one.
  std::string temporary = (directory_ / (std::string(kLibraryTemporaryPrefix) + "XXXXXX")).string();
  const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);  // O_EXCL, mode 0600
  if (fd < 0) return fileFailure("save the library file", target, errno);
  // Every failure from here on removes the temporary file and leaves the old one.
  const auto abandon = [&](int error) {
    ::unlink(temporary.c_str());
    return fileFailure("save the library file", target, error);
  };
  // fchmod before the rename: the file must never be visible with looser permissions,
  // whatever the umask or the mode of the file it replaces.
  if (!writeAll(fd, *bytes) || ::fchmod(fd, kFileMode) != 0 || ::fsync(fd) != 0) {
    const int error = errno;
    ::close(fd);
    return abandon(error);
  }
  if (::close(fd) != 0) return abandon(errno);
  if (::rename(temporary.c_str(), target.c_str()) != 0) return abandon(errno);
  if (!syncFolder(directory_)) return fileFailure("save the library file", target, errno);
  return {};
}

}  // namespace velto
