#include "core/policy/cleanup_suggestion.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);
constexpr double kHour = 3600;

// An unpinned, inactive Chrome tab in window 1, last used two days ago, titled by its id.
// Flags: A active, P pinned, R used a minute ago, 1/2 a Safari tab in window 1/2, E Edge.
LiveTab tab(std::string id, std::string url, std::string_view flags = "") {
  LiveTab t;
  t.id = t.title = std::move(id);
  t.url = std::move(url);
  t.browser = flags.find('E') != flags.npos ? Browser::edge : Browser::chrome;
  t.windowID = 1;
  t.index = 10;
  t.pinState = flags.find('P') != flags.npos ? PinState::pinned : PinState::unpinned;
  t.isActive = flags.find('A') != flags.npos;
  t.lastActiveAt = addingSeconds(kNow, flags.find('R') != flags.npos ? -60 : -48 * kHour);
  for (char window : {'1', '2'}) {
    if (flags.find(window) == flags.npos) continue;
    t.browser = Browser::safari;
    t.windowID = window - '0';
  }
  return t;
}

Preferences prefs() {
  Preferences p;
  p.connectedBrowsers = {Browser::chrome, Browser::safari};
  p.exclusions = {"bank.example"};
  return p;
}

// The ids of `tabs`, joined by spaces.
std::string ids(const std::vector<LiveTab>& tabs) {
  std::string out;
  for (const LiveTab& t : tabs) out += (out.empty() ? "" : " ") + t.id;
  return out;
}

TEST(CleanupSuggestionTest, DuplicateGroupsKeepersAndSafariKeys) {
  const std::string u = "https://news.example/a", upper = "https://news.example/A",
                    bank = "https://www.bank.example/";
  struct Case {
    const char* name;
    std::vector<LiveTab> snapshot;
    const char *duplicates, *idle;
  };
  const Case cases[] = {
      {"empty snapshot", {}, "", ""},
      {"first of three is kept", {tab("a", u), tab("b", u), tab("c", u)}, "b c", "a"},
      {"the first active is kept", {tab("a", u), tab("b", u, "A"), tab("c", u, "A")}, "a", ""},
      {"a pinned copy is not listed, nor the keeper", {tab("a", u, "R"), tab("b", u, "P")}, "", ""},
      {"the keeper's id is the keeper", {tab("a", u), tab("a", u), tab("b", u)}, "b", "a a"},
      {"a surplus copy's id is not idle", {tab("a", u), tab("b", u), tab("b", u + "2")}, "b", "a"},
      {"safari copies in one window", {tab("a", u, "1"), tab("b", u, "1")}, "", ""},
      {"an active safari twin still blocks", {tab("a", u, "1"), tab("b", u, "1A")}, "", ""},
      {"safari copies in two windows pair up", {tab("a", u, "1"), tab("b", u, "2")}, "b", "a"},
      {"a safari and a chrome copy pair up", {tab("a", u, "1"), tab("b", u)}, "b", "a"},
      {"unconnected", {tab("a", u, "E"), tab("b", u)}, "", "b"},
      {"excluded", {tab("a", bank), tab("b", bank), tab("c", "https://bank.example/")}, "", ""},
      {"URL case or a slash", {tab("a", u), tab("b", upper), tab("c", u + "/")}, "", "a b c"},
      {"non-web tabs", {tab("a", "about:blank"), tab("b", "about:blank")}, "", ""},
  };
  for (const Case& c : cases) {
    const CleanupSuggestion s(c.snapshot, prefs(), kNow);
    EXPECT_EQ(ids(s.duplicates), c.duplicates) << c.name;
    EXPECT_EQ(ids(s.tabs), c.idle) << c.name;
  }
}

TEST(CleanupSuggestionTest, DuplicatesSortByTitleInByteOrderKeepingSnapshotOrderOnTies) {
  const std::string u = "https://x.example/", v = "https://y.example/";
  std::vector<LiveTab> snapshot{tab("k1", u, "R"), tab("z", u),  tab("k2", v, "R"),
                                tab("B", v),       tab("a2", u), tab("a1", v)};
  snapshot[1].title = "beta";
  snapshot[3].title = "Beta";
  snapshot[4].title = snapshot[5].title = "alpha";
  EXPECT_EQ(ids(CleanupSuggestion(snapshot, prefs(), kNow).duplicates), "B a2 a1 z");
}

TEST(CleanupSuggestionTest, IdleTabsOldestFirstAndThresholdIsInclusive) {
  Preferences p = prefs();
  p.idleHours = 0;  // counts as one hour
  std::vector<LiveTab> snapshot;
  using Row = std::pair<const char*, double>;  // id, last used this long ago
  for (const auto& [id, usedAgo] :
       {Row{"exact", kHour}, Row{"short", kHour - 0.001}, Row{"old", 10 * kHour},
        Row{"tie1", 5 * kHour}, Row{"tie2", 5 * kHour}, Row{"visited", 20 * kHour},
        Row{"unknownAt3", 50 * kHour}}) {
    snapshot.push_back(tab(id, std::string("https://") + id + ".example/"));
    snapshot.back().lastActiveAt = addingSeconds(kNow, -usedAgo);
  }
  snapshot[5].lastVisitAt = addingSeconds(kNow, -30);  // a newer history visit counts
  snapshot[6].pinState = PinState::unknown;            // protected by its position
  snapshot[6].index = 3;
  EXPECT_EQ(ids(CleanupSuggestion(snapshot, p, kNow).tabs), "old tie1 tie2 exact");
}

}  // namespace
}  // namespace velto
