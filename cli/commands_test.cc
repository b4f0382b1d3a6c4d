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

namespace velto {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class CommandsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/velto-commands-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    variables_["HOME"] = root_.string();
  }
  void TearDown() override { fs::remove_all(root_); }

  int run(std::vector<std::string> args) {
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

  fs::path libraryFolder() const { return root_ / ".local/share/Velto"; }
  LibraryStore store() const { return LibraryStore(libraryFolder()); }
  LibraryState library() const { return *store().load(); }
  void write(const LibraryState& state) const { ASSERT_TRUE(store().save(state).ok()); }

  // Adds a client and returns its id and token as printed.
  std::pair<std::string, std::string> add(std::vector<std::string> extra = {}) {
    std::vector<std::string> args{"clients", "add", "Desk client"};
    args.insert(args.end(), extra.begin(), extra.end());
    EXPECT_EQ(run(args), kExitSuccess) << err_.str();
    std::smatch id, token;
    const std::string text = out_.str();
    EXPECT_TRUE(std::regex_search(text, id, std::regex("Client id: (\\S+)")));
    EXPECT_TRUE(std::regex_search(text, token, std::regex("Token: +(\\S+)")));
    return {id[1], token[1]};
  }

  nlohmann::json printedConfiguration() const {
    const std::string text = out_.str();
    return nlohmann::json::parse(text.substr(text.find("\n{") + 1));
  }

  fs::path root_;
  std::map<std::string, std::string> variables_;
  std::optional<fs::path> executable_;
  std::ostringstream out_, err_;
};

TEST_F(CommandsTest, AddedClientIsAuthorizedWithThePrintedIdAndToken) {
  const auto [id, token] = add();
  const LibraryState state = library();
  ASSERT_EQ(state.clients.size(), 1u);
  EXPECT_EQ(state.clients[0].name, "Desk client");
  EXPECT_FALSE(state.clients[0].allowReopen);
  EXPECT_EQ(state.clients[0].createdAt, kNow);
  EXPECT_EQ(ClientAuthorization::authorize(id, token, state), state.clients[0]);
  EXPECT_EQ(token.size(), 64u);
  EXPECT_THAT(readFile(store().fileURL()), Not(HasSubstr(token)));

  const nlohmann::json env = printedConfiguration()["mcpServers"]["velto"]["env"];
  EXPECT_EQ(env, (nlohmann::json{{"VELTO_CLIENT_ID", id}, {"VELTO_CLIENT_TOKEN", token}}));

  add({"--allow-reopen"});
  EXPECT_TRUE(library().clients.at(1).allowReopen);
  EXPECT_NE(library().clients[0].id, library().clients[1].id);
}

TEST_F(CommandsTest, ConfigurationPointsAtTheServerBesideTheCommand) {
  fs::create_directories(root_ / "real");
  std::ofstream(root_ / "real/VeltoMCP") << "binary";
  fs::create_directory_symlink(root_ / "real", root_ / "linked");
  executable_ = root_ / "linked/velto";
  add();
  EXPECT_EQ(printedConfiguration()["mcpServers"]["velto"]["command"],
            fs::canonical(root_ / "real/VeltoMCP").string());
  EXPECT_EQ(err_.str(), "");

  executable_ = root_ / "elsewhere/velto";
  add();
  EXPECT_EQ(printedConfiguration()["mcpServers"]["velto"]["command"],
            (root_ / "elsewhere/VeltoMCP").string());
  EXPECT_THAT(err_.str(), StartsWith("velto: warning: there is no VeltoMCP at"));
}

TEST_F(CommandsTest, ConfigurationCarriesAFolderClientsWouldNotInherit) {
  variables_["XDG_DATA_HOME"] = (root_ / "data").string();
  add();
  EXPECT_EQ(printedConfiguration()["mcpServers"]["velto"]["env"]["XDG_DATA_HOME"],
            (root_ / "data").string());
  EXPECT_EQ(library().clients.size(), 0u);  // the default folder is untouched
  EXPECT_TRUE(fs::exists(root_ / "data/Velto/library.json"));

  variables_["XDG_DATA_HOME"] = (root_ / ".local/share").string();
  add();
  EXPECT_FALSE(printedConfiguration()["mcpServers"]["velto"]["env"].contains("XDG_DATA_HOME"));
}

