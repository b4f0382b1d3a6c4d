#include "core/policy/tab_policy.h"

#include <gtest/gtest.h>

#include <functional>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

Date ago(double seconds) { return addingSeconds(kNow, -seconds); }

// An inactive Chrome tab, idle for 100,000 s and observed 10 s ago.
LiveTab tab(int64_t index = 5, PinState pin = PinState::unknown) {
  LiveTab t;
  t.id = "chrome:1:" + std::to_string(index);
  t.browser = Browser::chrome;
  t.windowID = 1;
  t.index = index;
  t.url = "https://news.example.net/a";
  t.pinState = pin;
  t.lastActiveAt = ago(100000);
  t.observedAt = ago(10);
  return t;
}

// Chrome and Safari connected, both automatic closings on.
Preferences prefs() {
  Preferences p;
  p.connectedBrowsers = {Browser::chrome, Browser::safari};
  p.autoClose = true;
  p.automaticTabLimit = true;
  return p;
}

TEST(TabPolicyTest, SafeURLTakesOnlyPlainWebAddresses) {
  EXPECT_TRUE(TabPolicy::safeURL("HTTPS://Example.org/x"));
  EXPECT_TRUE(TabPolicy::safeURL("http://example.org"));
  for (const char* bad : {"ftp://example.org", "about:blank", "https://user:pw@example.org",
                          "https://user@example.org", "https:///path", "javascript:alert(1)", ""}) {
    EXPECT_FALSE(TabPolicy::safeURL(bad)) << bad;
  }
}

TEST(TabPolicyTest, NormalizesExclusionEntries) {
  using Case = std::pair<const char*, std::optional<std::string>>;  // entry, domain
  for (const auto& [entry, domain] :
       {Case{"*.Example.ORG ", "example.org"}, Case{"\texample.org.\n", "example.org"},
        Case{"\u00a0example.org\u3000", "example.org"},
        Case{"\u2028*.Example.org\u0085", "example.org"},
        Case{"https://Mail.Example.org/inbox", "mail.example.org"},
        Case{"ftp://files.example.org", "files.example.org"},
        Case{"www.example.org", "www.example.org"}, Case{"localhost", {}}, Case{"", {}},
        Case{" \u00a0 ", {}}, Case{"exa mple.org", {}}, Case{"*.", {}}}) {
    EXPECT_EQ(TabPolicy::normalizedDomain(entry), domain) << entry;
  }
}

TEST(TabPolicyTest, ExclusionMatchesHostsAndSubdomainsAndFailsClosed) {
  using Case = std::pair<const char*, bool>;  // URL, excluded
  for (const auto& [url, excluded] :
       {Case{"https://example.org/", true}, Case{"https://a.b.example.org", true},
        Case{"https://Example.org./x", true}, Case{"https://notexample.org", false},
        Case{"https://example.org.evil.net", false}, Case{"about:blank", true},
        Case{"ftp://example.net", true}, Case{"https://u:p@safe.net", true},
        Case{"http://safe.net", false}, Case{"https://a..example.org", true},
        Case{"https://ex%41mple.ORG/", true}}) {
    EXPECT_EQ(TabPolicy::isExcluded(url, {"*.Example.ORG "}), excluded) << url;
  }
  EXPECT_TRUE(TabPolicy::isExcluded("about:blank", {}));
  EXPECT_FALSE(TabPolicy::isExcluded("https://example.org", {}));
  EXPECT_FALSE(TabPolicy::isExcluded("https://example.org", {"www.example.org"}));
  EXPECT_FALSE(TabPolicy::isExcluded("https://localhost.org", {"localhost", "", "exa mple.org"}));
  EXPECT_TRUE(TabPolicy::isExcluded("https://mail.google.com/u/0", defaultExclusions()));
}

TEST(TabPolicyTest, ProtectionByPinStateAndIndex) {
  struct Case {
    PinState pin;
    int64_t index;
    std::optional<int64_t> protectedTabs;
    bool isProtected;
  };
  using enum PinState;
  for (const Case& c :
       {Case{pinned, 40, {}, true}, Case{unknown, 3, {}, true}, Case{unknown, 4, {}, false},
        Case{unpinned, 1, {}, false}, Case{unknown, 1, -2, false}, Case{unknown, 0, -2, true},
        Case{unknown, 50, 50, true}}) {
    Preferences p = prefs();
    p.protectedTabs = c.protectedTabs;
    EXPECT_EQ(TabPolicy::isProtected(tab(c.index, c.pin), p), c.isProtected)
        << rawValue(c.pin) << " at " << c.index;
  }
}

TEST(TabPolicyTest, LastUsedPrefersNewerVisitsAndTrustsOlderOnesAfterNeglect) {
  struct Case {
    const char* name;
    std::optional<double> visitAgo, neverSelectedAgo, idleOverride;
    double lastUsedAgo;  // lastActiveAt is 5000 s ago
  };
  const Case cases[] = {
      {"no visit", {}, 7200, {}, 5000},
      {"a visit in the future is ignored", -10, 7200, {}, 5000},
      {"a newer visit wins", 100, {}, {}, 100},
      {"an older visit of a tab never unselected", 9000, {}, {}, 5000},
      {"an older visit, unselected just under the hour cap", 9000, 3599, {}, 5000},
      {"an older visit, unselected for the hour cap", 9000, 3600, {}, 9000},
      {"a short threshold trusts the visit sooner", 9000, 10, 10, 9000},
      {"but not before the threshold", 9000, 9.9, 10, 5000},
  };
  for (const Case& c : cases) {
    Preferences::setIdleSecondsOverride(c.idleOverride);
    LiveTab t = tab();
    t.lastActiveAt = ago(5000);
    if (c.visitAgo) t.lastVisitAt = ago(*c.visitAgo);
    if (c.neverSelectedAgo) t.neverSelectedSince = ago(*c.neverSelectedAgo);
    EXPECT_EQ(TabPolicy::lastUsed(t, prefs(), kNow), ago(c.lastUsedAgo)) << c.name;
  }
  Preferences::setIdleSecondsOverride(std::nullopt);
}

