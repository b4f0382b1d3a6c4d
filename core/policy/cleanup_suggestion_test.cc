#include "core/policy/cleanup_suggestion.h"

#include <gtest/gtest.h>

#include <functional>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);
constexpr double kHour = 3600;

Date ago(double seconds) { return addingSeconds(kNow, -seconds); }

// An unpinned, inactive Chrome tab in window 1 last used two days ago; `change` adjusts it.
LiveTab tab(std::string id, std::string url, const std::function<void(LiveTab&)>& change = {}) {
  LiveTab t;
  t.id = std::move(id);
  t.browser = Browser::chrome;
  t.windowID = 1;
  t.index = 10;
  t.title = t.id;
  t.url = std::move(url);
  t.pinState = PinState::unpinned;
  t.lastActiveAt = ago(48 * kHour);
  t.observedAt = ago(5);
  if (change) change(t);
  return t;
}

const auto active = [](LiveTab& t) { t.isActive = true; };
const auto pinned = [](LiveTab& t) { t.pinState = PinState::pinned; };
const auto recent = [](LiveTab& t) { t.lastActiveAt = ago(60); };
std::function<void(LiveTab&)> safariWindow(int64_t window) {
  return [window](LiveTab& t) {
    t.browser = Browser::safari;
    t.windowID = window;
  };
}

Preferences prefs() {
  Preferences p;
  p.connectedBrowsers = {Browser::chrome, Browser::safari};
  p.exclusions = {"bank.example"};
  return p;
}

std::vector<std::string> ids(const std::vector<LiveTab>& tabs) {
  std::vector<std::string> out;
  for (const LiveTab& t : tabs) out.push_back(t.id);
  return out;
}

class CleanupSuggestionTest : public ::testing::Test {
 protected:
  void TearDown() override { Preferences::setIdleSecondsOverride(std::nullopt); }
};

TEST_F(CleanupSuggestionTest, DuplicateGroupsAndKeepers) {
  const std::string u = "https://news.example/a";
  struct Case {
    const char* name;
    std::vector<LiveTab> snapshot;
    std::vector<std::string> duplicates;
    std::vector<std::string> idle;
  };
  const Case cases[] = {
      {"empty snapshot", {}, {}, {}},
      {"first of three is kept", {tab("a", u), tab("b", u), tab("c", u)}, {"b", "c"}, {"a"}},
      {"the active member is kept", {tab("a", u), tab("b", u, active)}, {"a"}, {}},
      {"the first active member is kept",
       {tab("a", u), tab("b", u, active), tab("c", u, active)},
       {"a"},
       {}},
      {"a pinned surplus copy is not listed, nor the keeper",
       {tab("a", u, recent), tab("b", u, pinned)},
       {},
       {}},
      {"a member with the keeper's id counts as the keeper",
       {tab("a", u), tab("a", u), tab("b", u)},
       {"b"},
       {"a", "a"}},
      {"chrome copies in one window pair up", {tab("a", u), tab("b", u)}, {"b"}, {"a"}},
      {"safari copies in one window are never proposed",
       {tab("a", u, safariWindow(1)), tab("b", u, safariWindow(1))},
       {},
       {}},
      {"an active safari twin still makes the other unclosable",
       {tab("a", u, safariWindow(1)), tab("b", u,
                                          [](LiveTab& t) {
                                            safariWindow(1)(t);
                                            active(t);
                                          })},
       {},
       {}},
      {"safari copies in two windows pair up",
       {tab("a", u, safariWindow(1)), tab("b", u, safariWindow(2))},
       {"b"},
       {"a"}},
      {"a safari and a chrome copy pair up",
       {tab("a", u, safariWindow(1)), tab("b", u)},
       {"b"},
       {"a"}},
      {"unconnected and excluded tabs do not join a group",
       {tab("a", u, [](LiveTab& t) { t.browser = Browser::edge; }), tab("b", u),
        tab("c", "https://bank.example/x"), tab("d", "https://www.bank.example/x")},
       {},
       {"b"}},
      {"urls differing in case or a slash are not copies",
       {tab("a", u), tab("b", "https://news.example/A"), tab("c", u + "/")},
       {},
       {"a", "b", "c"}},
      {"non-web tabs are never eligible",
       {tab("a", "about:blank"), tab("b", "about:blank")},
       {},
       {}},
  };
  for (const Case& c : cases) {
    const CleanupSuggestion s(c.snapshot, prefs(), kNow);
    EXPECT_EQ(ids(s.duplicates), c.duplicates) << c.name;
    EXPECT_EQ(ids(s.tabs), c.idle) << c.name;
  }
}

