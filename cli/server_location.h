#pragma once

#include <filesystem>

namespace velto {

// The VeltoMCP that a client configuration should name, for the velto at `executable`:
// the VeltoMCP beside it, absolute and with links resolved. Installed, that is the
// installed server. In a build tree, where a link beside velto stands for the build's own
// server, the release preset's server (build/release/server/VeltoMCP, beside the build
// folder of `executable`) is preferred when it exists: the other presets are sanitizer
// builds, many times slower to start for every connection. The path may name nothing.
std::filesystem::path serverFor(const std::filesystem::path& executable);

}  // namespace velto
