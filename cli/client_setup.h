#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/support/folders.h"

// How each MCP client is told to start VeltoMCP: the entry in the form its configuration
// file takes, and where that file is on this platform.
namespace velto::ClientSetup {

enum class Client { generic, claudeDesktop, cursor, vscode, codex };

// The names `velto clients add --for` takes, in the order of Client.
inline constexpr std::array<std::string_view, 5> kClientNames{"generic", "claude-desktop", "cursor",
                                                              "vscode", "codex"};

std::optional<Client> clientNamed(std::string_view name);

// The server's environment variables, in the order they are printed.
using Variables = std::vector<std::pair<std::string, std::string>>;

struct Configuration {
  // One sentence, ending with ':', saying which file takes the entry and where it goes.
  std::string intro;
  // The entry named "velto" that runs `command` with the variables, in the client's own
  // form (JSON or TOML, strings escaped as that form wants), ending with a line feed.
  std::string text;

  bool operator==(const Configuration&) const = default;
};

// The configuration for `client`. Its file is found through `env` the way the client finds
// it (HOME; XDG_CONFIG_HOME on Linux; CODEX_HOME), spelled from "~" when there is no home.
// The generic form is the bare "mcpServers" entry, for any client not listed.
Configuration configuration(Client client, const std::string& command, const Variables& variables,
                            const EnvironmentLookup& env);

// `args` without the option "--for CLIENT" (or "--for=CLIENT"), which may stand anywhere
// before a "--". `client` is generic when the option is absent, and absent with a one-line
// `error` when its value is missing or unknown or the option is given twice.
struct ForOption {
  std::vector<std::string> rest;
  std::optional<Client> client;
  std::string error;
};
ForOption takeForOption(std::span<const std::string> args);

}  // namespace velto::ClientSetup
