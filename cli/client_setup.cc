#include "cli/client_setup.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace velto::ClientSetup {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

std::string json(const Json& value) {
  return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json environment(const Variables& variables) {
  Json env = Json::object();
  for (const auto& [name, value] : variables) env[name] = value;
  return env;
}

// A TOML basic string: quotes, backslashes and control characters escaped.
std::string tomlString(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04X", static_cast<unsigned char>(c));
          out += escaped;
        } else {
          out += c;
        }
    }
  }
  return out + '"';
}

// A TOML key: bare when it may be, quoted otherwise.
std::string tomlKey(std::string_view key) {
  const bool bare = !key.empty() && std::all_of(key.begin(), key.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-';
  });
  return bare ? std::string(key) : tomlString(key);
}

// `rest` below `base`, or below `spelled` as written when `base` is not known.
std::string place(const std::optional<fs::path>& base, std::string_view spelled,
                  std::string_view rest) {
  return base ? (*base / rest).string() : std::string(spelled) + "/" + std::string(rest);
}

std::string mergeInto(std::string_view what, const std::string& file, std::string_view key,
                      std::string_view extra = "") {
  return std::string(what) + " reads " + file + std::string(extra) +
         ". Put this \"velto\" entry into its \"" + std::string(key) +
         "\" object (create the file if there is none), then restart it:";
}

}  // namespace

std::optional<Client> clientNamed(std::string_view name) {
  const auto found = std::find(kClientNames.begin(), kClientNames.end(), name);
  if (found == kClientNames.end()) return std::nullopt;
  return static_cast<Client>(found - kClientNames.begin());
}

Configuration configuration(Client client, const std::string& command, const Variables& variables,
                            const EnvironmentLookup& env) {
  const Json server = {{"command", command}, {"env", environment(variables)}};
  const std::optional<fs::path> home = Folders::home(env);
  // Desktop applications keep their settings where the browsers keep their profiles:
  // ~/Library/Application Support on macOS, $XDG_CONFIG_HOME (~/.config) on Linux.
  const std::optional<fs::path> settings = Folders::browserProfiles(env);
  switch (client) {
    case Client::generic:
      break;
    case Client::claudeDesktop:
      return {mergeInto("Claude Desktop",
                        place(settings, "<settings folder>", "Claude/claude_desktop_config.json"),
                        "mcpServers", " (Settings, Developer, Edit Config)"),
              json({{"mcpServers", {{"velto", server}}}})};
    case Client::cursor:
      return {mergeInto("Cursor", place(home, "~", ".cursor/mcp.json"), "mcpServers",
                        " for every project, and .cursor/mcp.json in a project for that one"),
              json({{"mcpServers", {{"velto", server}}}})};
    case Client::vscode: {
      Json entry = {{"type", "stdio"}};
      entry.update(server);
      return {mergeInto("VS Code", place(settings, "<settings folder>", "Code/User/mcp.json"),
                        "servers",
                        " (command \"MCP: Open User Configuration\"), and .vscode/mcp.json in a "
                        "workspace for that one"),
              json({{"servers", {{"velto", entry}}}})};
    }
    case Client::codex: {
      const auto codexHome = env("CODEX_HOME");
      const std::string file = codexHome && !codexHome->empty()
                                   ? (fs::path(*codexHome) / "config.toml").string()
                                   : place(home, "~", ".codex/config.toml");
      std::string text =
          "[mcp_servers.velto]\ncommand = " + tomlString(command) + "\n\n[mcp_servers.velto.env]\n";
      for (const auto& [name, value] : variables) {
        text += tomlKey(name) + " = " + tomlString(value) + "\n";
      }
      return {"Codex reads " + file +
                  ". Add these tables to it (or to .codex/config.toml in a trusted project), "
                  "then start a new session:",
              text};
    }
  }
  return {"Add this to the MCP client's configuration:",
          json({{"mcpServers", {{"velto", server}}}})};
}

ForOption takeForOption(std::span<const std::string> args) {
  ForOption taken{{}, Client::generic, ""};
  std::string names;
  for (std::string_view name : kClientNames)
    names += (names.empty() ? "" : ", ") + std::string(name);
  bool given = false;
  const auto fail = [&](std::string message) {
    if (taken.error.empty()) taken.error = std::move(message);
    taken.client.reset();
  };
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--") {
      taken.rest.insert(taken.rest.end(), args.begin() + static_cast<std::ptrdiff_t>(i),
                        args.end());
      break;
    }
    std::optional<std::string> value;
    if (arg == "--for") {
      if (i + 1 == args.size()) {
        fail("--for needs a client: one of " + names);
        continue;
      }
      value = args[++i];
    } else if (arg.starts_with("--for=")) {
      value = arg.substr(6);
    } else {
      taken.rest.push_back(arg);
      continue;
    }
    if (given) fail("give --for only once");
    given = true;
    const std::optional<Client> client = clientNamed(*value);
    if (!client) fail("unknown client \"" + *value + "\" for --for: one of " + names);
    if (taken.error.empty()) taken.client = client;
  }
  return taken;
}

}  // namespace velto::ClientSetup
