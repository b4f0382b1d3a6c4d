#include "core/model/library_summary.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);
Date ago(double seconds) { return addingSeconds(kNow, -seconds); }

using Titles = std::vector<std::string>;

class LibrarySummaryTest : public ::testing::Test {
 protected:
  LibrarySummaryTest() { state_.preferences.exclusions = {"bank.example"}; }

  // Adds a Chrome tab titled `title`, saved `savedAgo` seconds before now.
  SavedTab& add(std::string title, std::string url, ArchiveState state, double savedAgo,
                std::optional<double> closedAgo = std::nullopt) {
    SavedTab& tab = state_.tabs.emplace_back();
    tab.title = std::move(title);
    tab.url = std::move(url);
    tab.browser = Browser::chrome;
    tab.state = state;
    tab.savedAt = ago(savedAgo);
    if (closedAgo) tab.closedAt = ago(*closedAgo);
    return tab;
  }

  static Titles titles(const std::vector<SavedTab>& tabs) {
    Titles out;
    for (const SavedTab& tab : tabs) out.push_back(tab.title);
    return out;
  }

  LibraryState state_;
};

TEST_F(LibrarySummaryTest, NewestActivityFirstAndOneTabPerURLInEachList) {
  add("older copy", "https://a.example/", ArchiveState::closed, 300, 250);
  add("newest", "https://a.example/", ArchiveState::saved, 100);  // beats its closed copy
  add("case differs", "https://A.example/", ArchiveState::saved, 200);
  add("no slash", "https://a.example", ArchiveState::saved, 50);
  add("closed late", "https://b.example/", ArchiveState::closed, 900, 10);  // closedAt counts
  add("pending", "https://c.example/", ArchiveState::pendingClose, 1);
  add("excluded", "https://bank.example/login", ArchiveState::closed, 1, 1);
  add("tie", "https://d.example/", ArchiveState::saved, 100);  // ties keep stored order
  const LibrarySummary summary(state_, kNow);
  EXPECT_EQ(titles(summary.tabs),
            (Titles{"closed late", "no slash", "newest", "tie", "case differs"}));
  EXPECT_EQ(titles(summary.closedTabs), (Titles{"closed late", "older copy"}));
}

TEST_F(LibrarySummaryTest, CountsOpenTabsOnlyWhileTheSnapshotIsFresh) {
  state_.preferences.connectedBrowsers = {Browser::chrome};
  for (auto [browser, url] : {std::pair{Browser::chrome, "https://a.example/"},
                              {Browser::chrome, "https://x.bank.example/"},
                              {Browser::safari, "https://a.example/"},
                              {Browser::chrome, "https://b.example/"}}) {
    LiveTab& tab = state_.liveTabs.emplace_back();
    tab.browser = browser;
    tab.url = url;
  }
  for (const auto& [age, count] :
       std::vector<std::pair<std::optional<double>, std::optional<int64_t>>>{
           {std::nullopt, std::nullopt}, {119, 2}, {120, std::nullopt}, {-3600, 2}}) {
    state_.liveUpdatedAt = age ? std::optional(ago(*age)) : std::nullopt;
    EXPECT_EQ(LibrarySummary(state_, kNow).openTabs, count) << age.value_or(-1);
  }
}

TEST_F(LibrarySummaryTest, MatchingSearchesTheChosenListInItsOrder) {
  add("Caf\u00E9 notes", "https://a.example/", ArchiveState::saved, 10);
  add("Cafe menu", "https://b.example/", ArchiveState::closed, 20, 20);
  add("Tab", "https://c.example/", ArchiveState::closed, 30, 30).browser = Browser::safari;
  const LibrarySummary summary(state_, kNow);
  EXPECT_EQ(titles(summary.matching("CAF\u00C9", false)), (Titles{"Caf\u00E9 notes", "Cafe menu"}));
  EXPECT_EQ(titles(summary.matching("cafe", true)), (Titles{"Cafe menu"}));
  EXPECT_EQ(titles(summary.matching("SAFARI tab", true)), (Titles{"Tab"}));
  EXPECT_EQ(titles(summary.matching(" \n\t", true)), (Titles{"Cafe menu", "Tab"}));
  EXPECT_EQ(titles(summary.matching("menu notes", false)), Titles{});
  EXPECT_EQ(LibrarySummary(LibraryState{}, kNow).matching("", true), std::vector<SavedTab>{});
}

}  // namespace
}  // namespace velto
