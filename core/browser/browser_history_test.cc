#include "core/browser/browser_history.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <map>

#include "core/browser/process_runner.h"
#include "core/browser/testing/chromium_session.h"
#include "core/support/testing/files.h"

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

class BrowserHistoryTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
    env_ = [home = (root_ / "home").string()](std::string_view name) -> std::optional<std::string> {
      return name == "HOME" ? std::optional(home) : std::nullopt;
    };
  }

  // "<profile>/History" in `browser`'s data folder, the folder created.
  fs::path history(Browser browser, const std::string& profile) {
    const fs::path folder = location(browser, env_)->path / profile;
    fs::create_directories(folder);
    return folder / "History";
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

  // `title` is SQL, so that a test can make rows big enough to fill a page each.
  static std::string chromiumRow(const std::string& url, int64_t time,
                                 const std::string& titleSQL = "'t'") {
    return "INSERT INTO urls(url, title, last_visit_time) VALUES('" + url + "', " + titleSQL +
           ", " + std::to_string(time) + ");";
  }
  static void makeChromium(const fs::path& path, const std::map<std::string, int64_t>& visits) {
    std::string sql = kChromiumSchema;
    for (const auto& [url, time] : visits) sql += chromiumRow(url, time);
    makeDatabase(path, sql);
  }

  static void makeSafari(const fs::path& path,
                         const std::map<std::string, std::vector<double>>& visits) {
    std::string sql = kSafariSchema;
    int item = 0;
    for (const auto& [url, times] : visits) {
      const std::string id = std::to_string(++item);
      sql +=
          "INSERT INTO history_items(id, url, visit_count) VALUES(" + id + ", '" + url + "', 1);";
      for (double time : times) {
        sql += "INSERT INTO history_visits(history_item, visit_time) VALUES(" + id + ", " +
               std::to_string(time) + ");";
      }
    }
    makeDatabase(path, sql);
  }

  // Every file below root with its bytes.
  std::map<std::string, std::string> allFiles() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root_)) {
      if (entry.is_regular_file()) files[entry.path().string()] = testing::readFile(entry.path());
    }
    return files;
  }

  EnvironmentLookup env_;
};

TEST_F(BrowserHistoryTest, TimesConvertPerFamilyAndNonPositiveOnesAreIgnored) {
  const fs::path chrome = history(Browser::chrome, "Default");
  makeChromium(chrome, {{"https://a.org/", 13300000000000000},
                        {"https://zero.org/", 0},
                        {"https://negative.org/", -5},
                        {"https://far.org/", INT64_MAX}});
  const Visits visits = query(chrome, Browser::chrome,
                              {"https://a.org/", "https://zero.org/", "https://negative.org/",
                               "https://far.org/", "https://unknown.org/"});
  EXPECT_EQ(visits, (Visits{{"https://a.org/", dateFromSecondsSince1970(1655526400)}}));
  EXPECT_EQ(formatISO8601(visits.at("https://a.org/")), "2022-06-18T04:26:40Z");

  // Safari: seconds since 2001, the latest of an item's visits.
  const fs::path safari = root_ / "History.db";
  makeSafari(safari, {{"https://a.org/", {100.0, 700000000.5, 5000.0}},
                      {"https://b.org/", {0.0, -1.0}},
                      {"https://c.org/", {}}});
  EXPECT_EQ(query(safari, Browser::safari, {"https://a.org/", "https://b.org/", "https://c.org/"}),
            (Visits{{"https://a.org/", dateFromSecondsSince1970(978307200 + 700000000.5)}}));
}

