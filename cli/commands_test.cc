#include "cli/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "core/mcp/client_authorization.h"
#include "core/model/library_store.h"
#include "core/model/velto_error.h"
#include "core/support/testing/files.h"

namespace velto {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Json = nlohmann::json;
using Args = std::vector<std::string>;

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);
const std::string kNoSuchID = "00000000-0000-0000-0000-000000000000";

using testing::readFile;

class CommandsTest : public testing::TempDirTest {
 protected:
  int run(const Args& args) {
    out_.str("");
    err_.str("");
    CommandContext context{out_, err_,
                           [this](std::string_view name) -> std::optional<std::string> {
                             const auto found = variables_.find(std::string(name));
                             if (found == variables_.end()) return std::nullopt;
                             return found->second;
                           },
                           executable_, [] { return kNow; }};
    return runCommand(args, context);
  }

  LibraryStore store() const { return LibraryStore(root_ / ".local/share/Velto"); }
  LibraryState library() const { return *store().load(); }

  // Adds a client; returns the printed id and token.
  std::pair<std::string, std::string> add(Args extra = {}) {
    extra.insert(extra.begin(), {"clients", "add", "Desk client"});
    EXPECT_EQ(run(extra), kExitSuccess) << err_.str();
    std::smatch id, token;
    const std::string text = out_.str();
    EXPECT_TRUE(std::regex_search(text, id, std::regex("Client id: (\\S+)")));
    EXPECT_TRUE(std::regex_search(text, token, std::regex("Token: +(\\S+)")));
    return {id[1], token[1]};
  }
  Json printedServer() const {
    const std::string text = out_.str();
    return Json::parse(text.substr(text.find("\n{") + 1))["mcpServers"]["velto"];
  }

  std::map<std::string, std::string> variables_{{"HOME", root_.string()}};
  std::optional<fs::path> executable_;
  std::ostringstream out_, err_;
};

TEST_F(CommandsTest, ClientLifecycle) {
  const auto [id, token] = add();
  LibraryState state = library();
  ASSERT_EQ(state.clients.size(), 1u);
  const ClientGrant grant = state.clients[0];
  EXPECT_EQ(grant.name, "Desk client");
  EXPECT_FALSE(grant.allowReopen);
  EXPECT_EQ(grant.createdAt, kNow);
  EXPECT_EQ(ClientAuthorization::authorize(id, token, state), grant);
  EXPECT_THAT(readFile(store().fileURL()), Not(HasSubstr(token)));
  EXPECT_EQ(printedServer()["env"], (Json{{"VELTO_CLIENT_ID", id}, {"VELTO_CLIENT_TOKEN", token}}));

  ASSERT_EQ(run({"clients", "list"}), kExitSuccess);
  EXPECT_THAT(out_.str(), HasSubstr(id + "  Desk client  no      2026-03-01T12:00:00Z  " +
                                    grant.tokenHash.substr(0, 8) + "\u2026\n"));
  EXPECT_THAT(out_.str(), Not(HasSubstr(grant.tokenHash.substr(0, 9))));

  std::string lower = id;
  std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
  EXPECT_EQ(run({"clients", "reopen", lower, "on"}), kExitSuccess);
  EXPECT_TRUE(library().clients.at(0).allowReopen);
  EXPECT_EQ(run({"clients", "reopen", id, "off"}), kExitSuccess);
  EXPECT_FALSE(library().clients.at(0).allowReopen);
  add({"--allow-reopen"});
  EXPECT_TRUE(library().clients.at(1).allowReopen);
  EXPECT_EQ(run({"clients", "remove", id}), kExitSuccess);
  EXPECT_EQ(library().clients.size(), 1u);
  EXPECT_EQ(run({"clients", "remove", id}), kExitFailure);
  EXPECT_EQ(err_.str(), "velto: there is no client with id " + id + "\n");

  // A token that could not be shown is held by nobody: its grant goes again.
  out_.setstate(std::ios::badbit);
  EXPECT_EQ(run({"clients", "add", "Unseen"}), kExitFailure);
  out_.clear();
  EXPECT_EQ(library().clients.size(), 1u);
}

