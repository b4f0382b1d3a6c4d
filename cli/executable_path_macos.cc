#include <mach-o/dyld.h>

#include <cstdint>
#include <string>
#include <system_error>

#include "cli/executable_path.h"

namespace velto {

std::optional<std::filesystem::path> currentExecutablePath() {
  uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);  // reports the size needed
  std::string buffer(size, '\0');
  if (_NSGetExecutablePath(buffer.data(), &size) != 0) return std::nullopt;
  buffer.resize(buffer.find('\0'));
  // The answer may be relative or go through links.
  std::error_code error;
  auto path = std::filesystem::canonical(buffer, error);
  if (error) return std::nullopt;
  return path;
}

}  // namespace velto
