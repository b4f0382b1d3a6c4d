#include "core/browser/session_reader.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "core/browser/browser_bridge.h"
#include "core/browser/session_tabs.h"
#include "core/browser/testing/chromium_session.h"
#include "core/browser/testing/session_file_builder.h"
#include "core/model/velto_error.h"
#include "core/support/testing/files.h"

namespace velto {
namespace {

namespace fs = std::filesystem;
using testing::SessionFileBuilder;

class SessionReaderTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
    env_ = [config = (root_ / "config").string()](std::string_view name) {
      return name == "XDG_CONFIG_HOME" ? std::optional(config) : std::nullopt;
    };
  }

  // Writes `bytes` as <data>/<profile>/Sessions/<name>, <data> under the config folder.
  fs::path write(const std::string& data, const std::string& profile, const std::string& name,
                 const std::string& bytes) {
    const fs::path path = root_ / "config" / data / profile / "Sessions" / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  // A history database for `profile` that knows `url` by `title`.
  void history(const std::string& data, const std::string& profile, const std::string& url,
               const std::string& title) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open((root_ / "config" / data / profile / "History").c_str(), &db),
              SQLITE_OK);
    const std::string sql =
        "CREATE TABLE urls(id INTEGER PRIMARY KEY, url LONGVARCHAR, title LONGVARCHAR,"
        " last_visit_time INTEGER NOT NULL);"
        "INSERT INTO urls(url, title, last_visit_time) VALUES('" +
        url + "', 'Old', 1), ('" + url + "', '" + title + "', 2), ('" + url + "', '', 3);";
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
  }

  static std::vector<std::string> ids(const std::vector<LiveTab>& tabs) {
    std::vector<std::string> ids;
    for (const auto& tab : tabs) ids.push_back(tab.id + " " + tab.title);
    return ids;
  }

  EnvironmentLookup env_;
};

TEST_F(SessionReaderTest, TheNewestSessionFileOfEveryProfile) {
  write("google-chrome", "Default", "Session_9", "old");
  const fs::path newest = write("google-chrome", "Default", "Session_10", "new");
  write("google-chrome", "Default", "Session_abc", "");
  write("google-chrome", "Default", "Tabs_99", "");
  fs::create_directories(root_ / "config/google-chrome/Default/Sessions/Session_11");
  fs::create_directories(root_ / "config/google-chrome/Profile 1/Sessions");
  fs::create_directories(root_ / "config/google-chrome/System Profile");
  std::ofstream(root_ / "config/google-chrome/Local State") << "{}";
  const fs::path data = root_ / "config/google-chrome";
  EXPECT_EQ(SessionReader::profiles(Browser::chrome, env_),
            (std::vector<fs::path>{data / "Default", data / "Profile 1"}));
  EXPECT_EQ(SessionReader::newestSessionFile(data / "Default"), newest);
  EXPECT_EQ(SessionReader::newestSessionFile(data / "Profile 1"), std::nullopt);
  EXPECT_EQ(SessionReader::newestSessionFile(data / "System Profile"), std::nullopt);
  EXPECT_TRUE(SessionReader::profiles(Browser::safari, env_).empty());
  EXPECT_TRUE(SessionReader::profiles(Browser::brave, env_).empty());

  // Read-only, bounded, and only regular files.
  ::chmod(newest.c_str(), 0400);
  EXPECT_EQ(*SessionReader::readFile(newest), "new");
  EXPECT_EQ(*SessionReader::readFile(newest, 2), "ne");
  const fs::path big = write("google-chrome", "Default", "big", std::string(100000, 'x'));
  EXPECT_EQ(SessionReader::readFile(big)->size(), 100000u);
  EXPECT_EQ(SessionReader::readFile(big, 5000)->size(), 5000u);
  EXPECT_FALSE(SessionReader::readFile(data / "Default/Sessions/Session_11").ok());
  EXPECT_FALSE(SessionReader::readFile(data / "missing").ok());
}

