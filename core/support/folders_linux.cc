#include "core/support/folders.h"

namespace velto {

namespace {

// The XDG base directory rules: the variable when it holds an absolute path, otherwise
// the default below the home folder.
std::optional<std::filesystem::path> xdg(const EnvironmentLookup& env, std::string_view variable,
                                         std::string_view fallback) {
  if (const auto value = env(variable); value && !value->empty() && value->front() == '/') {
    return std::filesystem::path(*value);
  }
  const auto home = Folders::home(env);
  if (!home) return std::nullopt;
  return *home / fallback;
}

}  // namespace

std::optional<std::filesystem::path> Folders::applicationSupport(const EnvironmentLookup& env) {
  return xdg(env, "XDG_DATA_HOME", ".local/share");
}

std::optional<std::filesystem::path> Folders::caches(const EnvironmentLookup& env) {
  return xdg(env, "XDG_CACHE_HOME", ".cache");
}

std::optional<std::filesystem::path> Folders::browserProfiles(const EnvironmentLookup& env) {
  return xdg(env, "XDG_CONFIG_HOME", ".config");
}

}  // namespace velto