TEST_F(CommandsTest, ConfigurationNamesTheServerBesideTheCommandAndTheLibraryFolder) {
  fs::create_directories(root_ / "real");
  std::ofstream(root_ / "real/VeltoMCP") << "binary";
  fs::create_directory_symlink(root_ / "real", root_ / "linked");
  executable_ = root_ / "linked/velto";
  add();
  EXPECT_EQ(printedServer()["command"], fs::canonical(root_ / "real/VeltoMCP").string());
  EXPECT_EQ(err_.str(), "");

  // Clients do not pass XDG_DATA_HOME on: the entry must, when it moves the library.
  variables_["XDG_DATA_HOME"] = (root_ / "data").string();
  executable_ = root_ / "elsewhere/velto";
  add();
  EXPECT_EQ(printedServer()["env"]["XDG_DATA_HOME"], (root_ / "data").string());
  EXPECT_EQ(printedServer()["command"], (root_ / "elsewhere/VeltoMCP").string());
  EXPECT_THAT(err_.str(), StartsWith("velto: warning: there is no VeltoMCP at"));
  EXPECT_TRUE(fs::exists(root_ / "data/Velto/library.json"));
}

TEST_F(CommandsTest, ForPrintsTheEntryInTheFormOfThatClient) {
  variables_["XDG_DATA_HOME"] = (root_ / "data").string();
  add({"--for", "codex"});
  const std::string text = out_.str();
  EXPECT_THAT(text, HasSubstr("\n[mcp_servers.velto]\ncommand = \""));
  EXPECT_THAT(text, HasSubstr("XDG_DATA_HOME = \"" + (root_ / "data").string() + "\"\n"));
  EXPECT_THAT(text, HasSubstr((root_ / ".codex/config.toml").string()));
  EXPECT_EQ(library().clients.size(), 0u);  // the default library is not the one written
  EXPECT_EQ(LibraryStore(root_ / "data/Velto").load()->clients.size(), 1u);

  add({"--for=vscode", "--allow-reopen"});
  EXPECT_THAT(out_.str(), HasSubstr("\"servers\": {\n    \"velto\": {\n      \"type\": \"stdio\""));
}

TEST_F(CommandsTest, BadCommandLinesFailWithOneLineAndChangeNothing) {
  const std::string id = add().first;
  const std::string before = readFile(store().fileURL());
  for (const Args& args : {Args{},
                           Args{"frobnicate"},
                           Args{"clients"},
                           Args{"clients", "rename"},
                           Args{"clients", "add"},
                           Args{"clients", "add", " \t"},
                           Args{"clients", "add", "two", "names"},
                           Args{"clients", "add", "bad\xff"},
                           Args{"clients", "add", "x", "--allow-everything"},
                           Args{"clients", "add", "x", "--for"},
                           Args{"clients", "add", "x", "--for", "emacs"},
                           Args{"clients", "list", "extra"},
                           Args{"clients", "remove", "not-a-uuid"},
                           Args{"clients", "remove", id + "0"},
                           Args{"clients", "reopen", id},
                           Args{"clients", "reopen", id, "yes"},
                           Args{"status", "now"},
                           Args{"suggest", "--xml"},
                           Args{"browsers"},
                           Args{"browsers", "add", "chrome"},
                           Args{"browsers", "connect"},
                           Args{"browsers", "connect", "firefox"},
                           Args{"browsers", "disconnect", "chrome", "edge"},
                           Args{"browsers", "list", "all"}}) {
    const std::string line = ::testing::PrintToString(args);
    EXPECT_EQ(run(args), kExitUsage) << line;
    EXPECT_EQ(out_.str(), "") << line;
    EXPECT_THAT(err_.str(), StartsWith("velto: ")) << line;
    EXPECT_EQ(std::ranges::count(err_.str(), '\n'), 1) << line;
  }
  EXPECT_EQ(readFile(store().fileURL()), before);
}