TEST_F(BrowserHistoryTest, LatestVisitOverEveryProfileAndBrowser) {
  const double base = 1700000000;
  makeChromium(history(Browser::chrome, "Default"), {{"https://same.org/", chromiumTime(base)},
                                                     {"https://only.org/", chromiumTime(base)}});
  makeChromium(history(Browser::chrome, "Profile 1"),
               {{"https://same.org/", chromiumTime(base + 300)}});
  makeChromium(history(Browser::chrome, ".hidden"), {});
  history(Browser::chrome, "System Profile");  // a folder without History
  std::ofstream(location(Browser::chrome, env_)->path / "Local State") << "{}";
  makeChromium(history(Browser::brave, "Default"),
               {{"https://same.org/", chromiumTime(base + 100)}});
  makeChromium(history(Browser::edge, "Default"),
               {{"https://same.org/", chromiumTime(base + 900)}});

  const fs::path chrome = location(Browser::chrome, env_)->path;
  EXPECT_EQ(databases(Browser::chrome, env_),
            (std::vector<fs::path>{chrome / ".hidden/History", chrome / "Default/History",
                                   chrome / "Profile 1/History"}));

  // Edge is not asked for, so its later visit does not count. Reading leaves every file
  // as it was, and no journal or lock file behind.
  const std::vector<std::string> urls = {"https://same.org/", "https://only.org/",
                                         "https://same.org/", "https://never.org/"};
  const auto files = allFiles();
  const Visits visits = lastVisits(urls, {Browser::chrome, Browser::brave, Browser::safari}, env_);
  EXPECT_EQ(allFiles(), files);
  ASSERT_EQ(visits.size(), 2u);
  // Microseconds since 1601 do not survive a double exactly; a few are allowed.
  EXPECT_NEAR(secondsSince1970(visits.at("https://same.org/")), base + 300, 1e-5);
  EXPECT_NEAR(secondsSince1970(visits.at("https://only.org/")), base, 1e-5);
  EXPECT_TRUE(lastVisits(urls, {}, env_).empty());
  EXPECT_TRUE(lastVisits({}, {Browser::chrome}, env_).empty());
}

TEST_F(BrowserHistoryTest, BrokenDatabasesContributeNothingAndTheRestIsReadAsCommitted) {
  const std::string url = "https://a.org/";
  makeChromium(history(Browser::chrome, "Good"), {{url, chromiumTime(1700000000)}});
  // A Safari database where a Chromium one belongs: the statement cannot be prepared.
  makeSafari(history(Browser::chrome, "Foreign"), {{url, {9e8}}});
  std::ofstream(history(Browser::chrome, "Garbage")) << "not a database at all";
  std::ofstream(history(Browser::chrome, "Empty")).flush();
  fs::create_directories(history(Browser::chrome, "Folder"));
  makeChromium(root_ / "whole", {{url, chromiumTime(1800000000)}});
  fs::copy_file(root_ / "whole", history(Browser::chrome, "Truncated"));
  fs::resize_file(history(Browser::chrome, "Truncated"), 100);
  // A row per page; the later URL's page is overwritten, so reading fails only after the
  // earlier URL's row has come back.
  const fs::path damaged = history(Browser::chrome, "Damaged");
  makeDatabase(damaged, std::string("PRAGMA page_size = 4096;") + kChromiumSchema +
                            chromiumRow(url, chromiumTime(1800000000), "printf('%.3000c', 'a')") +
                            chromiumRow("https://z.org/", 1, "'victim' || printf('%.3000c', 'z')"));
  std::string bytes = testing::readFile(damaged);
  const size_t page = bytes.find("victim") / 4096 * 4096;
  ASSERT_LT(page, bytes.size());
  bytes.replace(page, 4096, 4096, '\xff');
  std::ofstream(damaged, std::ios::binary) << bytes;

  for (const auto& name : {"Foreign", "Garbage", "Empty", "Folder", "Truncated", "Damaged"}) {
    EXPECT_EQ(query(history(Browser::chrome, name), Browser::chrome, {url, "https://z.org/"}),
              Visits{})
        << name;
  }
  EXPECT_EQ(query(root_ / "missing", Browser::chrome, {url}), Visits{});
  EXPECT_EQ(databases(Browser::chrome, env_).size(), 7u);

  // A writer in the middle of a transaction neither blocks the good one nor shows through.
  sqlite3* writer = nullptr;
  ASSERT_EQ(sqlite3_open(history(Browser::chrome, "Good").c_str(), &writer), SQLITE_OK);
  exec(writer, "BEGIN EXCLUSIVE; UPDATE urls SET last_visit_time = 1;");
  const Visits visits = lastVisits({url, "https://z.org/"}, {Browser::chrome}, env_);
  exec(writer, "ROLLBACK;");
  sqlite3_close(writer);
  ASSERT_EQ(visits.size(), 1u);
  EXPECT_NEAR(secondsSince1970(visits.at(url)), 1700000000, 1e-5);
}