TEST_F(CleanupSuggestionTest, DuplicatesSortByTitleInByteOrderKeepingSnapshotOrderOnTies) {
  const std::string u = "https://x.example/", v = "https://y.example/";
  const auto titled = [](const char* title) { return [title](LiveTab& t) { t.title = title; }; };
  const CleanupSuggestion s(
      {tab("k1", u, recent), tab("z", u, titled("beta")), tab("k2", v, recent),
       tab("B", v, titled("Beta")), tab("a2", u, titled("alpha")), tab("a1", v, titled("alpha"))},
      prefs(), kNow);
  EXPECT_EQ(ids(s.duplicates), (std::vector<std::string>{"B", "a2", "a1", "z"}));
}

TEST_F(CleanupSuggestionTest, IdleTabsOldestFirstAndThresholdIsInclusive) {
  Preferences p = prefs();
  p.idleHours = 0;  // counts as one hour
  const auto usedAgo = [](double seconds) {
    return [=](LiveTab& t) { t.lastActiveAt = ago(seconds); };
  };
  const CleanupSuggestion s({tab("exact", "https://a.example/", usedAgo(kHour)),
                             tab("short", "https://b.example/", usedAgo(kHour - 0.001)),
                             tab("old", "https://c.example/", usedAgo(10 * kHour)),
                             tab("tie1", "https://d.example/", usedAgo(5 * kHour)),
                             tab("tie2", "https://e.example/", usedAgo(5 * kHour)),
                             tab("visited", "https://f.example/",
                                 [](LiveTab& t) {
                                   t.lastActiveAt = ago(20 * kHour);
                                   t.lastVisitAt =
                                       ago(30);  // a newer history visit wins over the observation
                                 }),
                             tab("active", "https://g.example/",
                                 [&](LiveTab& t) {
                                   usedAgo(50 * kHour)(t);
                                   active(t);
                                 }),
                             tab("protected", "https://h.example/",
                                 [&](LiveTab& t) {
                                   usedAgo(50 * kHour)(t);
                                   t.pinState = PinState::unknown;
                                   t.index = 3;
                                 })},
                            p, kNow);
  EXPECT_EQ(ids(s.tabs), (std::vector<std::string>{"old", "tie1", "tie2", "exact"}));
  EXPECT_TRUE(s.duplicates.empty());
}

TEST_F(CleanupSuggestionTest, ProcessWideOverrideSetsTheThreshold) {
  Preferences::setIdleSecondsOverride(30);
  const std::vector<LiveTab> snapshot{
      tab("a", "https://a.example/", recent),
      tab("b", "https://b.example/", [](LiveTab& t) { t.lastActiveAt = ago(29); })};
  EXPECT_EQ(ids(CleanupSuggestion(snapshot, prefs(), kNow).tabs), std::vector<std::string>{"a"});
}

TEST_F(CleanupSuggestionTest, NothingIsProposedWithoutConnectedBrowsers) {
  Preferences p = prefs();
  p.connectedBrowsers = {};
  const std::string u = "https://a.example/";
  EXPECT_EQ(CleanupSuggestion({tab("a", u), tab("b", u)}, p, kNow), CleanupSuggestion());
}

}  // namespace
}  // namespace velto
