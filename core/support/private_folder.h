#pragma once

#include <filesystem>

#include "core/support/result.h"

namespace velto {

// Creates `directory` and every missing folder above it, each new one at mode 0700 (only
// the user may list or enter it) and flushed into its parent, so that a folder made just
// before a crash is still there with what was saved in it. An existing folder is not an
// error and keeps its mode. Fails with Domain::file, naming the folder.
Result<void> createPrivateFolder(const std::filesystem::path& directory);

// Flushes the entries of `directory` (creations, renames, removals) to disk. False, with
// errno set, when it cannot be opened or flushed.
bool syncFolder(const std::filesystem::path& directory);

// "Could not <action> "<path>": <the system's reason>." as a Domain::file error.
Error fileFailure(std::string_view action, const std::filesystem::path& path, int error);

}  // namespace velto
