#include "core/browser/browser_history.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "core/browser/process_runner.h"

namespace velto::BrowserHistory {
namespace {

namespace fs = std::filesystem;

constexpr const char* kChromiumSchema =
    "CREATE TABLE meta(key LONGVARCHAR NOT NULL UNIQUE PRIMARY KEY, value LONGVARCHAR);"
    "CREATE TABLE urls(id INTEGER PRIMARY KEY AUTOINCREMENT, url LONGVARCHAR, title LONGVARCHAR,"
    " visit_count INTEGER DEFAULT 0 NOT NULL, typed_count INTEGER DEFAULT 0 NOT NULL,"
    " last_visit_time INTEGER NOT NULL, hidden INTEGER DEFAULT 0 NOT NULL);"
    "CREATE INDEX urls_url_index ON urls (url);";

constexpr const char* kSafariSchema =
    "CREATE TABLE history_items(id INTEGER PRIMARY KEY AUTOINCREMENT, url TEXT NOT NULL UNIQUE,"
    " domain_expansion TEXT NULL, visit_count INTEGER NOT NULL);"
    "CREATE TABLE history_visits(id INTEGER PRIMARY KEY AUTOINCREMENT, history_item INTEGER NOT"
    " NULL REFERENCES history_items(id) ON DELETE CASCADE, visit_time REAL NOT NULL,"
    " title TEXT NULL);"
    "CREATE INDEX history_visits__last_visit ON history_visits (history_item);";

// Chromium stores microseconds since 1601; this is the value for a date since 1970.
int64_t chromiumTime(double secondsSince1970) {
  return static_cast<int64_t>((secondsSince1970 + 11644473600.0) * 1e6);
}

class BrowserHistoryTest : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/velto-history-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    env_ = [home = (root_ / "home").string()](std::string_view name) -> std::optional<std::string> {
      if (name == "HOME") return home;
      return std::nullopt;
    };
  }
  void TearDown() override { fs::remove_all(root_); }

  // The profile folder `profile` of `browser`'s data folder, created.
  fs::path profile(Browser browser, const std::string& profile) {
    const auto where = location(browser, env_);
    EXPECT_TRUE(where && where->isProfileFolder);
    fs::create_directories(where->path / profile);
    return where->path / profile;
  }

  static void exec(sqlite3* db, const std::string& sql) {
    char* message = nullptr;
    ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << message;
  }

  // A database at `path` made of `sql` (a schema and rows), closed again.
  static void makeDatabase(const fs::path& path, const std::string& sql) {
    fs::create_directories(path.parent_path());
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    exec(db, sql);
    sqlite3_close(db);
  }

  static void makeChromium(const fs::path& path, const std::map<std::string, int64_t>& visits) {
    std::string sql = kChromiumSchema;
    for (const auto& [url, time] : visits) {
      sql += "INSERT INTO urls(url, title, last_visit_time) VALUES('" + url + "', 't', " +
             std::to_string(time) + ");";
    }
    makeDatabase(path, sql);
  }

  static void makeSafari(const fs::path& path,
                         const std::map<std::string, std::vector<double>>& visits) {
    std::string sql = kSafariSchema;
    int item = 0;
    for (const auto& [url, times] : visits) {
      ++item;
      sql += "INSERT INTO history_items(id, url, visit_count) VALUES(" + std::to_string(item) +
             ", '" + url + "', 1);";
      for (double time : times) {
        sql += "INSERT INTO history_visits(history_item, visit_time) VALUES(" +
               std::to_string(item) + ", " + std::to_string(time) + ");";
      }
    }
    makeDatabase(path, sql);
  }

  // Every file below root with its bytes, to prove that reading changed nothing.
  std::map<std::string, std::string> snapshotFiles() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root_)) {
      if (!entry.is_regular_file()) continue;
      std::ifstream in(entry.path(), std::ios::binary);
      std::ostringstream bytes;
      bytes << in.rdbuf();
      files[entry.path().string()] = bytes.str();
    }
    return files;
  }

  fs::path root_;
  EnvironmentLookup env_;
};

