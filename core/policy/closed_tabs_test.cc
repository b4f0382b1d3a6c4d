#include "core/policy/closed_tabs.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);
const Date kEarlier = dateFromUTC(2026, 2, 1, 8, 0, 0);

LiveTab tab(Browser browser, std::string id, std::string url, std::string title = "Title") {
  LiveTab t;
  t.id = std::string(rawValue(browser)) + ":1:" + id;
  t.browser = browser;
  t.windowID = 1;
  t.url = std::move(url);
  t.title = std::move(title);
  return t;
}

std::vector<std::string> urls(const std::vector<LiveTab>& tabs) {
  std::vector<std::string> out;
  for (const LiveTab& t : tabs) out.push_back(t.url);
  return out;
}

TEST(ClosedTabsTest, ATabGoneFromItsRunningBrowserWasClosed) {
  const std::vector<LiveTab> previous{tab(Browser::chrome, "1", "https://a.example/"),
                                      tab(Browser::chrome, "2", "https://b.example/"),
                                      tab(Browser::brave, "1", "https://c.example/")};
  const std::vector<LiveTab> fresh{tab(Browser::chrome, "2", "https://b.example/")};
  EXPECT_EQ(urls(ClosedTabs::closedSince(previous, fresh, {Browser::chrome, Browser::brave})),
            (std::vector<std::string>{"https://a.example/", "https://c.example/"}));
  // Brave quit (or could not be read): its tabs were not closed by the user.
  EXPECT_EQ(urls(ClosedTabs::closedSince(previous, fresh, {Browser::chrome})),
            (std::vector<std::string>{"https://a.example/"}));
  EXPECT_TRUE(ClosedTabs::closedSince(previous, {}, {}).empty());
}

TEST(ClosedTabsTest, NavigationsRestoredSessionsAndOtherCopiesAreNotCloses) {
  const std::vector<LiveTab> previous{tab(Browser::chrome, "1", "https://a.example/"),
                                      tab(Browser::chrome, "2", "https://b.example/"),
                                      tab(Browser::chrome, "3", "https://c.example/")};
  const std::vector<LiveTab> fresh{
      tab(Browser::chrome, "1", "https://elsewhere.example/"),  // navigated
      tab(Browser::chrome, "20", "https://b.example/"),         // restored under a new id
      tab(Browser::edge, "3", "https://c.example/")};           // another browser's copy
  EXPECT_EQ(urls(ClosedTabs::closedSince(previous, fresh, {Browser::chrome, Browser::edge})),
            (std::vector<std::string>{"https://c.example/"}));
}

TEST(ClosedTabsTest, SafariPagesCountByAddressBecauseItsIdsArePositions) {
  // The second of three tabs closed: the third moved into its position.
  const std::vector<LiveTab> previous{tab(Browser::safari, "1", "https://a.example/"),
                                      tab(Browser::safari, "2", "https://b.example/"),
                                      tab(Browser::safari, "3", "https://c.example/")};
  const std::vector<LiveTab> fresh{tab(Browser::safari, "1", "https://a.example/"),
                                   tab(Browser::safari, "2", "https://c.example/")};
  EXPECT_EQ(urls(ClosedTabs::closedSince(previous, fresh, {Browser::safari})),
            (std::vector<std::string>{"https://b.example/"}));
}

class KeepClosedTest : public ::testing::Test {
 protected:
  void keep(const std::vector<LiveTab>& closed, std::vector<std::string> exclusions = {}) {
    ClosedTabs::keepClosed(tabs_, closed, exclusions, kNow, [this]() -> std::optional<Uuid> {
      if (idsLeft_ == 0) return std::nullopt;
      --idsLeft_;
      Uuid id;
      id.bytes[15] = static_cast<uint8_t>(++issued_);
      return id;
    });
  }
  SavedTab saved(std::string url, ArchiveState state) {
    SavedTab t{.id = {},
               .title = "Old title",
               .url = std::move(url),
               .browser = Browser::safari,
               .savedAt = kEarlier,
               .closedAt = std::nullopt,
               .state = state,
               .isFavorite = true};
    t.id.bytes[0] = static_cast<uint8_t>(tabs_.size() + 100);
    if (state == ArchiveState::closed) t.closedAt = kEarlier;
    return t;
  }

  std::vector<SavedTab> tabs_;
  int issued_ = 0;
  int idsLeft_ = 100;
};

TEST_F(KeepClosedTest, ANewPageIsAddedClosedNow) {
  keep({tab(Browser::chrome, "1", "https://a.example/x", "A page")});
  ASSERT_EQ(tabs_.size(), 1u);
  const SavedTab expected{.id = tabs_[0].id,
                          .title = "A page",
                          .url = "https://a.example/x",
                          .browser = Browser::chrome,
                          .savedAt = kNow,
                          .closedAt = kNow,
                          .state = ArchiveState::closed,
                          .isFavorite = false};
  EXPECT_EQ(tabs_[0], expected);
  EXPECT_EQ(tabs_[0].id.bytes[15], 1);
}

TEST_F(KeepClosedTest, OneClosedEntryPerPage) {
  tabs_ = {saved("https://a.example/", ArchiveState::saved),
           saved("https://a.example/", ArchiveState::closed)};
  const std::vector<SavedTab> before = tabs_;
  keep({tab(Browser::chrome, "1", "https://a.example/", "New title"),
        tab(Browser::edge, "2", "https://b.example/"),
        tab(Browser::brave, "3", "https://b.example/", "Later")});
  ASSERT_EQ(tabs_.size(), 3u);
  EXPECT_EQ(tabs_[0], before[0]);  // a kept tab that is not closed is left alone
  SavedTab refreshed = before[1];
  refreshed.title = "New title";
  refreshed.browser = Browser::chrome;
  refreshed.closedAt = kNow;
  EXPECT_EQ(tabs_[1], refreshed);  // id, savedAt and the favorite mark stay
  EXPECT_EQ(tabs_[2].title, "Later");
  EXPECT_EQ(tabs_[2].browser, Browser::brave);
  EXPECT_EQ(issued_, 1);
}

TEST_F(KeepClosedTest, APendingCloseIsConfirmed) {
  tabs_ = {saved("https://a.example/", ArchiveState::pendingClose)};
  keep({tab(Browser::chrome, "1", "https://a.example/", "A")});
  ASSERT_EQ(tabs_.size(), 1u);
  EXPECT_EQ(tabs_[0].state, ArchiveState::closed);
  EXPECT_EQ(tabs_[0].closedAt, kNow);
  EXPECT_EQ(tabs_[0].browser, Browser::chrome);
}

TEST_F(KeepClosedTest, UnsafeExcludedOrUnidentifiedPagesAreNotKept) {
  keep({tab(Browser::chrome, "1", "chrome://newtab/"), tab(Browser::chrome, "2", "about:blank"),
        tab(Browser::chrome, "3", "https://user:pw@a.example/"),
        tab(Browser::chrome, "4", "https://mail.bank.example/inbox")},
       {"bank.example"});
  EXPECT_TRUE(tabs_.empty());
  idsLeft_ = 0;
  keep({tab(Browser::chrome, "5", "https://a.example/")});
  EXPECT_TRUE(tabs_.empty());
}

}  // namespace
}  // namespace velto
