#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

// Reads one environment variable; absent when it is not set.
using EnvironmentLookup = std::function<std::optional<std::string>(std::string_view name)>;

// The variables of this process.
EnvironmentLookup processEnvironment();

// The per-user folders of this platform. Each answer is absent when the environment
// does not say where the user's home is. Implemented once per platform
// (folders_linux.cc, folders_macos.cc); nothing is created on disk.
namespace Folders {

// The user's home folder (HOME).
std::optional<std::filesystem::path> home(const EnvironmentLookup& env);

// Where applications keep their data: ~/Library/Application Support on macOS;
// $XDG_DATA_HOME (default ~/.local/share) on Linux.
std::optional<std::filesystem::path> applicationSupport(const EnvironmentLookup& env);

// Where applications keep caches: ~/Library/Caches on macOS; $XDG_CACHE_HOME (default
// ~/.cache) on Linux.
std::optional<std::filesystem::path> caches(const EnvironmentLookup& env);

// Where the browsers keep their profiles: ~/Library/Application Support on macOS;
// $XDG_CONFIG_HOME (default ~/.config) on Linux.
std::optional<std::filesystem::path> browserProfiles(const EnvironmentLookup& env);

}  // namespace Folders

}  // namespace velto