TEST_F(CommandsTest, ListRemoveAndReopen) {
  const auto [id, token] = add();
  ASSERT_EQ(run({"clients", "list"}), kExitSuccess);
  const std::string hash = library().clients[0].tokenHash;
  EXPECT_THAT(out_.str(), HasSubstr(hash.substr(0, 8) + "\u2026"));
  EXPECT_THAT(out_.str(), Not(HasSubstr(hash.substr(0, 9))));
  EXPECT_THAT(out_.str(), Not(HasSubstr(token)));
  EXPECT_THAT(out_.str(), HasSubstr(id));

  std::string lower = id;
  std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
  EXPECT_EQ(run({"clients", "reopen", lower, "on"}), kExitSuccess);
  EXPECT_TRUE(library().clients[0].allowReopen);
  EXPECT_EQ(run({"clients", "reopen", id, "off"}), kExitSuccess);
  EXPECT_FALSE(library().clients[0].allowReopen);

  EXPECT_EQ(run({"clients", "remove", id}), kExitSuccess);
  EXPECT_TRUE(library().clients.empty());
  EXPECT_EQ(run({"clients", "remove", id}), kExitFailure);
  EXPECT_EQ(err_.str(), "velto: there is no client with id " + id + "\n");
  EXPECT_EQ(run({"clients", "list"}), kExitSuccess);
  EXPECT_THAT(out_.str(), StartsWith("No clients."));
}

TEST_F(CommandsTest, BadCommandLinesFailWithOneLineAndChangeNothing) {
  const auto [id, token] = add();
  const std::string before = readFile(store().fileURL());
  struct Case {
    std::vector<std::string> args;
    int status;
  };
  const Case cases[] = {
      {{}, kExitUsage},
      {{"frobnicate"}, kExitUsage},
      {{"clients"}, kExitUsage},
      {{"clients", "rename"}, kExitUsage},
      {{"clients", "add"}, kExitUsage},
      {{"clients", "add", " \t"}, kExitUsage},
      {{"clients", "add", "two", "names"}, kExitUsage},
      {{"clients", "add",
        "bad\xff"
        "utf8"},
       kExitUsage},
      {{"clients", "add", "x", "--allow-everything"}, kExitUsage},
      {{"clients", "list", "extra"}, kExitUsage},
      {{"clients", "remove"}, kExitUsage},
      {{"clients", "remove", "not-a-uuid"}, kExitUsage},
      {{"clients", "remove", id + "0"}, kExitUsage},
      {{"clients", "remove", "00000000-0000-0000-0000-000000000000"}, kExitFailure},
      {{"clients", "reopen", id}, kExitUsage},
      {{"clients", "reopen", id, "yes"}, kExitUsage},
      {{"clients", "reopen", "{" + id + "}", "on"}, kExitUsage},
      {{"status", "now"}, kExitUsage},
      {{"suggest", "--xml"}, kExitUsage},
  };
  for (const Case& c : cases) {
    const std::string line = ::testing::PrintToString(c.args);
    EXPECT_EQ(run(c.args), c.status) << line;
    EXPECT_EQ(out_.str(), "") << line;
    const std::string err = err_.str();
    EXPECT_THAT(err, StartsWith("velto: ")) << line;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << line;
  }
  EXPECT_EQ(readFile(store().fileURL()), before);
}

TEST_F(CommandsTest, UnreadableLibraryIsReportedAndNeverOverwritten) {
  struct Case {
    const char* name;
    std::string bytes;
    std::string message;
  };
  const Case cases[] = {
      {"truncated", "{\"version\": 1, \"tabs\": [", ""},
      {"wrong type", "{\"version\": \"1\"}", ""},
      {"newer", encodeLibrary(LibraryState{.version = 2}), VeltoError::newerLibrary().message},
      {"not json", "\x89PNG", ""},
  };
  for (const Case& c : cases) {
    fs::create_directories(libraryFolder());
    std::ofstream(store().fileURL(), std::ios::binary | std::ios::trunc) << c.bytes;
    for (std::vector<std::string> args :
         {std::vector<std::string>{"clients", "add", "x"},
          {"clients", "list"},
          {"status"},
          {"suggest"},
          {"clients", "reopen", "00000000-0000-0000-0000-000000000000", "on"}}) {
      EXPECT_EQ(run(args), kExitFailure) << c.name << " " << args[0];
      EXPECT_THAT(err_.str(), StartsWith("velto: ")) << c.name;
      if (!c.message.empty()) EXPECT_EQ(err_.str(), "velto: " + c.message + "\n");
    }
    EXPECT_EQ(readFile(store().fileURL()), c.bytes) << c.name;
  }
}

TEST_F(CommandsTest, NoHomeMeansNoLibraryFolder) {
  variables_.clear();
  EXPECT_EQ(run({"clients", "add", "x"}), kExitFailure);
  EXPECT_THAT(err_.str(), StartsWith("velto: Could not find the folder"));
  EXPECT_EQ(run({"status"}), kExitFailure);
}