TEST_F(CommandsTest, UnreadableLibraryIsReportedAndNeverOverwritten) {
  for (const std::string& bytes :
       {std::string("{\"version\": 1, \"tabs\": ["), std::string("{\"version\": \"1\"}"),
        std::string("\x89PNG"), encodeLibrary(LibraryState{.version = 2})}) {
    fs::create_directories(store().directory());
    std::ofstream(store().fileURL(), std::ios::binary | std::ios::trunc) << bytes;
    for (const Args& args : {Args{"clients", "add", "x"}, Args{"clients", "list"}, Args{"status"},
                             Args{"suggest"}, Args{"clients", "reopen", kNoSuchID, "on"},
                             Args{"browsers", "connect", "chrome"}, Args{"browsers", "list"}}) {
      EXPECT_EQ(run(args), kExitFailure) << bytes << " " << args[0];
      EXPECT_THAT(err_.str(), StartsWith("velto: ")) << bytes;
    }
    EXPECT_EQ(readFile(store().fileURL()), bytes);
  }
  EXPECT_EQ(err_.str(), "velto: " + VeltoError::newerLibrary().message + "\n");

  // A folder that cannot be made: the message names it, still on one line.
  variables_["XDG_DATA_HOME"] = (root_ / "not\na folder").string();
  std::ofstream(root_ / "not\na folder") << "a file";
  EXPECT_EQ(run({"clients", "add", "x"}), kExitFailure);
  EXPECT_THAT(err_.str(), HasSubstr("not a folder"));
  EXPECT_EQ(std::ranges::count(err_.str(), '\n'), 1);

  variables_.clear();  // no HOME: no library folder at all
  EXPECT_EQ(run({"clients", "add", "x"}), kExitFailure);
  EXPECT_THAT(err_.str(), StartsWith("velto: Could not find the folder"));
}

TEST_F(CommandsTest, EveryCommandHasHelpAndHelpTouchesNothing) {
  for (const Args& args :
       {Args{"--help"}, Args{"help"}, Args{"clients", "-h"}, Args{"clients", "add", "x", "--help"},
        Args{"clients", "list", "--help"}, Args{"clients", "remove", "--help"},
        Args{"clients", "reopen", "--help"}, Args{"status", "--help"}, Args{"suggest", "--help"},
        Args{"browsers", "--help"}, Args{"browsers", "list", "--help"},
        Args{"browsers", "connect", "chrome", "--help"}, Args{"browsers", "disconnect", "-h"},
        Args{"watch", "--once", "--help"}}) {
    EXPECT_EQ(run(args), kExitSuccess) << args.back();
    EXPECT_THAT(out_.str(), StartsWith("Usage: velto")) << args.back();
    EXPECT_EQ(err_.str(), "");
  }
  EXPECT_FALSE(fs::exists(store().directory()));
}

TEST_F(CommandsTest, BrowsersAreConnectedAndDisconnectedInTheLibrary) {
  EXPECT_EQ(run({"browsers", "connect", "Chrome"}), kExitSuccess);
  EXPECT_EQ(out_.str(), "Connected Chrome: \"velto watch\" reads its open tabs while it runs.\n");
  EXPECT_EQ(run({"browsers", "connect", "brave"}), kExitSuccess);
  EXPECT_EQ(run({"browsers", "connect", "brave"}), kExitSuccess);
  EXPECT_EQ(out_.str(), "Brave is already connected.\n");
  EXPECT_EQ(library().preferences.connectedBrowsers, (BrowserSet{Browser::chrome, Browser::brave}));
  EXPECT_EQ(run({"status"}), kExitSuccess);
  EXPECT_THAT(out_.str(), ::testing::ContainsRegex("Browsers: +Chrome, Brave\n"));
  EXPECT_EQ(run({"browsers", "list"}), kExitSuccess);
  EXPECT_THAT(out_.str(), StartsWith("BROWSER  CONNECTED  INSTALLED  RUNNING\nsafari   no "));
  EXPECT_THAT(out_.str(), HasSubstr("\nchrome   yes "));

  // Disconnecting also takes the browser's tabs out of the open-tab snapshot.
  LibraryState state = library();
  for (Browser browser : {Browser::chrome, Browser::brave}) {
    state.liveTabs.emplace_back().browser = browser;
  }
  ASSERT_TRUE(store().save(state).ok());
  EXPECT_EQ(run({"browsers", "disconnect", "chrome"}), kExitSuccess);
  EXPECT_EQ(out_.str(), "Disconnected Chrome: its open tabs are no longer read.\n");
  state = library();
  EXPECT_EQ(state.preferences.connectedBrowsers, BrowserSet{Browser::brave});
  ASSERT_EQ(state.liveTabs.size(), 1u);
  EXPECT_EQ(state.liveTabs[0].browser, Browser::brave);
  EXPECT_EQ(run({"browsers", "disconnect", "edge"}), kExitSuccess);
  EXPECT_EQ(out_.str(), "Edge was not connected.\n");
}