TEST_F(BrowserHistoryTest, ChromiumTimesAreMicrosecondsSince1601) {
  const fs::path db = profile(Browser::chrome, "Default") / "History";
  makeChromium(db, {{"https://a.org/", 13300000000000000},
                    {"https://zero.org/", 0},
                    {"https://negative.org/", -5},
                    {"https://far.org/", INT64_MAX}});
  const Visits visits = query(db, Browser::chrome,
                              {"https://a.org/", "https://zero.org/", "https://negative.org/",
                               "https://far.org/", "https://unknown.org/"});
  EXPECT_EQ(visits, (Visits{{"https://a.org/", dateFromSecondsSince1970(1655526400)}}));
  EXPECT_EQ(formatISO8601(visits.at("https://a.org/")), "2022-06-18T04:26:40Z");
}

TEST_F(BrowserHistoryTest, SafariTimesAreSecondsSince2001AndTheLatestVisitWins) {
  const fs::path db = root_ / "History.db";
  makeSafari(db, {{"https://a.org/", {100.0, 700000000.5, 5000.0}},
                  {"https://b.org/", {0.0, -1.0}},
                  {"https://c.org/", {}}});
  EXPECT_EQ(query(db, Browser::safari, {"https://a.org/", "https://b.org/", "https://c.org/"}),
            (Visits{{"https://a.org/", dateFromSecondsSince1970(978307200 + 700000000.5)}}));
}

TEST_F(BrowserHistoryTest, EveryProfileFolderWithAHistoryFileCounts) {
  makeChromium(profile(Browser::chrome, "Default") / "History", {});
  makeChromium(profile(Browser::chrome, "Profile 1") / "History", {});
  makeChromium(profile(Browser::chrome, ".hidden") / "History", {});
  profile(Browser::chrome, "System Profile");  // no History
  std::ofstream(location(Browser::chrome, env_)->path / "Local State") << "{}";

  const fs::path folder = location(Browser::chrome, env_)->path;
  EXPECT_EQ(databases(Browser::chrome, env_),
            (std::vector<fs::path>{folder / ".hidden/History", folder / "Default/History",
                                   folder / "Profile 1/History"}));
  EXPECT_TRUE(databases(Browser::brave, env_).empty());  // folder missing
}

TEST_F(BrowserHistoryTest, LatestVisitOverAllProfilesAndBrowsers) {
  const double base = 1700000000;
  makeChromium(
      profile(Browser::chrome, "Default") / "History",
      {{"https://same.org/", chromiumTime(base)}, {"https://only.org/", chromiumTime(base)}});
  makeChromium(profile(Browser::chrome, "Profile 1") / "History",
               {{"https://same.org/", chromiumTime(base + 300)}});
  makeChromium(profile(Browser::brave, "Default") / "History",
               {{"https://same.org/", chromiumTime(base + 100)}});
  makeChromium(profile(Browser::edge, "Default") / "History",
               {{"https://same.org/", chromiumTime(base + 900)}});

  const std::vector<std::string> urls = {"https://same.org/", "https://only.org/",
                                         "https://same.org/", "https://never.org/"};
  const Visits visits = lastVisits(urls, {Browser::chrome, Browser::brave, Browser::safari}, env_);
  ASSERT_EQ(visits.size(), 2u);
  // Microseconds since 1601 do not survive a double exactly; a few are allowed.
  EXPECT_NEAR(secondsSince1970(visits.at("https://same.org/")), base + 300, 1e-5);
  EXPECT_NEAR(secondsSince1970(visits.at("https://only.org/")), base, 1e-5);
  EXPECT_TRUE(lastVisits(urls, {}, env_).empty());
  EXPECT_TRUE(lastVisits({}, {Browser::chrome}, env_).empty());
}

TEST_F(BrowserHistoryTest, BrokenDatabasesContributeNothingAndTheRestIsRead) {
  makeChromium(profile(Browser::chrome, "Good") / "History",
               {{"https://a.org/", chromiumTime(1700000000)}});
  // A Safari database where a Chromium one belongs: the statement cannot be prepared.
  makeSafari(profile(Browser::chrome, "Foreign") / "History", {{"https://a.org/", {9e8}}});
  std::ofstream(profile(Browser::chrome, "Garbage") / "History") << "not a database at all";
  std::ofstream(profile(Browser::chrome, "Empty") / "History");
  fs::create_directories(profile(Browser::chrome, "Folder") / "History");
  // A truncated database: its first page only.
  makeChromium(root_ / "whole", {{"https://a.org/", chromiumTime(1800000000)}});
  fs::copy_file(root_ / "whole", profile(Browser::chrome, "Truncated") / "History");
  fs::resize_file(profile(Browser::chrome, "Truncated") / "History", 100);

  for (const auto& name : {"Foreign", "Garbage", "Empty", "Folder", "Truncated"}) {
    EXPECT_TRUE(
        query(profile(Browser::chrome, name) / "History", Browser::chrome, {"https://a.org/"})
            .empty())
        << name;
  }
  EXPECT_TRUE(query(root_ / "missing", Browser::chrome, {"https://a.org/"}).empty());
  EXPECT_EQ(databases(Browser::chrome, env_).size(), 6u);
  const Visits visits = lastVisits({"https://a.org/"}, {Browser::chrome}, env_);
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_NEAR(secondsSince1970(visits.at("https://a.org/")), 1700000000, 1e-5);
}

