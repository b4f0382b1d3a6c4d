#include "core/policy/tab_budget_suggestion.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

// An unpinned, inactive tab with its own URL, last used `minutesAgo` minutes ago.
LiveTab tab(std::string id, double minutesAgo, Browser browser = Browser::chrome,
            int64_t window = 1, int64_t index = 10) {
  LiveTab t;
  t.id = std::move(id);
  t.browser = browser;
  t.windowID = window;
  t.index = index;
  t.url = "https://example.net/" + t.id;
  t.pinState = PinState::unpinned;
  t.lastActiveAt = addingSeconds(kNow, -minutesAgo * 60);
  return t;
}

Preferences prefs(std::optional<int64_t> tabLimit = std::nullopt) {
  Preferences p;
  p.connectedBrowsers = {Browser::chrome, Browser::brave, Browser::safari};
  p.exclusions = {"bank.example"};
  p.tabLimit = tabLimit;
  return p;
}

// The ids of `tabs`, joined by spaces.
std::string ids(const std::vector<LiveTab>& tabs) {
  std::string out;
  for (const LiveTab& t : tabs) out += (out.empty() ? "" : " ") + t.id;
  return out;
}

// `count` candidates "t0", "t1", ... where a higher number was used longer ago.
std::vector<LiveTab> ordinary(int count) {
  std::vector<LiveTab> tabs;
  for (int i = 0; i < count; ++i) tabs.push_back(tab("t" + std::to_string(i), i));
  return tabs;
}

TEST(TabBudgetSuggestionTest, CountsLimitsAndOverflow) {
  struct Case {
    const char* name;
    int listed;
    std::optional<int64_t> given, tabLimit;
    int64_t total, limit, overflow;
    size_t proposed;
  };
  const Case cases[] = {
      {"30 tabs over the default limit", 30, {}, {}, 30, 25, 5, 5},
      {"exactly at the limit", 25, {}, {}, 25, 25, 0, 0},
      {"a smaller given count never hides listed tabs", 12, 10, 2, 12, 5, 7, 7},
      {"nor does a negative one", 6, -3, 2, 6, 5, 1, 1},
      {"unlisted tabs raise the overflow beyond the candidates", 12, 40, {}, 40, 25, 15, 12},
      {"a limit above 200 is 200", 6, 1000, 1000, 1000, 200, 800, 6},
      {"an empty snapshot", 0, {}, 0, 0, 5, 0, 0},
  };
  for (const Case& c : cases) {
    const TabBudgetSuggestion s(ordinary(c.listed), c.given, prefs(c.tabLimit), kNow);
    EXPECT_EQ(s.totalCount, c.total) << c.name;
    EXPECT_EQ(s.limit, c.limit) << c.name;
    EXPECT_EQ(s.overflow(), c.overflow) << c.name;
    EXPECT_EQ(s.tabs.size(), c.proposed) << c.name;
  }
  EXPECT_EQ(ids(TabBudgetSuggestion(ordinary(30), std::nullopt, prefs(), kNow).tabs),
            "t29 t28 t27 t26 t25");
}

TEST(TabBudgetSuggestionTest, TieBreaksAfterLastUse) {
  struct Case {
    const char* name;
    LiveTab first, second;
  };
  using enum Browser;
  LiveTab visited = tab("first", 120, safari);
  visited.lastVisitAt = addingSeconds(kNow, -3700);  // newer than its last activation
  const Case cases[] = {
      {"brave before safari", tab("first", 60, brave, 9, 9), tab("second", 60, safari, 1, 1)},
      {"brave before chrome", tab("first", 60, brave, 9, 9), tab("second", 60, chrome, 1, 1)},
      {"lower window first", tab("first", 60, chrome, 2, 9), tab("second", 60, chrome, 3, 1)},
      {"window ids as numbers", tab("first", 60, chrome, 9, 4), tab("second", 60, chrome, 10, 4)},
      {"lower index in one window", tab("first", 60, chrome, 2, 4),
       tab("second", 60, chrome, 2, 5)},
      {"ids in byte order, upper case first", tab("Zed", 60), tab("apple", 60)},
      {"the history visit decides last use", visited, tab("second", 60, brave)},
  };
  for (const Case& c : cases) {
    // Both input orders, so that the result cannot come from the snapshot order.
    for (bool reversed : {false, true}) {
      std::vector<LiveTab> snapshot{c.first, c.second};
      if (reversed) std::swap(snapshot[0], snapshot[1]);
      const TabBudgetSuggestion s(snapshot, 6, prefs(0), kNow);
      EXPECT_EQ(ids(s.tabs), c.first.id) << c.name;
    }
  }
}

TEST(TabBudgetSuggestionTest, NeverProposesWhatCannotBeClosed) {
  using enum Browser;
  std::vector<LiveTab> snapshot;
  for (const LiveTab& t : {tab("pinned", 100), tab("unknownAt3", 100, chrome, 1, 3),
                           tab("active", 100), tab("excluded", 100), tab("notWeb", 100),
                           tab("edge", 100, edge), tab("twinA", 100, safari, 1),
                           tab("twinB", 100, safari, 1), tab("activeTwin", 100, safari, 2),
                           tab("sibling", 100, safari, 2), tab("ownWindow1", 90, safari, 3),
                           tab("ownWindow2", 80, safari, 4), tab("unknownAt4", 70, chrome, 1, 4)}) {
    snapshot.push_back(t);
  }
  snapshot[0].pinState = PinState::pinned;
  snapshot[1].pinState = snapshot[12].pinState = PinState::unknown;
  snapshot[2].isActive = snapshot[8].isActive = true;  // an active twin still blocks its sibling
  snapshot[3].url = "https://login.bank.example/";
  snapshot[4].url = "chrome://settings";
  snapshot[7].url = snapshot[6].url;
  snapshot[9].url = snapshot[8].url;
  snapshot[11].url = snapshot[10].url;
  const TabBudgetSuggestion s(snapshot, 100, prefs(), kNow);
  EXPECT_EQ(s.overflow(), 75);
  EXPECT_EQ(ids(s.tabs), "ownWindow1 ownWindow2 unknownAt4");
}

}  // namespace
}  // namespace velto
