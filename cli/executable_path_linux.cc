#include <system_error>

#include "cli/executable_path.h"

namespace velto {

std::optional<std::filesystem::path> currentExecutablePath() {
  std::error_code error;
  auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return std::nullopt;
  return path;
}

}  // namespace velto
