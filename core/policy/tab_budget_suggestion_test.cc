#include "core/policy/tab_budget_suggestion.h"

#include <gtest/gtest.h>

#include <functional>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

Date ago(double seconds) { return addingSeconds(kNow, -seconds); }

// An unpinned, inactive Chrome tab in window 1, last used `minutesAgo` minutes ago.
LiveTab tab(std::string id, double minutesAgo, const std::function<void(LiveTab&)>& change = {}) {
  LiveTab t;
  t.id = std::move(id);
  t.browser = Browser::chrome;
  t.windowID = 1;
  t.index = 10;
  t.url = "https://example.net/" + t.id;
  t.pinState = PinState::unpinned;
  t.lastActiveAt = ago(minutesAgo * 60);
  t.observedAt = ago(5);
  if (change) change(t);
  return t;
}

Preferences prefs(std::optional<int64_t> tabLimit = std::nullopt) {
  Preferences p;
  p.connectedBrowsers = {Browser::chrome, Browser::brave, Browser::safari};
  p.exclusions = {"bank.example"};
  p.tabLimit = tabLimit;
  return p;
}

std::vector<std::string> ids(const std::vector<LiveTab>& tabs) {
  std::vector<std::string> out;
  for (const LiveTab& t : tabs) out.push_back(t.id);
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
    std::optional<int64_t> given;
    std::optional<int64_t> tabLimit;
    int64_t total, limit, overflow;
    size_t proposed;
  };
  const Case cases[] = {
      {"30 tabs over the default limit", 30, {}, {}, 30, 25, 5, 5},
      {"within the limit", 20, {}, {}, 20, 25, 0, 0},
      {"exactly at the limit", 25, {}, {}, 25, 25, 0, 0},
      {"a smaller given count never hides listed tabs", 12, 10, 2, 12, 5, 7, 7},
      {"a negative given count too", 6, -3, 2, 6, 5, 1, 1},
      {"unlisted tabs raise the overflow beyond the candidates", 12, 40, {}, 40, 25, 15, 12},
      {"a limit below 5 is 5", 6, {}, 2, 6, 5, 1, 1},
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
}

TEST(TabBudgetSuggestionTest, LongestUnusedGoFirst) {
  const TabBudgetSuggestion s(ordinary(30), std::nullopt, prefs(), kNow);
  EXPECT_EQ(ids(s.tabs), (std::vector<std::string>{"t29", "t28", "t27", "t26", "t25"}));
}

TEST(TabBudgetSuggestionTest, TieBreaksAfterLastUse) {
  using Change = std::function<void(LiveTab&)>;
  struct Case {
    const char* name;
    Change first, second;  // applied to two tabs with equal last use
  };
  const auto in = [](Browser b, int64_t window, int64_t index) -> Change {
    return [=](LiveTab& t) {
      t.browser = b;
      t.windowID = window;
      t.index = index;
    };
  };
  const Case cases[] = {
      {"brave before safari", in(Browser::brave, 9, 9), in(Browser::safari, 1, 1)},
      {"brave before chrome", in(Browser::brave, 9, 9), in(Browser::chrome, 1, 1)},
      {"lower window first", in(Browser::chrome, 2, 9), in(Browser::chrome, 3, 1)},
      {"lower index first in one window", in(Browser::chrome, 2, 4), in(Browser::chrome, 2, 5)},
      {"a window id sorts as a number", in(Browser::chrome, 9, 4), in(Browser::chrome, 10, 4)},
      {"an earlier visit beats every other key",
       [](LiveTab& t) {
         t.browser = Browser::safari;
         t.lastActiveAt = ago(7200);
         t.lastVisitAt = ago(3700);  // newer than the last activation, so it counts
       },
       [](LiveTab& t) {
         t.browser = Browser::brave;
         t.lastActiveAt = ago(3600);
       }},
  };
  for (const Case& c : cases) {
    // Both input orders, so that the result cannot come from the snapshot order.
    for (bool reversed : {false, true}) {
      std::vector<LiveTab> snapshot{tab("first", 60, c.first), tab("second", 60, c.second)};
      if (reversed) std::swap(snapshot[0], snapshot[1]);
      const TabBudgetSuggestion s(snapshot, 6, prefs(0), kNow);
      EXPECT_EQ(ids(s.tabs), (std::vector<std::string>{"first"})) << c.name;
    }
  }
  // Everything equal but the id: plain byte order, so "B" before "a".
  const TabBudgetSuggestion byID({tab("a", 60), tab("B", 60)}, 7, prefs(0), kNow);
  EXPECT_EQ(ids(byID.tabs), (std::vector<std::string>{"B", "a"}));
}

TEST(TabBudgetSuggestionTest, NeverProposesWhatCannotBeClosed) {
  const auto safari = [](int64_t window, std::string url) {
    return [=](LiveTab& t) {
      t.browser = Browser::safari;
      t.windowID = window;
      t.url = url;
    };
  };
  const auto unknownAt = [](int64_t index) {
    return [=](LiveTab& t) {
      t.pinState = PinState::unknown;
      t.index = index;
    };
  };
  const std::vector<LiveTab> snapshot{
      tab("pinned", 100, [](LiveTab& t) { t.pinState = PinState::pinned; }),
      tab("unknownAt3", 100, unknownAt(3)),
      tab("active", 100, [](LiveTab& t) { t.isActive = true; }),
      tab("excluded", 100, [](LiveTab& t) { t.url = "https://login.bank.example/"; }),
      tab("notWeb", 100, [](LiveTab& t) { t.url = "chrome://settings"; }),
      tab("edge", 100, [](LiveTab& t) { t.browser = Browser::edge; }),
      tab("twinA", 100, safari(1, "https://twin.example/")),
      tab("twinB", 100, safari(1, "https://twin.example/")),
      // The active twin is not a candidate, yet it still makes its sibling ambiguous.
      tab("activeTwin", 100,
          [&](LiveTab& t) {
            safari(2, "https://other.example/")(t);
            t.isActive = true;
          }),
      tab("sibling", 100, safari(2, "https://other.example/")),
      tab("ownWindow1", 90, safari(3, "https://split.example/")),
      tab("ownWindow2", 80, safari(4, "https://split.example/")),
      tab("unknownAt4", 70, unknownAt(4)),
  };
  const TabBudgetSuggestion s(snapshot, 100, prefs(), kNow);
  EXPECT_EQ(s.overflow(), 75);
  EXPECT_EQ(ids(s.tabs), (std::vector<std::string>{"ownWindow1", "ownWindow2", "unknownAt4"}));
}

TEST(TabBudgetSuggestionTest, ExactlyTheFirstOverflowOfAFullSort) {
  // Many equal dates across browsers and windows: selecting the head must agree with a
  // full stable sort of every candidate.
  std::vector<LiveTab> snapshot;
  for (int i = 0; i < 200; ++i) {
    snapshot.push_back(tab("t" + std::to_string(i), i % 3, [i](LiveTab& t) {
      t.browser = i % 2 ? Browser::brave : Browser::chrome;
      t.windowID = i % 5;
      t.index = 4 + i % 7;
    }));
  }
  const TabBudgetSuggestion all(snapshot, 1000, prefs(), kNow);
  ASSERT_EQ(all.tabs.size(), snapshot.size());
  for (int64_t total : {26, 60, 150}) {
    const TabBudgetSuggestion some(snapshot, total, prefs(), kNow);
    const std::vector<LiveTab> head(all.tabs.begin(), all.tabs.begin() + some.overflow());
    EXPECT_EQ(some.tabs, head) << total;
  }
}

}  // namespace
}  // namespace velto
