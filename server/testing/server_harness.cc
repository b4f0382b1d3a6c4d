#include "server/testing/server_harness.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "core/mcp/client_authorization.h"
#include "core/model/library_store.h"

namespace velto::testing {

namespace fs = std::filesystem;

namespace {

Date january(unsigned day, unsigned hour) { return dateFromUTC(2026, 1, day, hour, 0, 0); }

}  // namespace

LibraryState sampleLibrary(double liveAge) {
  LibraryState library;
  library.clients = {
      {*Uuid::parse(kOpenerID), "Opener", ClientAuthorization::hash(kOpenerToken), true,
       january(1, 0)},
      {*Uuid::parse(kReaderID), "Reader", ClientAuthorization::hash(kReaderToken), false,
       january(1, 0)},
  };
  library.preferences.connectedBrowsers = {Browser::chrome, Browser::safari};
  library.preferences.exclusions = {"bank.example"};

  const Date observed = addingSeconds(now(), -liveAge);
  library.liveUpdatedAt = observed;
  const auto live = [&](std::string id, Browser browser, std::string title, std::string url,
                        bool active) {
    LiveTab tab;
    tab.id = std::move(id);
    tab.browser = browser;
    tab.title = std::move(title);
    tab.url = std::move(url);
    tab.isActive = active;
    tab.lastActiveAt = observed;
    tab.observedAt = observed;
    library.liveTabs.push_back(std::move(tab));
  };
  live("chrome:7:11", Browser::chrome, "Release notes — Velto", "https://docs.example/notes/2026",
       true);
  live("chrome:7:12", Browser::chrome, "Statement", "https://bank.example/statement", false);
  live("brave:3:1", Browser::brave, "Brave tab", "https://brave.example/", true);
  live("safari:2:1", Browser::safari, "Maps", "https://maps.example/?q=caf%C3%A9", false);

  const auto saved = [&](int n, std::string title, std::string url, Browser browser,
                         ArchiveState state, Date savedAt, std::optional<Date> closedAt) {
    SavedTab tab;
    tab.id = *Uuid::parse("5A7ED000-0000-4000-8000-00000000000" + std::to_string(n));
    tab.title = std::move(title);
    tab.url = std::move(url);
    tab.browser = browser;
    tab.savedAt = savedAt;
    tab.closedAt = closedAt;
    tab.state = state;
    library.tabs.push_back(std::move(tab));
  };
  saved(1, "velto/core: pull request #42", "https://github.com/velto/core/pull/42", Browser::chrome,
        ArchiveState::closed, january(10, 8), january(12, 9));
  saved(2, "Crème brûlée recipe", "https://cooking.example/creme-brulee", Browser::safari,
        ArchiveState::closed, january(11, 8), std::nullopt);
  saved(3, "Reading list", "https://read.example/later", Browser::chrome, ArchiveState::saved,
        january(14, 8), std::nullopt);
  saved(4, "Closing soon", "https://pending.example/", Browser::chrome, ArchiveState::pendingClose,
        january(14, 9), std::nullopt);
  saved(5, "Bank login", "https://bank.example/login", Browser::chrome, ArchiveState::closed,
        january(15, 8), january(15, 9));
  saved(6, "FTP mirror", "ftp://files.example/pub", Browser::chrome, ArchiveState::saved,
        january(9, 8), std::nullopt);
  saved(7, "Brave search", "https://search.brave.example/?q=a", Browser::brave, ArchiveState::saved,
        january(9, 9), std::nullopt);
  return library;
}

ServerHarness::ServerHarness() {
  std::string pattern = (fs::temp_directory_path() / "velto-mcp-home.XXXXXX").string();
  home_ = ::mkdtemp(pattern.data());
  fs::create_directories(bin());
  environment = {{"HOME", home_.string()},
                 {"XDG_DATA_HOME", (home_ / "data").string()},
                 {"PATH", bin().string() + ":/usr/bin:/bin"}};
  useClient(kOpenerID, kOpenerToken);
}

ServerHarness::~ServerHarness() {
  std::error_code ignored;
  fs::remove_all(home_, ignored);
}

fs::path ServerHarness::libraryFile() const { return home_ / "data" / "Velto" / "library.json"; }

void ServerHarness::saveLibrary(const LibraryState& state) const {
  const Result<void> saved = LibraryStore(libraryFile().parent_path()).save(state);
  ASSERT_TRUE(saved.ok()) << saved.error().message;
}

void ServerHarness::useClient(const std::string& id, const std::string& token) {
  environment["VELTO_CLIENT_ID"] = id;
  environment["VELTO_CLIENT_TOKEN"] = token;
}

ProcessOutput ServerHarness::run(std::string_view input) const {
  const char* buildTree = std::getenv("VELTO_BINARY_DIR");
  EXPECT_NE(buildTree, nullptr) << "VELTO_BINARY_DIR must name the build tree";
  // env -i: the server sees exactly these variables, as a client would start it.
  std::vector<std::string> arguments{"-i"};
  for (const auto& [name, value] : environment) arguments.push_back(name + "=" + value);
  arguments.push_back((fs::path(buildTree ? buildTree : ".") / "server" / "VeltoMCP").string());
  Result<ProcessOutput> output = runProcess("/usr/bin/env", arguments, input);
  EXPECT_TRUE(output.ok()) << output.error().message;
  return output.ok() ? *output : ProcessOutput{-1, "", ""};
}

}  // namespace velto::testing
