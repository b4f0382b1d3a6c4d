#include <cstdlib>

#include "core/support/folders.h"

namespace velto {

EnvironmentLookup processEnvironment() {
  return [](std::string_view name) -> std::optional<std::string> {
    const char* value = std::getenv(std::string(name).c_str());
    if (value == nullptr) return std::nullopt;
    return std::string(value);
  };
}

std::optional<std::filesystem::path> Folders::home(const EnvironmentLookup& env) {
  const auto home = env("HOME");
  if (!home || home->empty()) return std::nullopt;
  return std::filesystem::path(*home);
}

}  // namespace velto
