#include "core/browser/session_tabs.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

Session twoWindows() {
  SessionTab pinned{7, true, dateFromSecondsSince1970(1700000000), "https://a.org/", "A"};
  SessionTab untitled{8, false, std::nullopt, "https://b.org/", ""};
  SessionTab unknown{9, false, std::nullopt, "https://c.org/", ""};
  return Session{3, {SessionWindow{100, {pinned, untitled}, 1}, SessionWindow{200, {unknown}, 0}}};
}

TEST(SessionTabsTest, ShapedAsASnapshotShapesChromiumTabs) {
  const Date now = dateFromSecondsSince1970(1800000000);
  std::vector<LiveTab> tabs;
  SessionTabs::append(twoWindows(), "Default", Browser::chrome, {{"https://b.org/", "Bee"}}, now,
                      tabs);
  ASSERT_EQ(tabs.size(), 3u);
  LiveTab expected;
  expected.id = "chrome:100:7";
  expected.browser = Browser::chrome;
  expected.windowID = 100;
  expected.tabID = "7";
  expected.index = 1;
  expected.title = "A";
  expected.url = "https://a.org/";
  expected.isActive = false;
  expected.pinState = PinState::pinned;
  expected.lastActiveAt = dateFromSecondsSince1970(1700000000);
  expected.observedAt = now;
  EXPECT_EQ(tabs[0], expected);
  // The history's title, then the URL, stand in for a missing one.
  EXPECT_EQ(tabs[1].title, "Bee");
  EXPECT_EQ(tabs[2].title, "https://c.org/");
  EXPECT_EQ(tabs[1].index, 2);
  EXPECT_TRUE(tabs[1].isActive);
  EXPECT_EQ(tabs[1].pinState, PinState::unpinned);
  EXPECT_EQ(tabs[1].lastActiveAt, now);
  EXPECT_EQ(tabs[2].id, "chrome:200:9");
  EXPECT_EQ(tabs[2].index, 1);
  EXPECT_TRUE(tabs[2].isActive);
  EXPECT_EQ(SessionTabs::untitledURLs(twoWindows()),
            (std::vector<std::string>{"https://b.org/", "https://c.org/"}));
}

TEST(SessionTabsTest, ProfilesNeverShareWindowIDsAndTheCapHolds) {
  // The same session read from two profiles: the default keeps the browser's ids.
  std::vector<LiveTab> tabs;
  SessionTabs::append(twoWindows(), "Default", Browser::edge, {}, now(), tabs);
  SessionTabs::append(twoWindows(), "Profile 1", Browser::edge, {}, now(), tabs);
  ASSERT_EQ(tabs.size(), 6u);
  const int64_t other = SessionTabs::windowID("Profile 1", 100);
  EXPECT_EQ(tabs[3].windowID, other);
  EXPECT_EQ(tabs[3].id, "edge:" + std::to_string(other) + ":7");
  EXPECT_GT(other, int64_t{1} << 32);
  EXPECT_EQ(other & 0xFFFFFFFF, 100);
  EXPECT_NE(SessionTabs::windowID("Profile 2", 100), other);
  // Stable from one run to the next; negative browser ids stay apart too.
  EXPECT_EQ(SessionTabs::windowID("Profile 1", 100), 0x57069DC100000064);
  EXPECT_NE(SessionTabs::windowID("Profile 1", -1), SessionTabs::windowID("Profile 1", 1));
  EXPECT_EQ(SessionTabs::windowID("Default", -1), -1);

  Session many{
      3, {SessionWindow{1, std::vector<SessionTab>(700, SessionTab{1, false, {}, "u", "t"}), 0}}};
  tabs.clear();
  SessionTabs::append(many, "Default", Browser::brave, {}, now(), tabs);
  SessionTabs::append(many, "Profile 1", Browser::brave, {}, now(), tabs);
  EXPECT_EQ(tabs.size(), SessionTabs::kMaxTabs);
}

}  // namespace
}  // namespace velto