TEST(TabPolicyTest, NeverClosesActiveExcludedProtectedOrUnconnectedTabs) {
  const Preferences p = prefs();
  EXPECT_TRUE(TabPolicy::canSuggestClosing(tab(), p));
  LiveTab active = tab(), excluded = tab(), pinned = tab(5, PinState::pinned), edge = tab();
  active.isActive = true;
  excluded.url = "https://chase.com/";
  edge.browser = Browser::edge;
  for (const LiveTab& t : {active, excluded, pinned, edge}) {
    EXPECT_FALSE(TabPolicy::canSuggestClosing(t, p)) << t.url;
    EXPECT_FALSE(TabPolicy::canAutoClose(t, p, kNow)) << t.url;
    EXPECT_FALSE(TabPolicy::canAutoCloseForTabLimit(t, p, kNow)) << t.url;
  }
}

TEST(TabPolicyTest, AutoCloseNeedsItsSwitchAFreshObservationAndIdleness) {
  struct Case {
    double observedAgo, usedAgo;
    bool autoClose, forLimit;
  };
  for (const Case& c :
       {Case{89.9, 86400, true, true}, Case{90, 86400, false, false}, Case{-1, 86400, false, false},
        Case{0, 86400, true, true}, Case{10, 86399.5, false, true}, Case{10, 300, false, true},
        Case{10, 299, false, false}}) {
    LiveTab t = tab();
    t.observedAt = ago(c.observedAgo);
    t.lastActiveAt = ago(c.usedAgo);
    Preferences p = prefs();
    SCOPED_TRACE(::testing::Message() << c.observedAgo << " " << c.usedAgo);
    EXPECT_EQ(TabPolicy::canAutoClose(t, p, kNow), c.autoClose);
    EXPECT_EQ(TabPolicy::canAutoCloseForTabLimit(t, p, kNow), c.forLimit);
    p.autoClose = false;
    p.automaticTabLimit.reset();
    EXPECT_FALSE(TabPolicy::canAutoClose(t, p, kNow) ||
                 TabPolicy::canAutoCloseForTabLimit(t, p, kNow));
  }
}

TEST(TabPolicyTest, ReconcileCarriesTimestampsOnlyForTheSameTab) {
  struct Case {
    const char* name;
    Browser browser;
    int64_t freshIndex;  // the previous tab is at 5
    double previousObservedAgo;
    const char *changedURL, *changedID;
    bool same;
  };
  using enum Browser;
  for (const Case& c : {Case{"unchanged", chrome, 5, 30, "", "", true},
                        Case{"moved in Chrome", chrome, 9, 30, "", "", true},
                        Case{"in place in Safari", safari, 5, 30, "", "", true},
                        Case{"moved in Safari", safari, 9, 30, "", "", false},
                        Case{"observed 89.9 s before", chrome, 5, 89.9, "", "", true},
                        Case{"observed 90 s before", chrome, 5, 90, "", "", false},
                        Case{"observed in the future", chrome, 5, -1, "", "", false},
                        Case{"another URL", chrome, 5, 30, "?b", "", false},
                        Case{"another id", chrome, 5, 30, "", "0", false}}) {
    LiveTab fresh = tab(c.freshIndex), previous = tab();
    fresh.id = previous.id + c.changedID;
    fresh.url += c.changedURL;
    fresh.browser = previous.browser = c.browser;
    fresh.title = "renamed";     // the fresh tab's own fields stay
    fresh.lastVisitAt = ago(1);  // but what it carried as a visit is replaced
    previous.lastActiveAt = ago(7000);
    previous.neverSelectedSince = ago(6000);
    previous.lastVisitAt = ago(6500);
    previous.observedAt = ago(c.previousObservedAgo);
    LiveTab expected = fresh;
    expected.observedAt = kNow;
    expected.lastActiveAt = c.same ? ago(7000) : kNow;
    expected.neverSelectedSince = c.same ? ago(6000) : kNow;
    expected.lastVisitAt = c.same ? std::optional(ago(6500)) : std::nullopt;
    EXPECT_EQ(TabPolicy::reconcile({fresh}, {previous}, kNow).at(0), expected) << c.name;
    // An active tab is used now, whether or not it is the same tab.
    fresh.isActive = expected.isActive = true;
    expected.lastActiveAt = kNow;
    expected.neverSelectedSince.reset();
    EXPECT_EQ(TabPolicy::reconcile({fresh}, {previous}, kNow).at(0), expected) << c.name;
  }

  // The match's absent neverSelectedSince stays absent; of two previous tabs with one id,
  // the later wins; the fresh order is kept.
  LiveTab later = tab();
  later.lastActiveAt = ago(42);
  const auto both = TabPolicy::reconcile({tab(), tab(7)}, {tab(), later}, kNow);
  EXPECT_EQ(both.at(0).lastActiveAt, ago(42));
  EXPECT_EQ(both.at(0).neverSelectedSince, std::nullopt);
  EXPECT_EQ(both.at(1).id, tab(7).id);
}

}  // namespace
}  // namespace velto
