#include "core/model/library_summary.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

Date ago(double seconds) { return addingSeconds(kNow, -seconds); }

class LibrarySummaryTest : public ::testing::Test {
 protected:
  LibrarySummaryTest() { state_.preferences.exclusions = {"bank.example"}; }

  // Adds a tab whose id ends in `n`, saved `savedAgo` seconds before now.
  SavedTab& add(int n, std::string url, ArchiveState state, double savedAgo,
                std::optional<double> closedAgo = std::nullopt) {
    SavedTab tab;
    tab.id = *Uuid::parse("00000000-0000-4000-8000-0000000000" + std::to_string(10 + n));
    tab.title = "Tab " + std::to_string(n);
    tab.url = std::move(url);
    tab.browser = Browser::chrome;
    tab.state = state;
    tab.savedAt = ago(savedAgo);
    if (closedAgo) tab.closedAt = ago(*closedAgo);
    return state_.tabs.emplace_back(std::move(tab));
  }

  static std::vector<std::string> titles(const std::vector<SavedTab>& tabs) {
    std::vector<std::string> out;
    for (const SavedTab& tab : tabs) out.push_back(tab.title);
    return out;
  }

  LibraryState state_;
};

using Titles = std::vector<std::string>;

TEST_F(LibrarySummaryTest, SortsByActivityAndKeepsNewestPerURL) {
  add(1, "https://a.example/", ArchiveState::saved, 300);
  add(2, "https://a.example/", ArchiveState::saved, 100);       // newer duplicate wins
  add(3, "https://A.example/", ArchiveState::saved, 200);       // case differs: another URL
  add(4, "https://a.example", ArchiveState::saved, 50);         // no trailing slash: another URL
  add(5, "https://b.example/", ArchiveState::closed, 900, 10);  // closedAt counts
  add(6, "https://c.example/", ArchiveState::pendingClose, 1);
  add(7, "https://bank.example/login", ArchiveState::closed, 1, 1);
  add(8, "https://d.example/", ArchiveState::saved, 100);  // ties keep stored order
  const LibrarySummary summary(state_, kNow);
  EXPECT_EQ(titles(summary.tabs), (Titles{"Tab 5", "Tab 4", "Tab 2", "Tab 8", "Tab 3"}));
  EXPECT_EQ(titles(summary.closedTabs), (Titles{"Tab 5"}));
}

TEST_F(LibrarySummaryTest, ClosedListDeduplicatesOnItsOwn) {
  add(1, "https://a.example/", ArchiveState::closed, 500, 400);
  add(2, "https://a.example/", ArchiveState::saved, 10);
  add(3, "https://a.example/", ArchiveState::closed, 600, 300);
  add(4, "https://p.example/", ArchiveState::pendingClose, 5, 5);  // the only tab of its URL
  const LibrarySummary summary(state_, kNow);
  EXPECT_EQ(titles(summary.tabs), (Titles{"Tab 2"}));
  EXPECT_EQ(titles(summary.closedTabs), (Titles{"Tab 3"}));
}

TEST_F(LibrarySummaryTest, CountsOpenTabsOnlyWhileTheSnapshotIsFresh) {
  state_.preferences.connectedBrowsers = {Browser::chrome};
  for (auto [browser, url] : {std::pair{Browser::chrome, "https://a.example/"},
                              {Browser::chrome, "https://x.bank.example/"},
                              {Browser::safari, "https://a.example/"},
                              {Browser::chrome, "about:blank"},
                              {Browser::chrome, "https://b.example/"}}) {
    LiveTab tab;
    tab.browser = browser;
    tab.url = url;
    state_.liveTabs.push_back(tab);
  }
  struct Case {
    std::optional<double> updatedAgo;
    std::optional<int64_t> expected;
  };
  for (const Case& c : {Case{std::nullopt, std::nullopt}, Case{119, 2}, Case{119.999, 2},
                        Case{120, std::nullopt}, Case{-3600, 2}, Case{86400, std::nullopt}}) {
    state_.liveUpdatedAt = c.updatedAgo ? std::optional(ago(*c.updatedAgo)) : std::nullopt;
    EXPECT_EQ(LibrarySummary(state_, kNow).openTabs, c.expected)
        << (c.updatedAgo ? *c.updatedAgo : -1.0);
  }
}

TEST_F(LibrarySummaryTest, MatchingSearchesTheChosenList) {
  add(1, "https://a.example/", ArchiveState::saved, 10).title = "Café notes";
  add(2, "https://b.example/", ArchiveState::closed, 20, 20).title = "Cafe menu";
  add(3, "https://c.example/", ArchiveState::closed, 30, 30).browser = Browser::safari;
  const LibrarySummary summary(state_, kNow);
  EXPECT_EQ(titles(summary.matching("CAFÉ", false)), (Titles{"Café notes", "Cafe menu"}));
  EXPECT_EQ(titles(summary.matching("cafe", true)), (Titles{"Cafe menu"}));
  EXPECT_EQ(titles(summary.matching("SAFARI tab", true)), (Titles{"Tab 3"}));
  EXPECT_EQ(titles(summary.matching(" \n\t", true)), (Titles{"Cafe menu", "Tab 3"}));
  EXPECT_TRUE(summary.matching("menu notes", false).empty());

  LibraryState savedOnly;
  savedOnly.tabs = {state_.tabs[0]};
  EXPECT_TRUE(LibrarySummary(savedOnly, kNow).matching("", true).empty());
}

}  // namespace
}  // namespace velto
