#pragma once

#include <filesystem>
#include <optional>

namespace velto {

// The absolute, canonical path of the running executable; absent when the platform
// cannot tell. One implementation per platform (executable_path_linux.cc, _macos.cc).
std::optional<std::filesystem::path> currentExecutablePath();

}  // namespace velto
