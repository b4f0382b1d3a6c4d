#include "cli/watch_cycle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <map>

#include "core/support/testing/files.h"

namespace velto {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

Date later(double seconds) { return addingSeconds(kNow, seconds); }

// Browsers as scripted by the test: running or not, and what a snapshot answers.
class FakeTabSource : public OpenTabsSource {
 public:
  bool isRunning(Browser browser) override { return answers.contains(browser); }
  Result<std::vector<LiveTab>> snapshot(Browser browser) override {
    asked.push_back(browser);
    return answers.at(browser);
  }

  std::map<Browser, Result<std::vector<LiveTab>>> answers;  // the running browsers
  std::vector<Browser> asked;
};

class FakeVisitSource : public VisitSource {
 public:
  BrowserHistory::Visits lastVisits(const std::vector<std::string>& urls,
                                    BrowserSet browsers) override {
    asked.push_back(urls);
    askedBrowsers = browsers;
    return visits;
  }

  BrowserHistory::Visits visits;
  std::vector<std::vector<std::string>> asked;
  BrowserSet askedBrowsers;
};

// A tab as a snapshot reports it: active, seen just now.
LiveTab open(Browser browser, int tabID, std::string url, bool active = false) {
  LiveTab tab;
  tab.browser = browser;
  tab.windowID = 7;
  tab.tabID = std::to_string(tabID);
  tab.id = std::string(rawValue(browser)) + ":7:" + *tab.tabID;
  tab.index = tabID;
  tab.title = "Page " + url;
  tab.url = std::move(url);
  tab.isActive = active;
  tab.pinState = PinState::unknown;
  return tab;
}

class WatchCycleTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
    LibraryState state;
    state.preferences.connectedBrowsers = {Browser::chrome, Browser::brave};
    state.preferences.exclusions = {"bank.example"};
    ASSERT_TRUE(store_.save(state).ok());
  }

  // Runs one cycle at `now`, with the browsers answering `running`.
  std::vector<std::string> cycle(std::map<Browser, Result<std::vector<LiveTab>>> running,
                                 Date now = kNow) {
    tabs_.answers = std::move(running);
    return runWatchCycle(store_, tabs_, visits_, now);
  }
  LibraryState library() const { return *store_.load(); }
  std::vector<std::string> liveURLs() const {
    std::vector<std::string> urls;
    for (const LiveTab& tab : library().liveTabs) urls.push_back(tab.url);
    return urls;
  }
  std::vector<std::pair<std::string, Date>> closed() const {
    std::vector<std::pair<std::string, Date>> kept;
    for (const SavedTab& tab : library().tabs) {
      EXPECT_EQ(tab.state, ArchiveState::closed);
      kept.emplace_back(tab.url, *tab.closedAt);
    }
    return kept;
  }

  LibraryStore store_{root_ / "Velto"};
  FakeTabSource tabs_;
  FakeVisitSource visits_;
};

TEST_F(WatchCycleTest, StoresTheTabsOfConnectedRunningBrowsersBrowserByBrowser) {
  const std::vector<std::string> problems =
      cycle({{Browser::brave, std::vector{open(Browser::brave, 1, "https://b.example/")}},
             {Browser::edge, std::vector{open(Browser::edge, 1, "https://e.example/")}},
             {Browser::chrome, std::vector{open(Browser::chrome, 2, "https://c.example/2"),
                                           open(Browser::chrome, 1, "https://c.example/1")}}});
  EXPECT_TRUE(problems.empty());
  // Edge is running but not connected; Safari is connected nowhere and not running.
  EXPECT_THAT(tabs_.asked, ElementsAre(Browser::chrome, Browser::brave));
  EXPECT_THAT(liveURLs(),
              ElementsAre("https://c.example/2", "https://c.example/1", "https://b.example/"));
  const LibraryState state = library();
  EXPECT_EQ(state.liveUpdatedAt, kNow);
  EXPECT_EQ(state.liveTabs[0].observedAt, kNow);
  EXPECT_EQ(state.liveTabs[0].neverSelectedSince, kNow);

  // Nothing running: no tabs, and still a fresh (empty) snapshot.
  EXPECT_TRUE(cycle({}, later(30)).empty());
  EXPECT_TRUE(library().liveTabs.empty());
  EXPECT_EQ(library().liveUpdatedAt, later(30));
}

