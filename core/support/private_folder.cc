#include "core/support/private_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace velto {

namespace fs = std::filesystem;

Error fileFailure(std::string_view action, const fs::path& path, int error) {
  return fileError("Could not " + std::string(action) + " \"" + path.string() +
                   "\": " + std::generic_category().message(error) + ".");
}

bool syncFolder(const fs::path& directory) {
  const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = ::fsync(fd) == 0;
  const int error = errno;
  ::close(fd);
  errno = error;
  return synced;
}

Result<void> createPrivateFolder(const fs::path& directory) {
  struct stat status {};
  if (::stat(directory.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) return {};
    return fileFailure("create the folder", directory, ENOTDIR);
  }
  fs::path parent = directory.parent_path();
  if (parent.empty()) parent = ".";
  if (parent != directory) {
    if (auto created = createPrivateFolder(parent); !created.ok()) return created;
  }
  if (::mkdir(directory.c_str(), 0700) != 0) {
    // EEXIST: someone else made it in the meantime, or the path ends in a separator and
    // its parent was the folder itself.
    if (errno == EEXIST) return {};
    return fileFailure("create the folder", directory, errno);
  }
  // A new entry in the parent is only durable once the parent itself is flushed.
  if (!syncFolder(parent)) return fileFailure("create the folder", directory, errno);
  return {};
}

}  // namespace velto