TEST_F(SessionReaderTest, OpenTabsOfAllProfilesWithTitlesFromHistory) {
  SessionFileBuilder first;
  first.tabWindow(1, 10).navigation(10, 0, "https://a.org/", "A");
  first.tabWindow(1, 11).tabIndex(11, 1).navigation(11, 0, "https://b.org/", "").selectedTab(1, 1);
  write("chromium", "Default", "Session_1", first.bytes());
  history("chromium", "Default", "https://b.org/", "Bee");
  SessionFileBuilder second;
  second.tabWindow(1, 10).navigation(10, 0, "https://b.org/", "");
  write("chromium", "Profile 1", "Session_5", second.bytes());  // its own history has no title
  write("chromium", "Profile 2", "Session_5", "SNSS\2\0\0\0 encrypted");
  write("chromium", "Profile 3", "Session_5", "garbage");

  // Debian's Chromium counts as Chrome where Google Chrome has no folder of its own.
  const Date now = dateFromSecondsSince1970(1800000000);
  const auto tabs = SessionReader::openTabs(Browser::chrome, env_, now);
  const std::string other = std::to_string(SessionTabs::windowID("Profile 1", 1));
  EXPECT_EQ(ids(tabs), (std::vector<std::string>{"chrome:1:10 A", "chrome:1:11 Bee",
                                                 "chrome:" + other + ":10 https://b.org/"}));
  EXPECT_TRUE(tabs[1].isActive);
  EXPECT_EQ(tabs[2].observedAt, now);

  // Through the bridge, as callers ask; closing is not something files can do.
  SessionTabSource source(env_);
  auto launcher = platformApplicationLauncher(env_);
  BrowserBridge bridge(source, *launcher);
  const auto snapshot = bridge.snapshot(Browser::chrome).get();
  ASSERT_TRUE(snapshot.ok());
  EXPECT_EQ(ids(*snapshot), ids(tabs));
  EXPECT_EQ(bridge.close(tabs[0], false, 0).get(), Result<void>(VeltoError::closingUnavailable()));
  EXPECT_TRUE(bridge.snapshot(Browser::safari).get()->empty());

  fs::create_directories(root_ / "config/google-chrome");
  EXPECT_TRUE(SessionReader::openTabs(Browser::chrome, env_).empty());
}

// Polls `condition` every 250 ms for up to `seconds`.
template <class Condition>
bool eventually(Condition condition, int seconds = 40) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
  return true;
}

TEST_F(SessionReaderTest, ReadsTheTabsOfARealChromium) {
  // Required wherever Linux builds run (CI included): scripts/bootstrap installs both.
  if (const std::string why = testing::ChromiumSession::unavailableReason(); !why.empty()) {
#ifdef __linux__
    FAIL() << why << "; scripts/bootstrap installs it";
#else
    GTEST_SKIP() << why;
#endif
  }
  testing::PageServer server({{"/alpha", "Velto Alpha"}, {"/beta", "Velto Beta"}});
  ASSERT_NE(server.port(), 0);
  const std::string alpha = server.url("/alpha"), beta = server.url("/beta");

  // The profile where Debian's Chromium keeps it, so that it is found as a user's would be.
  std::string why;
  const auto browser =
      testing::ChromiumSession::start(root_ / "config/chromium", {alpha, beta}, why);
  ASSERT_TRUE(browser) << why;

  // The session file lands a few seconds after a change; the titles come from the
  // history database, which the browser commits a little later.
  std::vector<LiveTab> tabs;
  const bool seen = eventually([&] {
    tabs = SessionReader::openTabs(Browser::chrome, env_);
    return tabs.size() == 2 && tabs[0].title == "Velto Alpha" && tabs[1].title == "Velto Beta";
  });
  ASSERT_TRUE(seen) << ::testing::PrintToString(ids(tabs));
  EXPECT_EQ(tabs[0].url, alpha);
  EXPECT_EQ(tabs[1].url, beta);
  EXPECT_TRUE(tabs[0].isActive);
  EXPECT_FALSE(tabs[1].isActive);
  EXPECT_EQ(tabs[0].windowID, tabs[1].windowID);
  EXPECT_EQ(tabs[1].index, 2);
  EXPECT_EQ(tabs[0].pinState, PinState::unpinned);
  EXPECT_EQ(tabs[1].id, "chrome:" + std::to_string(tabs[1].windowID) + ":" + *tabs[1].tabID);

  std::string betaPage;
  for (const auto& page : browser->pages()) {
    if (page.url == beta) betaPage = page.id;
  }
  ASSERT_FALSE(betaPage.empty());
  ASSERT_TRUE(browser->closePage(betaPage));
  ASSERT_TRUE(eventually([&] {
    tabs = SessionReader::openTabs(Browser::chrome, env_);
    return tabs.size() == 1;
  })) << ::testing::PrintToString(ids(tabs));
  EXPECT_EQ(tabs[0].url, alpha);
  EXPECT_TRUE(tabs[0].isActive);
}

}  // namespace
}  // namespace velto
