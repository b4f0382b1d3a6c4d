#include "core/model/library_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "core/support/private_folder.h"

namespace velto {

Result<LibraryLock> LibraryLock::acquire(const LibraryStore& store) {
  if (auto created = createPrivateFolder(store.directory()); !created.ok()) {
    return created.error();
  }
  const std::filesystem::path path = store.directory() / kLibraryLockFileName;
  // O_NOFOLLOW: a link planted in the folder must not make us create or lock elsewhere.
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return fileFailure("lock the library file", path, errno);
  LibraryLock lock(fd);
  while (::flock(fd, LOCK_EX) != 0) {
    if (errno != EINTR) return fileFailure("lock the library file", path, errno);
  }
  return lock;
}

LibraryLock::LibraryLock(LibraryLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

LibraryLock::~LibraryLock() {
  if (fd_ >= 0) ::close(fd_);
}

Result<void> updateLibrary(const LibraryStore& store,
                           const std::function<bool(LibraryState&)>& change) {
  Result<LibraryLock> lock = LibraryLock::acquire(store);
  if (!lock.ok()) return lock.error();
  Result<LibraryState> state = store.load();
  if (!state.ok()) return state.error();
  if (!change(*state)) return {};
  return store.save(*state);
}

}  // namespace velto