TEST_F(BrowserHistoryTest, ReadingLeavesEveryFileByteForByteAsItWas) {
  makeChromium(profile(Browser::chrome, "Default") / "History",
               {{"https://a.org/", chromiumTime(1700000000)}});
  makeChromium(profile(Browser::edge, "Default") / "History", {});
  makeSafari(root_ / "History.db", {{"https://a.org/", {1.0}}});
  const auto before = snapshotFiles();
  ASSERT_EQ(before.size(), 3u);
  EXPECT_EQ(lastVisits({"https://a.org/"}, {Browser::chrome, Browser::edge}, env_).size(), 1u);
  EXPECT_EQ(query(root_ / "History.db", Browser::safari, {"https://a.org/"}).size(), 1u);
  EXPECT_EQ(snapshotFiles(), before);  // same files, no journal or lock files left
}

TEST_F(BrowserHistoryTest, DatabaseLockedByAWriterIsStillReadAsCommitted) {
  const fs::path db = profile(Browser::chrome, "Default") / "History";
  makeChromium(db, {{"https://a.org/", chromiumTime(1700000000)}});
  sqlite3* writer = nullptr;
  ASSERT_EQ(sqlite3_open(db.c_str(), &writer), SQLITE_OK);
  exec(writer, "BEGIN EXCLUSIVE; UPDATE urls SET last_visit_time = " +
                   std::to_string(chromiumTime(1800000000)) + ";");

  const Visits visits = query(db, Browser::chrome, {"https://a.org/"});
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_NEAR(secondsSince1970(visits.at("https://a.org/")), 1700000000, 1e-5);

  exec(writer, "ROLLBACK;");
  sqlite3_close(writer);
}

TEST_F(BrowserHistoryTest, BatchesBeyondTheParameterLimitAreSplitNotLost) {
  const fs::path db = root_ / "History";
  std::map<std::string, int64_t> rows;
  std::vector<std::string> urls;
  for (int i = 0; i < 70000; ++i) urls.push_back("https://example.org/" + std::to_string(i));
  for (int i : {0, 32765, 32766, 32767, 65533, 69999}) {
    rows[urls[static_cast<size_t>(i)]] = chromiumTime(1700000000 + i);
  }
  makeChromium(db, rows);
  const Visits visits = query(db, Browser::chrome, urls);
  ASSERT_EQ(visits.size(), rows.size());
  for (const auto& [url, time] : rows) EXPECT_TRUE(visits.contains(url)) << url;
}

TEST_F(BrowserHistoryTest, PathsThatNeedEncodingStillOpen) {
  const struct {
    std::string path, uri;
  } cases[] = {
      {"/a/History", "file:/a/History?immutable=1"},
      {"/My Profile/History", "file:/My%20Profile/History?immutable=1"},
      {"/what?/100%/#1/History", "file:/what%3F/100%25/%231/History?immutable=1"},
      {"/caf\xc3\xa9/H", "file:/caf%C3%A9/H?immutable=1"},
      {"//server/History", "file:////server/History?immutable=1"},
  };
  for (const auto& c : cases) EXPECT_EQ(immutableURI(c.path), c.uri);

  const fs::path db = root_ / "odd ?#% name" / "Profile 1" / "History";
  makeChromium(db, {{"https://a.org/", chromiumTime(1700000000)}});
  EXPECT_EQ(query(db, Browser::chrome, {"https://a.org/"}).size(), 1u);
}

