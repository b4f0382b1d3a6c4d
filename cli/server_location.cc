#include "cli/server_location.h"

#include <system_error>

namespace velto {

namespace fs = std::filesystem;

fs::path serverFor(const fs::path& executable) {
  std::error_code error;
  const fs::path beside = fs::absolute(executable.parent_path() / "VeltoMCP", error);
  if (fs::is_symlink(beside, error)) {
    // <build>/cli/velto: the release build is <build>/../release.
    const fs::path release =
        beside.parent_path().parent_path().parent_path() / "release/server/VeltoMCP";
    if (fs::is_regular_file(release, error)) return fs::canonical(release, error);
  }
  fs::path server = fs::weakly_canonical(beside, error);
  return error ? beside : server;
}

}  // namespace velto