TEST_F(CommandsTest, StatusAndSuggestDescribeTheStoredSnapshot) {
  EXPECT_EQ(run({"status"}), kExitSuccess);
  EXPECT_THAT(out_.str(), HasSubstr(store().fileURL().string() + " (not created yet)"));
  EXPECT_THAT(out_.str(), HasSubstr("unknown (no snapshot yet)"));
  EXPECT_THAT(out_.str(),
              ::testing::ContainsRegex("Browsers: +none \\(connect one with: velto browsers"));
  EXPECT_FALSE(fs::exists(store().directory()));

  // Chrome tabs: two idle ones (the older with a line break in its title) and two copies.
  LibraryState state;
  state.preferences.connectedBrowsers = {Browser::chrome};
  state.preferences.tabLimit = 0;  // limit 5
  for (const auto& [name, hoursAgo] :
       {std::pair{"old", 72}, {"copy1", 1}, {"copy2", 1}, {"older", 96}}) {
    LiveTab& t = state.liveTabs.emplace_back();
    t.id = t.title = name;
    t.browser = Browser::chrome;
    t.url = "https://" + std::string(name).substr(0, 4) + ".example/";
    t.pinState = PinState::unpinned;
    t.lastActiveAt = addingSeconds(kNow, -hoursAgo * 3600);
  }
  state.liveTabs.back().title = "older\nsecond line";
  for (const auto& [age, open] : {std::pair{7200, "unknown (the last snapshot is 2 hours old)"},
                                  {30, "4 (snapshot 30 seconds old)"}}) {
    state.liveUpdatedAt = addingSeconds(kNow, -age);
    ASSERT_TRUE(store().save(state).ok());
    EXPECT_EQ(run({"status"}), kExitSuccess);
    EXPECT_THAT(out_.str(), HasSubstr(open));
  }

  ASSERT_EQ(run({"suggest", "--json"}), kExitSuccess) << err_.str();
  const Json json = Json::parse(out_.str());
  const auto ids = [](const Json& tabs) {
    std::vector<std::string> out;
    for (const Json& tab : tabs) out.push_back(tab["id"]);
    return out;
  };
  EXPECT_EQ(ids(json["cleanup"]["idle"]), (std::vector<std::string>{"older", "old"}));
  EXPECT_EQ(ids(json["cleanup"]["duplicates"]), std::vector<std::string>{"copy2"});
  EXPECT_EQ(json["cleanup"]["idle"][1]["lastUsed"], "2026-02-26T12:00:00Z");
  EXPECT_EQ(json["tabBudget"]["overflow"], 0);

  ASSERT_EQ(run({"suggest"}), kExitSuccess);
  EXPECT_THAT(out_.str(), HasSubstr("Idle tabs, longest unused first: 2\n"));
  EXPECT_THAT(out_.str(), HasSubstr("4 days ago  older second line  https://olde"));
  EXPECT_THAT(out_.str(), HasSubstr("Tab limit: 4 open, limit 5, 0 over."));
}

}  // namespace
}  // namespace velto