#ifdef __APPLE__
TEST_F(BrowserHistoryTest, LocationsUnderTheMacHomeFolder) {
  const fs::path home = root_ / "home";
  EXPECT_EQ(location(Browser::safari, env_), (Location{home / "Library/Safari/History.db", false}));
  EXPECT_EQ(location(Browser::chrome, env_),
            (Location{home / "Library/Application Support/Google/Chrome", true}));
  EXPECT_EQ(location(Browser::brave, env_),
            (Location{home / "Library/Application Support/BraveSoftware/Brave-Browser", true}));
  EXPECT_EQ(location(Browser::edge, env_),
            (Location{home / "Library/Application Support/Microsoft Edge", true}));
  EXPECT_EQ(databases(Browser::safari, env_),
            std::vector<fs::path>{home / "Library/Safari/History.db"});
}
#else
TEST_F(BrowserHistoryTest, LocationsUnderTheXDGConfigFolder) {
  const fs::path config = root_ / "home/.config";
  EXPECT_EQ(location(Browser::safari, env_), std::nullopt);
  EXPECT_TRUE(databases(Browser::safari, env_).empty());
  EXPECT_EQ(location(Browser::chrome, env_), (Location{config / "google-chrome", true}));
  EXPECT_EQ(location(Browser::brave, env_),
            (Location{config / "BraveSoftware/Brave-Browser", true}));
  EXPECT_EQ(location(Browser::edge, env_), (Location{config / "microsoft-edge", true}));
  const EnvironmentLookup xdg = [](std::string_view name) -> std::optional<std::string> {
    if (name == "XDG_CONFIG_HOME") return "/cfg";
    return std::nullopt;
  };
  EXPECT_EQ(location(Browser::chrome, xdg), (Location{"/cfg/google-chrome", true}));
  EXPECT_EQ(location(Browser::chrome, [](std::string_view) { return std::nullopt; }), std::nullopt);
}
#endif

// Serves one small page to whoever asks on 127.0.0.1, until destroyed.
class LoopbackServer {
 public:
  LoopbackServer() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(listener_, 16) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      return;
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~LoopbackServer() {
    stopping_ = true;
    if (thread_.joinable()) thread_.join();
    close(listener_);
  }
  uint16_t port() const { return port_; }

 private:
  void serve() {
    const std::string body = "<html><head><title>Velto visit</title></head><body>hi</body></html>";
    const std::string response = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: " +
                                 std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" +
                                 body;
    while (!stopping_) {
      pollfd waiting{listener_, POLLIN, 0};
      if (poll(&waiting, 1, 100) <= 0) continue;
      const int client = accept(listener_, nullptr, nullptr);
      if (client < 0) continue;
      char request[4096];
      (void)recv(client, request, sizeof request, 0);  // one read holds a browser's GET
      (void)send(client, response.data(), response.size(), MSG_NOSIGNAL);
      close(client);
    }
  }

  int listener_ = -1;
  uint16_t port_ = 0;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

TEST_F(BrowserHistoryTest, ReadsAVisitFromRealChromiumHistory) {
  if (!fs::exists("/usr/bin/chromium")) GTEST_SKIP() << "chromium is not installed";
  LoopbackServer server;
  ASSERT_NE(server.port(), 0);
  const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/visit?x=1";

  // A fresh profile where the reader looks for Chrome's, so the real History file of
  // Default is found the same way as a user's. --dump-dom loads the page and quits
  // normally, which commits the visit; timeout ends a run that hangs, gracefully first.
  const fs::path userData = location(Browser::chrome, env_)->path;
  fs::create_directories(userData);
  const auto run =
      runProcess("/usr/bin/timeout",
                 {"-k", "10", "90", "/usr/bin/chromium", "--headless", "--no-sandbox",
                  "--disable-gpu", "--disable-quic", "--no-first-run",
                  "--disable-background-networking", "--disable-component-update", "--disable-sync",
                  "--user-data-dir=" + userData.string(), "--dump-dom", url});
  ASSERT_TRUE(run.ok());
  ASSERT_EQ(run->exitStatus, 0) << run->standardError;
  EXPECT_NE(run->standardOutput.find("Velto visit"), std::string::npos);

  EXPECT_EQ(databases(Browser::chrome, env_), std::vector<fs::path>{userData / "Default/History"});
  const Date before = addingSeconds(now(), -600);
  const Visits visits = lastVisits({url, "http://127.0.0.1:1/never"}, {Browser::chrome}, env_);
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_GT(visits.at(url), before);
  EXPECT_LT(visits.at(url), addingSeconds(now(), 60));
}

}  // namespace
}  // namespace velto::BrowserHistory
