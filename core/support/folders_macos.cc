#include "core/support/folders.h"

namespace velto {

std::optional<std::filesystem::path> Folders::applicationSupport(const EnvironmentLookup& env) {
  const auto home = Folders::home(env);
  if (!home) return std::nullopt;
  return *home / "Library/Application Support";
}

std::optional<std::filesystem::path> Folders::caches(const EnvironmentLookup& env) {
  const auto home = Folders::home(env);
  if (!home) return std::nullopt;
  return *home / "Library/Caches";
}

std::optional<std::filesystem::path> Folders::browserProfiles(const EnvironmentLookup& env) {
  return applicationSupport(env);
}

}  // namespace velto