TEST_F(CommandsTest, EveryCommandHasHelp) {
  for (std::vector<std::string> args : {std::vector<std::string>{"--help"},
                                        {"help"},
                                        {"-h"},
                                        {"clients", "--help"},
                                        {"clients", "add", "--help"},
                                        {"clients", "add", "x", "--help"},
                                        {"clients", "list", "-h"},
                                        {"clients", "remove", "--help"},
                                        {"clients", "reopen", "--help"},
                                        {"status", "--help"},
                                        {"suggest", "--help"}}) {
    EXPECT_EQ(run(args), kExitSuccess) << args.back();
    EXPECT_THAT(out_.str(), StartsWith("Usage: velto")) << args.back();
    EXPECT_EQ(err_.str(), "");
  }
  EXPECT_FALSE(fs::exists(libraryFolder()));  // help touches nothing
}

// A library whose snapshot holds, in window 1 of Chrome: an idle tab, an active tab, and
// two copies of one URL.
LibraryState snapshotLibrary(double snapshotAge) {
  LibraryState state;
  state.preferences.connectedBrowsers = {Browser::chrome};
  const auto tab = [](std::string id, std::string url, double idleHours, bool active = false) {
    LiveTab t;
    t.id = "chrome:1:" + id;
    t.browser = Browser::chrome;
    t.windowID = 1;
    t.index = 10;
    t.title = "Title " + id;
    t.url = std::move(url);
    t.isActive = active;
    t.pinState = PinState::unpinned;
    t.lastActiveAt = addingSeconds(kNow, -idleHours * 3600);
    t.observedAt = kNow;
    return t;
  };
  state.liveTabs = {
      tab("old", "https://old.example/", 72), tab("front", "https://f.example/", 0, true),
      tab("copy1", "https://copy.example/", 1), tab("copy2", "https://copy.example/", 1),
      tab("older", "https://older.example/", 96)};
  state.liveTabs.back().title = "Title older\nsecond line";
  state.liveUpdatedAt = addingSeconds(kNow, -snapshotAge);
  return state;
}

TEST_F(CommandsTest, StatusReportsTheLibraryAndTheSnapshot) {
  EXPECT_EQ(run({"status"}), kExitSuccess);
  EXPECT_THAT(out_.str(),
              HasSubstr((libraryFolder() / "library.json").string() + " (not created yet)"));
  EXPECT_THAT(out_.str(), HasSubstr("unknown (no snapshot yet)"));
  EXPECT_FALSE(fs::exists(libraryFolder()));

  write(snapshotLibrary(30));
  EXPECT_EQ(run({"status"}), kExitSuccess);
  EXPECT_THAT(out_.str(), Not(HasSubstr("not created")));
  EXPECT_THAT(out_.str(), HasSubstr("5 (snapshot 30 seconds old)"));

  write(snapshotLibrary(7200));
  EXPECT_EQ(run({"status"}), kExitSuccess);
  EXPECT_THAT(out_.str(), HasSubstr("unknown (the last snapshot is 2 hours old)"));
}

TEST_F(CommandsTest, SuggestShowsTheSnapshotsSuggestions) {
  LibraryState state = snapshotLibrary(30);
  state.preferences.tabLimit = 0;  // limit 5: nothing over
  write(state);
  ASSERT_EQ(run({"suggest", "--json"}), kExitSuccess) << err_.str();
  const auto json = nlohmann::json::parse(out_.str());
  const auto ids = [](const nlohmann::json& tabs) {
    std::vector<std::string> out;
    for (const auto& tab : tabs) out.push_back(tab["id"]);
    return out;
  };
  EXPECT_EQ(ids(json["cleanup"]["idle"]),
            (std::vector<std::string>{"chrome:1:older", "chrome:1:old"}));
  EXPECT_EQ(ids(json["cleanup"]["duplicates"]), std::vector<std::string>{"chrome:1:copy2"});
  EXPECT_EQ(json["tabBudget"]["overflow"], 0);
  EXPECT_EQ(json["cleanup"]["idle"][1]["lastUsed"], formatISO8601(addingSeconds(kNow, -72 * 3600)));

  ASSERT_EQ(run({"suggest"}), kExitSuccess);
  EXPECT_THAT(out_.str(), HasSubstr("Idle tabs, longest unused first: 2"));
  EXPECT_THAT(out_.str(), HasSubstr("3 days ago"));
  EXPECT_THAT(out_.str(), HasSubstr("Title older second line"));  // no line break in a row
  EXPECT_THAT(out_.str(), HasSubstr("Tab limit: 5 open, limit 5, 0 over."));
}

}  // namespace
}  // namespace velto