TEST_F(WatchCycleTest, CarriesTimestampsOverAndTakesLastVisitsFromTheHistory) {
  const LiveTab tab = open(Browser::chrome, 1, "https://c.example/");
  ASSERT_TRUE(cycle({{Browser::chrome, std::vector{tab}}}).empty());
  visits_.visits = {{"https://c.example/", later(-3600)}};
  ASSERT_TRUE(cycle({{Browser::chrome, std::vector{tab}}}, later(30)).empty());
  EXPECT_THAT(visits_.asked.back(), ElementsAre("https://c.example/"));
  EXPECT_EQ(visits_.askedBrowsers, BrowserSet{Browser::chrome});
  LiveTab stored = library().liveTabs.at(0);
  EXPECT_EQ(stored.lastActiveAt, kNow);  // the same tab, unselected since the first look
  EXPECT_EQ(stored.neverSelectedSince, kNow);
  EXPECT_EQ(stored.observedAt, later(30));
  EXPECT_EQ(stored.lastVisitAt, later(-3600));

  // With history off, the history is not read; the visit already known stays.
  LibraryState state = library();
  state.preferences.browserHistory = false;
  ASSERT_TRUE(store_.save(state).ok());
  const size_t asked = visits_.asked.size();
  ASSERT_TRUE(cycle({{Browser::chrome, std::vector{tab}}}, later(60)).empty());
  EXPECT_EQ(visits_.asked.size(), asked);
  EXPECT_EQ(library().liveTabs.at(0).lastVisitAt, later(-3600));
}

TEST_F(WatchCycleTest, TabsClosedWhileTheirBrowserRunsAreKeptOncePerPage) {
  const LiveTab page = open(Browser::chrome, 1, "https://c.example/");
  const LiveTab other = open(Browser::chrome, 2, "https://d.example/", true);
  const std::vector<LiveTab> all{page, other, open(Browser::chrome, 3, "https://bank.example/"),
                                 open(Browser::chrome, 4, "chrome://settings/"),
                                 open(Browser::brave, 1, "https://b.example/")};
  ASSERT_TRUE(cycle({{Browser::chrome, all}, {Browser::brave, std::vector{all[4]}}}).empty());
  // Brave quits; in Chrome, all but one tab are closed.
  ASSERT_TRUE(cycle({{Browser::chrome, std::vector{other}}}, later(30)).empty());
  EXPECT_THAT(closed(), ElementsAre(std::pair{"https://c.example/", later(30)}));
  EXPECT_THAT(liveURLs(), ElementsAre("https://d.example/"));

  // The same page opened again under a new tab id and closed again: one entry.
  LiveTab again = page;
  again.id = "chrome:7:9";
  again.title = "Newer title";
  ASSERT_TRUE(cycle({{Browser::chrome, std::vector{other, again}}}, later(60)).empty());
  ASSERT_TRUE(cycle({{Browser::chrome, std::vector{other}}}, later(90)).empty());
  EXPECT_THAT(closed(), ElementsAre(std::pair{"https://c.example/", later(90)}));
  EXPECT_EQ(library().tabs.at(0).title, "Newer title");
}

TEST_F(WatchCycleTest, AFailedSnapshotIsReportedAndKeepsThatBrowsersFreshTabs) {
  const LiveTab page = open(Browser::chrome, 1, "https://c.example/");
  const LiveTab bravePage = open(Browser::brave, 1, "https://b.example/");
  ASSERT_TRUE(
      cycle({{Browser::chrome, std::vector{page}}, {Browser::brave, std::vector{bravePage}}})
          .empty());
  const Error rewriting = platformError("The session file is being rewritten.");
  EXPECT_THAT(
      cycle({{Browser::chrome, rewriting}, {Browser::brave, std::vector{bravePage}}}, later(30)),
      ElementsAre("Chrome: The session file is being rewritten."));
  EXPECT_THAT(liveURLs(), ElementsAre("https://c.example/", "https://b.example/"));
  EXPECT_TRUE(library().tabs.empty());
  EXPECT_EQ(library().liveTabs[0].observedAt, kNow);

  // Once its last observation is no longer fresh, a failing browser lists nothing.
  cycle({{Browser::chrome, rewriting}, {Browser::brave, std::vector{bravePage}}}, later(100));
  EXPECT_THAT(liveURLs(), ElementsAre("https://b.example/"));
  EXPECT_TRUE(library().tabs.empty());
}

TEST_F(WatchCycleTest, AnUnreadableLibraryIsReportedAndLeftAlone) {
  std::ofstream(store_.fileURL()) << "{\"version\": 1, \"tabs\": [";
  const std::vector<std::string> problems =
      cycle({{Browser::chrome, std::vector{open(Browser::chrome, 1, "https://c.example/")}}});
  EXPECT_EQ(problems.size(), 1u);
  EXPECT_TRUE(tabs_.asked.empty());
  EXPECT_EQ(testing::readFile(store_.fileURL()), "{\"version\": 1, \"tabs\": [");
}

}  // namespace
}  // namespace velto