TEST_F(BrowserHistoryTest, TitlesOfTheLatestVisitThatHasOne) {
  const fs::path db = history(Browser::chrome, "Default");
  makeDatabase(
      db, std::string(kChromiumSchema) + chromiumRow("https://a.org/", 2, "'New'") +
              chromiumRow("https://a.org/", 1, "'Old'") + chromiumRow("https://a.org/", 3, "''") +
              chromiumRow("https://b.org/", 1, "NULL") + chromiumRow("https://c.org/", 1, "'C'"));
  EXPECT_EQ(titles(db, {"https://a.org/", "https://b.org/", "https://none.org/"}),
            (Titles{{"https://a.org/", "New"}}));
  EXPECT_EQ(titles(db, {}), Titles{});
  EXPECT_EQ(titles(root_ / "missing", {"https://a.org/"}), Titles{});
}

TEST_F(BrowserHistoryTest, BatchesBeyondTheParameterLimitAreSplitNotLost) {
  // The limit depends on how SQLite was built (999, 32766, 250000...): ask it.
  sqlite3* memory = nullptr;
  ASSERT_EQ(sqlite3_open(":memory:", &memory), SQLITE_OK);
  const auto limit = static_cast<size_t>(sqlite3_limit(memory, SQLITE_LIMIT_VARIABLE_NUMBER, -1));
  sqlite3_close(memory);

  std::vector<std::string> urls;
  for (size_t i = 0; i < limit + 2; ++i) urls.push_back("https://a.org/" + std::to_string(i));
  std::map<std::string, int64_t> rows;
  for (size_t i : {size_t{0}, limit - 1, limit, limit + 1}) rows[urls[i]] = chromiumTime(1e9);
  makeChromium(root_ / "History", rows);
  const Visits visits = query(root_ / "History", Browser::chrome, urls);
  EXPECT_EQ(visits.size(), rows.size());
  for (const auto& [url, time] : rows) EXPECT_TRUE(visits.contains(url)) << url;
}

TEST_F(BrowserHistoryTest, PathsThatNeedEncodingStillOpen) {
  const struct {
    std::string path, uri;
  } cases[] = {
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
  const fs::path home = root_ / "home", support = home / "Library/Application Support";
  EXPECT_EQ(location(Browser::safari, env_), (Location{home / "Library/Safari/History.db", false}));
  EXPECT_EQ(location(Browser::chrome, env_), (Location{support / "Google/Chrome", true}));
  EXPECT_EQ(location(Browser::brave, env_),
            (Location{support / "BraveSoftware/Brave-Browser", true}));
  EXPECT_EQ(location(Browser::edge, env_), (Location{support / "Microsoft Edge", true}));
  // Safari's one database is listed whether or not it exists.
  EXPECT_EQ(databases(Browser::safari, env_),
            std::vector<fs::path>{home / "Library/Safari/History.db"});
}
#else
TEST_F(BrowserHistoryTest, LocationsUnderTheXDGConfigFolder) {
  const fs::path config = root_ / "home/.config";
  EXPECT_EQ(location(Browser::safari, env_), std::nullopt);
  EXPECT_TRUE(databases(Browser::safari, env_).empty());
  EXPECT_TRUE(databases(Browser::brave, env_).empty());  // no data folder
  EXPECT_EQ(location(Browser::chrome, env_), (Location{config / "google-chrome", true}));
  EXPECT_EQ(location(Browser::brave, env_),
            (Location{config / "BraveSoftware/Brave-Browser", true}));
  EXPECT_EQ(location(Browser::edge, env_), (Location{config / "microsoft-edge", true}));
  const EnvironmentLookup xdg = [](std::string_view name) -> std::optional<std::string> {
    return name == "XDG_CONFIG_HOME" ? std::optional<std::string>("/cfg") : std::nullopt;
  };
  EXPECT_EQ(location(Browser::chrome, xdg), (Location{"/cfg/google-chrome", true}));
  EXPECT_EQ(location(Browser::chrome, [](std::string_view) { return std::nullopt; }), std::nullopt);

  // Debian's Chromium is Chrome's stand-in only while Google Chrome has no folder.
  fs::create_directories(config / "chromium");
  EXPECT_EQ(location(Browser::chrome, env_), (Location{config / "chromium", true}));
  fs::create_directories(config / "google-chrome");
  EXPECT_EQ(location(Browser::chrome, env_), (Location{config / "google-chrome", true}));
}
#endif

TEST_F(BrowserHistoryTest, ReadsAVisitFromRealChromiumHistory) {
  if (!fs::exists("/usr/bin/chromium")) GTEST_SKIP() << "chromium is not installed";
  testing::PageServer server({{"/visit?x=1", "Velto visit"}});
  ASSERT_NE(server.port(), 0);
  const std::string url = server.url("/visit?x=1");

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
