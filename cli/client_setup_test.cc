#include "cli/client_setup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "cli/server_location.h"
#include "core/support/testing/files.h"

namespace velto::ClientSetup {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using Json = nlohmann::json;
using Args = std::vector<std::string>;

const Variables kVariables{{"VELTO_CLIENT_ID", "C0FFEE00-0000-4000-8000-000000000001"},
                           {"VELTO_CLIENT_TOKEN", std::string(64, 'a')}};

EnvironmentLookup environment(std::map<std::string, std::string> variables) {
  return [variables](std::string_view name) -> std::optional<std::string> {
    const auto found = variables.find(std::string(name));
    if (found == variables.end()) return std::nullopt;
    return found->second;
  };
}

const EnvironmentLookup kHome = environment({{"HOME", "/home/ada"}});

// Where desktop applications of this platform keep `file` in their settings.
std::string settings(std::string_view file, const EnvironmentLookup& env = kHome) {
  return (*Folders::browserProfiles(env) / file).string();
}

TEST(ClientSetupTest, JSONClientsGetTheirOwnTopLevelKeyAndFile) {
  const Json env = {{"VELTO_CLIENT_ID", kVariables[0].second},
                    {"VELTO_CLIENT_TOKEN", kVariables[1].second}};
  const Json plain = {{"command", "/opt/velto/bin/VeltoMCP"}, {"env", env}};
  struct Case {
    Client client;
    Json entry;
    std::string file;
  };
  for (const Case& c :
       {Case{Client::generic, {{"mcpServers", {{"velto", plain}}}}, "MCP client's configuration"},
        Case{Client::claudeDesktop,
             {{"mcpServers", {{"velto", plain}}}},
             settings("Claude/claude_desktop_config.json")},
        Case{Client::cursor, {{"mcpServers", {{"velto", plain}}}}, "/home/ada/.cursor/mcp.json"},
        Case{Client::vscode,
             {{"servers",
               {{"velto",
                 {{"type", "stdio"}, {"command", "/opt/velto/bin/VeltoMCP"}, {"env", env}}}}}},
             settings("Code/User/mcp.json")}}) {
    const Configuration config =
        configuration(c.client, "/opt/velto/bin/VeltoMCP", kVariables, kHome);
    EXPECT_EQ(Json::parse(config.text), c.entry) << config.text;
    EXPECT_THAT(config.intro, HasSubstr(c.file));
    EXPECT_TRUE(config.intro.ends_with(":")) << config.intro;
    EXPECT_TRUE(config.text.ends_with("}\n")) << config.text;
  }
  // The generic form is printed exactly as it always was.
  EXPECT_EQ(configuration(Client::generic, "/x/VeltoMCP", {{"A", "1"}}, kHome),
            (Configuration{"Add this to the MCP client's configuration:",
                           "{\n  \"mcpServers\": {\n    \"velto\": {\n      \"command\": "
                           "\"/x/VeltoMCP\",\n      \"env\": {\n        \"A\": \"1\"\n      }\n    "
                           "}\n  }\n}\n"}));
  // Settings folders follow XDG_CONFIG_HOME; without a home the place is spelled out.
  const EnvironmentLookup configured = environment({{"HOME", "/h"}, {"XDG_CONFIG_HOME", "/cfg"}});
  EXPECT_THAT(configuration(Client::vscode, "/x", kVariables, configured).intro,
              HasSubstr(settings("Code/User/mcp.json", configured)));
  EXPECT_THAT(configuration(Client::cursor, "/x", kVariables, environment({})).intro,
              HasSubstr("~/.cursor/mcp.json"));
}

TEST(ClientSetupTest, CodexGetsTOMLWithEveryStringEscaped) {
  const Configuration config = configuration(
      Client::codex, "/opt/\"odd\" \\dir\t/VeltoMCP",
      {{"VELTO_CLIENT_ID", "id"}, {"XDG_DATA_HOME", "/data\nhome\x01"}, {"ODD KEY", "v"}}, kHome);
  EXPECT_EQ(config.text,
            "[mcp_servers.velto]\n"
            "command = \"/opt/\\\"odd\\\" \\\\dir\\t/VeltoMCP\"\n"
            "\n"
            "[mcp_servers.velto.env]\n"
            "VELTO_CLIENT_ID = \"id\"\n"
            "XDG_DATA_HOME = \"/data\\nhome\\u0001\"\n"
            "\"ODD KEY\" = \"v\"\n");
  EXPECT_THAT(config.intro, HasSubstr("/home/ada/.codex/config.toml"));
  EXPECT_THAT(configuration(Client::codex, "/x", kVariables,
                            environment({{"HOME", "/h"}, {"CODEX_HOME", "/codex"}}))
                  .intro,
              HasSubstr("/codex/config.toml"));
}

TEST(ClientSetupTest, TheForOptionIsTakenOutWhereverItStands) {
  struct Case {
    Args args, rest;
    std::optional<Client> client;
  };
  for (const Case& c : {
           Case{{"Desk"}, {"Desk"}, Client::generic},
           Case{{"--for", "vscode", "Desk", "--allow-reopen"},
                {"Desk", "--allow-reopen"},
                Client::vscode},
           Case{{"Desk", "--for=codex"}, {"Desk"}, Client::codex},
           Case{{"--", "--for", "cursor"}, {"--", "--for", "cursor"}, Client::generic},
           Case{{"Desk", "--for"}, {"Desk"}, std::nullopt},
           Case{{"Desk", "--for", "emacs"}, {"Desk"}, std::nullopt},
           Case{{"--for", "cursor", "--for", "cursor"}, {}, std::nullopt},
       }) {
    const ForOption taken = takeForOption(c.args);
    EXPECT_EQ(taken.rest, c.rest) << ::testing::PrintToString(c.args);
    EXPECT_EQ(taken.client, c.client) << ::testing::PrintToString(c.args);
    EXPECT_EQ(taken.error.empty(), c.client.has_value()) << taken.error;
  }
  EXPECT_THAT(takeForOption(Args{"--for", "emacs"}).error,
              HasSubstr("one of generic, claude-desktop, cursor, vscode, codex"));
  for (std::string_view name : kClientNames) EXPECT_TRUE(clientNamed(name)) << name;
}

class ServerLocationTest : public testing::TempDirTest {
 protected:
  fs::path file(const fs::path& path) {
    fs::create_directories((root_ / path).parent_path());
    std::ofstream(root_ / path) << "binary";
    return root_ / path;
  }
};

TEST_F(ServerLocationTest, InstalledBesideOtherwiseTheReleaseBuildsServer) {
  // Installed: the server beside velto, links resolved.
  file("prefix/bin/VeltoMCP");
  fs::create_directory_symlink(root_ / "prefix", root_ / "linked");
  EXPECT_EQ(serverFor(root_ / "linked/bin/velto"), root_ / "prefix/bin/VeltoMCP");

  // A sanitizer build tree: its own server until the release build has one.
  const fs::path own = file("build/dev/server/VeltoMCP");
  fs::create_directories(root_ / "build/dev/cli");
  fs::create_symlink(own, root_ / "build/dev/cli/VeltoMCP");
  EXPECT_EQ(serverFor(root_ / "build/dev/cli/velto"), own);
  const fs::path release = file("build/release/server/VeltoMCP");
  EXPECT_EQ(serverFor(root_ / "build/dev/cli/velto"), release);

  // Nothing beside velto: the path it should have.
  EXPECT_EQ(serverFor(root_ / "empty/velto"), root_ / "empty/VeltoMCP");
}

}  // namespace
}  // namespace velto::ClientSetup
